/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Shared by the small programs of the lifecycle tests. They exit with 0 on
 * success; a time limit ends a hang.
 */
#ifndef LIFECYCLE_PROGRAMS_H
#define LIFECYCLE_PROGRAMS_H

#include <dirent.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "../support/time_limit.h"

#define REQUIRE(condition)                                                          \
    do {                                                                            \
        if (!(condition)) {                                                         \
            fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
            _exit(99);                                                              \
        }                                                                           \
    } while (0)

static inline void yield_a_little(void) {
    const struct timespec moment = {0, 200 * 1000};
    nanosleep(&moment, NULL);
}

/* Waits until the worker has made its connection. */
static inline void wait_connected(const uint64_t *handle) {
    while (__atomic_load_n(handle, __ATOMIC_ACQUIRE) == 0) {
        yield_a_little();
    }
}

/* Entries of a directory of /proc/self. */
static inline unsigned entries(const char *directory) {
    DIR *const dir = opendir(directory);
    unsigned count = 0;
    REQUIRE(dir != NULL);
    while (readdir(dir) != NULL) {
        ++count;
    }
    closedir(dir);
    return count;
}

#endif /* LIFECYCLE_PROGRAMS_H */
