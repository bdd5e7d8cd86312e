// SPDX-License-Identifier: Apache-2.0
//
// The baseline of the list benchmarks: plain loops without any library that
// write and read the same bytes as the list code does. Heads are stored
// directly, values copied, words byte-swapped while copying, types searched in order.
// The size is known beforehand: each list allocates two blocks, or none in the
// form that works in preallocated memory. There are no checks, no traces, no
// deleted pairs, no wiping before memory is freed, and the list's own pairs stay
// in host order when it is packed. So this is a lower bound, which the list code
// cannot reach.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace bench {

// One attribute to add to a list.
struct Attribute {
    uint32_t type;
    uint32_t len;
    const void *value;
};

// A barrier: the compiler must assume that the value, and all memory whose address has
// escaped, are read and changed here. It can drop no store before the barrier and move
// no access across it. With the benchmark library's own barrier on a local pointer,
// this compiler optimises the surrounding loop away.
template <typename T>
inline void keep(T const &value) {
    asm volatile("" : : "g"(&value) : "memory");
}

struct PlainList {
    unsigned char *header;  // 56 bytes, as a list record
    unsigned char *pairs;
    uint32_t used;
};

struct PlainValue {
    const unsigned char *bytes;
    uint32_t len;
};

inline constexpr uint32_t kPlainHeader = 56;
inline constexpr uint32_t kPlainHead = 16;
inline constexpr uint32_t kPlainCountAt = 6;
inline constexpr uint32_t kPlainNameAt = 24;

inline uint32_t plain_extent(uint32_t len) {
    return (len + kPlainHead + 3) & ~3u;
}

inline void plain_begin(PlainList &list) {
    std::memset(list.header, 0, kPlainHeader);
    std::memcpy(list.header + kPlainNameAt, "bench", sizeof "bench");
}

inline void plain_fill(PlainList &list, const std::vector<Attribute> &attributes) {
    unsigned char *p = list.pairs;
    for (const Attribute &a : attributes) {
        const uint32_t extent = plain_extent(a.len);
        std::memset(p + extent - 4, 0, 4);  // the padding is part of the message
        const uint32_t head[4] = {a.type, 0, a.len, 0};
        std::memcpy(p, head, sizeof head);
        std::memcpy(p + kPlainHead, a.value, a.len);
        p += extent;
    }
    list.used = static_cast<uint32_t>(p - list.pairs);
    const auto count = static_cast<uint16_t>(attributes.size());
    std::memcpy(list.header + kPlainCountAt, &count, sizeof count);
}

inline PlainList plain_build(const std::vector<Attribute> &attributes, uint32_t pair_bytes) {
    PlainList list{};
    list.header = static_cast<unsigned char *>(std::malloc(kPlainHeader));
    plain_begin(list);
    list.pairs = static_cast<unsigned char *>(std::malloc(pair_bytes));
    plain_fill(list, attributes);
    return list;
}

inline void plain_free(PlainList &list) {
    std::free(list.header);
    std::free(list.pairs);
}

inline void plain_swap_head(unsigned char *to, const uint32_t (&head)[4]) {
    const uint32_t swapped[4] = {__builtin_bswap32(head[0]), __builtin_bswap32(head[1]),
                                 __builtin_bswap32(head[2]), __builtin_bswap32(head[3])};
    std::memcpy(to, swapped, sizeof swapped);
}

// Copies a value with its padding. numbers says for each type whether a 4-byte value is
// a number.
inline void plain_copy_value(unsigned char *to, const unsigned char *from, uint32_t type, uint32_t len,
                             const unsigned char *numbers) {
    if (len == 4 && numbers[type] != 0) {
        uint32_t value;
        std::memcpy(&value, from, sizeof value);
        value = __builtin_bswap32(value);
        std::memcpy(to, &value, sizeof value);
    } else {
        std::memcpy(to, from, plain_extent(len) - kPlainHead);
    }
}

// Packs into out, swapping while copying; returns the packed length.
inline uint32_t plain_pack(const PlainList &list, unsigned char *out, const unsigned char *numbers) {
    std::memcpy(out, list.header, kPlainHeader);
    const unsigned char *p = list.pairs;
    const unsigned char *const end = p + list.used;
    unsigned char *q = out + kPlainHeader;
    while (p < end) {
        uint32_t head[4];
        std::memcpy(head, p, sizeof head);
        plain_swap_head(q, head);
        plain_copy_value(q + kPlainHead, p + kPlainHead, head[0], head[2], numbers);
        p += plain_extent(head[2]);
        q += plain_extent(head[2]);
    }
    const auto total = static_cast<uint32_t>(q - out);
    const uint32_t total_be = __builtin_bswap32(total);
    std::memcpy(out, &total_be, sizeof total_be);
    uint16_t count;
    std::memcpy(&count, out + kPlainCountAt, sizeof count);
    count = __builtin_bswap16(count);
    std::memcpy(out + kPlainCountAt, &count, sizeof count);
    return total;
}

// Unpacks into a list with allocated memory.
inline void plain_fill(PlainList &list, const unsigned char *msg, uint32_t len,
                       const unsigned char *numbers) {
    std::memcpy(list.header, msg, kPlainHeader);
    list.used = len - kPlainHeader;
    const unsigned char *p = msg + kPlainHeader;
    const unsigned char *const end = msg + len;
    unsigned char *q = list.pairs;
    while (p < end) {
        uint32_t head[4];
        std::memcpy(head, p, sizeof head);
        plain_swap_head(q, head);
        const uint32_t type = __builtin_bswap32(head[0]);
        const uint32_t value_len = __builtin_bswap32(head[2]);
        plain_copy_value(q + kPlainHead, p + kPlainHead, type, value_len, numbers);
        p += plain_extent(value_len);
        q += plain_extent(value_len);
    }
}

inline PlainList plain_obtain(uint32_t pair_bytes) {
    return {static_cast<unsigned char *>(std::malloc(kPlainHeader)),
            static_cast<unsigned char *>(std::malloc(pair_bytes)), 0};
}

inline PlainList plain_unpack(const unsigned char *msg, uint32_t len, const unsigned char *numbers) {
    PlainList list = plain_obtain(len - kPlainHeader);
    plain_fill(list, msg, len, numbers);
    return list;
}

// The first value of a type; bytes is null when the list has none.
inline PlainValue plain_find(const PlainList &list, uint32_t type) {
    const unsigned char *p = list.pairs;
    const unsigned char *const end = p + list.used;
    while (p < end) {
        uint32_t pair_type;
        uint32_t len;
        std::memcpy(&pair_type, p, sizeof pair_type);
        std::memcpy(&len, p + 8, sizeof len);
        if (pair_type == type) {
            return {p + kPlainHead, len};
        }
        p += plain_extent(len);
    }
    return {nullptr, 0};
}

}  // namespace bench
