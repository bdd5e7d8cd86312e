/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_ALLOC_H
#define AAA_ALLOC_H

#include <assert.h>
#include <stddef.h>

#include "aaa/debug_flags.h"
#include "aaa/export.h"
#include "aaa/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @file
 * @brief Allocation with a record of every live block.
 *
 * The wrappers do what their namesakes of the C library do. They also append a
 * record with the caller's name and line to malloc_queue for each block, and
 * write a trace line under flag AAA_DBG_MALLOC for each call, failed ones
 * included. A block whose record cannot be allocated is returned too.
 *
 * Release a block with aaa_util_free(). A plain free() is legal but leaves its
 * record in the queue, and a later block at the same address then has two.
 *
 * **Threads.** Neither the queue nor its first-use initialisation is locked:
 * callers that use the wrappers from several threads serialise themselves.
 */

/**
 * Head of a queue of the platform. The records are linked through their first pointer; that of the last one
 * is null.
 */
typedef struct aaa_queue {
    void *head;       /**< first record, or null */
    void *tail;       /**< last record, or null */
    uint32_t count;   /**< records in the queue */
    uint32_t maximum; /**< 0: no limit */
} aaa_queue_t;
static_assert(sizeof(aaa_queue_t) == 24, "layout of aaa_queue_t");
static_assert(offsetof(aaa_queue_t, head) == 0, "layout of aaa_queue_t");
static_assert(offsetof(aaa_queue_t, tail) == 8, "layout of aaa_queue_t");
static_assert(offsetof(aaa_queue_t, count) == 16, "layout of aaa_queue_t");
static_assert(offsetof(aaa_queue_t, maximum) == 20, "layout of aaa_queue_t");

/** Record of a live block. */
typedef struct aaa_malloc_rec {
    void *link;     /**< next record */
    void *address;  /**< of the block */
    uint32_t size;  /**< bytes; of one element for aaa_util_calloc() */
    uint32_t line;  /**< as given by the caller */
    char name[256]; /**< the caller's, as a bounded copy of 255 keeps it; "(null)" for a null */
} aaa_malloc_rec_t;
static_assert(sizeof(aaa_malloc_rec_t) == 280, "layout of aaa_malloc_rec_t");
static_assert(offsetof(aaa_malloc_rec_t, link) == 0, "layout of aaa_malloc_rec_t");
static_assert(offsetof(aaa_malloc_rec_t, address) == 8, "layout of aaa_malloc_rec_t");
static_assert(offsetof(aaa_malloc_rec_t, size) == 16, "layout of aaa_malloc_rec_t");
static_assert(offsetof(aaa_malloc_rec_t, line) == 20, "layout of aaa_malloc_rec_t");
static_assert(offsetof(aaa_malloc_rec_t, name) == 24, "layout of aaa_malloc_rec_t");

/**
 * Records of the live blocks, oldest first; all zero until the first one. For debugging tools to walk, not
 * to change.
 */
AAA_API extern aaa_queue_t malloc_queue;

/**
 * Allocates a block as malloc() does.
 * @param[in] name name of the caller; may be null
 * @param[in] line source line of the caller
 * @param[in] size bytes
 *
 * Ownership: *Caller frees* with aaa_util_free(); the name is *Copied in*.
 * @return the block, or null without memory; nothing is recorded then
 */
AAA_API void *aaa_util_malloc(const char *name, uint32_t line, uint32_t size);

/**
 * Changes the size of a block as realloc() does.
 *
 * The record of the old address is dropped once there is one for the new block,
 * and stays when there is none: after a failure the old block is still live.
 * A block that had no record and does not move is left without one: kept.
 * @param[in] name name of the caller; may be null
 * @param[in] line source line of the caller
 * @param[in] ptr  block of any malloc(); may be null (then it allocates)
 * @param[in] size bytes. Do not pass 0: the block may be gone then, but its record stays.
 *
 * Ownership: *Caller frees* the result with aaa_util_free(); @p ptr is *Handed over* unless the result
 * is null.
 * @return the block, moved or not; null without memory, and @p ptr is untouched then
 */
AAA_API void *aaa_util_realloc(const char *name, uint32_t line, void *ptr, uint32_t size);

/**
 * Allocates a zeroed array as calloc() does.
 *
 * The record holds the size of one element, not of the block: kept. The trace
 * shows count times size, cut to 32 bits.
 * @param[in] name  name of the caller; may be null
 * @param[in] line  source line of the caller
 * @param[in] count elements
 * @param[in] size  bytes of an element
 *
 * Ownership: *Caller frees* with aaa_util_free(); the name is *Copied in*.
 * @return the block, or null without memory; nothing is recorded then
 */
AAA_API void *aaa_util_calloc(const char *name, uint32_t line, uint32_t count, uint32_t size);

/**
 * Copies a text as strdup() does.
 * @param[in] name name of the caller; may be null
 * @param[in] line source line of the caller
 * @param[in] str  text to copy; may be null (the result is null)
 *
 * Ownership: *Caller frees* with aaa_util_free(); name and text are *Copied in*.
 * @return the copy, or null without memory or text; nothing is recorded then
 */
AAA_API char *aaa_util_strdup(const char *name, uint32_t line, const char *str);

/**
 * Frees a block and drops its record. A block without a record is freed too.
 * @param[in] name name of the caller; may be null
 * @param[in] line source line of the caller
 * @param[in] ptr  block of any malloc(); may be null (only the trace is written)
 *
 * Ownership: *Handed over* to the library, which frees it.
 */
AAA_API void aaa_util_free(const char *name, uint32_t line, void *ptr);

/**
 * Gives the address of malloc_queue.
 *
 * Ownership: *Borrowed* until the library is unloaded.
 * @return the address, never null
 */
AAA_API aaa_queue_t *get_malloc_data(void);

#ifdef __cplusplus
}
#endif

#endif /* AAA_ALLOC_H */
