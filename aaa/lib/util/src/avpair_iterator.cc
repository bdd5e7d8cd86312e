// SPDX-License-Identifier: Apache-2.0
//
// Iteration and lookup: covers over internal/avpair_walk.hpp. The end of a
// list is a status of the iteration functions only; a lookup that runs into it
// reports a missing pair.

#include "aaa/avpair.h"
#include "internal/avpair_trace.hpp"
#include "internal/avpair_walk.hpp"
#include "internal/trace.hpp"

using namespace aaautil;

namespace {

template <typename T>
void hand_out(T *out, T value) noexcept {
    if (out != nullptr) {
        *out = value;
    }
}

inline void hand_out_pair(const avpair_t *pair, avpair_flags_t *flags, void **value, uint32_t *len) noexcept {
    if (flags != nullptr) [[unlikely]] {
        *flags = pair->av_flags;
    }
    if (value != nullptr) [[likely]] {
        *value = aaa_get_avpair_value_ptr(pair);
    }
    if (len != nullptr) [[likely]] {
        *len = pair->av_len;
    }
}

// Ends a lookup that has found this pair, or none: hands out, traces.
cerrno answer(const avpair_t *pair, uint32_t type, avpair_flags_t *flags, void **value,
              uint32_t *len) noexcept {
    const bool traced = tracing(AAA_DBG_AVLIST);
    if (pair == nullptr) {
        if (traced) [[unlikely]] {
            trace_not_found(type, AAA_ERR_AVPAIR_NOT_FOUND);
        }
        return AAA_ERR_AVPAIR_NOT_FOUND;
    }
    hand_out_pair(pair, flags, value, len);
    if (traced) [[unlikely]] {
        trace_found(*pair, value != nullptr, flags != nullptr ? pair->av_flags : 0,
                    len != nullptr ? pair->av_len : 0);
    }
    return AAA_OK;
}

// Any lookup in any list, traced or not.
[[gnu::noinline]] cerrno find_in_any_list(uint32_t type, avpair_flags_t *flags, void **value, uint32_t *len,
                                          uint32_t instance, const avlist *list) noexcept {
    return answer(find_first(list, type, instance), type, flags, value, len);
}

// Goes on from a position in the first buffer or at its end. "Used" keeps the
// compiler from passing anything else than these six, which are in place.
[[gnu::noinline, gnu::used]] cerrno find_further(uint32_t type, avpair_flags_t *flags, void **value,
                                                 uint32_t *len, avpair_t *from, const avlist *list) noexcept {
    avpair_buffer_t *const buf = list->avpair_first_buf;
    const avpair_t *const end = end_of_pairs(buf);
    if (is_long_run(from, end)) [[likely]] {
        from = find_in_long_run(first_pair(buf), from, end, type);
        if (from < end) {
            return answer(from, type, flags, value, len);
        }
    }
    aaa_avpair_iterator_t it{buf, list->avpair_last_buf, from};
    return answer(find_from(&it, type, 0), type, flags, value, len);
}

// Whether the list has pairs and both its buffers. One branch instead of three:
// the product is zero exactly when one of them is. A product that outgrows its
// word and ends up as zero costs the way through all checks, nothing else.
inline bool has_pairs(const avlist *list) noexcept {
    std::uintptr_t product = list->av_cnt;
    product *= reinterpret_cast<std::uintptr_t>(list->avpair_first_buf);
    product *= reinterpret_cast<std::uintptr_t>(list->avpair_last_buf);
    return product != 0;
}

// Walks up to the first pair of the type, or, when that is not among the next
// few, as far as they go. Unrolled, because a short walk spends its time on taken
// branches.
template <int kPairs>
inline bool walk_few_pairs(avpair_t *&pair, const avpair_t *end, uint32_t type) noexcept {
#pragma GCC unroll 12
    for (int step = 0; step < kPairs; step++) {
        if (pair >= end) [[unlikely]] {
            return false;
        }
        if (pair->av_type == type) [[unlikely]] {
            return true;
        }
        pair = adjacent_pair(pair);
    }
    return false;
}

// The first pairs one by one; long runs are left to the search with several walks after that.
inline bool walk_first_pairs(avpair_t *&pair, const avpair_t *end, uint32_t type) noexcept {
    constexpr int kFirst = 10;
    constexpr int kMore = 2;
    if (walk_few_pairs<kFirst>(pair, end, type)) {
        return true;
    }
    return !is_long_run(pair, end) && walk_few_pairs<kMore>(pair, end, type);
}

}  // namespace

extern "C" {

cerrno aaa_avpair_iterator_init(aaa_avpair_iterator_t *it, const avlist *list, avpair_t **pair) {
    if (it == nullptr || list == nullptr || pair == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    if (!walk_from_start(it, list)) {
        return AAA_STATUS_END_OF_LIST;
    }
    *pair = it->curr_avp;
    return AAA_OK;
}

cerrno aaa_avpair_iterator_get_next(aaa_avpair_iterator_t *it, avpair_t **pair) {
    if (it == nullptr || pair == nullptr || it->curr_avp == nullptr || it->curr_buf == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    if (!walk_on(it)) {
        return AAA_STATUS_END_OF_LIST;
    }
    *pair = it->curr_avp;
    return AAA_OK;
}

avpair_t *aaa_avpair_get_adjacent(const avpair_t *pair) {
    return adjacent_pair(pair);
}

cerrno aaa_avpair_find_type(uint32_t type, avpair_flags_t *flags, void **value, uint32_t *len,
                            uint32_t instance, const avlist *list) {
    if (list == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    if (instance != 0 || type == AAA_ATTR_MAX || !has_pairs(list) || may_trace(AAA_DBG_AVLIST)) [[unlikely]] {
        return find_in_any_list(type, flags, value, len, instance, list);
    }
    avpair_t *pair = first_pair(list->avpair_first_buf);
    if (!walk_first_pairs(pair, end_of_pairs(list->avpair_first_buf), type)) [[unlikely]] {
        return find_further(type, flags, value, len, pair, list);
    }
    hand_out_pair(pair, flags, value, len);
    return AAA_OK;
}

cerrno aaa_avpair_find_index(uint32_t index, uint32_t *type, avpair_flags_t *flags, void **value,
                             uint32_t *tag, uint32_t *len, const avlist *list) {
    if (list == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    aaa_avpair_iterator_t it{};
    bool live = walk_from_start(&it, list);
    for (uint32_t i = 0; live && i < index; ++i) {
        live = walk_on(&it);
    }
    if (!live) {
        return AAA_ERR_AVPAIR_NOT_FOUND;
    }
    const avpair_t *const pair = it.curr_avp;
    hand_out(type, pair->av_type);
    hand_out(flags, pair->av_flags);
    hand_out(value, static_cast<void *>(aaa_get_avpair_value_ptr(pair)));
    hand_out(tag, pair->av_tag);
    hand_out(len, pair->av_len);
    return AAA_OK;
}

}  // extern "C"
