/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_AVPAIR_H
#define AAA_AVPAIR_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#include "aaa/export.h"
#include "aaa/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @file
 * @brief Attribute-value lists.
 *
 * A list is a 56-byte record and a chain of buffers. Pairs are stored end to end in
 * the buffers: a 16-byte head, the value bytes, up to 3 bytes that round the
 * pair up to a multiple of 4. Pairs are only ever added after the last pair of
 * the last buffer. A deleted pair keeps its place, its type turned into
 * AAA_ATTR_MAX; its room is free again once every pair that follows it in the
 * same buffer is deleted too, and a buffer without live pairs leaves the chain.
 * Every operation passes over deleted pairs.
 *
 * The records below travel inside messages, so their layout is fixed to the
 * byte. There are no pointers inside pairs.
 *
 * **Limits.** A list holds at most 65535 live pairs; adding more is not
 * refused, it wraps the count and the next operation that looks at the list
 * stops the process. A buffer holds less than 4 GiB.
 *
 * **What invalidates what.** Adding a pair moves nothing: addresses of values
 * and positions of iterators stay valid. Deleting a pair, and updating one with
 * another length, spends every iterator and every value address of the list.
 * Clearing, freeing, packing into a buffer, exchanging and rebuilding lists do
 * so too.
 *
 * **Traces** of these functions are written under debug flag 8. Unless said
 * otherwise a call that is refused for a null list writes none.
 */

typedef struct avpair_buffer avpair_buffer_t;

/** A list. */
typedef struct avlist {
    uint32_t reserved0; /**< zero on creation; an unpacked list keeps the big-endian flat length here */
    uint8_t marker;     /**< byte 4: set by no list operation, compared by aaa_avpair_compare_lists */
    uint8_t reserved5;
    uint16_t av_cnt; /**< live pairs; big-endian after unpacking: test it against zero, never count with it */
    avpair_buffer_t *avpair_first_buf;
    avpair_buffer_t *avpair_last_buf;
    char av_name[31]; /**< NUL-terminated, at most 30 characters */
    uint8_t pad55;
} avlist;
static_assert(sizeof(avlist) == 56, "the record opens every packed list");
static_assert(offsetof(avlist, reserved0) == 0, "layout of avlist");
static_assert(offsetof(avlist, marker) == 4, "layout of avlist");
static_assert(offsetof(avlist, reserved5) == 5, "layout of avlist");
static_assert(offsetof(avlist, av_cnt) == 6, "layout of avlist");
static_assert(offsetof(avlist, avpair_first_buf) == 8, "layout of avlist");
static_assert(offsetof(avlist, avpair_last_buf) == 16, "layout of avlist");
static_assert(offsetof(avlist, av_name) == 24, "layout of avlist");
static_assert(offsetof(avlist, pad55) == 55, "layout of avlist");

/** Head of a pair; av_len value bytes follow at offset 16, the next pair 4-aligned after them. */
typedef struct avpair {
    avpair_type_t av_type; /**< AAA_ATTR_MAX marks a deleted pair */
    uint32_t av_tag;
    avpair_val_len_t av_len;
    avpair_flags_t av_flags; /**< the bits belong to the callers */
} avpair_t;
static_assert(sizeof(avpair_t) == 16, "the head opens every pair of a packed list");
static_assert(offsetof(avpair_t, av_type) == 0, "layout of avpair_t");
static_assert(offsetof(avpair_t, av_tag) == 4, "layout of avpair_t");
static_assert(offsetof(avpair_t, av_len) == 8, "layout of avpair_t");
static_assert(offsetof(avpair_t, av_flags) == 12, "layout of avpair_t");

/** Head of a buffer; pairs from byte 32 to hdr.free_mem. */
struct avpair_buffer {
    struct {
        avpair_buffer_t *prev;
        avpair_buffer_t *next;
        unsigned char *free_mem; /**< first unused byte, 4-aligned */
        uint32_t buf_size;       /**< whole block, header included, multiple of 4, at least 512 */
        uint32_t pad28;
    } hdr;
};
static_assert(sizeof(avpair_buffer_t) == 32, "pairs begin at byte 32 of a buffer");
static_assert(offsetof(avpair_buffer_t, hdr.prev) == 0, "layout of avpair_buffer_t");
static_assert(offsetof(avpair_buffer_t, hdr.next) == 8, "layout of avpair_buffer_t");
static_assert(offsetof(avpair_buffer_t, hdr.free_mem) == 16, "layout of avpair_buffer_t");
static_assert(offsetof(avpair_buffer_t, hdr.buf_size) == 24, "layout of avpair_buffer_t");
static_assert(offsetof(avpair_buffer_t, hdr.pad28) == 28, "layout of avpair_buffer_t");

