// SPDX-License-Identifier: Apache-2.0
//
// Lookup in a long run of pairs, as a large received list is: all its pairs lie
// in one buffer.
//
// Walking is slow for one reason: where a pair begins is known only when the
// length of the one before has been loaded. So the run is walked from four
// places at once, and the processor waits for four loads at a time. Where a
// pair begins at a quarter, at half and at three quarters of the run is a
// guess: bytes that look like the heads of several pairs in a row. A guess is
// proved right when the walk that began before it arrives just there; only
// then anything behind it counts. A wrong one costs time, nothing else, and
// the answer is always that of a walk from the beginning.

#include <cstddef>
#include <cstdint>

#include "aaa/avpair.h"
#include "aaa/dictionary.h"
#include "internal/attribute_formats.hpp"
#include "internal/avpair_walk.hpp"
#include "internal/bytes.hpp"

namespace aaautil {

namespace {

constexpr std::size_t kWalkers = 4;

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

class ParallelWalk {
  public:
    ParallelWalk(avpair_t *first, const avpair_t *end, uint32_t type) noexcept : end_(end), type_(type) {
        constexpr std::size_t kMask = MEMORY_DEF_ALIGNMENT - 1;
        start_[0] = first;
        for (std::size_t i = 1; i < kWalkers; i++) {
            start_[i] = guess_pair(advanced(first, distance(first, end) * i / kWalkers & ~kMask), end);
        }
    }

    [[nodiscard]] avpair_t *find() noexcept {
        if (start_[1] == nullptr || start_[2] == nullptr || start_[3] == nullptr) {
            return walk_to(start_[0], end_, type_);
        }
        avpair_t *at[kWalkers];
        walk_together(at);
        for (std::size_t i = 0; i < kWalkers; i++) {
            const avpair_t *const arrival = i + 1 < kWalkers ? start_[i + 1] : end_;
            avpair_t *const pair = walk_to(at[i], arrival, type_);
            if (pair != arrival) {
                // Found, or the guess was wrong and what lies behind has not been walked.
                return pair < arrival ? pair : walk_to(pair, end_, type_);
            }
        }
        return const_cast<avpair_t *>(end_);
    }

  private:
    // Until one of the walks has found the type or has arrived.
    void walk_together(avpair_t *(&at)[kWalkers]) const noexcept {
        avpair_t *a = start_[0];
        avpair_t *b = start_[1];
        avpair_t *c = start_[2];
        avpair_t *d = start_[3];
        const std::size_t last_head = distance(start_[0], end_) - sizeof(avpair_t);
        const avpair_t *const last = advanced(start_[0], last_head);
        while (a < start_[1] && b < start_[2] && c < start_[3] && d <= last) {
            if (a->av_type == type_ || b->av_type == type_ || c->av_type == type_ || d->av_type == type_) {
                break;
            }
            a = adjacent_pair(a);
            b = adjacent_pair(b);
            c = adjacent_pair(c);
            d = adjacent_pair(d);
        }
        at[0] = a;
        at[1] = b;
        at[2] = c;
        at[3] = d;
    }

    avpair_t *start_[kWalkers];
    const avpair_t *end_;
    uint32_t type_;
};

}  // namespace

avpair_t *find_in_long_run(avpair_t *first, const avpair_t *end, uint32_t type) noexcept {
    return ParallelWalk(first, end, type).find();
}

}  // namespace aaautil
