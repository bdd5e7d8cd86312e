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
//          / length * octet     otherwise, as it is in memory
//   pad    = 0 to 3 octets without meaning
//
// total counts the whole form. count is the number of live pairs; a list that
// was unpacked and is packed again carries it in the other byte order, so a
// reader may only ask whether it is zero. A pair of type AAA_ATTR_MAX is a
// deleted one between live ones.
//
// In memory a pair has the same layout in host order, and the used part of
// every buffer is a whole number of pairs. So each direction is one pass that
// swaps while it copies. Packing swaps in the list's own buffers as well:
// afterwards the list can only be freed.

#include "aaa/avpair.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "aaa/result_codes.h"
#include "internal/assert.hpp"
#include "internal/attribute_formats.hpp"
#include "internal/avpair_checks.hpp"
#include "internal/avpair_storage.hpp"
#include "internal/avpair_wire.hpp"
#include "internal/bytes.hpp"
#include "internal/trace.hpp"

namespace {

using aaautil::kListRecord;
using aaautil::kPairHead;
using aaautil::MessageOutput;

static_assert(sizeof(avlist) == 56 && offsetof(avlist, av_cnt) == 6 && offsetof(avlist, av_name) == 24);
static_assert(sizeof(avpair_t) == 16 && offsetof(avpair_t, av_type) == 0 && offsetof(avpair_t, av_len) == 8);
static_assert(sizeof(avpair_buffer_t) == 32);

template <typename T>
constexpr T align_pair(T n) {
    constexpr T kMask = MEMORY_DEF_ALIGNMENT - 1;
    return (n + kMask) & ~kMask;
}

// Bytes that are copied for a short value without looking at its length. Bytes
// past the value are the beginning of the next pair, which overwrites them.
constexpr std::size_t kBlock = 32;

// Bytes of a value and its pad. A length that points past the end of the pairs
// is cut there; no list made by appending pairs and no message packed from one
// has such a length. So a step ends at the latest with the pairs, and the
// position after a pair can never wrap: there is no such failure to report.
std::size_t value_extent(uint32_t len, std::size_t left) {
    const std::size_t extent = align_pair(std::size_t{len});
    return extent < left ? extent : left;
}

// What is done with a run of pairs.
enum class Pass {
    pack,    // to network order, in the list and copied to the message
    spend,   // to network order in the list: the message has no room left
    unpack,  // to host order, copied from the message to the list
};

// One pass over the pairs of a buffer or a message. Nothing that was just
// stored is loaded again: both copies are made from registers.
template <Pass kPass>
class Pairs {
    static constexpr bool kInPlace = kPass != Pass::unpack;
    static constexpr bool kCopies = kPass != Pass::spend;
    using Source = std::conditional_t<kInPlace, unsigned char *, const unsigned char *>;

  public:
    // n bytes of pairs; without an output, spend.
    Pairs(Source first, std::size_t n, unsigned char *out) : in_(first), out_(out), end_(n) {}

    void convert() {
        constexpr std::size_t kRoom = kPairHead + kBlock;
        if (end_ >= kRoom) [[likely]] {
            const std::size_t last = end_ - kRoom;
            while (at_ <= last) {
                convert_pair();
            }
        }
        convert_last();
    }

  private:
    struct Pair {
        uint32_t type;
        uint32_t len;
    };

    void convert_pair() {
        const std::size_t value = at_ + kPairHead;
        const Pair pair = convert_head();
        if (pair.len <= kBlock) [[likely]] {
            copy_block(value);
            convert_number(value, pair);
            at_ = align_pair(value + pair.len);
        } else {
            const std::size_t extent = value_extent(pair.len, end_ - value);
            copy(value, extent);
            at_ = value + extent;
        }
    }

    // In two chunks: of one the compiler makes an address of its own.
    void copy_block(std::size_t at) const {
        constexpr std::size_t kChunk = kBlock / 2;
        if constexpr (kCopies) {
            std::memcpy(out_ + at, in_ + at, kChunk);
            std::memcpy(out_ + at + kChunk, in_ + at + kChunk, kChunk);
        }
    }

    void copy(std::size_t at, std::size_t n) const {
        if constexpr (kCopies) {
            aaautil::copy_value(out_ + at, in_ + at, n);
        }
    }

    template <typename Bytes>
    void store(std::size_t at, const Bytes &bytes) const {
        if constexpr (kInPlace) {
            std::memcpy(in_ + at, &bytes, sizeof bytes);
        }
        if constexpr (kCopies) {
            std::memcpy(out_ + at, &bytes, sizeof bytes);
        }
    }