/** What a list occupies; see aaa_avpair_get_mem_usage(). */
typedef struct avpair_mem_stats {
    uint32_t buf_cnt;   /**< buffers */
    uint32_t total_mem; /**< bytes of all buffers, headers included */
    uint32_t used_mem;  /**< bytes of all pairs, deleted ones included: packing sends them after the record */
} avpair_mem_stats_t;
static_assert(sizeof(avpair_mem_stats_t) == 12, "layout of avpair_mem_stats_t");
static_assert(offsetof(avpair_mem_stats_t, buf_cnt) == 0, "layout of avpair_mem_stats_t");
static_assert(offsetof(avpair_mem_stats_t, total_mem) == 4, "layout of avpair_mem_stats_t");
static_assert(offsetof(avpair_mem_stats_t, used_mem) == 8, "layout of avpair_mem_stats_t");

/**
 * Position in a list. Zero it before aaa_avpair_iterator_init(), which leaves
 * curr_avp alone when the list is empty: the null then makes
 * aaa_avpair_iterator_get_next() answer with a code.
 */
typedef struct aaa_avpair_iterator {
    avpair_buffer_t *curr_buf; /**< buffer that holds the current pair */
    avpair_buffer_t *last_buf; /**< last buffer of the list when the walk began; the walk ends with it */
    avpair_t *curr_avp;        /**< current pair */
} aaa_avpair_iterator_t;
static_assert(sizeof(aaa_avpair_iterator_t) == 24, "layout of aaa_avpair_iterator_t");
static_assert(offsetof(aaa_avpair_iterator_t, curr_buf) == 0, "layout of aaa_avpair_iterator_t");
static_assert(offsetof(aaa_avpair_iterator_t, last_buf) == 8, "layout of aaa_avpair_iterator_t");
static_assert(offsetof(aaa_avpair_iterator_t, curr_avp) == 16, "layout of aaa_avpair_iterator_t");

/** Called for a pair by aaa_avpair_list_for_each(); non-zero goes on, zero stops. */
typedef uint32_t (*aaa_avpair_list_callback_fn_t)(avpair_type_t type, avpair_flags_t flags, void *value,
                                                  uint32_t len, uint32_t tag, void *ctx);

/** Takes one text line under a debug flag; the result is ignored. */
typedef int (*aaa_line_printer_t)(uint32_t flag, const char *line);

/* ---- Storage ---- */

/**
 * Creates an empty list.
 * @param[in]  name text of at most 30 characters; may be null
 * @param[out] out  the list; null on every failure but that of a null out
 *
 * Ownership: *Caller frees* the list with aaa_avpair_free_list(); the name is *Copied in*.
 * @return
 * - AAA_OK: created
 * - AAA_ERR_INVALID_ARG: out is null
 * - AAA_ERR_NOMEM: no memory
 * - AAA_ERR_AVPAIR_PROCESSING: name is longer than 30 characters
 */
AAA_API cerrno aaa_avpair_create_list(const char *name, avlist **out);

/**
 * Removes all pairs from a list; record, name and reserved bytes stay, new pairs may be added.
 * @param[in,out] list may be null (nothing happens)
 */
AAA_API void aaa_avpair_clear(avlist *list);

/**
 * Frees a list with everything in it. Traces under flag 8.
 * @param[in] list may be null (nothing happens)
 *
 * Ownership: *Handed over* to the library, which frees it.
 */
AAA_API void aaa_avpair_free_list(avlist *list);

/**
 * Tells where the first pair of a buffer is: 32 bytes after the beginning of the buffer.
 * @param[in] buf may be null (the result is null)
 *
 * Ownership: *Borrowed*: valid as long as the buffer is.
 * @return the address, also when the buffer has no pairs; null when buf is null
 */
