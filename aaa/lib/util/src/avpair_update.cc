// SPDX-License-Identifier: Apache-2.0
//
// Deletion and update. After every deletion the pair before free_mem of each
// buffer is live, each buffer of the chain holds a live pair, and the list has
// no buffers when it has no pairs.

#include <cstdlib>
#include <cstring>

#include "aaa/avpair.h"
#include "internal/avpair_storage.hpp"
#include "internal/avpair_trace.hpp"
#include "internal/memory.hpp"
#include "internal/trace.hpp"

namespace aaautil {

namespace {

bool aaa_avpair_is_last_in_buffer(const avpair_t *avp, const avpair_buffer_t *buf) noexcept {
    AAA_ASSERT(avp != nullptr, "avp");
    AAA_ASSERT(buf != nullptr, "buf");
    AAA_ASSERT(avp > reinterpret_cast<const avpair_t *>(buf) && avp < end_of_pairs(buf),
               "(avp > (avpair_t*)buf) && (avp < (avpair_t*)(buf->hdr.free_mem))");
    return adjacent_pair(avp) >= end_of_pairs(buf);
}

void unlink_buffer(avpair_buffer_t *buf, avlist *list) noexcept {
    avpair_buffer_t *const prev_buf = buf->hdr.prev;
    avpair_buffer_t *const next_buf = buf->hdr.next;
    if (prev_buf != nullptr) {
        AAA_ASSERT(end_of_pairs(prev_buf) != first_pair(prev_buf),
                   "prev_buf->hdr.free_mem != aaa_avpair_get_first_avpair_in_buf(prev_buf)");
        prev_buf->hdr.next = next_buf;
    }
    if (next_buf != nullptr) {
        next_buf->hdr.prev = prev_buf;
    }
    if (list->avpair_first_buf == buf) {
        list->avpair_first_buf = next_buf;
    }
    if (list->avpair_last_buf == buf) {
        list->avpair_last_buf = prev_buf;
    }
    free_buffer(buf);
}

// Wipes the values of deleted pairs that are given back. Their heads stay: a
// caller that deletes one of them again finds it deleted.
void wipe_values(avpair_t *pair, const avpair_t *end) noexcept {
    while (pair < end) {
        avpair_t *const next = adjacent_pair(pair);
        unsigned char *const value = aaa_get_avpair_value_ptr(pair);
        const auto *const value_end = reinterpret_cast<const unsigned char *>(next < end ? next : end);
        if (value < value_end) {
            wipe(value, static_cast<std::size_t>(value_end - value));
        }
        pair = next;
    }
}

// Gives back the deleted pairs at the end of a buffer; a buffer without live
// pairs leaves the chain.
void aaa_avpair_chop_end_of_buffer(avpair_buffer_t *buf, avlist *list) noexcept {
    const avpair_t *const end = end_of_pairs(buf);
    avpair_t *live_end = nullptr;
    for (avpair_t *pair = first_pair(buf); pair < end;) {
        avpair_t *const next = adjacent_pair(pair);
        if (!is_deleted(*pair)) {
            live_end = next;
        }
        pair = next;
    }
    if (live_end != nullptr) {
        wipe_values(live_end, end);
        buf->hdr.free_mem = reinterpret_cast<unsigned char *>(live_end);
    } else {
        unlink_buffer(buf, list);
    }
}

bool is_in_list(const void *value, const avlist *list) noexcept {
    const auto address = reinterpret_cast<std::uintptr_t>(value);
    const avpair_buffer_t *const last_buf = list->avpair_last_buf;
    for (const avpair_buffer_t *buf = list->avpair_first_buf; buf != nullptr; buf = buf->hdr.next) {
        if (address - reinterpret_cast<std::uintptr_t>(buf) < buf->hdr.buf_size) {
            return true;
        }
        // The list ends here whatever follows: a damaged chain may go on in a circle.
        if (buf == last_buf) {
            break;
        }
    }
    return false;
}

// Puts a new pair of the same type at the end of the list in place of this one.
// Only the low 8 bits of its flags are kept; callers depend on that. When the
// append fails, the old pair is deleted all the same.
cerrno replace_at_end(const aaa_avpair_iterator_t *it, avpair_flags_t flags, const void *value, uint32_t tag,
                      uint32_t len, avlist *list, bool traced) noexcept {
    constexpr avpair_flags_t kKeptFlags = 0xff;
    const avpair_type_t type = it->curr_avp->av_type;
    const avpair_flags_t kept = it->curr_avp->av_flags & kKeptFlags;
    delete_pair(it, list);
    return append_traced(type, kept | flags, value, tag, len, list, traced);
}

// The same with a value in a buffer of the list, which the deletion may free or
// overwrite.
cerrno replace_at_end_with_own_value(const aaa_avpair_iterator_t *it, avpair_flags_t flags, const void *value,
                                     uint32_t tag, uint32_t len, avlist *list, bool traced) noexcept {
    const malloc_ptr<void> aside(std::malloc(len != 0 ? len : 1));
    if (aside == nullptr) {
        return AAA_ERR_NOMEM;
    }
    std::memcpy(aside.get(), value, len);
    const cerrno code = replace_at_end(it, flags, aside.get(), tag, len, list, traced);
    wipe(aside.get(), len);  // it may have been a password
    return code;
}

cerrno replace_value(const aaa_avpair_iterator_t *it, avpair_flags_t flags, const void *value, uint32_t tag,
                     uint32_t len, avlist *list, bool traced) noexcept {
    avpair_t *const avpair = it->curr_avp;
    if (len != avpair->av_len) {
        return is_in_list(value, list)
                   ? replace_at_end_with_own_value(it, flags, value, tag, len, list, traced)
                   : replace_at_end(it, flags, value, tag, len, list, traced);
    }
    AAA_ASSERT(!is_deleted(*avpair), "avpair->av_type != AAA_ATTR_MAX");
    copy_value(aaa_get_avpair_value_ptr(avpair), static_cast<const unsigned char *>(value), len);
    avpair->av_flags |= flags;
    avpair->av_tag = tag;
    verify_changed(list);
    return AAA_OK;
}

bool is_positioned(const aaa_avpair_iterator_t *it) noexcept {
    return it->curr_avp != nullptr && it->curr_buf != nullptr;
}

}  // namespace

void delete_pair(const aaa_avpair_iterator_t *it, avlist *list) noexcept {
    avpair_t *const pair = it->curr_avp;
    if (is_deleted(*pair)) {
        return;
    }
    pair->av_type = AAA_ATTR_MAX;
    list->av_cnt--;
    if (aaa_avpair_is_last_in_buffer(pair, it->curr_buf)) {
        aaa_avpair_chop_end_of_buffer(it->curr_buf, list);
    }
    // The count of an unpacked list is in message order and reaches 0 too early
    // or not at all.
    if (list->avpair_first_buf == nullptr) {
        list->av_cnt = 0;
    } else if (list->av_cnt == 0) [[unlikely]] {
        settle_count(list);
    }
    verify_changed(list);
}

}  // namespace aaautil

