// SPDX-License-Identifier: Apache-2.0
//
// Checked forms of the functions that read bytes of unknown origin. Each
// verifies everything it relies on before it hands over to the plain form or
// copies; none of them asserts on what a peer can send.

#include "aaa/checked.h"

#include <cstddef>
#include <cstring>

#include "aaa/dictionary.h"
#include "aaa/result_codes.h"
#include "aaa/session_packets.h"
#include "internal/assert.hpp"
#include "internal/avpair_checks.hpp"
#include "internal/bytes.hpp"

namespace {

using aaautil::load_be32;
using aaautil::load_u32;

constexpr size_t kListHeader = sizeof(avlist);
constexpr size_t kPairHead = sizeof(avpair_t);
constexpr size_t kCountOffset = offsetof(avlist, av_cnt);
constexpr size_t kNameOffset = offsetof(avlist, av_name);
constexpr size_t kNameSize = sizeof(avlist::av_name);

constexpr size_t align_up(size_t n) {
    return (n + (MEMORY_DEF_ALIGNMENT - 1)) & ~size_t{MEMORY_DEF_ALIGNMENT - 1};
}

// The highest count of a list: with one more pair the count is 0, and the next
// operation on the list stops the process. A peer must not bring the list so near
// to it that a pair of the receiver is the one.
constexpr size_t kMostPairs = UINT16_MAX;
constexpr size_t kReceiversPairs = 256;
static_assert(AAA_CHECKED_MAX_PAIRS == kMostPairs - kReceiversPairs);

// Result of a walk over the pairs of one run of bytes.
struct PairScan {
    bool well_formed = false;
    bool last_live = false;
    size_t live = 0;
};

// Walks pairs from begin to end with the given reader of a head word. Both
// addresses are 4-aligned relative to each other; nothing past end is read.
template <uint32_t (*ReadWord)(const void *)>
PairScan scan_pairs(const unsigned char *begin, const unsigned char *end) {
    PairScan scan;
    const unsigned char *p = begin;
    while (p != end) {
        const size_t left = static_cast<size_t>(end - p);
        if (left < kPairHead) {
            return scan;
        }
        const size_t value_len = ReadWord(p + offsetof(avpair_t, av_len));
        const size_t extent = align_up(kPairHead + value_len);
        if (extent > left) {
            return scan;
        }
        scan.last_live = ReadWord(p + offsetof(avpair_t, av_type)) != AAA_ATTR_MAX;
        scan.live += scan.last_live ? 1 : 0;
        p += extent;
    }
    scan.well_formed = true;
    return scan;
}

// The pairs and the count of a message whose length is in order.
bool pairs_are_sane(const unsigned char *bytes, uint32_t len) {
    const PairScan scan = scan_pairs<load_be32>(bytes + kListHeader, bytes + len);
    // Only whether the count is zero can be checked: a relayed list carries it
    // in either byte order.
    const bool counted = (bytes[kCountOffset] | bytes[kCountOffset + 1]) != 0;
    if (len == kListHeader) {
        return !counted;
    }
    return counted && scan.well_formed && scan.last_live && scan.live <= AAA_CHECKED_MAX_PAIRS;
}

cerrno check_message(const char *msg, size_t avail, uint32_t *total) {
    if (avail < kListHeader) {
        return AAA_ERR_INVALID_MSG_SIZE;
    }
    const uint32_t len = load_be32(msg);
    if (len < kListHeader || len > avail || len % MEMORY_DEF_ALIGNMENT != 0) {
        return AAA_ERR_INVALID_MSG_SIZE;
    }
    if (std::memchr(msg + kNameOffset, '\0', kNameSize) == nullptr) {
        return AAA_ERR_AVPAIR_PROCESSING;
    }
    if (!pairs_are_sane(reinterpret_cast<const unsigned char *>(msg), len)) {
        return AAA_ERR_AVPAIR_PROCESSING;
    }
    *total = len;
    return AAA_OK;
}

// Adds the buffer's live pairs to the count when everything in it is in order.
bool buffer_is_sane(const avpair_buffer_t *buf, const avpair_buffer_t *expected_prev, size_t *live) {
    if (!aaautil::is_aligned(buf, alignof(avpair_buffer_t))) {
        return false;
    }
    const auto *base = reinterpret_cast<const unsigned char *>(buf);
    const size_t size = buf->hdr.buf_size;
    if (buf->hdr.prev != expected_prev || size < 512 || size % MEMORY_DEF_ALIGNMENT != 0) {
        return false;
    }
    const auto free_mem = reinterpret_cast<uintptr_t>(buf->hdr.free_mem);
    const auto first = reinterpret_cast<uintptr_t>(base) + sizeof(*buf);
    if (free_mem <= first || free_mem > reinterpret_cast<uintptr_t>(base) + size ||
        free_mem % MEMORY_DEF_ALIGNMENT != 0) {
        return false;
    }
    const PairScan scan = scan_pairs<load_u32>(base + sizeof(*buf), buf->hdr.free_mem);
    *live += scan.live;
    return scan.well_formed && scan.last_live;
}

}  // namespace

