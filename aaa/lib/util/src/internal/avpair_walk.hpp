// SPDX-License-Identifier: Apache-2.0
//
// Walking a list inside the library. The exported iteration and lookup
// functions are thin covers over these; library code uses these
// directly and so pays for no call per pair.
//
//     for (avpair_t &pair : LivePairs(list)) { ... }          every live pair, in order
//     avpair_t *pair = find_first(list, AAA_TTYNAME_ATTR);     first pair of a type, or null
//     avpair_t *pair = find_first(list, AAA_CMD_ATTR, 2);      third pair of a type, or null
//     unsigned char *bytes = aaa_get_avpair_value_ptr(pair);   its value, pair->av_len bytes
//
// All of them run the emptiness check first and want a list that is not null.
// Pairs may be appended while a walk goes on: what lands in the buffer that
// was the last one at the start is visited too. After a deletion, or an update
// with another length, a walk is over: begin a new one.
//
// A walk ends a buffer at the first position at or after free_mem, not only at
// free_mem itself: the lengths of a list that was packed are in network order,
// and a step over free_mem must not lead on through memory. A head cut by
// free_mem is read whole; no valid list has one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

#include "aaa/avpair.h"
#include "aaa/dictionary.h"
#include "aaa/result_codes.h"
#include "internal/avpair_checks.hpp"

namespace aaautil {

[[nodiscard]] inline avpair_t *first_pair(avpair_buffer_t *buf) noexcept {
    return reinterpret_cast<avpair_t *>(reinterpret_cast<unsigned char *>(buf) + sizeof *buf);
}

// Where the pair after one with len value bytes begins: head, value, round up.
[[nodiscard]] inline avpair_t *adjacent_pair(const avpair_t *pair, uint32_t len) noexcept {
    constexpr std::uintptr_t kRoundUp = sizeof *pair + MEMORY_DEF_ALIGNMENT - 1;
    constexpr std::uintptr_t kAlignment = MEMORY_DEF_ALIGNMENT;
    // It is the address that gets rounded. NOLINTNEXTLINE(performance-no-int-to-ptr)
    return reinterpret_cast<avpair_t *>((reinterpret_cast<std::uintptr_t>(pair) + len + kRoundUp) &
                                        ~(kAlignment - 1));
}

[[nodiscard]] inline avpair_t *adjacent_pair(const avpair_t *pair) noexcept {
    return adjacent_pair(pair, pair->av_len);
}

// End of the used part of a buffer, as a position for comparison.
[[nodiscard]] inline const avpair_t *end_of_pairs(const avpair_buffer_t *buf) noexcept {
    return reinterpret_cast<const avpair_t *>(buf->hdr.free_mem);
}

[[nodiscard]] inline bool is_deleted(const avpair_t &pair) noexcept {
    return pair.av_type == AAA_ATTR_MAX;
}

// Moves to the first pair of the buffer after the current one.
inline void walk_to_next_buffer(aaa_avpair_iterator_t *it) noexcept {
    it->curr_buf = it->curr_buf->hdr.next;
    AAA_ASSERT(it->curr_buf != nullptr, "it->curr_buf != NULL");
    it->curr_avp = first_pair(it->curr_buf);
    AAA_ASSERT(it->curr_avp < end_of_pairs(it->curr_buf),
               "it->curr_avp < (avpair_t*)it->curr_buf->hdr.free_mem");
}

// Moves to the next live pair; false at the end, where the position stays, so
// that asking again answers the same.
inline bool walk_on(aaa_avpair_iterator_t *it) noexcept {
    do {
        avpair_t *next = adjacent_pair(it->curr_avp);
        if (next < end_of_pairs(it->curr_buf)) {
            it->curr_avp = next;
        } else if (it->curr_buf == it->last_buf) {
            return false;
        } else {
            walk_to_next_buffer(it);
        }
    } while (is_deleted(*it->curr_avp));
    return true;
}

// Moves to the first live pair; false when the list is empty (curr_avp is then
// left as it was).
inline bool walk_from_start(aaa_avpair_iterator_t *it, const avlist *list) noexcept {
    it->curr_buf = list->avpair_first_buf;
    it->last_buf = list->avpair_last_buf;
    if (aaa_is_list_empty(list)) {
        return false;
    }
    it->curr_avp = first_pair(it->curr_buf);
    return !is_deleted(*it->curr_avp) || walk_on(it);
}

// The live pairs of a list as a range.
class LivePairs {
  public:
    class Iterator {
      public:
        explicit Iterator(const avlist *list) noexcept : at_end_(!walk_from_start(&it_, list)) {}
        [[nodiscard]] avpair_t &operator*() const noexcept { return *it_.curr_avp; }
        Iterator &operator++() noexcept {
            at_end_ = !walk_on(&it_);
            return *this;
        }
        [[nodiscard]] bool operator==(std::default_sentinel_t) const noexcept { return at_end_; }

