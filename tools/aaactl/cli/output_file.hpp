// SPDX-License-Identifier: Apache-2.0
//
// Files that commands write.

#pragma once

#include <string>
#include <string_view>

namespace aaactl {

// Puts the bytes into a file, all of them or, when that fails, none: what was there before stays until the
// new file is complete, and keeps its mode. A symbolic link stays one: what it leads to is written, and made
// where it is not there yet. Devices and pipes are written to as they stand. Failure(failed) says why not.
void write_file(const std::string &file, std::string_view bytes);

}  // namespace aaactl
