// SPDX-License-Identifier: Apache-2.0
//
// Name, format and byte-order rule of an attribute type, inline.
#pragma once

#include <cstddef>
#include <cstdint>

#include "aaa/dictionary.h"

namespace aaautil {

// One bit for every type whose 4-byte value is a number and travels in network
// order: 260 bytes, so that packing a list touches a few cache lines and not
// the 50 kB of the dictionary.
struct SwapTable {
    uint32_t word[(AAA_TABLE_ROWS + 31) / 32] = {};

    constexpr void set(uint32_t type, uint32_t format) {
        if (type != 0 && (format == AAA_FORMAT_INTEGER || format == AAA_FORMAT_IPADDR)) {
            word[type / 32] |= 1u << (type % 32);
        }
    }
    [[nodiscard]] constexpr bool has(uint32_t type) const {
        return (word[type / 32] >> (type % 32) & 1u) != 0;
    }
};

consteval SwapTable make_swap_table() {
    SwapTable table;
#define AAA_ATTRIBUTE(type, format, name) table.set(type, format);
#define AAA_NO_ATTRIBUTE(type, format)    table.set(type, format);
#include "aaa/dictionary.def"
    return table;
}

inline constexpr SwapTable kSwapTable = make_swap_table();

// Whether a 4-byte value of the type is converted on the wire: the type's
// format is integer or IPv4 address. Type 0 and unknown types never are.
[[nodiscard]] inline bool swaps_value(uint32_t type) noexcept {
    return type < AAA_TABLE_ROWS && kSwapTable.has(type);
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
