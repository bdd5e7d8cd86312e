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
    aaa_avpair_iterator_t it{};
    const cerrno code = aaa_avpair_find_by_type_instance(type, instance, list, &it);
    if (code != AAA_OK) {
        if (tracing(AAA_DBG_AVLIST)) [[unlikely]] {
            trace_not_found(type, code);
        }
        return code;
    }
    const avpair_t *const pair = it.curr_avp;
    hand_out(flags, pair->av_flags);
    hand_out(value, static_cast<void *>(aaa_get_avpair_value_ptr(pair)));
    hand_out(len, pair->av_len);
    if (tracing(AAA_DBG_AVLIST)) [[unlikely]] {
        trace_found(*pair, value != nullptr, flags != nullptr ? pair->av_flags : 0,
                    len != nullptr ? pair->av_len : 0);
    }
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
