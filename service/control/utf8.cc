// SPDX-License-Identifier: Apache-2.0

#include "control/utf8.hpp"

namespace service {

std::size_t utf8_length(std::string_view text) {
    const auto byte = [&](std::size_t at) {
        return at < text.size() ? static_cast<unsigned char>(text[at]) : 0u;
    };
    const unsigned first = byte(0);
    if (first < 0x80) {
        return 1;
    }
    const std::size_t length = first >= 0xc2 && first < 0xe0   ? 2
                               : first >= 0xe0 && first < 0xf0 ? 3
                               : first >= 0xf0 && first < 0xf5 ? 4
                                                               : 0;
    for (std::size_t at = 1; at < length; ++at) {
        if ((byte(at) & 0xc0) != 0x80) {
            return 0;
        }
    }
    const unsigned second = byte(1);
    const bool is_wrong = (first == 0xe0 && second < 0xa0) || (first == 0xed && second >= 0xa0) ||
                          (first == 0xf0 && second < 0x90) || (first == 0xf4 && second >= 0x90);
    return is_wrong ? 0 : length;
}

}  // namespace service
