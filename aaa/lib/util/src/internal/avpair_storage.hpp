// SPDX-License-Identifier: Apache-2.0
//
// Appending pairs to a list and deleting them, for library code. The hot path
// of an append is inline; starting a buffer is not.
//
//     append_traced(type, flags, value, tag, len, list, traced)   as aaa_avpair_add()
//     append_pair(type, flags, value, tag, len, list)             the same without a trace line
//     append_head_in_place(...), copy_short(...)                  the same where there is room
//     aaa_alloc_avpair_mem(len, list), fill_pair(...),
//     finish_append(list)                                         the steps of an append
//     new_buffer(pair_bytes)                                      a buffer outside any list
//     append_buffer(pair_bytes, list)                             a buffer at the end of a list
//     free_buffer(buf)                                            wipes its pairs and frees it
//     delete_pair(it, list)                                       marks a pair, gives memory back
//
// Internal names use three verbs for pairs: append, replace, delete. The public
// names add and update are older. Internals with an aaa_ name are those that
// operators know from crash reports, where a failed assertion names its function,
// and small companions of these.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "aaa/avpair.h"
#include "aaa/dictionary.h"
#include "aaa/result_codes.h"
#include "internal/avpair_checks.hpp"
#include "internal/avpair_verify.hpp"
#include "internal/avpair_walk.hpp"
#include "internal/bytes.hpp"

