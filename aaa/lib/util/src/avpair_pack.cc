// SPDX-License-Identifier: Apache-2.0
//
// Packing and unpacking of lists.
//
// The flat form, every integer big-endian:
//
//   list   = header *pair
//   header = total:4 reserved:2 count:2 zero:16 name:31 zero:1        56 bytes
//   pair   = type:4 tag:4 length:4 flags:4 value:length pad           a multiple of 4
//   value  = integer:4          when length is 4 and the dictionary calls the
//                               type an integer or an IPv4 address
//          / length * octet     otherwise, as it stands in memory
//   pad    = 0 to 3 octets without meaning
//
// total counts the whole form. count is the number of live pairs; a list that
// was unpacked and is packed again carries it in the other byte order, so a
// reader may only ask whether it is zero. A pair of type AAA_ATTR_MAX is a
// deleted one that lay between live ones.
//
// In memory a pair has the same layout in host order, and the used part of
// every buffer is a whole number of pairs. So each direction is one pass that
// swaps while it copies. Packing swaps in the list's own buffers as well:
// afterwards the list can only be freed.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "aaa/avpair.h"
#include "aaa/dictionary.h"
#include "aaa/result_codes.h"
#include "internal/assert.hpp"
#include "internal/avpair_checks.hpp"
#include "internal/avpair_storage.hpp"
#include "internal/avpair_wire.hpp"
#include "internal/bytes.hpp"
#include "internal/trace.hpp"

namespace {

using aaautil::kListRecord;
using aaautil::kPairHead;
using aaautil::MessageOutput;

constexpr std::size_t kLengthAt = offsetof(avpair_t, av_len);

static_assert(sizeof(avlist) == 56 && offsetof(avlist, av_cnt) == 6 && offsetof(avlist, av_name) == 24);
static_assert(sizeof(avpair_t) == 16 && offsetof(avpair_t, av_len) == 8);
static_assert(sizeof(avpair_buffer_t) == 32);

constexpr std::size_t align_pair(std::size_t n) {
    constexpr std::size_t kMask = MEMORY_DEF_ALIGNMENT - 1;
    return (n + kMask) & ~kMask;
}

// Integers and IPv4 addresses travel in network order, but only at their
// natural size: an eight-byte integer travels as it stands.
bool swaps_value(uint32_t type, std::size_t len) {
    if (len != sizeof(uint32_t)) {
        return false;
    }
    const uint32_t format = aaa_attribute_format(static_cast<int32_t>(type));
    return format == 1 || format == 3;
}

void swap_head(const unsigned char *from, unsigned char *to) {
    aaautil::store_u64(to, aaautil::net_u32_pair(aaautil::load_u64(from)));
    aaautil::store_u64(to + 8, aaautil::net_u32_pair(aaautil::load_u64(from + 8)));
}

// Bytes of the value and its pad that lie before the end of the pairs. A
// length that points past the end is cut there, which no list made by adding
// pairs and no message packed from one has.
std::size_t value_extent(std::size_t len, const unsigned char *value, const unsigned char *end) {
    const auto left = static_cast<std::size_t>(end - value);
    const std::size_t extent = align_pair(len);
    return extent < left ? extent : left;
}

// Values are short: most fit one or two words, for which a call is dear.
void copy_bytes(unsigned char *to, const unsigned char *from, std::size_t n) {
    if (n > 32) {
        std::memcpy(to, from, n);
        return;
    }
    while (n >= 4) {
        std::memcpy(to, from, 4);
        to += 4, from += 4, n -= 4;
    }
    while (n-- > 0) {
        *to++ = *from++;
    }
}

// Swaps the pairs from p to end in place and, with an output, copies them there.
template <bool kCopy>
void pack_pairs(unsigned char *p, unsigned char *end, unsigned char *out) {
    while (static_cast<std::size_t>(end - p) >= kPairHead) {
        const uint32_t type = aaautil::load_u32(p);
        const std::size_t len = aaautil::load_u32(p + kLengthAt);
        swap_head(p, p);
        unsigned char *value = p + kPairHead;
        const std::size_t extent = value_extent(len, value, end);
        if (extent == sizeof(uint32_t) && swaps_value(type, len)) {
            aaautil::swap_u32_in_place(value);
        }
        if constexpr (kCopy) {
            copy_bytes(out, p, kPairHead);
            copy_bytes(out + kPairHead, value, extent);
            out += kPairHead + extent;
        }
        p = value + extent;
    }
    if constexpr (kCopy) {
        copy_bytes(out, p, static_cast<std::size_t>(end - p));
    }
}

// The header is already there as a copy of the list record.
void finish_header(char *msg, uint32_t total) {
    aaautil::store_be32(msg, total);
    std::memset(msg + offsetof(avlist, avpair_first_buf), 0, 2 * sizeof(avpair_buffer_t *));
    char *count = msg + offsetof(avlist, av_cnt);
    const char high = count[0];
    count[0] = count[1];
    count[1] = high;
}

// Copies n message bytes to a buffer and swaps heads and integer values.
void unpack_pairs(const unsigned char *msg, std::size_t n, unsigned char *to) {
    const unsigned char *end = msg + n;
    while (static_cast<std::size_t>(end - msg) >= kPairHead) {
        swap_head(msg, to);
        const std::size_t len = aaautil::load_u32(to + kLengthAt);
        const std::size_t extent = value_extent(len, msg + kPairHead, end);
        if (extent == sizeof(uint32_t) && swaps_value(aaautil::load_u32(to), len)) {
            aaautil::store_u32(to + kPairHead, aaautil::load_be32(msg + kPairHead));
        } else {
            copy_bytes(to + kPairHead, msg + kPairHead, extent);
        }
        msg += kPairHead + extent;
        to += kPairHead + extent;
    }
    copy_bytes(to, msg, static_cast<std::size_t>(end - msg));
}

// Takes over the message's header as it is, count in network order included.
// The buffer addresses are the sender's and the name must end.
void take_header(avlist *list, const char *msg) {
    std::memcpy(list, msg, kListRecord);
    list->avpair_first_buf = nullptr;
    list->avpair_last_buf = nullptr;
    list->av_name[sizeof list->av_name - 1] = '\0';
}

int print_to_trace(uint32_t flag, const char *line) {
    aaa_debug(flag, "%s", line);
    return 0;
}

void trace_unpacked(const avlist *list) {
    aaa_debug(8, "Unpacking attribute list %s", list->av_name);
    aaa_avpair_print_list(list, 8, print_to_trace);
}

cerrno unpack(avlist *list, const char *msg, uint32_t len) {
    const bool traced = aaautil::tracing(8);
    if (traced) {
        aaa_debug(8, "Unpacking message '%s', length %d", list->av_name, static_cast<int>(len));
    }
    if (len < kListRecord) {
        return AAA_ERR_INVALID_MSG_SIZE;
    }
    take_header(list, msg);
    if (len == kListRecord) {
        return AAA_OK;
    }
    const std::size_t pair_bytes = len - kListRecord;
    avpair_buffer_t *buf = aaautil::new_buffer(pair_bytes);
    if (buf == nullptr) {
        list->av_cnt = 0;
        return AAA_ERR_NOMEM;
    }
    AAA_ASSERT(aaautil::is_aligned(buf->hdr.free_mem, MEMORY_DEF_ALIGNMENT),
               "is_aligned(new_buf->hdr.free_mem, MEMORY_DEF_ALIGNMENT)");
    unpack_pairs(reinterpret_cast<const unsigned char *>(msg) + kListRecord, pair_bytes, buf->hdr.free_mem);
    buf->hdr.free_mem += pair_bytes;
    list->avpair_first_buf = buf;
    list->avpair_last_buf = buf;
    if (traced) {
        trace_unpacked(list);
    }
    return AAA_OK;
}

}  // namespace

