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

[[gnu::noinline]] cerrno not_found(uint32_t type) noexcept {
    if (tracing(AAA_DBG_AVLIST)) [[unlikely]] {
        trace_not_found(type, AAA_ERR_AVPAIR_NOT_FOUND);
    }
    return AAA_ERR_AVPAIR_NOT_FOUND;
}

// Apart, so that a lookup without a trace keeps nothing for its sake.
[[gnu::cold, gnu::noinline]] cerrno trace_hand_out(const avpair_t *pair, const avpair_flags_t *flags,
                                                   void *const *value, const uint32_t *len) noexcept {
    if (tracing(AAA_DBG_AVLIST)) {
        trace_found(*pair, value != nullptr, flags != nullptr ? pair->av_flags : 0,
                    len != nullptr ? pair->av_len : 0);
    }
    return AAA_OK;
}

inline cerrno hand_out_pair(const avpair_t *pair, avpair_flags_t *flags, void **value,
                            uint32_t *len) noexcept {
    if (flags != nullptr) [[unlikely]] {
        *flags = pair->av_flags;
    }
    if (value != nullptr) [[likely]] {
        *value = aaa_get_avpair_value_ptr(pair);
    }
    if (len != nullptr) [[likely]] {
        *len = pair->av_len;
    }
    if (may_trace(AAA_DBG_AVLIST)) [[unlikely]] {
        return trace_hand_out(pair, flags, value, len);
    }
    return AAA_OK;
}

[[gnu::noinline]] cerrno find_in_any_list(uint32_t type, avpair_flags_t *flags, void **value, uint32_t *len,
                                          uint32_t instance, const avlist *list) noexcept {
    const avpair_t *const pair = find_first(list, type, instance);
    return pair != nullptr ? hand_out_pair(pair, flags, value, len) : not_found(type);
}

// Whether all pairs lie in the first buffer, as in most lists. Not so for a
// broken list.
inline bool has_one_buffer(const avlist *list) noexcept {
    const avpair_buffer_t *const buf = list->avpair_first_buf;
    return list->av_cnt != 0 && buf != nullptr && buf == list->avpair_last_buf;
}

// Whether there are pairs from first to end and they make no long run.
inline bool is_short_run(const avpair_t *first, const avpair_t *end) noexcept {
    const std::uintptr_t used =
        reinterpret_cast<std::uintptr_t>(end) - reinterpret_cast<std::uintptr_t>(first);
    return used - 1 < kLongRun - 1;
}

// The first pair of the type, or null. There is at least one pair. Unrolled,
// because it is jumps taken that a short walk spends its time on.
inline const avpair_t *walk_short_run(const avpair_t *pair, const avpair_t *end, uint32_t type) noexcept {
    for (;;) {
#pragma GCC unroll 8
        for (int step = 0; step < 8; step++) {
            if (pair->av_type == type) [[unlikely]] {
                return pair;
            }
            pair = adjacent_pair(pair);
            if (pair >= end) [[unlikely]] {
                return nullptr;
            }
        }
    }
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
    if (instance != 0 || type == AAA_ATTR_MAX || !has_one_buffer(list)) [[unlikely]] {
        return find_in_any_list(type, flags, value, len, instance, list);
    }
    const avpair_t *const first = first_pair(list->avpair_first_buf);
    const avpair_t *const end = end_of_pairs(list->avpair_first_buf);
    if (!is_short_run(first, end)) [[unlikely]] {
        return find_in_any_list(type, flags, value, len, instance, list);
    }
    const avpair_t *const pair = walk_short_run(first, end, type);
    return pair != nullptr ? hand_out_pair(pair, flags, value, len) : not_found(type);
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