AAA_API avpair_t *aaa_avpair_get_first_avpair_in_buf(avpair_buffer_t *buf);

/**
 * Tells whether a pair carries the deleted marker.
 * @param[in] pair may be null (the answer is 0)
 * @return 1 when av_type is AAA_ATTR_MAX, otherwise 0
 */
AAA_API int aaa_avpair_is_deleted(const avpair_t *pair);

/**
 * Appends a pair to a list. Takes constant time and at most one allocation.
 *
 * Any type but AAA_ATTR_MAX is stored; AAA_ATTR_MAX stops the process. A value
 * of no bytes is legal, also as a null pointer. The value may be in the list
 * itself. With debug flag 8 on, a call with a value writes one trace line, also
 * for a null list. It shows the first four bytes at value for every len, so
 * pass at least four readable bytes then, also when len is 0.
 * @param[in]     type  attribute type
 * @param[in]     flags flag bits of the pair
 * @param[in]     value value bytes, integers in host order; may be null when len is 0
 * @param[in]     tag   tag of the pair
 * @param[in]     len   number of value bytes
 * @param[in,out] list  list to append to; as it was on failure
 *
 * Ownership: *Copied in*: the value.
 * @return
 * - AAA_OK: appended
 * - AAA_ERR_INVALID_ARG: list is null, or value is null and len is not 0
 * - AAA_ERR_NOMEM: no memory, or a pair too large for a buffer
 */
AAA_API cerrno aaa_avpair_add(uint32_t type, uint32_t flags, const void *value, uint32_t tag, uint32_t len,
                              avlist *list);

/**
 * Appends a pair as aaa_avpair_add() does, with len before tag in the argument
 * list and a trace line without the numeric type. Both orders are in use.
 * @param[in]     type  attribute type; AAA_ATTR_MAX stops the process
 * @param[in]     flags flag bits of the pair
 * @param[in]     value value bytes, integers in host order; may be null when len is 0
 * @param[in]     len   number of value bytes
 * @param[in]     tag   tag of the pair
 * @param[in,out] list  list to append to; as it was on failure
 *
 * Ownership: *Copied in*: the value.
 * @return
 * - AAA_OK: appended
 * - AAA_ERR_INVALID_ARG: list is null, or value is null and len is not 0
 * - AAA_ERR_NOMEM: no memory, or a pair too large for a buffer
 */
AAA_API cerrno aaa_avpair_add_with_tag(uint32_t type, uint32_t flags, const void *value, uint32_t len,
                                       uint32_t tag, avlist *list);

/**
 * Tells how many buffers and bytes a list occupies. The record itself is not counted.
 * @param[in]  list  list to look at
 * @param[out] stats the three counters, all zero for an empty list; untouched on failure
 * @return
 * - AAA_OK: counted
 * - AAA_ERR_INVALID_ARG: list or stats is null
 */
AAA_API cerrno aaa_avpair_get_mem_usage(const avlist *list, avpair_mem_stats_t *stats);

/* ---- Iteration and lookup: live pairs only, in the order in which they were added ---- */

/**
 * Goes to the first live pair of a list.
 * @param[out] it   position; on an empty list curr_avp stays as it was, the buffers become null
 * @param[in]  list list to walk
 * @param[out] pair the pair; untouched unless AAA_OK is returned
 *
 * Ownership: *Borrowed*: position and pair are valid until a pair of the list is deleted or changes
 * its length.
 * @return
 * - AAA_OK: positioned
 * - AAA_STATUS_END_OF_LIST: the list has no pairs
 * - AAA_ERR_INVALID_ARG: an argument is null
 */
AAA_API cerrno aaa_avpair_iterator_init(aaa_avpair_iterator_t *it, const avlist *list, avpair_t **pair);

/**
 * Goes on to the next live pair. Asked again after the end, it reports the end again.
 * Pairs added after the last buffer that the list had at aaa_avpair_iterator_init() are not visited.
 * @param[in,out] it   position
 * @param[out]    pair the pair; untouched unless AAA_OK is returned
 *
 * Ownership: *Borrowed*: as with aaa_avpair_iterator_init().
 * @return
 * - AAA_OK: positioned
 * - AAA_STATUS_END_OF_LIST: no further pair
 * - AAA_ERR_INVALID_ARG: an argument, or the position, is null
 */
