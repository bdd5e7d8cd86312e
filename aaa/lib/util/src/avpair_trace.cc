// SPDX-License-Identifier: Apache-2.0
//
// The trace lines of list storage and lookup.

#include "internal/avpair_trace.hpp"

#include "aaa/dictionary.h"
#include "aaa/result_codes.h"
#include "internal/avpair_checks.hpp"
#include "internal/bytes.hpp"
#include "internal/trace.hpp"
#include "platform/cerr.h"

namespace aaautil {

namespace {

struct FirstBytes {
    unsigned byte[4];
};

const char *type_name(uint32_t type) noexcept {
    return printable(aaa_attribute_pname(static_cast<int32_t>(type)));
}

// Bytes on the page of a readable byte are readable. Memory pages are at
// least this large everywhere.
constexpr std::uintptr_t kPageSize = 4096;

std::uintptr_t page_of(std::uintptr_t address) noexcept {
    return address / kPageSize;
}

// The four bytes at value, however few of them the value has: that is what the
// trace lines show. Bytes after the value are read only where they cannot
// fault, on the page of the value's last byte, and show as 0 otherwise. A value
// without bytes counts as one byte, which must be readable: traceable_value() ensures
// it for the pairs of lists. Other memory is read, so sanitizers must not check it.
[[gnu::noinline, gnu::no_sanitize_address, gnu::no_sanitize_thread]] FirstBytes first_bytes(
    const void *value, uint32_t len) noexcept {
    const auto address = reinterpret_cast<std::uintptr_t>(value);
    const std::uintptr_t last_page = page_of(address + (len != 0 ? len - 1 : 0));
    const auto *const bytes = static_cast<const volatile unsigned char *>(value);
    FirstBytes first{};
    for (uint32_t i = 0; i < 4; ++i) {
        if (i < len || page_of(address + i) == last_page) {
            first.byte[i] = bytes[i];
        }
    }
    return first;
}

}  // namespace

void *traceable_value(void *value, std::size_t stored) noexcept {
    static constexpr unsigned char kNoBytes[4] = {};
    const bool begins_page = reinterpret_cast<std::uintptr_t>(value) % kPageSize == 0;
    return stored == 0 && begins_page ? const_cast<unsigned char *>(kNoBytes) : value;
}

cerrno find_index_traceable(uint32_t index, const avlist *list, avpair_t *pair, void **value) noexcept {
    const cerrno code = aaa_avpair_find_index(index, &pair->av_type, &pair->av_flags, value, &pair->av_tag,
                                              &pair->av_len, list);
    if (code == AAA_OK) {
        *value = traceable_value(*value, pair->av_len);
    }
    return code;
}

void trace_added(uint32_t type, const void *value, uint32_t len, cerrno code) noexcept {
    const FirstBytes first = first_bytes(value, len);
    aaa_debug(AAA_DBG_AVLIST, "Adding attr %x %s [%x %x %x %x] - %s", type, type_name(type), first.byte[0],
              first.byte[1], first.byte[2], first.byte[3], cerr_strerror(code));
}

void trace_added_with_tag(uint32_t type, const void *value, uint32_t len, cerrno code) noexcept {
    const FirstBytes first = first_bytes(value, len);
    aaa_debug(AAA_DBG_AVLIST, "Adding attr %s [%x %x %x %x] - %s", type_name(type), first.byte[0],
              first.byte[1], first.byte[2], first.byte[3], cerr_strerror(code));
}

void trace_updating(uint32_t type, const void *value, uint32_t len) noexcept {
    const FirstBytes first = first_bytes(value, len);
    aaa_debug(AAA_DBG_AVLIST, "Updating attr %s [%x %x %x %x]", type_name(type), first.byte[0], first.byte[1],
              first.byte[2], first.byte[3]);
}

void trace_update_failed(uint32_t type, uint32_t instance, cerrno code) noexcept {
    aaa_debug(AAA_DBG_AVLIST, "Failed to update %s (instance %d) - %s", type_name(type),
              static_cast<int>(instance), cerr_strerror(code));
}

void trace_not_found(uint32_t type, cerrno code) noexcept {
    aaa_debug(AAA_DBG_AVLIST, "Attr %x %s not found: %x", type, type_name(type), code);
}

void trace_found(const avpair_t &pair, bool with_value, uint32_t flags, uint32_t len) noexcept {
    constexpr uint32_t kNoValue = 0xdeadbeef;
    const uint32_t word =
        with_value ? load_u32_bounded(aaa_get_avpair_value_ptr(&pair), pair.av_len) : kNoValue;
    aaa_debug(AAA_DBG_AVLIST, "Found attr %x %s [%x] %x %d %s", pair.av_type, type_name(pair.av_type), word,
              flags, static_cast<int>(len), cerr_strerror(AAA_OK));
}

}  // namespace aaautil
