// SPDX-License-Identifier: Apache-2.0
//
// Lookup in a long run of pairs, as a large received list is: all its pairs lie
// in one buffer.
//
// Walking is slow for one reason: where a pair begins is known only when the
// length of the one before has been loaded. So the run is walked from several
// places at once, and the processor waits for as many loads at a time. Where a
// pair begins at a quarter of the run, say, is a guess: bytes that look like the
// heads of several pairs in a row. A guess is proved right when the walk that
// began before it arrives just there; only then anything behind it counts. A
// wrong one costs time, nothing else, and the answer is always that of a walk
// from the beginning.

#include <cstddef>
#include <cstdint>
#include <utility>

#include "aaa/avpair.h"
#include "aaa/dictionary.h"
#include "internal/attribute_formats.hpp"
#include "internal/avpair_walk.hpp"
#include "internal/bytes.hpp"

namespace aaautil {

namespace {

// Bytes of pairs from which on more walks save more than the guesses cost.
constexpr std::size_t kVeryLongRun = 8192;

avpair_t *advanced(avpair_t *from, std::size_t n) noexcept {
    return reinterpret_cast<avpair_t *>(reinterpret_cast<unsigned char *>(from) + n);
}

std::size_t distance(const avpair_t *from, const avpair_t *to) noexcept {
    return reinterpret_cast<std::uintptr_t>(to) - reinterpret_cast<std::uintptr_t>(from);
}

// The first pair of the type, or the first position at or behind end.
avpair_t *walk_to(avpair_t *pair, const avpair_t *end, uint32_t type) noexcept {
    while (pair < end && pair->av_type != type) {
        pair = adjacent_pair(pair);
    }
    return pair;
}

// Whether there is a place for a pair's head.
bool is_inside(const avpair_t *pair, const avpair_t *end) noexcept {
    return pair < end && distance(pair, end) >= sizeof *pair;
}

bool looks_like_head(const avpair_t *pair) noexcept {
    constexpr uint32_t kUnlikelyTag = 1u << 16;
    constexpr uint32_t kUnlikelyLength = 1u << 16;
    return is_dictionary_type(pair->av_type) && pair->av_tag < kUnlikelyTag && pair->av_len < kUnlikelyLength;
}

bool looks_like_pairs(const avpair_t *pair, const avpair_t *end) noexcept {
    constexpr int kInARow = 3;
    for (int i = 0; i < kInARow; i++) {
        if (!is_inside(pair, end) || !looks_like_head(pair)) {
            return false;
        }
        pair = adjacent_pair(pair);
    }
    return true;
}

// Where a pair may begin, from this position on. Null when nothing near looks like one.
avpair_t *guess_pair(avpair_t *from, const avpair_t *end) noexcept {
    constexpr std::size_t kReach = 512;
    for (std::size_t n = 0; n < kReach; n += MEMORY_DEF_ALIGNMENT) {
        avpair_t *const pair = advanced(from, n);
        if (looks_like_pairs(pair, end)) {
            return pair;
        }
    }
    return nullptr;
}

// N walks side by side, each up to where the next one began.
template <std::size_t N>
class ParallelWalk {
  public:
    ParallelWalk(avpair_t *first, const avpair_t *end, uint32_t type) noexcept
        : start_{first}, end_(end), type_(type) {}

    [[nodiscard]] avpair_t *find() noexcept {
        if (!guess_starts()) {
            return walk_to(start_[0], end_, type_);
        }
        avpair_t *at[N];
        walk_together(at, std::make_index_sequence<N - 1>());
        for (std::size_t i = 0; i < N; i++) {
            const avpair_t *const arrival = i + 1 < N ? start_[i + 1] : end_;
            avpair_t *const pair = walk_to(at[i], arrival, type_);
            if (pair != arrival) {
                // Found, or the guess was wrong and what lies behind has not been walked.
                return pair < arrival ? pair : walk_to(pair, end_, type_);
            }
        }
        return const_cast<avpair_t *>(end_);
    }

  private:
    [[nodiscard]] bool guess_starts() noexcept {
        constexpr std::size_t kMask = MEMORY_DEF_ALIGNMENT - 1;
        const std::size_t all = distance(start_[0], end_);
        for (std::size_t i = 1; i < N; i++) {
            start_[i] = guess_pair(advanced(start_[0], all * i / N & ~kMask), end_);
            if (start_[i] == nullptr) {
                return false;
            }
        }
        return true;
    }

    // Until one of the walks has found the type or has arrived. I is 0, 1, ...
    // for all walks but the last one; written out for each, so that positions
    // stay in registers.
    template <std::size_t... I>
    void walk_together(avpair_t *(&at)[N], std::index_sequence<I...>) const noexcept {
        constexpr std::size_t kLast = N - 1;
        const avpair_t *const last_head = advanced(start_[0], distance(start_[0], end_) - sizeof(avpair_t));
        const uint32_t type = type_;
        avpair_t *pair[N] = {start_[I]..., start_[kLast]};
        while (((pair[I] < start_[I + 1]) && ...) && pair[kLast] <= last_head) {
            if (((pair[I]->av_type == type) || ...) || pair[kLast]->av_type == type) {
                break;
            }
            ((pair[I] = adjacent_pair(pair[I])), ...);
            pair[kLast] = adjacent_pair(pair[kLast]);
        }
        ((at[I] = pair[I]), ...);
        at[kLast] = pair[kLast];
    }

    avpair_t *start_[N];
    const avpair_t *end_;
    uint32_t type_;
};

}  // namespace

avpair_t *find_in_long_run(avpair_t *first, const avpair_t *end, uint32_t type) noexcept {
    if (distance(first, end) >= kVeryLongRun) {
        return ParallelWalk<8>(first, end, type).find();
    }
    return ParallelWalk<4>(first, end, type).find();
}

}  // namespace aaautil