AAA_API cerrno aaa_avpair_iterator_get_next(aaa_avpair_iterator_t *it, avpair_t **pair);

/**
 * Gives the address that follows a pair: pair + 16 + av_len, rounded up to a multiple of 4.
 * Nothing is checked; the caller knows whether a pair is stored there.
 * @param[in] pair pair in a buffer, deleted or not; not null
 *
 * Ownership: *Borrowed*: valid as long as the buffer is.
 * @return the address, never null; the end of the stored pairs when the pair is the last of its buffer
 */
AAA_API avpair_t *aaa_avpair_get_adjacent(const avpair_t *pair);

/**
 * Finds a pair by its type and occurrence. Traces under flag 8.
 * @param[in]  type     attribute type
 * @param[out] flags    av_flags of the pair; may be null
 * @param[out] value    address of the value inside the list, not a copy; may be null
 * @param[out] len      number of value bytes; may be null
 * @param[in]  instance how many live pairs of the type to pass over; 0 finds the first
 * @param[in]  list     list to search
 *
 * On failure the outputs are untouched.
 * Ownership: *Borrowed*: the value, until a pair of the list is deleted or changes its length.
 * @return
 * - AAA_OK: found
 * - AAA_ERR_AVPAIR_NOT_FOUND: not that many pairs of the type
 * - AAA_ERR_INVALID_ARG: list is null (nothing is traced then)
 */
AAA_API cerrno aaa_avpair_find_type(uint32_t type, avpair_flags_t *flags, void **value, uint32_t *len,
                                    uint32_t instance, const avlist *list);

/**
 * Finds a pair by its place among the live pairs.
 * @param[in]  index place, from 0
 * @param[out] type  av_type of the pair; may be null
 * @param[out] flags av_flags; may be null
 * @param[out] value address of the value inside the list, not a copy; may be null
 * @param[out] tag   av_tag; may be null
 * @param[out] len   number of value bytes; may be null
 * @param[in]  list  list to search
 *
 * On failure the outputs are untouched. Walks from the beginning: to visit all pairs use an iterator.
 * Ownership: *Borrowed*: the value, until a pair of the list is deleted or changes its length.
 * @return
 * - AAA_OK: found
 * - AAA_ERR_AVPAIR_NOT_FOUND: the list has no more than index live pairs
 * - AAA_ERR_INVALID_ARG: list is null
 */
AAA_API cerrno aaa_avpair_find_index(uint32_t index, uint32_t *type, avpair_flags_t *flags, void **value,
                                     uint32_t *tag, uint32_t *len, const avlist *list);

/* ---- Deletion and update: they spend every iterator and value address of the list ---- */

/**
 * Deletes the pair at a position.
 *
 * The iterator is spent afterwards; to go on, start a new one. A list without
 * pairs stops the process, also when the position is null. A pair that is deleted
 * already is left alone.
 * @param[in]     it   position of the pair, in list
 * @param[in,out] list the list
 * @return
 * - AAA_OK: deleted, now or earlier
 * - AAA_ERR_INVALID_ARG: an argument, or the position, is null
 */
AAA_API cerrno aaa_avpair_delete_by_iterator(aaa_avpair_iterator_t *it, avlist *list);

/**
 * Deletes a pair found by its type and occurrence.
 * @param[in]     type     attribute type
 * @param[in]     instance how many live pairs of the type to pass over; 0 deletes the first
 * @param[in,out] list     the list
 * @param[out]    flags    av_flags that the pair had; untouched on failure; may be null
 * @return
 * - AAA_OK: deleted
 * - AAA_ERR_AVPAIR_NOT_FOUND: not that many pairs of the type
 * - AAA_ERR_INVALID_ARG: list is null
 */
AAA_API cerrno aaa_avpair_delete_by_type_instance(uint32_t type, uint32_t instance, avlist *list,
                                                  avpair_flags_t *flags);

