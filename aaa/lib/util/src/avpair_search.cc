// SPDX-License-Identifier: Apache-2.0
//
// Lookup in a long run of pairs. A large received list is one: all its pairs
// are in one buffer.
//
// Walking is slow for one reason: the position of a pair is known only when the
// length of the preceding one has been loaded. So a run is walked from several
// places at once, and the processor waits for as many loads at a time. The
// position of a pair a quarter into a stretch, say, is a guess: bytes that look
// like the heads of two pairs. A guess is proved right when the walk that began
// before it arrives exactly there; nothing that follows it counts until then. A
// wrong one costs time, nothing else, and the answer is always that of a walk
// from the beginning.
//
// The walk that finds the type ends those that follow it, and those before it go
// on side by side. Stretches begin short and grow, so that a type found early does
// not pay for guesses far after it.

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "aaa/avpair.h"
#include "aaa/dictionary.h"
#include "internal/avpair_heads.hpp"
#include "internal/avpair_walk.hpp"

namespace aaautil {

namespace {

avpair_t *advanced(avpair_t *from, std::size_t n) noexcept {
    return reinterpret_cast<avpair_t *>(reinterpret_cast<unsigned char *>(from) + n);
}

std::size_t distance(const avpair_t *from, const avpair_t *to) noexcept {
    return reinterpret_cast<std::uintptr_t>(to) - reinterpret_cast<std::uintptr_t>(from);
}

// The first pair of the type, or the first position at or after end.
avpair_t *walk_to(avpair_t *pair, const avpair_t *end, uint32_t type) noexcept {
    while (pair < end && pair->av_type != type) {
        pair = adjacent_pair(pair);
    }
    return pair;
}

// Type and tag of a head are adjacent, so one comparison rules out most words
// that are none: text, addresses and lengths that a tag follows.
bool looks_like_head(const avpair_t *pair) noexcept {
    static_assert(offsetof(avpair_t, av_tag) == offsetof(avpair_t, av_type) + sizeof pair->av_type);
    constexpr uint32_t kUnlikely = 0xFFFF0000;
    constexpr auto kMask = std::bit_cast<uint64_t>(std::array<uint32_t, 2>{kUnlikely | 0xF000, kUnlikely});
    static_assert((AAA_ATTR_MAX & (kUnlikely | 0xF000)) == 0);
    uint64_t type_and_tag;
    std::memcpy(&type_and_tag, pair, sizeof type_and_tag);
    return ((type_and_tag & kMask) | (pair->av_len & kUnlikely)) == 0 && pair->av_type != 0;
}

// Where a pair may begin, from this position on, whatever its tag and flags. Null
// when nothing near looks like one, or the position is too near the end to tell.
[[gnu::noinline]] avpair_t *guess_word_by_word(avpair_t *from, const avpair_t *end) noexcept {
    constexpr std::size_t kReach = 512;
    const std::size_t left = distance(from, end);
    if (left < sizeof *from) {
        return nullptr;
    }
    // A head at or before this one is within the run.
    const std::size_t last = left - sizeof *from;
    const avpair_t *const reach = advanced(from, std::min(last, kReach));
    const avpair_t *const last_head = advanced(from, last);
    for (avpair_t *pair = from; pair <= reach; pair = advanced(pair, MEMORY_DEF_ALIGNMENT)) {
        if (looks_like_head(pair)) {
            const avpair_t *const next = adjacent_pair(pair);
            if (next <= last_head && looks_like_head(next)) {
                return pair;
            }
        }
    }
    return nullptr;
}

// Bytes that follow the position of a guess: its window is not checked for the end.
constexpr std::size_t kLeftForGuess = 64;

#if defined(__SSE2__)

static_assert(kHeadWindow <= kLeftForGuess);

// The first head of the next sixteen words, without tag and flags; null as above.
inline avpair_t *guess_in_window(avpair_t *from, const avpair_t *end) noexcept {
    const uint32_t heads = likely_heads(from);
    if (heads == 0) [[unlikely]] {
        return nullptr;
    }
    avpair_t *const pair = advanced(from, sizeof(uint32_t) * static_cast<uint32_t>(std::countr_zero(heads)));
    const avpair_t *const next = adjacent_pair(pair);
    if (next > advanced(from, distance(from, end) - sizeof *next) || !looks_like_head(next)) [[unlikely]] {
        return nullptr;
    }
    return pair;
}

#else

inline avpair_t *guess_in_window(avpair_t *, const avpair_t *) noexcept {
    return nullptr;
}

#endif

// Where a pair may begin, from this position on, which precedes end by kLeftForGuess
// bytes at least. Null as above.
inline avpair_t *guess_pair(avpair_t *from, const avpair_t *end) noexcept {
    avpair_t *const pair = guess_in_window(from, end);
    return pair != nullptr ? pair : guess_word_by_word(from, end);
}

// N walks side by side through a stretch of a run, each up to where the next
// one began.
template <std::size_t N>
class ParallelWalk {
  public:
    // base: begin of the stretch; from: the first pair that is looked at, in the first
    // of N equal parts of it.
    ParallelWalk(avpair_t *base, avpair_t *from, const avpair_t *end, uint32_t type) noexcept
        : at_{from}, base_(base), end_(end), type_(type) {}

