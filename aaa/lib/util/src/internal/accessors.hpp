// SPDX-License-Identifier: Apache-2.0
//
// Shared by the typed accessors: appending, replacing and reading one well-known
// attribute. The list operations underneath are the exported
// ones, because their trace lines are part of what an accessor shows.
#pragma once

#include <cstdint>
#include <cstring>

#include "aaa/avpair.h"
#include "aaa/dictionary.h"
#include "aaa/result_codes.h"
#include "internal/bytes.hpp"

namespace aaautil {

// Bytes that a text takes in a list, its NUL included.
[[nodiscard]] inline uint32_t stored_length(const char *text) {
    return static_cast<uint32_t>(std::strlen(text) + 1);
}

// The same for a text that may be missing.
[[nodiscard]] inline uint32_t stored_length_or_zero(const char *text) {
    return text != nullptr ? stored_length(text) : 0;
}

[[nodiscard]] inline cerrno append(uint32_t type, const void *value, uint32_t length, avlist *list) {
    return aaa_avpair_add(type, 0, value, 0, length, list);
}

[[nodiscard]] inline cerrno append_u32(uint32_t type, uint32_t value, avlist *list) {
    return append(type, &value, sizeof value, list);
}

// Replaces the first pair of the type, or appends one where there is none.
[[nodiscard]] inline cerrno replace(uint32_t type, avpair_flags_t flags, const void *value, uint32_t length,
                                    avlist *list) {
    // The list layer only reads the value; its prototype has no const to say so.
    return aaa_avpair_update(type, flags, const_cast<void *>(value), 0, length, 0, list);
}

[[nodiscard]] inline cerrno replace_u32(uint32_t type, avpair_flags_t flags, uint32_t value, avlist *list) {
    return replace(type, flags, &value, sizeof value, list);
}

// A stored value inside the list: valid until the list changes.
struct StoredValue {
    cerrno code = AAA_ERR_AVPAIR_NOT_FOUND;
    uint8_t *bytes = nullptr;
    uint32_t length = 0;

    [[nodiscard]] bool found() const { return code == AAA_OK && bytes != nullptr; }
    // The value as an integer; bytes that a short value lacks read as zero.
    [[nodiscard]] uint32_t u32() const { return load_u32_bounded(bytes, length); }
};

// The first pair of the type.
[[nodiscard]] inline StoredValue find_value(uint32_t type, const avlist *list) {
    StoredValue value;
    void *bytes = nullptr;
    value.code = aaa_avpair_find_type(type, nullptr, &bytes, &value.length, 0, list);
    value.bytes = static_cast<uint8_t *>(bytes);
    return value;
}

// The integer of the first pair of the type, or `absent`.
[[nodiscard]] inline uint32_t get_u32(uint32_t type, const avlist *list, uint32_t absent = 0) {
    const StoredValue value = find_value(type, list);
    return value.found() ? value.u32() : absent;
}

// The same through an output that stays untouched when there is no such pair.
[[nodiscard]] inline cerrno get_u32_out(uint32_t type, const avlist *list, uint32_t *number) {
    const StoredValue value = find_value(type, list);
    if (value.found()) {
        *number = value.u32();
    }
    return value.code;
}

// The address of the value of a pair, or null.
[[nodiscard]] inline void *get_pointer(uint32_t type, const avlist *list, uint32_t instance = 0) {
    void *bytes = nullptr;
    const cerrno code = aaa_avpair_find_type(type, nullptr, &bytes, nullptr, instance, list);
    return code == AAA_OK ? bytes : nullptr;
}

[[nodiscard]] inline char *get_text(uint32_t type, const avlist *list, uint32_t instance = 0) {
    return static_cast<char *>(get_pointer(type, list, instance));
}

}  // namespace aaautil
