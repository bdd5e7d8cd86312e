// SPDX-License-Identifier: Apache-2.0
//
// UTF-8, and which of its characters a reader of a terminal would not see. Text from
// outside must not look like other text, nor reorder what is next to it.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace aaactl {

struct CodePoint {
    uint32_t value = 0;
    size_t length = 0;  // bytes; 0: malformed
};

// The character at the start of a text that is not empty.
CodePoint first_code_point(std::string_view text);

// Whether a code point beyond ASCII is shown as its bytes or number instead of itself.
bool is_hidden(uint32_t code_point);

}  // namespace aaactl
