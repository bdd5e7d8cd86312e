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

inline cerrno hand_out_pair(const avpair_t *pair, avpair_flags_t *flags, void **value,
                            uint32_t *len) noexcept {
    hand_out(flags, pair->av_flags);
    hand_out(value, static_cast<void *>(aaa_get_avpair_value_ptr(pair)));
    hand_out(len, pair->av_len);
    // What the trace line shows waits in memory: in registers it would have to
    // be saved and restored by every lookup for the sake of those that trace.
    const avpair_t *volatile found = pair;
    avpair_flags_t *volatile asked_flags = flags;
    void **volatile asked_value = value;
    uint32_t *volatile asked_len = len;
    if (tracing(AAA_DBG_AVLIST)) [[unlikely]] {
        const avpair_t *const traced = found;
        trace_found(*traced, asked_value != nullptr, asked_flags != nullptr ? traced->av_flags : 0,
                    asked_len != nullptr ? traced->av_len : 0);
    }
    return AAA_OK;
}

[[gnu::noinline]] cerrno find_in_any_list(uint32_t type, avpair_flags_t *flags, void **value, uint32_t *len,
                                          uint32_t instance, const avlist *list) noexcept {
    const avpair_t *const pair = find_first(list, type, instance);
    return pair != nullptr ? hand_out_pair(pair, flags, value, len) : not_found(type);
}

// The one buffer of a list that is short, as most are; null for any other list
// and for a broken one.
inline avpair_buffer_t *only_short_buffer(const avlist *list) noexcept {
    avpair_buffer_t *const buf = list->avpair_first_buf;
    if (list->av_cnt == 0 || buf == nullptr || buf != list->avpair_last_buf) [[unlikely]] {
        return nullptr;
    }
    const std::uintptr_t used = reinterpret_cast<std::uintptr_t>(buf->hdr.free_mem) -
                                reinterpret_cast<std::uintptr_t>(first_pair(buf));
    return used < kLongRun ? buf : nullptr;
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
    avpair_buffer_t *const buf = only_short_buffer(list);
    if (buf == nullptr || type == AAA_ATTR_MAX) [[unlikely]] {
        return find_in_any_list(type, flags, value, len, instance, list);
    }
    const avpair_t *const pair = walk_to_type(buf, type, &instance);
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