using namespace aaautil;

extern "C" {

cerrno aaa_avpair_delete_by_iterator(aaa_avpair_iterator_t *it, avlist *list) {
    if (it == nullptr || list == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    AAA_ASSERT(!aaa_is_list_empty(list), "aaa_is_list_empty(list) == FALSE");
    if (!is_positioned(it)) {
        return AAA_ERR_INVALID_ARG;
    }
    delete_pair(it, list);
    return AAA_OK;
}

cerrno aaa_avpair_delete_by_type_instance(uint32_t type, uint32_t instance, avlist *list,
                                          avpair_flags_t *flags) {
    if (list == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    aaa_avpair_iterator_t it{};
    const cerrno code = aaa_avpair_find_by_type_instance(type, instance, list, &it);
    if (code != AAA_OK) {
        return code;
    }
    if (flags != nullptr) {
        *flags = it.curr_avp->av_flags;
    }
    delete_pair(&it, list);
    return AAA_OK;
}

cerrno aaa_avpair_delete_by_type_value(avpair_type_t findtype, void *value, avpair_val_len_t len,
                                       avlist *list, avpair_flags_t *flags) {
    AAA_ASSERT(findtype != AAA_ATTR_MAX, "findtype != AAA_ATTR_MAX");
    if (list == nullptr || (value == nullptr && len > 0)) {
        return AAA_ERR_INVALID_ARG;
    }
    aaa_avpair_iterator_t it{};
    for (bool live = walk_from_start(&it, list); live; live = walk_on(&it)) {
        const avpair_t &pair = *it.curr_avp;
        if (pair.av_type == findtype && pair.av_len == len &&
            (len == 0 || std::memcmp(aaa_get_avpair_value_ptr(&pair), value, len) == 0)) {
            if (flags != nullptr) {
                *flags = pair.av_flags;
            }
            delete_pair(&it, list);
            return AAA_OK;
        }
    }
    return AAA_ERR_AVPAIR_NOT_FOUND;
}

cerrno aaa_avpair_update_by_iterator(aaa_avpair_iterator_t *it, avpair_flags_t flags, const void *value,
                                     uint32_t tag, uint32_t len, avlist *list) {
    if (it == nullptr || value == nullptr || list == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    AAA_ASSERT(!aaa_is_list_empty(list), "aaa_is_list_empty(list) == FALSE");
    if (!is_positioned(it)) {
        return AAA_ERR_INVALID_ARG;
    }
    // Only a pair that moves writes a trace line.
    const bool traced = len != it->curr_avp->av_len && tracing(AAA_DBG_AVLIST);
    return replace_value(it, flags, value, tag, len, list, traced);
}

cerrno aaa_avpair_update(uint32_t type, uint32_t flags, void *value, uint32_t tag, uint32_t len,
                         uint32_t instance, avlist *list) {
    if (list == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    AAA_ASSERT(value != nullptr || len == 0, "!((value == NULL) && (len > 0))");
    const bool traced = tracing(AAA_DBG_AVLIST);
    if (traced && value != nullptr) [[unlikely]] {
        trace_updating(type, value, len);
    }
    aaa_avpair_iterator_t it{};
    cerrno code = aaa_avpair_find_by_type_instance(type, instance, list, &it);
    if (code == AAA_ERR_AVPAIR_NOT_FOUND) {
        code = append_traced(type, flags, value, tag, len, list, traced);
    } else if (code == AAA_OK) {
        code =
            value != nullptr ? replace_value(&it, flags, value, tag, len, list, traced) : AAA_ERR_INVALID_ARG;
    }
    if (code != AAA_OK && traced) [[unlikely]] {
        trace_update_failed(type, instance, code);
    }
    return code;
}

}  // extern "C"
