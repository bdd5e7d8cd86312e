/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_CHECKED_H
#define AAA_CHECKED_H

/**
 * @file
 * @brief Entry points for bytes of unknown origin.
 *
 * The plain unpack and read functions trust the lengths they find, because
 * both sides of the classic exchange run this library. A server that listens
 * on a socket cannot: every function here verifies first, never reads outside
 * the given bytes or writes outside the given room, and gives the same result
 * as its plain sibling on everything well-formed.
 *
 * These functions are additions to the interface and carry a symbol version
 * of their own (AAAUTIL_EXT_1).
 */

#include <stddef.h>

#include "aaa/avpair.h"
#include "aaa/export.h"
#include "aaa/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Most live pairs in a packed list of unknown origin.
 *
 * A list counts 65535 pairs, and the pair that wraps the count stops the process.
 * The difference is room for 256 pairs that the receiver adds.
 */
#define AAA_CHECKED_MAX_PAIRS 65279u

/**
 * Fills an empty list from a packed list of unknown origin.
 *
 * Accepted is what packing can produce: a big-endian total length of at least
 * 56 bytes that is a multiple of 4 and does not exceed @p avail; a terminated
 * name; every pair head and value inside that length; a pair count that is zero
 * exactly when no live pair follows; no deleted pair at the very end. A list of
 * more than 65279 live pairs (AAA_CHECKED_MAX_PAIRS) is refused, so that the
 * receiver can append 256 pairs to whatever is accepted; one that appends more
 * has to count. Bytes after the total length are ignored. No one else may write to the
 * message during the call: copy it first when it is in shared memory.
 *
 * @param[in,out] list  empty list to fill; a list that is not empty stops the process
 * @param[in]     msg   the packed list, any alignment
 * @param[in]     avail number of readable bytes at @p msg
 *
 * Ownership: *Copied in*; the message may be released after the call.
 *
 * @return
 * - AAA_OK: the list holds the message's pairs, as after aaa_avpair_unpack_msg()
 * - AAA_ERR_INVALID_ARG: a pointer is null
 * - AAA_ERR_INVALID_MSG_SIZE: fewer than 56 bytes, or a total length that is out of range
 * - AAA_ERR_AVPAIR_PROCESSING: name, count or a pair is malformed, or there are more than
 *   AAA_CHECKED_MAX_PAIRS live pairs
 * - AAA_ERR_NOMEM: the pairs could not be stored
 *
 * On every failure the list is left empty, with the name it had.
 */
AAA_API_EXT cerrno aaa_avpair_unpack_msg_checked(avlist *list, const char *msg, size_t avail);

/**
 * Copies the type data (task-map name, user-group text) out of a received session packet.
 *
 * @param[in]  packet     session packet of type 11 or 16, request or response, any alignment
 * @param[in]  packet_len number of readable bytes at @p packet
 * @param[out] out        receives the data, without terminator; may be null when @p out_cap is 0
 * @param[in]  out_cap    room at @p out in bytes
 * @param[out] len_out    receives the number of bytes copied, or the room that is needed
 *
 * @return
 * - AAA_OK: data copied, @p len_out set
 * - AAA_ERR_INVALID_ARG: a pointer is null
 * - AAA_ERR_INVALID_MSG_SIZE: the packet ends before its data, or states more than 255 bytes
 * - AAA_ERR_INVALID_MSG_TYPE: the packet's type carries no type data
 * - AAA_ERR_BUFFER_TOO_SMALL: @p len_out is the room that is needed, nothing copied
 */
AAA_API_EXT cerrno aaa_sess_get_type_data_checked(const void *packet, size_t packet_len, void *out,
                                                  size_t out_cap, uint32_t *len_out);

/**
 * Copies the stored method list (attribute 17) as 32-bit method values.
 *
 * Bytes that follow the last whole value do not count; no writer of this library leaves any.
 *
 * @param[in]  list     list to read
 * @param[out] dst      room for @p capacity values; may be null when @p capacity is 0
 * @param[in]  capacity room at @p dst in values, not bytes
 * @param[out] count    receives the number of values copied, or the number that is needed
 *
 * @return
 * - AAA_OK: copied
 * - AAA_ERR_INVALID_ARG: a pointer is null
 * - AAA_ERR_AVPAIR_NOT_FOUND: the list has no method list; @p count is 0
 * - AAA_ERR_BUFFER_TOO_SMALL: @p count is the number that is needed, nothing copied
 */
AAA_API_EXT cerrno aaa_util_avlist_methodlist_copy(const avlist *list, uint32_t *dst, uint32_t capacity,
                                                   uint32_t *count);

/**
 * Copies the value of one attribute.
 *
 * @param[in]  list     list to read
 * @param[in]  type     attribute type
 * @param[in]  instance occurrence of the type, counted from 0
 * @param[out] dst      receives the value bytes as they are stored; may be null when @p cap is 0
 * @param[in]  cap      room at @p dst in bytes
 * @param[out] len      receives the number of bytes copied, or the room that is needed
 *
 * @return
 * - AAA_OK: copied
 * - AAA_ERR_INVALID_ARG: a pointer is null
 * - AAA_ERR_AVPAIR_NOT_FOUND: no such occurrence; @p len is 0
 * - AAA_ERR_BUFFER_TOO_SMALL: @p len is the room that is needed, nothing copied
 */
AAA_API_EXT cerrno aaa_util_avlist_value_copy(const avlist *list, uint32_t type, uint32_t instance, void *dst,
                                              size_t cap, uint32_t *len);

/**
 * Tells whether a list is well-formed, without stopping the process when it is not.
 *
 * Walks the buffer chain and every pair: links, sizes, alignment, value
 * bounds, a terminated name, a live pair at the end of every buffer, no more
 * than 65535 live pairs, and a pair count that is zero exactly when there are
 * no buffers (the count of an unpacked list is kept in the sender's byte
 * order, so no more can be said). The buffers that the list points to have to
 * be readable memory; nothing outside them is read.
 *
 * @param[in] list list to look at; may be null
 * @return 1 when the list is well-formed, 0 when it is not or is null
 */
AAA_API_EXT int aaa_avpair_list_is_sane(const avlist *list);

#ifdef __cplusplus
}
#endif

#endif /* AAA_CHECKED_H */
