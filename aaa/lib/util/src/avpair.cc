// SPDX-License-Identifier: Apache-2.0
//
// Attribute-value list storage: the list record, its chain of buffers and
// appending to it. Layouts and rules are in the header; the hot path of an
// append is in internal/avpair_storage.hpp.

#include "aaa/avpair.h"

#include <cstdlib>
#include <cstring>
#include <limits>

#include "internal/avpair_storage.hpp"
#include "internal/avpair_trace.hpp"
#include "internal/memory.hpp"
#include "internal/trace.hpp"

namespace aaautil {

avpair_buffer_t *new_buffer(std::uint64_t pair_bytes) noexcept {
    constexpr std::uint64_t kAlignment = MEMORY_DEF_ALIGNMENT;
    std::uint64_t size = (pair_bytes + sizeof(avpair_buffer_t) + kAlignment - 1) & ~(kAlignment - 1);
    if (size > std::numeric_limits<uint32_t>::max()) {
        return nullptr;
    }
    if (size < kMinBufferSize) {
        size = kMinBufferSize;
    }
    auto *const buf = static_cast<avpair_buffer_t *>(std::malloc(size));
    if (buf == nullptr) {
        return nullptr;
    }
    buf->hdr.prev = nullptr;
    buf->hdr.next = nullptr;
    buf->hdr.free_mem = reinterpret_cast<unsigned char *>(first_pair(buf));
    buf->hdr.buf_size = static_cast<uint32_t>(size);
    buf->hdr.pad28 = 0;
    return buf;
}

avpair_buffer_t *append_buffer(std::uint64_t pair_bytes, avlist *list) noexcept {
    avpair_buffer_t *const buf = new_buffer(pair_bytes);
    if (buf == nullptr) {
        return nullptr;
    }
    avpair_buffer_t *const last_buf = list->avpair_last_buf;
    if (last_buf != nullptr) {
        AAA_ASSERT(last_buf->hdr.next == nullptr, "last_buf->hdr.next == NULL");
        last_buf->hdr.next = buf;
        buf->hdr.prev = last_buf;
    } else {
        list->avpair_first_buf = buf;
    }
    list->avpair_last_buf = buf;
    return buf;
}

void free_buffer(avpair_buffer_t *buf) noexcept {
    const std::size_t room = buf->hdr.buf_size - sizeof(avpair_buffer_t);
    const std::size_t used = reinterpret_cast<std::uintptr_t>(buf->hdr.free_mem) -
                             reinterpret_cast<std::uintptr_t>(first_pair(buf));
    // A broken free_mem must not make freeing worse than it was.
    wipe(first_pair(buf), used <= room ? used : room);
    std::free(buf);
}

uint32_t count_live_pairs(const avlist *list) noexcept {
    constexpr uint32_t kMoreThanCountable = 65536;
    uint32_t count = 0;
    for (avpair_buffer_t *buf = list->avpair_first_buf; buf != nullptr; buf = buf->hdr.next) {
        const avpair_t *const end = end_of_pairs(buf);
        for (const avpair_t *pair = first_pair(buf); pair < end; pair = adjacent_pair(pair)) {
            count += is_deleted(*pair) ? 0 : 1;
            if (count == kMoreThanCountable) {
                return count;
            }
        }
    }
    return count;
}

void settle_count(avlist *list) noexcept {
    const uint32_t live = count_live_pairs(list);
    list->av_cnt = live <= std::numeric_limits<uint16_t>::max() ? static_cast<uint16_t>(live) : uint16_t{0};
}

cerrno append_traced(uint32_t type, uint32_t flags, const void *value, uint32_t tag, uint32_t len,
                     avlist *list, bool traced) noexcept {
    AAA_ASSERT(type != AAA_ATTR_MAX, "type != AAA_ATTR_MAX");
    const cerrno code = append_pair(type, flags, value, tag, len, list);
    if (traced && value != nullptr) [[unlikely]] {
        trace_added(type, value, len, code);
    }
    return code;
}

namespace {

using TraceAppend = void (*)(uint32_t type, const void *value, uint32_t len, cerrno code) noexcept;

// An append that starts a buffer, or of a long value, or one that is refused or traced.
template <TraceAppend kTrace>
[[gnu::noinline]] cerrno append_with_checks(uint32_t type, uint32_t flags, const void *value, uint32_t tag,
                                            uint32_t len, avlist *list) noexcept {
    const cerrno code = append_pair(type, flags, value, tag, len, list);
    if (value != nullptr && tracing(AAA_DBG_AVLIST)) [[unlikely]] {
        kTrace(type, value, len, code);
    }
    return code;
}

// Tracing is asked for first: what a trace needs would occupy registers during
// the whole append.
template <TraceAppend kTrace>
inline cerrno append(uint32_t type, uint32_t flags, const void *value, uint32_t tag, uint32_t len,
                     avlist *list) noexcept {
    if (may_trace(AAA_DBG_AVLIST)) [[unlikely]] {
        return append_with_checks<kTrace>(type, flags, value, tag, len, list);
    }
    avpair_t *const pair = append_head_in_place(type, flags, value, tag, len, list);
    if (pair != nullptr) [[likely]] {
        copy_short(aaa_get_avpair_value_ptr(pair), static_cast<const unsigned char *>(value), len);
        verify_changed(list);
        return AAA_OK;
    }
    return append_with_checks<kTrace>(type, flags, value, tag, len, list);
}

constexpr std::size_t kNameMax = sizeof(avlist::av_name) - 1;

// Makes an empty list of a fresh record.
cerrno avpair_init(avlist *list, const char *name) noexcept {
    std::memset(list, 0, sizeof *list);
    if (name != nullptr) {
        const std::size_t len = strnlen(name, kNameMax + 1);
        if (len > kNameMax) {
            return AAA_ERR_AVPAIR_PROCESSING;
        }
        std::memcpy(list->av_name, name, len);
    }
    AAA_ASSERT(aaa_is_list_empty(list), "aaa_is_list_empty(list)");
    return AAA_OK;
}

void free_buffers(avlist *list) noexcept {
    avpair_buffer_t *buf = list->avpair_first_buf;
    while (buf != nullptr) {
        avpair_buffer_t *const next = buf->hdr.next;
        free_buffer(buf);
        buf = next;
    }
}

}  // namespace

}  // namespace aaautil