extern "C" {

cerrno aaa_avpair_unpack_msg_checked(avlist *list, const char *msg, size_t avail) {
    if (list == nullptr || msg == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    // A mistake of the caller, as with the plain form. Checked first, so that the
    // result does not depend on the bytes of the peer.
    AAA_ASSERT(aaautil::aaa_is_list_empty(list), "aaa_is_list_empty(list)");
    uint32_t total = 0;
    const cerrno rc = check_message(msg, avail, &total);
    if (rc != AAA_OK) {
        return rc;
    }
    const avlist before = *list;
    // The prototype of the plain form takes a writable pointer; the function only reads.
    const cerrno unpacked = aaa_avpair_unpack_msg_2(list, const_cast<char *>(msg), total);
    if (unpacked != AAA_OK) {
        *list = before;
    }
    return unpacked;
}

cerrno aaa_sess_get_type_data_checked(const void *packet, size_t packet_len, void *out, size_t out_cap,
                                      uint32_t *len_out) {
    constexpr size_t kLengthAt = sizeof(aaa_sess_hdr_t) + offsetof(aaa_sess_type_data_t, length);
    constexpr size_t kBytesAt = sizeof(aaa_sess_hdr_t) + offsetof(aaa_sess_type_data_t, bytes);
    if (packet == nullptr || (out == nullptr && out_cap != 0) || len_out == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    if (packet_len < kBytesAt) {
        return AAA_ERR_INVALID_MSG_SIZE;
    }
    const auto *bytes = static_cast<const unsigned char *>(packet);
    const uint32_t type = load_u32(bytes + offsetof(aaa_sess_hdr_t, type));
    if (type != 11 && type != 16) {
        return AAA_ERR_INVALID_MSG_TYPE;
    }
    const uint32_t length = load_u32(bytes + kLengthAt);
    if (length > sizeof(aaa_sess_type_data_t::bytes) || length > packet_len - kBytesAt) {
        return AAA_ERR_INVALID_MSG_SIZE;
    }
    *len_out = length;
    if (length > out_cap) {
        return AAA_ERR_BUFFER_TOO_SMALL;
    }
    if (length != 0) {
        std::memcpy(out, bytes + kBytesAt, length);
    }
    return AAA_OK;
}

cerrno aaa_util_avlist_value_copy(const avlist *list, uint32_t type, uint32_t instance, void *dst, size_t cap,
                                  uint32_t *len) {
    if (list == nullptr || len == nullptr || (dst == nullptr && cap != 0)) {
        return AAA_ERR_INVALID_ARG;
    }
    *len = 0;
    void *value = nullptr;
    uint32_t stored = 0;
    const cerrno rc = aaa_avpair_find_type(type, nullptr, &value, &stored, instance, list);
    if (rc != AAA_OK) {
        return rc;
    }
    *len = stored;
    if (stored > cap) {
        return AAA_ERR_BUFFER_TOO_SMALL;
    }
    if (stored != 0) {
        std::memcpy(dst, value, stored);
    }
    return AAA_OK;
}

cerrno aaa_util_avlist_methodlist_copy(const avlist *list, uint32_t *dst, uint32_t capacity,
                                       uint32_t *count) {
    if (list == nullptr || (dst == nullptr && capacity != 0) || count == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    *count = 0;
    void *value = nullptr;
    uint32_t len = 0;
    const cerrno rc = aaa_avpair_find_type(AAA_METHODLIST_ATTR, nullptr, &value, &len, 0, list);
    if (rc != AAA_OK) {
        return rc;
    }
    const uint32_t stored = len / static_cast<uint32_t>(sizeof(uint32_t));
    *count = stored;
    if (stored > capacity) {
        return AAA_ERR_BUFFER_TOO_SMALL;
    }
    if (stored != 0) {
        std::memcpy(dst, value, size_t{stored} * sizeof(uint32_t));
    }
    return AAA_OK;
}

int aaa_avpair_list_is_sane(const avlist *list) {
    if (list == nullptr || std::memchr(list->av_name, '\0', kNameSize) == nullptr) {
        return 0;
    }
    if (list->av_cnt == 0 || list->avpair_first_buf == nullptr) {
        return list->av_cnt == 0 && list->avpair_first_buf == nullptr && list->avpair_last_buf == nullptr;
    }
    // In a chain that loops, some buffer has a back link to another buffer than the preceding one.
    const avpair_buffer_t *prev = nullptr;
    size_t live = 0;
    for (const avpair_buffer_t *buf = list->avpair_first_buf; buf != nullptr; buf = buf->hdr.next) {
        if (!buffer_is_sane(buf, prev, &live)) {
            return 0;
        }
        prev = buf;
    }
    return prev == list->avpair_last_buf && live <= kMostPairs;
}

}  // extern "C"