namespace aaautil {

// A buffer is never smaller, so that the usual handful of small pairs shares one.
inline constexpr std::size_t kMinBufferSize = 512;

// Obtains a buffer with room for pair_bytes bytes of pairs, empty and linked
// to nothing. Null when memory is exhausted or its size would not fit the
// 32-bit field.
[[nodiscard]] avpair_buffer_t *new_buffer(std::uint64_t pair_bytes) noexcept;

// Puts a new buffer with that room at the end of a list. Null as above; the
// list is then unchanged.
[[nodiscard]] avpair_buffer_t *append_buffer(std::uint64_t pair_bytes, avlist *list) noexcept;

// Frees a buffer. Its pairs may hold passwords and keys, so they are wiped; the
// room after them never held any, or was wiped when it was given back.
void free_buffer(avpair_buffer_t *buf) noexcept;

// Number of live pairs by walking all of them, at most 65536. For lists whose
// av_cnt cannot be used to count; does not look at av_cnt.
[[nodiscard]] uint32_t count_live_pairs(const avlist *list) noexcept;

// Puts right a count that became 0 while there are pairs, which happens to the
// count of an unpacked list: its bytes are in message order. A list that
// really holds more pairs than can be counted keeps the 0.
void settle_count(avlist *list) noexcept;

// Deletes the pair at the position; a deleted one is left alone. Position and
// list have to be set, the list must not be empty.
void delete_pair(const aaa_avpair_iterator_t *it, avlist *list) noexcept;

// aaa_avpair_add(); traced says whether debug flag 8 is on (callers that
// have asked already need not ask again).
cerrno append_traced(uint32_t type, uint32_t flags, const void *value, uint32_t tag, uint32_t len,
                     avlist *list, bool traced) noexcept;

// Copies between N and 2 * N bytes with two chunks that may overlap. Both loads
// precede the stores, so the areas may overlap too.
template <std::size_t N>
inline void copy_ends(unsigned char *to, const unsigned char *from, std::size_t n) noexcept {
    unsigned char head[N];
    unsigned char tail[N];
    std::memcpy(head, from, N);
    std::memcpy(tail, from + n - N, N);
    std::memcpy(to, head, N);
    std::memcpy(to + n - N, tail, N);
}

// Values that are copied without a call.
inline constexpr std::size_t kShortValue = 32;

// Copies up to kShortValue bytes. Reads nothing outside of them, and all of
// them before it writes, so the areas may overlap.
inline void copy_short(unsigned char *to, const unsigned char *from, std::size_t n) noexcept {
    if (n > 16) {
        copy_ends<16>(to, from, n);
    } else if (n > 8) {
        copy_ends<8>(to, from, n);
    } else if (n >= 4) [[likely]] {
        copy_ends<4>(to, from, n);
    } else if (n != 0) {
        const unsigned char head = from[0];
        const unsigned char middle = from[n / 2];
        const unsigned char tail = from[n - 1];
        to[0] = head;
        to[n / 2] = middle;
        to[n - 1] = tail;
    }
}

// Copies n bytes as memmove does.
inline void copy_value(unsigned char *to, const unsigned char *from, std::size_t n) noexcept {
    if (n <= kShortValue) [[likely]] {
        copy_short(to, from, n);
    } else {
        std::memmove(to, from, n);
    }
}

// Writes head and pad bytes of a pair whose room, up to next, is reserved. The pad bytes
// travel in packed lists; left unwritten they would carry old heap contents.
// The last word is cleared before the head is written over it: with no value
// bytes that word is av_flags.
inline void fill_head(avpair_t *pair, uint32_t type, uint32_t flags, uint32_t tag, uint32_t len,
                      avpair_t *next) noexcept {
    store_u32(reinterpret_cast<unsigned char *>(next) - sizeof(uint32_t), 0);
    pair->av_type = type;
    pair->av_tag = tag;
    pair->av_len = len;
    pair->av_flags = flags;
}

inline void fill_head(avpair_t *pair, uint32_t type, uint32_t flags, uint32_t tag, uint32_t len) noexcept {
    fill_head(pair, type, flags, tag, len, adjacent_pair(pair, len));
}

// The same with the value, which may be null when len is 0.
inline void fill_pair(avpair_t *pair, uint32_t type, uint32_t flags, const void *value, uint32_t tag,
                      uint32_t len) noexcept {
    fill_head(pair, type, flags, tag, len);
    copy_value(aaa_get_avpair_value_ptr(pair), static_cast<const unsigned char *>(value), len);
}

// Moves free_mem past a pair of req_mem bytes, rounded up, never past the end of the buffer.
inline void advance_free_mem(avpair_buffer_t *last_buf, std::size_t req_mem) noexcept {
    constexpr std::size_t kMask = MEMORY_DEF_ALIGNMENT - 1;
    unsigned char *const end = reinterpret_cast<unsigned char *>(last_buf) + last_buf->hdr.buf_size;
    unsigned char *const next = last_buf->hdr.free_mem + ((req_mem + kMask) & ~kMask);
    if (next <= end) [[likely]] {
        last_buf->hdr.free_mem = next;
        return;
    }
    AAA_ASSERT((last_buf->hdr.buf_size & kMask) == 0,
               "is_aligned((void*)(uintptr_t)(last_buf->hdr.buf_size), MEMORY_DEF_ALIGNMENT) == TRUE");
    last_buf->hdr.free_mem = end;
}

// Reserves room for a pair with len value bytes at the end of the list; its
// bytes are undefined. Null when memory is exhausted; the list is then
// unchanged. There is no check against more than 65535 pairs: the count wraps
// to 0, and the next operation that looks at the list stops the process.
[[nodiscard]] inline avpair_t *aaa_alloc_avpair_mem(uint32_t len, avlist *list) noexcept {
    AAA_ASSERT(list != nullptr, "list != NULL");
    avpair_buffer_t *last_buf = list->avpair_last_buf;
    AAA_ASSERT(last_buf == nullptr || is_aligned(last_buf->hdr.free_mem, MEMORY_DEF_ALIGNMENT),
               "(list->avpair_last_buf == NULL) || is_aligned(list->avpair_last_buf->hdr.free_mem, "
               "MEMORY_DEF_ALIGNMENT) == TRUE");
    const std::size_t free_mem = aaa_get_free_mem(list);
    const std::uint64_t req_mem = std::uint64_t{len} + sizeof(avpair_t);
    AAA_ASSERT(static_cast<uint32_t>(req_mem) > 0, "req_mem > 0");
    if (free_mem < req_mem) [[unlikely]] {
        last_buf = append_buffer(req_mem, list);
        if (last_buf == nullptr) {
            return nullptr;
        }
    }
    auto *const pair = reinterpret_cast<avpair_t *>(last_buf->hdr.free_mem);
    advance_free_mem(last_buf, req_mem);
    list->av_cnt++;
    AAA_ASSERT(is_aligned(last_buf->hdr.free_mem, MEMORY_DEF_ALIGNMENT),
               "is_aligned(last_buf->hdr.free_mem, MEMORY_DEF_ALIGNMENT) == TRUE");
    AAA_ASSERT(last_buf->hdr.free_mem <= reinterpret_cast<unsigned char *>(last_buf) + last_buf->hdr.buf_size,
               "last_buf->hdr.free_mem <= ((unsigned char*)last_buf) + last_buf->hdr.buf_size");
    return pair;
}

// Ends an append. A count that wraps although the list has fewer than 65536
// pairs is that of an unpacked list, whose bytes are in message order; it is
// put right.
inline void finish_append(avlist *list) noexcept {
    if (list->av_cnt == 0) [[unlikely]] {
        settle_count(list);
    }
    verify_changed(list);
}

// Bytes of a pair with a short value.
[[nodiscard]] constexpr uint32_t short_pair_extent(uint32_t len) noexcept {
    constexpr uint32_t kMask = MEMORY_DEF_ALIGNMENT - 1;
    return (len + uint32_t{sizeof(avpair_t)} + kMask) & ~kMask;
}

// The usual append, into the room that the last buffer still has: everything
// but the value bytes. Null when anything at all is unusual, a broken list
// included; nothing has changed then, and the slow path diagnoses it.
[[nodiscard]] inline avpair_t *append_head_in_place(uint32_t type, uint32_t flags, const void *value,
                                                    uint32_t tag, uint32_t len, avlist *list) noexcept {
    if (list == nullptr || len > kShortValue) [[unlikely]] {
        return nullptr;
    }
    avpair_buffer_t *const buf = list->avpair_last_buf;
    // A count of 0 is wrong when there is a buffer, and one that becomes 0 has to be put right.
    if (buf == nullptr || static_cast<uint16_t>(list->av_cnt + 1) <= 1 || value == nullptr) [[unlikely]] {
        return nullptr;
    }
    unsigned char *const free_mem = buf->hdr.free_mem;
    const uint32_t extent = short_pair_extent(len);
    // Negative where free_mem precedes the buffer; otherwise no sum wraps.
    const auto at = static_cast<std::intptr_t>(reinterpret_cast<std::uintptr_t>(free_mem) -
                                               reinterpret_cast<std::uintptr_t>(buf));
    if (at < std::intptr_t{sizeof *buf} || static_cast<std::size_t>(at) + extent > buf->hdr.buf_size ||
        !is_aligned(free_mem, MEMORY_DEF_ALIGNMENT)) [[unlikely]] {
        return nullptr;
    }
    auto *const pair = reinterpret_cast<avpair_t *>(free_mem);
    buf->hdr.free_mem = free_mem + extent;
    list->av_cnt++;
    fill_head(pair, type, flags, tag, len, reinterpret_cast<avpair_t *>(free_mem + extent));
    return pair;
}

// Checks, reserves, writes. The deleted marker has to be refused before.
inline cerrno append_pair(uint32_t type, uint32_t flags, const void *value, uint32_t tag, uint32_t len,
                          avlist *list) noexcept {
    if (list == nullptr || (value == nullptr && len > 0)) {
        return AAA_ERR_INVALID_ARG;
    }
    avpair_t *const pair = aaa_alloc_avpair_mem(len, list);
    if (pair == nullptr) {
        return AAA_ERR_NOMEM;
    }
    fill_pair(pair, type, flags, value, tag, len);
    finish_append(list);
    return AAA_OK;
}

}  // namespace aaautil
