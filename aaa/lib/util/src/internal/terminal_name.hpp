// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

namespace aaautil {

inline constexpr size_t kTerminalNameSize = 256;

// Asks tty(1) for the name of the terminal on standard input. False when it answers
// nothing; an answer may also be "not a tty".
bool read_terminal_name(char (&name)[kTerminalNameSize]) noexcept;

}  // namespace aaautil