/**
 * Deletes the first pair that has a given type and value.
 * @param[in]     findtype attribute type; AAA_ATTR_MAX stops the process
 * @param[in]     value    value bytes to compare with; may be null when len is 0
 * @param[in]     len      number of value bytes; a pair of another length does not match
 * @param[in,out] list     the list
 * @param[out]    flags    av_flags that the pair had; untouched on failure; may be null
 * @return
 * - AAA_OK: deleted
 * - AAA_ERR_AVPAIR_NOT_FOUND: no such pair
 * - AAA_ERR_INVALID_ARG: list is null, or value is null and len is not 0
 */
AAA_API cerrno aaa_avpair_delete_by_type_value(avpair_type_t findtype, void *value, avpair_val_len_t len,
                                               avlist *list, avpair_flags_t *flags);

/**
 * Changes the pair at a position.
 *
 * With an unchanged length the value is overwritten in place, flags are OR-ed
 * to the pair's flags and the tag is replaced. With another length the pair is
 * deleted and a new one of its type appended to the end of the list; of its old
 * flags only the low 8 bits are kept, OR-ed with the new ones. Callers depend on
 * both. A deleted pair stops the process, and so does a list without pairs, also
 * when the position is null. The value may be in the list itself.
 * @param[in]     it    position of the pair, in list; spent when the length changed
 * @param[in]     flags flag bits to set
 * @param[in]     value value bytes; not null even when len is 0
 * @param[in]     tag   new tag
 * @param[in]     len   number of value bytes
 * @param[in,out] list  the list
 *
 * Ownership: *Copied in*: the value.
 * @return
 * - AAA_OK: changed
 * - AAA_ERR_INVALID_ARG: it, its position, value or list is null
 * - AAA_ERR_NOMEM: no memory; the old pair is deleted then and nothing is added, unless the value was in
 *   the list itself and no copy could be made: then the list is as it was
 */
AAA_API cerrno aaa_avpair_update_by_iterator(aaa_avpair_iterator_t *it, avpair_flags_t flags,
                                             const void *value, uint32_t tag, uint32_t len, avlist *list);

/**
 * Changes a pair found by its type and occurrence as aaa_avpair_update_by_iterator() does,
 * or appends a new pair when there is no such occurrence; instance may then be any number.
 * Traces under flag 8.
 * @param[in]     type     attribute type
 * @param[in]     flags    flag bits to set
 * @param[in]     value    value bytes. As with aaa_avpair_add() four bytes are read for the trace. May be
 *                         null when len is 0 (a null with a length stops the process).
 * @param[in]     tag      new tag
 * @param[in]     len      number of value bytes
 * @param[in]     instance how many live pairs of the type to pass over; 0 changes the first
 * @param[in,out] list     the list
 *
 * Ownership: *Copied in*: the value.
 * @return
 * - AAA_OK: changed or appended
 * - AAA_ERR_INVALID_ARG: list is null (nothing is traced then), or value is null and the pair exists
 * - AAA_ERR_NOMEM: as with aaa_avpair_update_by_iterator()
 */
AAA_API cerrno aaa_avpair_update(uint32_t type, uint32_t flags, void *value, uint32_t tag, uint32_t len,
                                 uint32_t instance, avlist *list);

/* ---- Packing and unpacking: docs/wire-format.md shows both forms byte by byte ---- */

/**
 * Fills an io-vector with the gather form of a list: the record, then the used
 * part of each buffer in order, all in host order. Nothing is copied and the
 * list is not changed. Traces under flag 8.
 * @param[in]     list list to send
 * @param[out]    iov  the elements; those that there is room for also when it is not enough
 * @param[in,out] len  elements available, at least 1 (0 stops the process); on return elements filled. 1 +
 *                     buf_cnt of aaa_avpair_get_mem_usage() is enough.
 *
 * Ownership: *Borrowed*: the elements point into the list and are valid until it changes.
 * @return
 * - AAA_OK: filled
 * - AAA_ERR_BUFFER_TOO_SMALL: the list has more buffers than elements are left for
 * - AAA_ERR_INVALID_ARG: an argument is null
 */
AAA_API cerrno aaa_avpair_pack_msg(const avlist *list, iov_t *iov, uint32_t *len);