using namespace aaautil;

extern "C" {

cerrno aaa_avpair_create_list(const char *name, avlist **out) {
    if (out == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    *out = nullptr;
    malloc_ptr<avlist> list(static_cast<avlist *>(std::malloc(sizeof(avlist))));
    if (list == nullptr) {
        return AAA_ERR_NOMEM;
    }
    const cerrno code = avpair_init(list.get(), name);
    if (code == AAA_OK) {
        *out = list.release();
    }
    return code;
}

void aaa_avpair_clear(avlist *list) {
    if (list == nullptr) {
        return;
    }
    free_buffers(list);
    list->av_cnt = 0;
    list->avpair_first_buf = nullptr;
    list->avpair_last_buf = nullptr;
}

void aaa_avpair_free_list(avlist *list) {
    if (list == nullptr) {
        return;
    }
    if (tracing(AAA_DBG_AVLIST)) [[unlikely]] {
        aaa_debug(AAA_DBG_AVLIST, "Freeing AV list at %p", static_cast<void *>(list));
    }
    free_buffers(list);
    std::free(list);
}

avpair_t *aaa_avpair_get_first_avpair_in_buf(avpair_buffer_t *buf) {
    return buf != nullptr ? first_pair(buf) : nullptr;
}

int aaa_avpair_is_deleted(const avpair_t *pair) {
    return pair != nullptr && is_deleted(*pair) ? 1 : 0;
}

cerrno aaa_avpair_add(uint32_t type, uint32_t flags, const void *value, uint32_t tag, uint32_t len,
                      avlist *list) {
    AAA_ASSERT(type != AAA_ATTR_MAX, "type != AAA_ATTR_MAX");
    return append<trace_added>(type, flags, value, tag, len, list);
}

// Callers use both argument orders, so both functions stay; only the trace
// line, which lacks the numeric type here, tells them apart.
cerrno aaa_avpair_add_with_tag(uint32_t type, uint32_t flags, const void *value, uint32_t len, uint32_t tag,
                               avlist *list) {
    AAA_ASSERT(type != AAA_ATTR_MAX, "type != AAA_ATTR_MAX");
    return append<trace_added_with_tag>(type, flags, value, tag, len, list);
}

cerrno aaa_avpair_get_mem_usage(const avlist *list, avpair_mem_stats_t *stats) {
    if (list == nullptr || stats == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    *stats = {};
    if (aaa_is_list_empty(list)) {
        return AAA_OK;
    }
    for (avpair_buffer_t *buf = list->avpair_first_buf; buf != nullptr; buf = buf->hdr.next) {
        stats->buf_cnt++;
        stats->total_mem += buf->hdr.buf_size;
        stats->used_mem +=
            static_cast<uint32_t>(buf->hdr.free_mem - reinterpret_cast<unsigned char *>(first_pair(buf)));
    }
    return AAA_OK;
}

}  // extern "C"
