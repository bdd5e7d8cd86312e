/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_MEMORY_H
#define PLATFORM_MEMORY_H

/**
 * @file
 * @brief Named allocation and queues.
 *
 * A queue links records through their first pointer. Queues take no lock: the
 * library's callers serialise.
 */

#include "aaa/alloc.h"
#include "platform/export.h"

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Allocates as malloc() does. The caller's name is for accounting only.
 *
 * @param[in] size bytes
 * @param[in] name caller's name, may be null; not kept
 *
 * Ownership: *Caller frees*, with free().
 *
 * @return the block, or null
 */
PLATFORM_API void *malloc_named(size_t size, const char *name);

/**
 * Allocates as calloc() does: zeroed, and null when the product overflows.
 *
 * @param[in] count elements
 * @param[in] size  bytes of each
 * @param[in] name  caller's name, may be null; not kept
 *
 * Ownership: *Caller frees*, with free().
 *
 * @return the block, or null
 */
PLATFORM_API void *calloc_named(size_t count, size_t size, const char *name);

/**
 * Changes a block's size as realloc() does.
 *
 * @param[in] ptr  the block, may be null
 * @param[in] size bytes
 * @param[in] name caller's name, may be null; not kept
 *
 * Ownership: *Handed over*: ptr, on success. *Caller frees* the result, with free().
 *
 * @return the block, or null, in which case the old block is unchanged
 */
PLATFORM_API void *realloc_named(void *ptr, size_t size, const char *name);

/**
 * Makes a queue empty.
 *
 * @param[in,out] queue   queue head, any contents; may be null (nothing is done)
 * @param[in]     maximum most records it takes, 0 = no limit; called with 0
 */
PLATFORM_API void queue_init(aaa_queue_t *queue, uint32_t maximum);

/**
 * Appends a record at the tail.
 *
 * The library walks queues itself: the head pointer points to the first record,
 * the first pointer of each record to the next one, and the last one is null.
 *
 * @param[in,out] queue  queue, may be null (nothing is done)
 * @param[in]     record record whose first pointer is the link, in no queue; may be null (nothing is done). A
 *                       full queue does not take it.
 *
 * Ownership: *Borrowed* until the record is removed.
 */
PLATFORM_API void queue_enqueue(aaa_queue_t *queue, void *record);

/**
 * Removes a record from any place in the queue; its link becomes null.
 *
 * @param[in,out] queue  queue, may be null (nothing is done)
 * @param[in]     record record, may be null; one that is not in the queue is ignored
 */
PLATFORM_API void queue_unqueue(aaa_queue_t *queue, void *record);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_MEMORY_H */