/**
 * Writes the flat form of a list, in network order, into one buffer. Traces under flag 8.
 *
 * The list is spent: its pairs are converted where they are. From then on it
 * may only be freed (or cleared), also after AAA_ERR_NOMEM.
 * @param[in,out] list list to pack
 * @param[out]    buf  the flat form; 56 + used_mem of aaa_avpair_get_mem_usage() bytes are enough. When it
 *                     is too small it holds what came before the first part that did not fit: the list
 *                     record as it is in memory, then whole buffers. Such bytes must not be sent.
 * @param[in,out] len  bytes available, at most 2147483647; on return bytes written
 *
 * Ownership: *Copied in*: the list; the caller keeps it and frees it.
 * @return
 * - AAA_OK: packed, len is the length of the message
 * - AAA_ERR_NOMEM: buf is too small (deliberately not AAA_ERR_BUFFER_TOO_SMALL)
 * - AAA_ERR_INVALID_ARG: an argument is null
 */
AAA_API cerrno aaa_avpair_pack_msg_to_buf(avlist *list, char *buf, uint32_t *len);

/**
 * Fills an empty list from a flat form that tells its own length in its first
 * four bytes. Otherwise as aaa_avpair_unpack_msg_2().
 *
 * The length is believed: use aaa_avpair_unpack_msg_checked() for bytes from a
 * peer that is not trusted.
 * @param[in,out] list empty list to fill
 * @param[in]     msg  the flat form, any alignment
 *
 * @return as aaa_avpair_unpack_msg_2()
 */
AAA_API cerrno aaa_avpair_unpack_msg(avlist *list, char *msg);

/**
 * Fills an empty list from a flat form of a given length. Traces under flag 8.
 *
 * All pairs go into one buffer, in host order. The record is taken over as it
 * came: the list has the sender's name, and av_cnt holds the bytes of the
 * message (768 for 3 pairs on a little-endian host). Walk the pairs to count
 * them. The list and its own sender's list therefore do not compare equal.
 *
 * Only len is checked: the pairs must fill the message exactly, as
 * those that packing writes do. Use aaa_avpair_unpack_msg_checked() for bytes
 * from a peer that is not trusted.
 * @param[in,out] list empty list to fill; one with pairs stops the process
 * @param[in]     msg  the flat form, any alignment
 * @param[in]     len  bytes of msg to take; 56 give a list without pairs
 *
 * Ownership: *Copied in*: the message may be released after the call.
 * @return
 * - AAA_OK: filled
 * - AAA_ERR_INVALID_MSG_SIZE: len is below 56; the list is untouched
 * - AAA_ERR_NOMEM: no memory; the list has the sender's name and no pairs
 * - AAA_ERR_INVALID_ARG: a pointer is null
 */
AAA_API cerrno aaa_avpair_unpack_msg_2(avlist *list, char *msg, uint32_t len);

/**
 * Creates a list and fills it as aaa_avpair_unpack_msg_2() does.
 * @param[out] list the list; null on failure, untouched when an argument is null
 * @param[in]  msg  the flat form, any alignment
 * @param[in]  len  bytes of msg to take
 *
 * Ownership: *Caller frees* the list with aaa_avpair_free_list().
 * @return
 * - AAA_OK: created and filled
 * - AAA_ERR_INVALID_MSG_SIZE: len is below 56
 * - AAA_ERR_NOMEM: no memory
 * - AAA_ERR_INVALID_ARG: a pointer is null
 */
AAA_API cerrno aaa_avpair_unpack_msg_create(avlist **list, char *msg, uint32_t len);

/* ---- Two lists, or a list and a callback ---- */

/**
 * Tells whether two pairs have the same type, length, flags, tag and value bytes.
 * @param[in] a one pair; may be null (the answer is 0)
 * @param[in] b the other; may be null (the answer is 0)
 * @return 1 when they are equal, otherwise 0
 */
AAA_API int aaa_avpair_compare_avpairs(const avpair_t *a, const avpair_t *b);

/**
 * Tells whether two lists have the same name, marker and av_cnt, and equal live
 * pairs in the same order. Deleted pairs and buffers do not matter. A list that
 * was unpacked has another av_cnt than its original and is not equal to it.
 * @param[in] a one list; may be null (the answer is 0)
 * @param[in] b the other; may be null (the answer is 0)
 * @return 1 when they are equal, otherwise 0
 */
AAA_API int aaa_avpair_compare_lists(const avlist *a, const avlist *b);

