# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# Servers for a login on this machine alone: FreeRADIUS and sshd on free ports of the loopback
# interface, in a mount namespace whose /run is empty. Functions for scripts/demo-login and
# install.manual, which set
#
#   login_dir   a directory for the servers' files
#   login_here  the directory of this file
#
# and call stop_servers at the end.

radius_pid=
sshd_pid=

# A number that neither TCP nor UDP uses now, below those of outgoing connections.
free_port() {
    local port used
    used=$(cat /proc/net/{tcp,udp,tcp6,udp6} 2>/dev/null | sed -n 's/^ *[0-9]*: [0-9A-F]*:\([0-9A-F]*\) .*/\1/p')
    while :; do
        port=$((10000 + RANDOM % 20000))
        grep -q "$(printf '^%04X$' "$port")" <<<"$used" || break
    done
    echo "$port"
}

# start PID_VARIABLE LOG TEXT COMMAND...: starts a server whose output goes to the log, and
# waits until it has written the text.
start() {
    local -n pid=$1
    local log=$2 text=$3
    shift 3
    : >"$log"
    "$@" >"$log" 2>&1 &
    pid=$!
    if ! timeout 60 grep -qm1 -F -- "$text" <(exec tail -s 0.1 -n +1 -f "$log" --pid="$pid" 2>/dev/null); then
        echo "this does not start: $*" >&2
        tail -n 20 "$log" >&2
        return 1
    fi
}

# start_radius PORT: with the user alice, whose password is "at the server", and the key
# testing123. Accounting records go to $login_dir/radius/detail.
start_radius() {
    mkdir -p "$login_dir/radius"
    sed "s|@DIR@|$login_dir/radius|; s|@PORT@|$1|; s|@ACCOUNTING_PORT@|$(($1 + 1))|" "$login_here/radiusd.conf.in" >"$login_dir/radius/radiusd.conf"
    cp "$login_here/radius.users" "$login_dir/radius/users"
    echo '$INCLUDE /usr/share/freeradius/dictionary' >"$login_dir/radius/dictionary"
    start radius_pid "$login_dir/radius.log" "Ready to process requests" \
        freeradius -f -l stdout -d "$login_dir/radius" -n radiusd
}

stop_radius() {
    kill "$radius_pid"
    wait "$radius_pid" 2>/dev/null || true
    radius_pid=
}

# start_sshd PORT
start_sshd() {
    mkdir -p /run/sshd
    ssh-keygen -q -t ed25519 -N '' -f "$login_dir/host_key"
    sed "s|@DIR@|$login_dir|; s|@PORT@|$1|" "$login_here/sshd_config.in" >"$login_dir/sshd_config"
    start sshd_pid "$login_dir/sshd.log" "Server listening" /usr/sbin/sshd -D -e -f "$login_dir/sshd_config"
    ssh_port=$1
}

# ssh_as USER PASSWORD COMMAND...
ssh_as() {
    local user=$1 password=$2
    shift 2
    sshpass -p "$password" ssh -F /dev/null -p "$ssh_port" -o StrictHostKeyChecking=no -o UserKnownHostsFile=/dev/null \
        -o LogLevel=ERROR -o NumberOfPasswordPrompts=1 -o PubkeyAuthentication=no -o IdentityAgent=none "$user@127.0.0.1" "$@"
}

stop_servers() {
    local pid
    for pid in $radius_pid $sshd_pid; do
        kill -KILL "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    done
}
