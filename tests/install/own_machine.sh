# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# A machine of its own for a test of the packages: this machine's /usr, /etc and /var in a mount
# namespace, where all changes go to a file system of the test, and empty /run and /home. The
# packages can be installed there with their real scripts. The test sets `work`, a directory
# for what it leaves, and `packages`, the directory of the packages.

failed=0
complain() { echo "FAILED: $*"; failed=1; }
expect() { # <what> <expected> <got>
  [ "$2" = "$3" ] || complain "$1: '$3', not '$2'"
}
# Skips the test (77), unless the machine should have what it needs.
skip() { # <what the machine lacks> <message>
  echo "skipped: $2"
  case " ${AAA_TESTS_MACHINE_HAS-} " in *" $1 "*) exit 1 ;; *) exit 77 ;; esac
}
must() { "$@" >>"$work/commands.log" 2>&1 || { complain "failed: $*"; tail -n 30 "$work/commands.log"; exit 1; }; }
deb() { echo "$packages/$1"_*.deb; }

# Starts the test again in a mount namespace.
enter_namespace() { # <the test and its arguments>
  local program
  [ -z "${AAA_IN_NAMESPACE:-}" ] || return 0
  [ "$(id -u)" -eq 0 ] || skip root "needs root, to become other users: run the tests as root"
  for program in unshare setpriv pamtester openssl sshd ssh sshpass systemd-sysusers systemd-tmpfiles systemd-analyze dpkg-deb; do
    command -v $program >/dev/null || skip programs "$program is not installed: scripts/setup test installs it"
  done
  setpriv --reuid=65534 --regid=65534 --clear-groups true 2>/dev/null || skip root "this process may not become another user"
  unshare -m true 2>/dev/null || skip mounts "this process may not make a mount namespace"
  ! dpkg-query -W aaa-common >/dev/null 2>&1 || skip programs "the packages are installed on this machine"
  AAA_IN_NAMESPACE=1 exec unshare -m --propagation private "$@"
}

make_machine() {
  local dir
  rm -rf "$work"
  mkdir -p "$work"
  work=$(realpath "$work")
  : >"$work/aaad.log"
  stage=$(mktemp -d /tmp/aaa-install-stage.XXXXXX)
  trap leave_machine EXIT
  mount -t tmpfs -o mode=755 tmpfs "$stage"
  for dir in usr etc var; do
    mkdir "$stage/$dir" "$stage/$dir.work"
    mount -t overlay overlay -o "lowerdir=/$dir,upperdir=$stage/$dir,workdir=$stage/$dir.work" "/$dir" 2>/dev/null ||
      skip overlays "this machine does not mount overlays"
  done
  mount -t tmpfs -o mode=755 tmpfs /run
  mount -t tmpfs -o mode=755 tmpfs /home
  rm -rf /var/lib/aaa /etc/aaa # of a machine that had the service
  rm -f /etc/nologin
  export DEBIAN_FRONTEND=noninteractive
  unset AAA_SYSDB_CFG_DIR AAA_SYSDB_RUN_DIR AAA_SYSDB_PROVIDER AAA_MASTER_KEYS AAA_LOG NO_DLLMAIN
}

leave_machine() {
  umount -l /etc /usr /var "$stage" 2>/dev/null || true
  rmdir "$stage"
}
