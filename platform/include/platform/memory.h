/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_MEMORY_H
#define PLATFORM_MEMORY_H

#include "aaa/alloc.h"
#include <stddef.h>
#include "platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* As malloc, calloc and realloc; the caller's name is for accounting only. Blocks are freed with free(). */
PLATFORM_API void *malloc_named(size_t size, const char *name);
PLATFORM_API void *calloc_named(size_t count, size_t size, const char *name);
PLATFORM_API void *realloc_named(void *ptr, size_t size, const char *name);

/* Queue of records linked through their first pointer. queue_init: (queue, 0) = empty, no limit.
 * queue_enqueue appends at the tail. queue_unqueue takes the given record out wherever it stands. The library
 * walks the queue itself: first record at the head pointer (offset 0), next record at offset 0 of each
 * record, null at the end. */
PLATFORM_API void queue_init(aaa_queue_t *queue, uint32_t maximum);
PLATFORM_API void queue_enqueue(aaa_queue_t *queue, void *record);
PLATFORM_API void queue_unqueue(aaa_queue_t *queue, void *record);
#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_MEMORY_H */
