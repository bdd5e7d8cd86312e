/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_NODE_H
#define PLATFORM_NODE_H

#include <pthread.h>
#include "aaa/types.h"
#include "platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Non-zero when this node is a line card. */
PLATFORM_API int platform_am_i_lc(void);

/* Name of the configured time zone into a 16-byte buffer; 0 = success, otherwise "UTC" is used and the code's
 * text is traced ("Adding timezone %s, %s"). */
PLATFORM_API cerrno conf_get_timezone_string(char *buffer, uint32_t size);

/* Calling thread's id, stored in session packets. */
PLATFORM_API int32_t qm_gettid(void);

/* As inet_ntop: (family, address bytes, buffer, 16 for family 2, else 46); returns the buffer or null. */
PLATFORM_API const char *qm_inet_ntop(int family, const void *address, char *buffer, size_t limit);

/* close(). */
PLATFORM_API int qm_close(int fd);

/* Releases a user's task table. */
PLATFORM_API void aaa_destroy_task_table(void *task_table);

/* Announce that this thread waits for a mutex, and that it no longer does: (&mutex, "waiting function's name",
 * source line) before the blocking pthread_mutex_lock, () after it. */
PLATFORM_API void ptd_set_mutex_block(pthread_mutex_t *mutex, const char *function_name, int line);
PLATFORM_API void ptd_unset_mutex_block(void);

/* First step of load. */
PLATFORM_API void _init_libc_globals(void);

/* Non-zero while the library is being unloaded by dlclose; 0 at process exit (then no unload is run). */
PLATFORM_API int __in_dlclose(void);
#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_NODE_H */
