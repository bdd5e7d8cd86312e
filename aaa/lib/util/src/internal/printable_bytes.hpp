// SPDX-License-Identifier: Apache-2.0
//
// The one rule for printable bytes, for names of method lists and server keys.
#pragma once

#include <cctype>

namespace aaautil {

// Whether every byte of a text is printable. The locale decides up to 0x7f; a
// byte above it is not printable in any locale, so that all processes, which
// may run in different locales, accept the same names and keys.
[[nodiscard]] inline bool all_printable(const char *text) noexcept {
    for (; *text != '\0'; text++) {
        const auto c = static_cast<unsigned char>(*text);
        if (c > 0x7f || std::isprint(c) == 0) {
            return false;
        }
    }
    return true;
}

}  // namespace aaautil
