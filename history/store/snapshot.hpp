// SPDX-License-Identifier: Apache-2.0
//
// The items of one moment as bytes. The plain form, in the order of the paths:
//
//     shared    bytes that the path has in common with the one before     (number)
//     rest      length of the rest of the path, and the rest              (number, bytes)
//     type      of the item                                               (number)
//     value     its length, and the bytes                                 (number, bytes)
//
// A number has seven bits in each byte, the lowest first; the highest bit of a byte says that another one
// follows. The stored form is "AHS1", a checksum in four bytes (CRC-32 of all that follows), the length of
// the plain form in eight, both the lowest first, and the plain form as zlib compresses it.
#pragma once

#include <string>

#include "store/items.hpp"

namespace history {

// Equal items have equal plain forms.
std::string plain_form(const Items &items);
// Error(damaged) for bytes that no items have: paths out of order or longer than any, lengths that are
// too large.
Items from_plain_form(const std::string &plain);

std::string compressed(const std::string &plain);
// Error(damaged) for bytes that are not a whole stored form.
std::string decompressed(const std::string &stored);

}  // namespace history
