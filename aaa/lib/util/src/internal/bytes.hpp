// SPDX-License-Identifier: Apache-2.0
//
// Byte order and bounded access: the one place that swaps bytes. All access is
// through memcpy, so no alignment is assumed.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace aaautil {

[[nodiscard]] inline uint32_t load_u32(const void *p) noexcept {
    uint32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

inline void store_u32(void *p, uint32_t v) noexcept {
    std::memcpy(p, &v, sizeof v);
}

// Host order to network order and back; the same operation in both directions.
[[nodiscard]] constexpr uint32_t net_u32(uint32_t v) noexcept {
    if constexpr (std::endian::native == std::endian::little) {
        return __builtin_bswap32(v);
    } else {
        return v;
    }
}

[[nodiscard]] constexpr uint16_t net_u16(uint16_t v) noexcept {
    if constexpr (std::endian::native == std::endian::little) {
        return __builtin_bswap16(v);
    } else {
        return v;
    }
}

// Four adjacent 32-bit words, as they are in memory.
using FourWords = uint32_t __attribute__((vector_size(16)));

// Four words at once, each by itself. The bytes of the 16-bit halves are
// exchanged, then the halves of each word: both are cheap on every processor
// with vectors of 16 bytes.
[[nodiscard]] inline FourWords net_four_u32(FourWords words) noexcept {
    if constexpr (std::endian::native == std::endian::little) {
        using Halves = uint16_t __attribute__((vector_size(16)));
        constexpr int kByte = 8;
        const auto halves = reinterpret_cast<Halves>(words);
        const Halves swapped = halves << kByte | halves >> kByte;
        return reinterpret_cast<FourWords>(__builtin_shufflevector(swapped, swapped, 1, 0, 3, 2, 5, 4, 7, 6));
    } else {
        return words;
    }
}

[[nodiscard]] inline uint32_t load_be32(const void *p) noexcept {
    return net_u32(load_u32(p));
}
inline void store_be32(void *p, uint32_t v) noexcept {
    store_u32(p, net_u32(v));
}
inline void swap_u32_in_place(void *p) noexcept {
    store_u32(p, net_u32(load_u32(p)));
}

// The first four bytes of a stored value as a host-order integer. A value
// shorter than four bytes is extended with zeros; nothing past its end is read.
[[nodiscard]] inline uint32_t load_u32_bounded(const void *value, std::size_t len) noexcept {
    uint32_t v = 0;
    if (value != nullptr) {
        std::memcpy(&v, value, len < sizeof v ? len : sizeof v);
    }
    return v;
}

}  // namespace aaautil
