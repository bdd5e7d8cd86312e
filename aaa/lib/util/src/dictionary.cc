// SPDX-License-Identifier: Apache-2.0
//
// The attribute dictionary: the table and the two lookups in it.

#include "aaa/dictionary.h"

#include "internal/attribute_formats.hpp"

constinit const aaa_table_row_t aaa_table[AAA_TABLE_ROWS] = {
#define AAA_ATTRIBUTE(type, format, name) {type, format, 0, #name},
#define AAA_NO_ATTRIBUTE(type, format)    {type, format, 1, nullptr},
#include "aaa/dictionary.def"
};

namespace {

// A lookup is one access by the type, so every row must be at the index of its type.
consteval bool rows_are_in_order() {
    uint32_t next = 0;
    bool in_order = true;
#define AAA_ATTRIBUTE(type, format, name) in_order = in_order && (type) == next++;
#define AAA_NO_ATTRIBUTE(type, format)    in_order = in_order && (type) == next++;
#include "aaa/dictionary.def"
    return in_order && next == AAA_TABLE_ROWS;
}
static_assert(rows_are_in_order());

}  // namespace

extern "C" {

const char *aaa_attribute_pname(int32_t type) {
    return aaautil::attribute_name(static_cast<uint32_t>(type));
}

uint32_t aaa_attribute_format(int32_t type) {
    return aaautil::attribute_format(static_cast<uint32_t>(type));
}

}  // extern "C"