cerrno aaa_avpair_pack_msg(const avlist *list, iov_t *iov, uint32_t *len) {
    if (list == nullptr || iov == nullptr || len == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    AAA_ASSERT(*len >= 1, "*len >= 1");
    avpair_buffer_t *buf = aaautil::aaa_is_list_empty(list) ? nullptr : list->avpair_first_buf;
    aaautil::trace_packing(list);
    uint32_t iov_count = 0;
    iov[iov_count++] = {const_cast<avlist *>(list), kListRecord};
    for (; buf != nullptr && iov_count < *len; buf = buf->hdr.next) {
        iov[iov_count++] = {aaautil::pairs_of(buf), aaautil::used_bytes(buf)};
    }
    if (buf != nullptr) {
        AAA_ASSERT(iov_count == *len, "iov_count == *len");
        return AAA_ERR_BUFFER_TOO_SMALL;
    }
    *len = iov_count;
    return AAA_OK;
}

cerrno aaa_avpair_pack_msg_to_buf(avlist *list, char *buf, uint32_t *len) {
    if (list == nullptr || buf == nullptr || len == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    avpair_buffer_t *chain = aaautil::aaa_is_list_empty(list) ? nullptr : list->avpair_first_buf;
    aaautil::trace_packing(list);
    MessageOutput out(buf, *len);
    out.append(list, kListRecord);
    // Every buffer is converted, also when the output has been closed: whether
    // a list is spent must not depend on the room in the output.
    for (; chain != nullptr; chain = chain->hdr.next) {
        unsigned char *first = aaautil::pairs_of(chain);
        unsigned char *at = out.take(aaautil::used_bytes(chain));
        if (at != nullptr) {
            pack_pairs<true>(first, chain->hdr.free_mem, at);
        } else {
            pack_pairs<false>(first, chain->hdr.free_mem, nullptr);
        }
    }
    *len = out.used();
    if (out.result() != AAA_OK) {
        return out.result();
    }
    finish_header(buf, out.used());
    return AAA_OK;
}

cerrno aaa_avpair_unpack_msg(avlist *list, char *msg) {
    if (list == nullptr || msg == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    return aaa_avpair_unpack_msg_2(list, msg, aaautil::load_be32(msg));
}

cerrno aaa_avpair_unpack_msg_2(avlist *list, char *msg, uint32_t len) {
    if (list == nullptr || msg == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    AAA_ASSERT(aaautil::aaa_is_list_empty(list), "aaa_is_list_empty(list)");
    return unpack(list, msg, len);
}

cerrno aaa_avpair_unpack_msg_create(avlist **list, char *msg, uint32_t len) {
    if (list == nullptr || msg == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    cerrno rc = aaa_avpair_create_list(nullptr, list);
    if (rc != AAA_OK) {
        return rc;
    }
    rc = unpack(*list, msg, len);
    if (rc != AAA_OK) {
        aaa_avpair_free_list(*list);
        *list = nullptr;
    }
    return rc;
}
