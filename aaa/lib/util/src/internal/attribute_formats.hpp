// SPDX-License-Identifier: Apache-2.0
//
// Name, format and byte-order rule of an attribute type, inline.
#pragma once

#include <cstddef>
#include <cstdint>

#include "aaa/dictionary.h"

namespace aaautil {

// For every type the length at which its value is a number and travels in
// network order: 4 for integers and IPv4 addresses. A byte each, next to each
// other: packing a list touches a few cache lines and not the 50 kB of the
// dictionary, and one comparison answers for type and length.
struct NumberLengths {
    int8_t of[AAA_TABLE_ROWS];

    constexpr NumberLengths() {
        constexpr int8_t kNone = -1;
        for (int8_t &length : of) {
            length = kNone;
        }
    }
    constexpr void set(uint32_t type, uint32_t format) {
        if (type != 0 && (format == AAA_FORMAT_INTEGER || format == AAA_FORMAT_IPADDR)) {
            of[type] = sizeof(uint32_t);
        }
    }
};

consteval NumberLengths make_number_lengths() {
    NumberLengths lengths;
#define AAA_ATTRIBUTE(type, format, name) lengths.set(type, format);
#define AAA_NO_ATTRIBUTE(type, format)    lengths.set(type, format);
#include "aaa/dictionary.def"
    return lengths;
}

inline constexpr NumberLengths kNumberLengths = make_number_lengths();

// Whether a value of this type and length is converted on the wire: a number
// of 4 bytes. Type 0 and unknown types never are.
[[nodiscard]] inline bool is_number(uint32_t type, uint32_t len) noexcept {
    // In 64 bits, where no length equals -1.
    return type < AAA_TABLE_ROWS && int64_t{kNumberLengths.of[type]} == int64_t{len};
}

// Type 0 is reported invalid although its row has a name: kept.
[[nodiscard]] inline bool is_dictionary_type(uint32_t type) noexcept {
    return type - 1 < AAA_ATTR_MAX;
}

// The type's name; null for a type without an attribute.
[[nodiscard]] inline const char *attribute_name(uint32_t type) noexcept {
    return is_dictionary_type(type) ? aaa_table[type].name : "<invalid attribute>";
}

[[nodiscard]] inline uint32_t attribute_format(uint32_t type) noexcept {
    return is_dictionary_type(type) ? aaa_table[type].format : 0xFFFFFFFFu;
}

}  // namespace aaautil
