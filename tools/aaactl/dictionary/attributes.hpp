// SPDX-License-Identifier: Apache-2.0
//
// The attribute dictionary for aaactl's commands: attributes by name or number,
// the words for formats, and which values are secret.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "aaa/dictionary.h"

namespace aaactl {

// A whole text as a decimal or 0x-hexadecimal number of at most 64 bits.
std::optional<uint64_t> number_of(std::string_view text);

// The row of a type; null for a type without an attribute or beyond the dictionary.
const aaa_table_row_t *attribute_row(uint32_t type);

// The type's name in the dictionary, "" when it has none.
std::string attribute_name(uint32_t type);

// The type for a number or a name, in any case; the prefix AAA_ and the suffix
// _ATTR may be omitted where that is not ambiguous.
std::optional<uint32_t> attribute_type(std::string_view name_or_number);
// "; did you mean NAME?" for a name that is not one, or "".
std::string meant_attribute(std::string_view name);

// "string", "integer", "binary", "address"
std::string_view format_name(uint32_t format);
const std::vector<std::string> &format_names();

// Whether a 4-byte value of the type is a number in network order on the wire.
bool travels_as_number(uint32_t type);

// Passwords, keys, CHAP data and the like: shown only with --show-secrets. The
// attribute of a deleted pair is unknown, so its value counts as one.
bool is_secret(uint32_t type);

}  // namespace aaactl