/**
 * Copies all pairs of a list into one buffer of a second list, deleted pairs
 * between live ones included. Takes one allocation, and one more to create the
 * list. Traces under flag 8.
 * @param[in]     list      list to copy; null stops the process
 * @param[in]     name      name of the list that is created; null gives it the name of list. Not used when
 *                          a list is given. May be null.
 * @param[in,out] copy_list null inside creates a list; an empty list inside is used and keeps its name (one
 *                          with pairs stops the process). On failure a list that was created is freed and
 *                          null is stored; a list that was given stays, empty.
 *
 * Ownership: *Caller frees* a created list with aaa_avpair_free_list().
 * @return
 * - AAA_OK: copied
 * - AAA_ERR_INVALID_ARG: copy_list is null
 * - AAA_ERR_AVPAIR_PROCESSING: name is longer than 30 characters
 * - AAA_ERR_NOMEM: no memory, or more than 2147483647 bytes of pairs
 */
AAA_API cerrno aaa_avpair_copy_list(const avlist *list, const char *name, avlist **copy_list);

/**
 * Calls a function for every live pair in order, until it returns zero.
 * The function may change the value bytes; it must not delete pairs.
 * @param[in] list list to visit
 * @param[in] ctx  handed to fn; may be null
 * @param[in] fn   function to call
 *
 * Ownership: *Borrowed*: the value that fn gets, as with aaa_avpair_find_type().
 * @return
 * - AAA_OK: all visited, stopped by fn, or nothing to visit
 * - AAA_ERR_INVALID_ARG: list or fn is null
 */
AAA_API cerrno aaa_avpair_list_for_each(avlist *list, void *ctx, aaa_avpair_list_callback_fn_t fn);

/**
 * Exchanges the contents of two lists: pairs, counts, names and reserved bytes.
 * @param[in,out] a one list
 * @param[in,out] b the other
 * @return
 * - AAA_OK: exchanged
 * - AAA_ERR_INVALID_ARG: a list is null
 */
AAA_API cerrno aaa_avpair_switch(avlist *a, avlist *b);

/**
 * Rebuilds a list from itself and a second one. Traces under flag 8.
 *
 * Every pair of tgt whose type occurs in src takes over length and tag of the
 * first such pair of src and the flags of both, but keeps its own value bytes:
 * cut to the new length, or continued with the bytes that follow in tgt, zeros
 * where nothing follows. Callers depend on this mixture. Pairs of tgt without a
 * counterpart stay as they are; pairs of src without one are not added. A pair
 * for which there is no memory is left out of the result.
 *
 * tgt keeps its record and its name; everything else in the record is as in a
 * list just created, and all iterators and value addresses of tgt are spent.
 * @param[in]     src list to take from; may be tgt
 * @param[in,out] tgt list to rebuild; one without pairs stops the process. Untouched on failure.
 * @return
 * - AAA_OK: rebuilt
 * - AAA_ERR_INVALID_ARG: a list is null
 * - AAA_ERR_NOMEM: the result list could not be made
 */
AAA_API cerrno aaa_avpair_update_list_from_list(const avlist *src, avlist *tgt);

/**
 * Updates a list as aaa_avpair_update() does, instance 0, with every pair of a
 * second list that has one of the given flag bits. Traces under flag 8.
 * The results of the updates are ignored.
 * @param[in]     src   list to take from
 * @param[in,out] tgt   list to update; one without pairs stops the process, also when src has none
 * @param[in]     flags flag bits, one of which a pair of src must have
 *
 * Ownership: *Copied in*: the values.
 * @return
 * - AAA_OK: done
 * - AAA_ERR_INVALID_ARG: a list is null
 */
AAA_API cerrno aaa_avpair_update_list_from_list_by_flags(const avlist *src, avlist *tgt,
                                                         avpair_flags_t flags);

/**
 * Appends every pair of a list that has one of the given flag bits to a second
 * list. Traces under flag 8. The results of the appends are ignored.
 * @param[in]     src   list to take from
 * @param[in,out] dst   list to append to; may be src
 * @param[in]     flags flag bits, one of which a pair of src must have
 *
 * Ownership: *Copied in*: the values.
 * @return
 * - AAA_OK: done
 * - AAA_ERR_INVALID_ARG: a list is null
 */
