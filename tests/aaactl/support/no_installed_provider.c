/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Preloaded into aaactl: no provider is installed. Only one that AAA_SYSDB_PROVIDER names is there.
 */
#include <errno.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

int faccessat(int directory, const char *path, int mode, int flags) {
    if (strcmp(path, INSTALLED_PROVIDER) == 0) {
        errno = ENOENT;
        return -1;
    }
    return flags == 0 ? (int)syscall(SYS_faccessat, directory, path, mode)
                      : (int)syscall(SYS_faccessat2, directory, path, mode, flags);
}
