// SPDX-License-Identifier: Apache-2.0
//
// printf formats as the platform's formatter takes them: like libc's, but a
// null for "%s" is the caller's mistake.
#pragma once

#include <cstdarg>
#include <string>

namespace fake::detail {

// The formatted text. `who` is named when a conversion is not understood or
// gets a null string; the test then fails and the text has "(null)".
std::string format_text(const char *who, const char *format, va_list args);

}  // namespace fake::detail
