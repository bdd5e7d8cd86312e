/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_NODE_H
#define PLATFORM_NODE_H

/**
 * @file
 * @brief Node and runtime services.
 */

#include "aaa/types.h"
#include "platform/export.h"

#include <pthread.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Tells whether this node is a line card. Requests composed there carry no
 * method list and no remote address of a line. The answer must not change while
 * a process runs.
 *
 * @return
 * - non-zero: a line card
 * - 0: another kind of node
 */
PLATFORM_API int platform_am_i_lc(void);

/**
 * Gives the name of the configured time zone, which accounting records carry.
 *
 * @param[out] buffer the name with its NUL; an empty text on failure
 * @param[in]  size   size of the buffer in bytes; called with 16. Do not cut a name that does not fit: give
 *                    a shorter name of the same zone (its abbreviation), or fail
 *
 * @return
 * - 0: done
 * - any other code: the library uses "UTC" and traces the code
 */
PLATFORM_API cerrno conf_get_timezone_string(char *buffer, uint32_t size);

/** Gives the calling thread's id, which is stored in session packets. */
PLATFORM_API int32_t qm_gettid(void);

/**
 * Writes an address as text, as inet_ntop() does.
 *
 * @param[in]  family  2 = IPv4, else an address family of the system (10 = IPv6)
 * @param[in]  address address bytes in network order, may be null
 * @param[out] buffer  the text with its NUL; contents undefined on failure
 * @param[in]  limit   size of the buffer; called with 16 for family 2, else 46
 *
 * @return
 * - buffer
 * - null: the text does not fit, the family is unknown, or a pointer is null; errno is set
 */
PLATFORM_API const char *qm_inet_ntop(int family, const void *address, char *buffer, size_t limit);

/**
 * Closes a file descriptor, as close() does; called for terminals.
 *
 * @return
 * - 0: closed
 * - -1: failure, errno is set
 */
PLATFORM_API int qm_close(int fd);

/**
 * Releases the task table of a credential record.
 *
 * Called once per table, when the record that owns it is freed; copies of the
 * record borrow it.
 *
 * @param[in] task_table table that this host made (platform/task_table.h); may be null
 *
 * Ownership: *Handed over*.
 */
PLATFORM_API void aaa_destroy_task_table(void *task_table);

/**
 * Announces that this thread is about to wait for a mutex, so that a process that
 * hangs can be examined.
 *
 * Called between a trylock that found the mutex taken and the lock that waits
 * for it, by the worker, by an unloading thread (with the loader's lock held)
 * and by threads of the program.
 *
 * @param[in] mutex         the mutex; only its address may be used
 * @param[in] function_name name of the waiting function; *Copied in*, since the library may be unloaded; may
 *                          be null
 * @param[in] line          source line of the wait
 */
PLATFORM_API void ptd_set_mutex_block(pthread_mutex_t *mutex, const char *function_name, int line);

/** Announces that this thread has stopped waiting, whether or not it got the mutex. */
PLATFORM_API void ptd_unset_mutex_block(void);

/**
 * Prepares the host for a load of the library. First call of each load, by the
 * loading thread, which holds the loader's lock.
 */
PLATFORM_API void _init_libc_globals(void);

/**
 * Tells why the library's finaliser runs. Called from it, by the thread that
 * unloads or exits, before any step of the unload.
 *
 * @return
 * - non-zero: dlclose() unloads the library, which then stops its worker
 * - 0: the process exits (no unload is run)
 */
PLATFORM_API int __in_dlclose(void);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_NODE_H */
