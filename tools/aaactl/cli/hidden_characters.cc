// SPDX-License-Identifier: Apache-2.0
//
// Reads UTF-8 strictly; looks hidden characters up in their table.

#include "cli/hidden_characters.hpp"

#include <algorithm>
#include <iterator>

namespace aaactl {
namespace {

struct Range {
    uint32_t first;
    uint32_t last;
};

constexpr Range kHidden[] = {
#define HIDDEN_CHARACTERS(first, last) {first, last},
#include "cli/hidden_characters.def"
};

// The table is searched by halves.
constexpr bool is_ascending() {
    for (size_t i = 1; i < std::size(kHidden); ++i) {
        if (kHidden[i].first <= kHidden[i - 1].last) {
            return false;
        }
    }
    return true;
}
static_assert(is_ascending());

// Bytes of a sequence by its first one.
size_t length_of(unsigned lead) {
    return lead < 0x80                    ? 1
           : lead >= 0xc2 && lead <= 0xdf ? 2
           : lead >= 0xe0 && lead <= 0xef ? 3
           : lead >= 0xf0 && lead <= 0xf4 ? 4
                                          : 0;
}

}  // namespace

CodePoint first_code_point(std::string_view text) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const size_t length = length_of(byte(0));
    if (length == 0 || length > text.size()) {
        return {};
    }
    uint32_t value = length == 1 ? byte(0) : byte(0) & (0xffu >> (length + 1));
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0u) != 0x80u) {
            return {};
        }
        value = value << 6 | (byte(i) & 0x3fu);
    }
    const bool overlong = (length == 3 && value < 0x800) || (length == 4 && value < 0x10000);
    const bool surrogate = value >= 0xd800 && value <= 0xdfff;
    return overlong || surrogate || value > 0x10ffff ? CodePoint{} : CodePoint{value, length};
}

bool is_hidden(uint32_t code_point) {
    const auto *range =
        std::lower_bound(std::begin(kHidden), std::end(kHidden), code_point,
                         [](const Range &before, uint32_t value) { return before.last < value; });
    const bool listed = range != std::end(kHidden) && range->first <= code_point;
    return listed || (code_point & 0xfffeu) == 0xfffeu;
}

}  // namespace aaactl
