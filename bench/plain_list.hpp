// SPDX-License-Identifier: Apache-2.0
//
// The baseline of the list benchmarks: plain loops without any library that
// write and read the same bytes as the list code does. Pair heads are stored
// directly, values copied, words byte-swapped, types walked; there are no
// checks, no deleted pairs, no traces and no second buffer.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace bench {

// One attribute to put into a list.
struct Attribute {
    uint32_t type;
    uint32_t len;
    const void *value;
    bool integer;  // its value is swapped on the wire
};

// Keeps a value and everything it points at out of the optimiser's sight.
template <typename T>
inline void keep(T const &value) {
    asm volatile("" : : "g"(&value) : "memory");
}

struct PlainList {
    unsigned char *header;  // 56 bytes
    unsigned char *pairs;
    uint32_t used;
};

inline uint32_t plain_extent(uint32_t len) {
    return (len + 16 + 3) & ~3u;
}

inline PlainList plain_build(const std::vector<Attribute> &attributes, uint32_t pair_bytes) {
    PlainList list{};
    list.header = static_cast<unsigned char *>(std::malloc(56));
    std::memset(list.header, 0, 56);
    list.pairs = static_cast<unsigned char *>(std::malloc(pair_bytes));
    unsigned char *p = list.pairs;
    for (const Attribute &a : attributes) {
        const uint32_t head[4] = {a.type, 0, a.len, 0};
        std::memcpy(p, head, sizeof head);
        std::memcpy(p + 16, a.value, a.len);
        p += plain_extent(a.len);
    }
    list.used = static_cast<uint32_t>(p - list.pairs);
    const auto count = static_cast<uint16_t>(attributes.size());
    std::memcpy(list.header + 6, &count, sizeof count);
    return list;
}

inline void plain_free(PlainList &list) {
    std::free(list.header);
    std::free(list.pairs);
}

inline bool plain_swaps(uint32_t type, const std::vector<unsigned char> &formats) {
    return formats[type] != 0;
}

// Packs into out, swapping while copying; returns the packed length.
inline uint32_t plain_pack(const PlainList &list, unsigned char *out,
                           const std::vector<unsigned char> &formats) {
    std::memcpy(out, list.header, 56);
    const unsigned char *p = list.pairs;
    const unsigned char *end = p + list.used;
    unsigned char *q = out + 56;
    while (p < end) {
        uint32_t head[4];
        std::memcpy(head, p, sizeof head);
        const uint32_t swapped[4] = {__builtin_bswap32(head[0]), __builtin_bswap32(head[1]),
                                     __builtin_bswap32(head[2]), __builtin_bswap32(head[3])};
        std::memcpy(q, swapped, sizeof swapped);
        if (head[2] == 4 && plain_swaps(head[0], formats)) {
            uint32_t value;
            std::memcpy(&value, p + 16, 4);
            value = __builtin_bswap32(value);
            std::memcpy(q + 16, &value, 4);
        } else {
            std::memcpy(q + 16, p + 16, head[2]);
        }
        const uint32_t extent = plain_extent(head[2]);
        p += extent;
        q += extent;
    }
    const auto total = static_cast<uint32_t>(q - out);
    const uint32_t total_be = __builtin_bswap32(total);
    std::memcpy(out, &total_be, 4);
    std::memset(out + 8, 0, 16);
    return total;
}

inline PlainList plain_unpack(const unsigned char *msg, uint32_t len,
                              const std::vector<unsigned char> &formats) {
    PlainList list{};
    list.header = static_cast<unsigned char *>(std::malloc(56));
    std::memcpy(list.header, msg, 56);
    list.used = len - 56;
    list.pairs = static_cast<unsigned char *>(std::malloc(list.used));
    const unsigned char *p = msg + 56;
    const unsigned char *end = msg + len;
    unsigned char *q = list.pairs;
    while (p < end) {
        uint32_t head[4];
        std::memcpy(head, p, sizeof head);
        const uint32_t host[4] = {__builtin_bswap32(head[0]), __builtin_bswap32(head[1]),
                                  __builtin_bswap32(head[2]), __builtin_bswap32(head[3])};
        std::memcpy(q, host, sizeof host);
        if (host[2] == 4 && plain_swaps(host[0], formats)) {
            uint32_t value;
            std::memcpy(&value, p + 16, 4);
            value = __builtin_bswap32(value);
            std::memcpy(q + 16, &value, 4);
        } else {
            std::memcpy(q + 16, p + 16, host[2]);
        }
        const uint32_t extent = plain_extent(host[2]);
        p += extent;
        q += extent;
    }
    return list;
}

// Address of the first value of a type, or null.
inline const unsigned char *plain_find(const PlainList &list, uint32_t type) {
    const unsigned char *p = list.pairs;
    const unsigned char *end = p + list.used;
    while (p < end) {
        uint32_t head[4];
        std::memcpy(head, p, sizeof head);
        if (head[0] == type) {
            return p + 16;
        }
        p += plain_extent(head[2]);
    }
    return nullptr;
}

}  // namespace bench
