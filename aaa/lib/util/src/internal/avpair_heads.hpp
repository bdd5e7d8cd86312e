// SPDX-License-Identifier: Apache-2.0
//
// Where the head of a pair may begin in the next sixteen words of a run, without a
// branch that depends on them. Where the next head begins cannot be predicted, and a
// mispredicted branch takes as long as walking over three pairs.
//
// Only heads without tag and flags are looked for, which nearly all are. The words around
// other small numbers differ from theirs: a length is followed by flags, which are 0, and two
// words later by text or by the next type, which are not 0; a number is followed
// by the next type. If flags were not looked at, every second guess in a list of
// numbers would be wrong.
//
// Only processors with 16-byte vectors have this. Word by word it takes six times
// the instructions, more than the mispredicted branches cost.
#pragma once

#if defined(__SSE2__)

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

namespace aaautil {

// Bytes that are looked at.
inline constexpr std::size_t kHeadWindow = 64;

// One bit per word, the first word's the lowest: set where a head may begin that is
// whole within the window. Its type and its length are below 4096.
[[nodiscard]] inline uint32_t likely_heads(const void *window) noexcept {
    constexpr auto kNotSmall = static_cast<short>(0xF000);
    const auto *const words = static_cast<const __m128i *>(window);
    // 16 bits of each word. One that does not fit becomes the highest or the lowest
    // number, and neither is small or zero.
    const __m128i first = _mm_packs_epi32(_mm_loadu_si128(words), _mm_loadu_si128(words + 1));
    const __m128i second = _mm_packs_epi32(_mm_loadu_si128(words + 2), _mm_loadu_si128(words + 3));
    const __m128i none = _mm_setzero_si128();
    const __m128i high = _mm_set1_epi16(kNotSmall);
    const auto small = static_cast<uint32_t>(
        _mm_movemask_epi8(_mm_packs_epi16(_mm_cmpeq_epi16(_mm_and_si128(first, high), none),
                                          _mm_cmpeq_epi16(_mm_and_si128(second, high), none))));
    const auto zero = static_cast<uint32_t>(
        _mm_movemask_epi8(_mm_packs_epi16(_mm_cmpeq_epi16(first, none), _mm_cmpeq_epi16(second, none))));
    // Type, tag, length, flags.
    return small & ~zero & zero >> 1 & small >> 2 & zero >> 3;
}

}  // namespace aaautil

#endif