AAA_API cerrno aaa_avpair_add_from_list_by_flags(const avlist *src, avlist *dst, avpair_flags_t flags);

/**
 * Appends every pair of a list to a second one, in order.
 * @param[in,out] dst list to append to; may be src, whose pairs then occur twice
 * @param[in]     src list to take from
 *
 * Ownership: *Copied in*: the values.
 * @return
 * - AAA_OK: all appended
 * - AAA_ERR_INVALID_ARG: a list is null
 * - AAA_ERR_NOMEM: no memory; the pairs before the one that failed are appended
 */
AAA_API cerrno aaa_avpair_list_concat(avlist *dst, const avlist *src);

/**
 * Updates a list as aaa_avpair_update() does, instance 0, with every pair of a second one, in order.
 * @param[in,out] dst list to update; may be src
 * @param[in]     src list to take from
 *
 * Ownership: *Copied in*: the values.
 * @return
 * - AAA_OK: all done
 * - AAA_ERR_INVALID_ARG: a list is null
 * - AAA_ERR_NOMEM: as aaa_avpair_update(); the pairs before the one that failed are done
 */
AAA_API cerrno aaa_avpair_list_concat_with_replace(avlist *dst, const avlist *src);

/* ---- Printing ---- */

/**
 * Writes a list as text: a line with prefix, name and av_cnt, then every live
 * pair as a line break and the text of aaa_util_print_attr(). Passwords are
 * not shown.
 * @param[out] dst    room for the text, which always ends in NUL; may be null (nothing happens)
 * @param[in]  size   bytes at dst; what does not fit is cut, 0 writes nothing
 * @param[in]  prefix text for the brackets of the first line; may be null
 * @param[in]  list   list to print; may be null (nothing happens)
 * @return dst
 */
AAA_API char *aaa_util_print_avlist(char *dst, uint32_t size, const char *prefix, const avlist *list);

/**
 * Hands the name of a list and then the text of every live pair to a printer.
 * A pair's text is at most 1023 characters and ends in a line break.
 * @param[in] list    list to print; may be null (nothing happens)
 * @param[in] flag    debug flag for the printer
 * @param[in] printer function to call; may be null (nothing happens)
 *
 * Ownership: *Borrowed*: the text that the printer gets, until it returns.
 */
AAA_API void aaa_avpair_print_list(const avlist *list, uint32_t flag, aaa_line_printer_t printer);

/**
 * Traces bytes in hexadecimal, nine a line, when a debug flag is on: a heading,
 * the full lines, and a last line with the rest, also when there is none.
 * @param[in] flag  debug flag to test and to trace under
 * @param[in] name  name for the heading; may be null
 * @param[in] buf   bytes to show; may be null (no bytes then)
 * @param[in] len   number of bytes; below 1 shows none
 * @param[in] ascii not 0 shows printable bytes as characters
 */
AAA_API void dump_buffer(uint32_t flag, const char *name, const unsigned char *buf, int len, int ascii);

/**
 * Traces every element of an io-vector as dump_buffer() does under debug flag
 * 10, in hexadecimal only, headed by name and the element's number from 0.
 * @param[in] name  name for the headings, which are cut at 127 characters; may be null
 * @param[in] iov   the elements; may be null (nothing happens)
 * @param[in] count number of elements; below 1 shows none
 */
AAA_API void dump_iovs(const char *name, const iov_t *iov, int count);

/**
 * Hands a label and then bytes in hexadecimal, nine a line, to a printer.
 * The bytes that follow the last full line are not shown: deliberate, unlike dump_buffer().
 * @param[in] label   first line; may be null
 * @param[in] flag    debug flag for the printer; it is not tested
 * @param[in] buf     bytes to show; may be null (no bytes then)
 * @param[in] len     number of bytes; below 1 shows none
 * @param[in] printer function to call; may be null (nothing happens)
 *
 * Ownership: *Borrowed*: the text that the printer gets, until it returns.
 */
AAA_API void aaa_dump_pkt_buffer(const char *label, uint32_t flag, const unsigned char *buf, int len,
                                 aaa_line_printer_t printer);

#ifdef __cplusplus
}
#endif

#endif /* AAA_AVPAIR_H */
