// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string_view>

namespace service {

// The length of the character with which a text begins; 0 when it is malformed: cut, longer
// than needed, a surrogate, or beyond U+10FFFF. The text is not empty.
std::size_t utf8_length(std::string_view text);

}  // namespace service
