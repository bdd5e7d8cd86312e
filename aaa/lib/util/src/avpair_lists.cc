// SPDX-License-Identifier: Apache-2.0
//
// Operations on two lists, or on a list and a callback: comparison, copying,
// exchange, merging, visiting. They add no storage, and use the
// buffers only to copy a list and to find the bound of a value.

#include "aaa/avpair.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

#include "aaa/dictionary.h"
#include "aaa/result_codes.h"
#include "internal/assert.hpp"
#include "internal/attribute_formats.hpp"
#include "internal/avpair_checks.hpp"
#include "internal/avpair_storage.hpp"
#include "internal/avpair_trace.hpp"
#include "internal/avpair_walk.hpp"
#include "internal/avpair_wire.hpp"
#include "internal/trace.hpp"

namespace {

using aaautil::aaa_get_avpair_value_ptr;
using aaautil::aaa_is_list_empty;
using aaautil::append_traced;
using aaautil::LivePairs;
using aaautil::printable;
using aaautil::tracing;

bool equal_pairs(const avpair_t &a, const avpair_t &b) {
    return std::memcmp(&a, &b, sizeof a) == 0 &&
           std::memcmp(aaa_get_avpair_value_ptr(&a), aaa_get_avpair_value_ptr(&b), a.av_len) == 0;
}

bool equal_contents(const avlist *a, const avlist *b) {
    const LivePairs in_a(a);
    const LivePairs in_b(b);
    auto at_a = in_a.begin();
    auto at_b = in_b.begin();
    while (at_a != in_a.end() && at_b != in_b.end()) {
        if (!equal_pairs(*at_a, *at_b)) {
            return false;
        }
        ++at_a;
        ++at_b;
    }
    return at_a == in_a.end() && at_b == in_b.end();
}

// One buffer with everything that the buffers of a list hold, and 32 bytes to
// spare, so that a small pair can join the copy without a second buffer.
cerrno copy_buffers(const avlist *list, const avpair_mem_stats_t &stats, avlist *copy) {
    constexpr std::size_t kSpare = 32;
    avpair_buffer_t *buf = aaautil::new_buffer(std::uint64_t{stats.used_mem} + kSpare);
    if (buf == nullptr) {
        return AAA_ERR_NOMEM;
    }
    aaautil::MessageOutput out(buf->hdr.free_mem, stats.used_mem);
    for (avpair_buffer_t *from = list->avpair_first_buf; from != nullptr; from = from->hdr.next) {
        out.append(aaautil::pairs_of(from), aaautil::used_bytes(from));
    }
    buf->hdr.free_mem += out.used();
    if (out.result() != AAA_OK) {
        aaautil::free_buffer(buf);
        return out.result();
    }
    AAA_ASSERT(out.used() == stats.used_mem, "msg_len == stats.used_mem");
    copy->avpair_first_buf = buf;
    copy->avpair_last_buf = buf;
    copy->av_cnt = list->av_cnt;
    return AAA_OK;
}

// Value bytes of a pair up to the end of the used part of the buffer around it.
std::size_t readable_bytes(const avpair_t *pair, const avlist *list) {
    const auto *value = aaa_get_avpair_value_ptr(pair);
    for (const avpair_buffer_t *buf = list->avpair_first_buf; buf != nullptr; buf = buf->hdr.next) {
        const auto *begin = reinterpret_cast<const unsigned char *>(buf);
        if (value > begin && value <= buf->hdr.free_mem) {
            return static_cast<std::size_t>(buf->hdr.free_mem - value);
        }
    }
    return pair->av_len;
}

void *value_of(const avpair_t &pair) {
    return aaautil::traceable_value(aaa_get_avpair_value_ptr(&pair), pair.av_len);
}

// Copies a pair as it is.
cerrno aaa_avpair_add_2(const avpair_t *avp, avlist *list, bool traced) {
    AAA_ASSERT(avp != nullptr, "avp");
    AAA_ASSERT(list != nullptr, "list");
    return append_traced(avp->av_type, avp->av_flags, value_of(*avp), avp->av_tag, avp->av_len, list, traced);
}

// Appends a pair whose value is the readable bytes, followed by zeros up to len.
cerrno append_zero_filled(uint32_t type, uint32_t flags, const void *value, std::size_t readable,
                          uint32_t tag, uint32_t len, avlist *list, bool traced) {
    avpair_t *const pair = aaautil::aaa_alloc_avpair_mem(len, list);
    if (pair != nullptr) {
        unsigned char *const bytes = aaa_get_avpair_value_ptr(pair);
        aaautil::fill_head(pair, type, flags, tag, len);
        std::memcpy(bytes, value, readable);
        std::memset(bytes + readable, 0, len - readable);
        aaautil::finish_append(list);
    }
    const cerrno code = pair != nullptr ? AAA_OK : AAA_ERR_NOMEM;
    if (traced) {
        aaautil::trace_added(type, pair != nullptr ? aaa_get_avpair_value_ptr(pair) : value,
                             static_cast<uint32_t>(readable), code);
    }
    return code;
}

// The target's value under the source's length, tag and flags: callers depend
// on this mixture. When the source is longer, the bytes that follow the target's
// value in its buffer are appended too, and zeros after the end of the buffer.
cerrno append_mixed(const avpair_t *target, const avlist *tgt, const avpair_t *source, avlist *result,
                    bool traced) {
    const uint32_t len = source->av_len;
    const uint32_t flags = source->av_flags | target->av_flags;
    const std::size_t stored = len <= target->av_len ? target->av_len : readable_bytes(target, tgt);
    const void *value = aaautil::traceable_value(aaa_get_avpair_value_ptr(target), stored);
    if (len <= stored) {
        return append_traced(target->av_type, flags, value, source->av_tag, len, result, traced);
    }
    return append_zero_filled(target->av_type, flags, value, stored, source->av_tag, len, result, traced);
}

// The state of rebuilding a list, kept from pair to pair.
struct Rebuild {
    const avlist *src;
    const avlist *tgt;
    avlist *result;
    bool traced;
    uint32_t len = 0;  // length of the latest source pair; the trace of a retained pair shows it too
    int updated = 0;
};

const char *name_of(const avpair_t *pair) {
    return printable(aaautil::attribute_name(pair->av_type));
}

void retain_pair(const avpair_t *pair, Rebuild *state) {
    aaa_avpair_add_2(pair, state->result, state->traced);
    if (state->traced) {
        aaa_debug(AAA_DBG_AVLIST, "Retaining attribute %s (%d), len=%d", name_of(pair),
                  static_cast<int>(pair->av_type), static_cast<int>(state->len));
    }
}

void take_over_pair(const avpair_t *pair, const avpair_t *source, Rebuild *state) {
    state->len = source->av_len;
    append_mixed(pair, state->tgt, source, state->result, state->traced);
    state->updated++;
    if (state->traced) {
        aaa_debug(AAA_DBG_AVLIST, "Returning attribute %s (%d) from local attr list, len=%d", name_of(pair),
                  static_cast<int>(pair->av_type), static_cast<int>(state->len));
    }
}

void rebuild_pair(const avpair_t *pair, Rebuild *state) {
    if (state->traced) {
        aaa_debug(AAA_DBG_AVLIST, "Requested attribute is %s (%d) with tag = %d", name_of(pair),
                  static_cast<int>(pair->av_type), static_cast<int>(pair->av_tag));
    }
    const avpair_t *source = aaautil::find_first(state->src, pair->av_type);
    if (source == nullptr) {
        retain_pair(pair, state);
    } else {
        take_over_pair(pair, source, state);
    }
}

void trace_updated(int updated) {
    aaa_debug(AAA_DBG_AVLIST, "%d attribute(s) updated", updated);
}

// How many pairs of src a merge takes. A list that is merged into itself grows
// while it is read; only the pairs that it had at the start are taken.
uint32_t pairs_to_take(const avlist *src, const avlist *dst) {
    return src == dst ? aaautil::count_live_pairs(src) : std::numeric_limits<uint32_t>::max();
}

// Passes every live pair of src that has one of the flag bits to merge, and traces
// their count. The result of a single merge is ignored, by contract.
template <typename Merge>
cerrno merge_by_flags(const avlist *src, const avlist *dst, avpair_flags_t flags, bool traced, Merge merge) {
    uint32_t left = pairs_to_take(src, dst);
    int updated = 0;
    for (const avpair_t &pair : LivePairs(src)) {
        if (left-- == 0) {
            break;
        }
        if ((pair.av_flags & flags) != 0) {
            merge(pair);
            updated++;
        }
    }
    if (traced) {
        trace_updated(updated);
    }
    return AAA_OK;
}

// Merges a list into itself by position: an update may move pairs, so every
// position is looked up from the start.
template <typename Merge>
cerrno merge_into_itself(const avlist *list, Merge merge) {
    const uint32_t count = aaautil::count_live_pairs(list);
    for (uint32_t index = 0; index < count; index++) {
        avpair_t pair{};
        void *value = nullptr;
        cerrno rc = aaautil::find_index_traceable(index, list, &pair, &value);
        if (rc == AAA_OK) {
            rc = merge(pair, value);
        }
        if (rc != AAA_OK) {
            return rc == AAA_ERR_AVPAIR_NOT_FOUND ? AAA_OK : rc;
        }
    }
    return AAA_OK;
}

// Merges the pairs of src in order up to the first failure. One walk gives the
// same pairs as looking up position 0, 1, 2, ... from the start each time, unless
// the merge moves pairs of src.
template <typename Merge>
cerrno merge_in_order(avlist *dst, const avlist *src, Merge merge) {
    uint32_t left = pairs_to_take(src, dst);
    for (const avpair_t &pair : LivePairs(src)) {
        if (left-- == 0) {
            break;
        }
        const cerrno rc = merge(pair, value_of(pair));
        if (rc != AAA_OK) {
            return rc == AAA_ERR_AVPAIR_NOT_FOUND ? AAA_OK : rc;
        }
    }
    return AAA_OK;
}

}  // namespace