      private:
        aaa_avpair_iterator_t it_{};
        bool at_end_;
    };

    explicit LivePairs(const avlist *list) noexcept : list_(list) {}
    [[nodiscard]] Iterator begin() const noexcept { return Iterator(list_); }
    [[nodiscard]] std::default_sentinel_t end() const noexcept { return {}; }

  private:
    const avlist *list_;
};

// Bytes of pairs from which on it pays to look up a type with several walks at once.
inline constexpr std::size_t kLongRun = 1024;

[[nodiscard]] inline bool is_long_run(const avpair_t *first, const avpair_t *end) noexcept {
    return reinterpret_cast<std::uintptr_t>(first) + kLongRun <= reinterpret_cast<std::uintptr_t>(end);
}

// The first pair of a type from this position on, which precedes end, up to end; or
// any position at or after end. first is a pair that a walk from it to the position
// has begun at, at best the first of the buffer: the search then does not wait for that walk.
[[nodiscard]] avpair_t *find_in_long_run(avpair_t *first, avpair_t *from, const avpair_t *end,
                                         uint32_t type) noexcept;

// Occurrence number instance (from 0) of a type from this pair up to end, or
// null. instance is less by what was passed over.
[[nodiscard]] inline avpair_t *walk_to_type(avpair_t *pair, const avpair_t *end, uint32_t type,
                                            uint32_t *instance) noexcept {
    for (; pair < end; pair = adjacent_pair(pair)) {
        if (pair->av_type == type && (*instance)-- == 0) {
            return pair;
        }
    }
    return nullptr;
}

// The same, long runs included.
[[nodiscard]] inline avpair_t *find_in_run(avpair_t *first, const avpair_t *end, uint32_t type,
                                           uint32_t *instance) noexcept {
    if (is_long_run(first, end) && *instance == 0) [[unlikely]] {
        avpair_t *const pair = find_in_long_run(first, first, end, type);
        return pair < end ? pair : nullptr;
    }
    return walk_to_type(first, end, type, instance);
}

// Occurrence number instance (from 0) of a type from this position on, or null;
// the position is left in the buffer where the search ended.
[[nodiscard]] inline avpair_t *find_from(aaa_avpair_iterator_t *it, uint32_t type,
                                         uint32_t instance) noexcept {
    for (;;) {
        avpair_t *const pair = find_in_run(it->curr_avp, end_of_pairs(it->curr_buf), type, &instance);
        if (pair != nullptr || it->curr_buf == it->last_buf) {
            return pair;
        }
        walk_to_next_buffer(it);
    }
}

// Occurrence number instance (from 0) of a type among the live pairs, or null;
// buf is set to its buffer. No live pair has the deleted marker as its type, so
// one comparison per pair finds live pairs only.
[[nodiscard]] inline avpair_t *find_pair(const avlist *list, uint32_t type, uint32_t instance,
                                         avpair_buffer_t **buf) noexcept {
    if (aaa_is_list_empty(list) || type == AAA_ATTR_MAX) {
        return nullptr;
    }
    aaa_avpair_iterator_t it{list->avpair_first_buf, list->avpair_last_buf, nullptr};
    it.curr_avp = first_pair(it.curr_buf);
    avpair_t *const pair = find_from(&it, type, instance);
    if (pair != nullptr) {
        *buf = it.curr_buf;
    }
    return pair;
}

// Positions it there: AAA_OK or AAA_ERR_AVPAIR_NOT_FOUND.
inline cerrno aaa_avpair_find_by_type_instance(uint32_t type, uint32_t instance, const avlist *list,
                                               aaa_avpair_iterator_t *it) noexcept {
    AAA_ASSERT(list != nullptr, "list");
    AAA_ASSERT(it != nullptr, "it");
    it->last_buf = list->avpair_last_buf;
    it->curr_avp = find_pair(list, type, instance, &it->curr_buf);
    return it->curr_avp != nullptr ? AAA_OK : AAA_ERR_AVPAIR_NOT_FOUND;
}

[[nodiscard]] inline avpair_t *find_first(const avlist *list, uint32_t type, uint32_t instance = 0) noexcept {
    avpair_buffer_t *buf = nullptr;
    return find_pair(list, type, instance, &buf);
}

}  // namespace aaautil