    // The length is loaded by itself: the position of the next pair depends on
    // it, and all else can wait.
    Pair convert_head() const {
        const uint32_t len = aaautil::load_u32(in_ + at_ + offsetof(avpair_t, av_len));
        const uint32_t type = aaautil::load_u32(in_ + at_ + offsetof(avpair_t, av_type));
        aaautil::FourWords head;
        std::memcpy(&head, in_ + at_, sizeof head);
        store(at_, aaautil::net_four_u32(head));
        return kInPlace ? Pair{type, len} : Pair{aaautil::net_u32(type), aaautil::net_u32(len)};
    }

    // Integers and IPv4 addresses travel in network order, but only at their
    // natural size: an eight-byte integer travels unchanged. No branch on length
    // and type, which would be mispredicted for every other pair of a mixed list:
    // the word after the head is stored again in any case. After an empty value
    // that is the next pair's type, unchanged.
    void convert_number(std::size_t value, const Pair &pair) const {
        const uint32_t word = aaautil::load_u32(in_ + value);
        const uint32_t number = aaautil::net_u32(word);
        store(value, aaautil::is_number(pair.type, pair.len) ? number : word);
    }

    // The last pairs, which no block follows that could be read. They are copied
    // at once, unchanged, and converted then. A length that points past the end
    // ends the pass.
    void convert_last() {
        copy_last();
        while (at_ + kPairHead <= end_) {
            const std::size_t value = at_ + kPairHead;
            const Pair pair = convert_head();
            if (value + sizeof(uint32_t) <= end_) [[likely]] {
                convert_number(value, pair);
            }
            at_ = align_pair(value + pair.len);
        }
    }

    void copy_last() const {
        const std::size_t n = end_ - at_;
        if (kCopies && n >= 16) [[likely]] {
            copy_overlapping(n);
        } else {
            copy(at_, n);
        }
    }

    // Three chunks for 16 to 48 bytes: no branch on how many there are.
    void copy_overlapping(std::size_t n) const {
        constexpr std::size_t kChunk = 16;
        static_assert(kPairHead + kBlock <= 3 * kChunk);
        const std::size_t last = n - kChunk;
        const std::size_t middle = last < kChunk ? last : kChunk;
        unsigned char *const to = out_ + at_;
        const unsigned char *const from = in_ + at_;
        std::memcpy(to, from, kChunk);
        std::memcpy(to + middle, from + middle, kChunk);
        std::memcpy(to + last, from + last, kChunk);
    }

    Source in_;
    unsigned char *out_;
    std::size_t at_ = 0;
    std::size_t end_;
};

// The header is already there as a copy of the list record.
void finish_header(char *msg, uint32_t total) {
    aaautil::store_be32(msg, total);
    std::memset(msg + offsetof(avlist, avpair_first_buf), 0, 2 * sizeof(avpair_buffer_t *));
    char *count = msg + offsetof(avlist, av_cnt);
    const char high = count[0];
    count[0] = count[1];
    count[1] = high;
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
    aaa_debug(AAA_DBG_AVLIST, "Unpacking attribute list %s", list->av_name);
    aaa_avpair_print_list(list, AAA_DBG_AVLIST, print_to_trace);
}

// The output has no room for these pairs.
[[gnu::cold, gnu::noinline]] void spend(unsigned char *pairs, std::size_t n) {
    Pairs<Pass::spend>(pairs, n, nullptr).convert();
}

cerrno unpack(avlist *list, const char *msg, uint32_t len) {
    const bool traced = aaautil::tracing(AAA_DBG_AVLIST);
    if (traced) {
        aaa_debug(AAA_DBG_AVLIST, "Unpacking message '%s', length %d", list->av_name, static_cast<int>(len));
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
    const auto *pairs = reinterpret_cast<const unsigned char *>(msg) + kListRecord;
    Pairs<Pass::unpack>(pairs, pair_bytes, buf->hdr.free_mem).convert();
    buf->hdr.free_mem += pair_bytes;
    list->avpair_first_buf = buf;
    list->avpair_last_buf = buf;
    if (traced) {
        trace_unpacked(list);
    }
    return AAA_OK;
}

}  // namespace

extern "C" {

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
        const std::size_t used = aaautil::used_bytes(chain);
        unsigned char *at = out.take(used);
        if (at != nullptr) {
            Pairs<Pass::pack>(first, used, at).convert();
        } else {
            spend(first, used);
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

}  // extern "C"