extern "C" {

int aaa_avpair_compare_avpairs(const avpair_t *a, const avpair_t *b) {
    return a != nullptr && b != nullptr && equal_pairs(*a, *b) ? 1 : 0;
}

int aaa_avpair_compare_lists(const avlist *a, const avlist *b) {
    if (a == nullptr || b == nullptr || a->marker != b->marker || a->av_cnt != b->av_cnt) {
        return 0;
    }
    return std::strncmp(a->av_name, b->av_name, sizeof a->av_name) == 0 && equal_contents(a, b) ? 1 : 0;
}

cerrno aaa_avpair_copy_list(const avlist *list, const char *name, avlist **copy_list) {
    AAA_ASSERT(list != nullptr, "list");
    if (copy_list == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    avpair_mem_stats_t stats;
    cerrno rc = aaa_avpair_get_mem_usage(list, &stats);
    if (rc != AAA_OK) {
        return rc;
    }
    aaautil::trace_packing(list);
    const bool made_here = *copy_list == nullptr;
    if (made_here) {
        rc = aaa_avpair_create_list(name != nullptr ? name : list->av_name, copy_list);
        if (rc != AAA_OK) {
            return rc;
        }
    }
    AAA_ASSERT(aaa_is_list_empty(*copy_list), "aaa_is_list_empty(*copy_list)");
    if (stats.buf_cnt == 0) {
        return AAA_OK;
    }
    rc = copy_buffers(list, stats, *copy_list);
    if (rc != AAA_OK && made_here) {
        aaa_avpair_free_list(*copy_list);
        *copy_list = nullptr;
    }
    return rc;
}

cerrno aaa_avpair_list_for_each(avlist *list, void *ctx, aaa_avpair_list_callback_fn_t fn) {
    if (list == nullptr || fn == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    for (const avpair_t &avpair : LivePairs(list)) {
        const avpair_t *avp = &avpair;
        AAA_ASSERT(avp != nullptr, "avp != NULL");
        AAA_ASSERT(avpair.av_type != AAA_ATTR_MAX, "avpair->av_type != AAA_ATTR_MAX");
        if (fn(avp->av_type, avp->av_flags, aaa_get_avpair_value_ptr(avp), avp->av_len, avp->av_tag, ctx) ==
            0) {
            break;
        }
    }
    return AAA_OK;
}

cerrno aaa_avpair_switch(avlist *a, avlist *b) {
    if (a == nullptr || b == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    std::swap(*a, *b);
    return AAA_OK;
}

cerrno aaa_avpair_update_list_from_list(const avlist *src, avlist *tgt) {
    if (src == nullptr || tgt == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    avlist *result = nullptr;
    if (aaa_avpair_create_list(tgt->av_name, &result) != AAA_OK) {
        return AAA_ERR_NOMEM;
    }
    AAA_ASSERT(tgt->av_cnt != 0, "tgt->av_cnt != 0");
    AAA_ASSERT(result->av_cnt == 0, "result->av_cnt == 0");
    Rebuild state{.src = src, .tgt = tgt, .result = result, .traced = tracing(AAA_DBG_AVLIST)};
    // A walk ends at the end of the list or stops the process, so no failure
    // requires tgt to be left unchanged.
    for (const avpair_t &pair : LivePairs(tgt)) {
        rebuild_pair(&pair, &state);
    }
    if (state.traced) {
        trace_updated(state.updated);
    }
    aaa_avpair_switch(tgt, result);
    aaa_avpair_free_list(result);
    return AAA_OK;
}

cerrno aaa_avpair_update_list_from_list_by_flags(const avlist *src, avlist *tgt, avpair_flags_t flags) {
    if (src == nullptr || tgt == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    AAA_ASSERT(tgt->av_cnt != 0, "tgt->av_cnt != 0");
    return merge_by_flags(src, tgt, flags, tracing(AAA_DBG_AVLIST), [tgt](const avpair_t &pair) {
        aaa_avpair_update(pair.av_type, pair.av_flags, value_of(pair), pair.av_tag, pair.av_len, 0, tgt);
    });
}

cerrno aaa_avpair_add_from_list_by_flags(const avlist *src, avlist *dst, avpair_flags_t flags) {
    if (src == nullptr || dst == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    const bool traced = tracing(AAA_DBG_AVLIST);
    return merge_by_flags(src, dst, flags, traced,
                          [dst, traced](const avpair_t &pair) { aaa_avpair_add_2(&pair, dst, traced); });
}

cerrno aaa_avpair_list_concat(avlist *dst, const avlist *src) {
    if (dst == nullptr || src == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    const bool traced = tracing(AAA_DBG_AVLIST);
    return merge_in_order(dst, src, [dst, traced](const avpair_t &pair, const void *value) {
        return append_traced(pair.av_type, pair.av_flags, value, pair.av_tag, pair.av_len, dst, traced);
    });
}

cerrno aaa_avpair_list_concat_with_replace(avlist *dst, const avlist *src) {
    if (dst == nullptr || src == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    const auto update = [dst](const avpair_t &pair, void *value) {
        return aaa_avpair_update(pair.av_type, pair.av_flags, value, pair.av_tag, pair.av_len, 0, dst);
    };
    return src == dst ? merge_into_itself(src, update) : merge_in_order(dst, src, update);
}

}  // extern "C"
