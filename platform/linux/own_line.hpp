// SPDX-License-Identifier: Apache-2.0
//
// The line that the calling process is on: its controlling terminal.
#pragma once

#include <cstddef>

namespace aaaplatform {

inline constexpr std::size_t kLineNameSize = 64;

enum class OwnLine { kFound, kNone, kNameless };

// Writes the controlling terminal's name without "/dev/" ("pts/3", "ttyS0").
// kNone: the process has no controlling terminal; kNameless: its name cannot be
// found and is empty.
OwnLine find_own_line(char (&name)[kLineNameSize]) noexcept;

}  // namespace aaaplatform
