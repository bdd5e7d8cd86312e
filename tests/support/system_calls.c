/* SPDX-License-Identifier: Apache-2.0 */

/*
 * Functions of the C library that change files. The executable's ones take precedence in
 * the libraries that it loads. No header of the C library that declares them is included:
 * some declare them as inline functions.
 */

#include "system_calls.h"

#include <asm/fcntl.h>
#include <errno.h>
#include <stdarg.h>
#include <sys/syscall.h>
#include <sys/types.h>

extern long syscall(long number, ...);

int (*before_system_call)(const char *function);

/* Whether the call is to be made; else errno is set. */
static int made(const char *function) {
    const int error = before_system_call != 0 ? before_system_call(function) : 0;
    if (error != 0) {
        errno = error;
    }
    return error == 0;
}

int openat(int directory, const char *path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const unsigned mode = (flags & (O_CREAT | __O_TMPFILE)) != 0 ? va_arg(rest, unsigned) : 0;
    va_end(rest);
    const int unnamed = (flags & __O_TMPFILE) != 0;
    return made(unnamed ? "unnamed" : "openat") ? (int)syscall(SYS_openat, directory, path, flags, mode) : -1;
}

int mkdirat(int directory, const char *path, mode_t mode) {
    return made("mkdirat") ? (int)syscall(SYS_mkdirat, directory, path, mode) : -1;
}

int fchmod(int fd, mode_t mode) {
    return made("fchmod") ? (int)syscall(SYS_fchmod, fd, mode) : -1;
}

int ftruncate(int fd, off_t length) {
    return made("ftruncate") ? (int)syscall(SYS_ftruncate, fd, length) : -1;
}

ssize_t pwrite(int fd, const void *bytes, size_t size, off_t at) {
    return made("pwrite") ? syscall(SYS_pwrite64, fd, bytes, size, at) : -1;
}

int fsync(int fd) {
    return made("fsync") ? (int)syscall(SYS_fsync, fd) : -1;
}

int flock(int fd, int operation) {
    return made("flock") ? (int)syscall(SYS_flock, fd, operation) : -1;
}

int linkat(int from_directory, const char *from, int to_directory, const char *to, int flags) {
    return made("linkat") ? (int)syscall(SYS_linkat, from_directory, from, to_directory, to, flags) : -1;
}

int renameat(int from_directory, const char *from, int to_directory, const char *to) {
    return made("renameat") ? (int)syscall(SYS_renameat2, from_directory, from, to_directory, to, 0) : -1;
}

int renameat2(int from_directory, const char *from, int to_directory, const char *to, unsigned flags) {
    return made("renameat2") ? (int)syscall(SYS_renameat2, from_directory, from, to_directory, to, flags)
                             : -1;
}

int unlinkat(int directory, const char *path, int flags) {
    return made("unlinkat") ? (int)syscall(SYS_unlinkat, directory, path, flags) : -1;
}
