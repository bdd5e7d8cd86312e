/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_CONTROL_H
#define PLATFORM_CONTROL_H

/**
 * @file
 * Controls of the host platform for Linux: tracing at run time, what threads
 * wait for, and the master keys of the password cipher. This is not part of
 * the contract with the library, which calls none of it; it is for daemons,
 * tools and debuggers. Every function may be called from any thread.
 */

#include "aaa/types.h"
#include "platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- tracing ---------------------------------------------------------------- */

/** Debug flags run from 0 to AAA_PLATFORM_DEBUG_FLAGS - 1; aaa/alloc.h names them. */
#define AAA_PLATFORM_DEBUG_FLAGS 11u

/**
 * Switches one debug flag on or off in this process.
 *
 * @param flag debug flag
 * @param on   non-zero = on
 * @return 0: done; 0xa2580e00: no such flag, nothing changed (the catalog
 *         message about it is logged)
 */
PLATFORM_API cerrno aaa_platform_debug_set(uint32_t flag, int on);

/**
 * Replaces the set of flags that are on.
 *
 * @param list areas as in the environment variable AAA_DEBUG: numbers, ranges
 *             ("1-3"), area names ("avlist"), "all", "none", separated by commas
 *             or blanks; may be null = none
 * @return 0: done; 0xa2580e00: a word names no flag or area; the other words
 *         have taken effect
 */
PLATFORM_API cerrno aaa_platform_debug_set_areas(const char *list);

/** The flags that are on, as a mask with bit n for flag n. */
PLATFORM_API uint32_t aaa_platform_debug_mask(void);

/**
 * Name of a flag's area.
 *
 * Ownership: *Borrowed*, a constant.
 * @return the name, or null when the flag does not exist
 */
PLATFORM_API const char *aaa_platform_debug_area(uint32_t flag);

/* ---- waiting threads ---------------------------------------------------------- */

/** One thread that waits for a mutex. */
typedef struct aaa_platform_mutex_wait {
    int32_t     thread;       /**< thread id, as gettid() gives it */
    int32_t     line;         /**< source line of the wait */
    const void *mutex;        /**< address of the mutex, not to be dereferenced */
    uint64_t    waited_ms;    /**< how long it has been waiting, in milliseconds */
    char        function[64]; /**< name of the waiting function, cut to 63 characters */
} aaa_platform_mutex_wait_t;

/**
 * Lists the threads of this process that wait for a mutex of the library.
 *
 * @param out      array to fill, may be null when capacity is 0
 * @param capacity elements in out
 * @return the number of waiting threads, which may be more than capacity (then
 *         only capacity elements are filled); a thread that begins or ends its
 *         wait during the call may be missing
 */
PLATFORM_API uint32_t aaa_platform_mutex_waits(aaa_platform_mutex_wait_t *out, uint32_t capacity);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_CONTROL_H */
