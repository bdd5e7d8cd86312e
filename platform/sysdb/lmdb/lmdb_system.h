/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The system calls that LMDB makes in the provider. mdb.c is compiled with this header
 * included first, so that its calls are the functions below. They are C, with the
 * arguments and results of the calls that they replace. For files that are not an
 * environment of the provider's they are those calls.
 */
#ifndef SYSDB_LMDB_SYSTEM_H
#define SYSDB_LMDB_SYSTEM_H

/* Before the names are replaced: the headers declare the functions themselves. */
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Relative to the checked directory, without following links, closed in programs that
   are executed, and never 0, 1 or 2. */
int sysdb_lmdb_open(const char *path, int flags, mode_t mode);
/* F_SETLKW waits for a limited time: ETIMEDOUT. */
int sysdb_lmdb_fcntl(int fd, int command, ...);
/* The lock file gets all its blocks: ENOSPC instead of a signal at its first use. */
int sysdb_lmdb_ftruncate(int fd, off_t length);
void *sysdb_lmdb_mmap(void *address, size_t length, int protection, int flags, int fd, off_t offset);
/* Write all bytes, or fail with the reason. */
ssize_t sysdb_lmdb_pwrite(int fd, const void *bytes, size_t count, off_t offset);
ssize_t sysdb_lmdb_pwritev(int fd, const struct iovec *parts, int count, off_t offset);
/* Waits for a limited time: ETIMEDOUT. */
int sysdb_lmdb_mutex_lock(pthread_mutex_t *mutex);

#ifdef __cplusplus
}
#endif

#ifdef SYSDB_LMDB_REPLACE_CALLS
#define open(path, flags, mode) sysdb_lmdb_open(path, flags, mode)
#define fcntl(...)              sysdb_lmdb_fcntl(__VA_ARGS__)
#define ftruncate(fd, length)   sysdb_lmdb_ftruncate(fd, length)
#define mmap(address, length, protection, flags, fd, offset) \
    sysdb_lmdb_mmap(address, length, protection, flags, fd, offset)
#define pwrite(fd, bytes, count, offset)  sysdb_lmdb_pwrite(fd, bytes, count, offset)
#define pwritev(fd, parts, count, offset) sysdb_lmdb_pwritev(fd, parts, count, offset)
#define pthread_mutex_lock(mutex)         sysdb_lmdb_mutex_lock(mutex)
#endif

#endif /* SYSDB_LMDB_SYSTEM_H */