    // The first pair of the type in this many bytes from base, or the position where
    // the search has to go on: at or after the end of the stretch, or where a guess
    // turned out wrong.
    [[nodiscard, gnu::noinline]] avpair_t *find(std::size_t stretch) noexcept {
        if (!guess_starts(stretch)) [[unlikely]] {
            return walk_to(at_[0], advanced(base_, stretch), type_);
        }
        if (!walk_first(std::make_index_sequence<N>())) {
            return settle(N);
        }
        std::size_t walking = first_hit();
        while (walking != 0 && walk_some(walking, std::make_index_sequence<N - 1>())) {
            walking = first_hit();
        }
        return settle(walking);
    }

  private:
    // The last walk goes up to the end of the run or to a guess at the end of the stretch.
    [[nodiscard]] bool guess_starts(std::size_t stretch) noexcept {
        constexpr std::size_t kMask = MEMORY_DEF_ALIGNMENT - 1;
        for (std::size_t i = 1; i < N; i++) {
            at_[i] = guess_pair(advanced(base_, (stretch * i / N) & ~kMask), end_);
            if (at_[i] == nullptr) [[unlikely]] {
                return false;
            }
        }
        const std::size_t all = distance(base_, end_);
        stop_ = stretch < all ? guess_pair(advanced(base_, stretch & ~kMask), end_) : end_;
        // A guess may lead to a head that the end of the run cuts; whole ones begin before this.
        limit_ = std::min(stop_, static_cast<const avpair_t *>(advanced(base_, all - sizeof(avpair_t) + 1)));
        for (std::size_t i = 1; i < N; i++) {
            start_[i] = at_[i];
        }
        return stop_ != nullptr;
    }

    // Goes on with the first so many walks, but not all, as walk_first() does.
    template <std::size_t... I>
    [[nodiscard]] bool walk_some(std::size_t walking, std::index_sequence<I...>) noexcept {
        bool hit = false;
        static_cast<void>(
            ((walking == I + 1 && (hit = walk_first(std::make_index_sequence<I + 1>()), true)) || ...));
        return hit;
    }

    // Walks until one has found the type, which is true, or one has arrived. Written
    // out for each walk, so that positions stay in registers.
    template <std::size_t... I>
    [[nodiscard]] bool walk_first(std::index_sequence<I...>) noexcept {
        const uint32_t type = type_;
        avpair_t *pair[] = {at_[I]...};
        const avpair_t *const stop[] = {I + 1 < N ? start_[(I + 1) % N] : limit_...};
        bool hit = false;
        while (((pair[I] < stop[I]) && ...)) {
            if (((pair[I]->av_type == type) || ...)) [[unlikely]] {
                hit = true;
                break;
            }
            ((pair[I] = adjacent_pair(pair[I])), ...);
        }
        ((at_[I] = pair[I]), ...);
        return hit;
    }

    // Number of the first walk that is at a pair of the type; there is one.
    [[nodiscard]] std::size_t first_hit() const noexcept {
        std::size_t i = 0;
        while (at_[i]->av_type != type_) {
            i++;
        }
        return i;
    }

    // Ends the walks before the first hit, in order, as long as guesses prove right.
    // A function of its own, as find() is: inlined, they take registers from the walks.
    [[nodiscard, gnu::noinline]] avpair_t *settle(std::size_t walking) const noexcept {
        for (std::size_t i = 0; i < walking; i++) {
            const avpair_t *const stop = i + 1 < N ? start_[i + 1] : stop_;
            avpair_t *const pair = walk_to(at_[i], stop, type_);
            if (pair != stop) {
                return pair;
            }
        }
        return walking < N ? at_[walking] : const_cast<avpair_t *>(stop_);
    }

    avpair_t *at_[N];
    const avpair_t *start_[N];
    avpair_t *base_;
    const avpair_t *end_;
    const avpair_t *stop_ = nullptr;
    const avpair_t *limit_ = nullptr;
    uint32_t type_;
};

}  // namespace

avpair_t *find_in_long_run(avpair_t *first, avpair_t *from, const avpair_t *end, uint32_t type) noexcept {
    // Bytes. More walks save more than their guesses cost in a long stretch only.
    constexpr std::size_t kFirstStretch = 3072;
    constexpr std::size_t kGrowth = 4;
    constexpr std::size_t kLongStretch = 8192;
    constexpr std::size_t kLongestStretch = 1u << 20;
    constexpr std::size_t kShortRest = 512;
    constexpr std::size_t kWalks = 4;
    // The last guess of a stretch is one part of it from its end, or far from the end of the run.
    static_assert(kShortRest / kWalks >= kLeftForGuess && kLongStretch / (2 * kWalks) >= kLeftForGuess &&
                  kFirstStretch / 2 >= kLeftForGuess);
    std::size_t stretch = kFirstStretch;
    // Guesses from the beginning of the run need not wait until the walk has arrived at
    // from: the processor makes them meanwhile.
    avpair_t *base = first;
    if (distance(first, from) > std::min(stretch, distance(first, end)) / kWalks) [[unlikely]] {
        base = from;
    }
    avpair_t *pair = from;
    while (pair < end) {
        const std::size_t left = distance(base, end);
        if (left < kShortRest) {
            return walk_to(pair, end, type);
        }
        // A rest that is not worth a stretch of its own is walked with this one.
        const std::size_t n = left < stretch + stretch / 2 ? left : stretch;
        pair = n < kLongStretch ? ParallelWalk<kWalks>(base, pair, end, type).find(n)
                                : ParallelWalk<2 * kWalks>(base, pair, end, type).find(n);
        if (pair < end && pair->av_type == type) {
            return pair;
        }
        base = pair;
        stretch = std::min(stretch * kGrowth, kLongestStretch);
    }
    return pair;
}

}  // namespace aaautil
