/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_MEMORY_H
#define PLATFORM_MEMORY_H

/**
 * @file
 * Named allocation, and queues of records that are linked through their first
 * pointer. Queues take no lock: the library's callers serialise.
 */

#include "aaa/alloc.h"
#include "platform/export.h"

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Allocates as malloc() does. The name of the caller is for accounting only.
 *
 * Ownership: *Caller frees*, with free().
 * @param size bytes
 * @param name caller's name, may be null; not kept
 * @return the block, or null
 */
PLATFORM_API void *malloc_named(size_t size, const char *name);

/**
 * Allocates as calloc() does: zeroed, and null when the product does not fit.
 *
 * Ownership: *Caller frees*, with free().
 */
PLATFORM_API void *calloc_named(size_t count, size_t size, const char *name);

/**
 * Changes a block's size as realloc() does: null leaves the old block as it was.
 *
 * Ownership: *Handed over* ptr, on success; *Caller frees* the result.
 */
PLATFORM_API void *realloc_named(void *ptr, size_t size, const char *name);

/**
 * Makes a queue empty.
 *
 * @param queue   queue head, any contents; may be null (nothing is done)
 * @param maximum most records it takes, 0 = no limit; called with 0
 */
PLATFORM_API void queue_init(aaa_queue_t *queue, uint32_t maximum);

/**
 * Appends a record at the tail.
 *
 * The library walks queues itself: the first record stands at the head pointer,
 * the next one in the first pointer of each record, null at the end.
 *
 * Ownership: *Borrowed*, until the record is taken out.
 * @param queue  queue, may be null (nothing is done)
 * @param record record whose first pointer is the link, in no queue; may be null
 *               (nothing is done). A full queue does not take it.
 */
PLATFORM_API void queue_enqueue(aaa_queue_t *queue, void *record);

/**
 * Takes a record out, wherever in the queue it stands; its link becomes null.
 *
 * @param queue  queue, may be null (nothing is done)
 * @param record record, may be null; one that is not in the queue is left alone
 */
PLATFORM_API void queue_unqueue(aaa_queue_t *queue, void *record);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_MEMORY_H */
