// SPDX-License-Identifier: Apache-2.0
//
// Files that commands write.

#pragma once

#include <string>
#include <string_view>

namespace aaactl {

// Writes the bytes to a file, all of them or, on failure, none: the old file stays until the new
// one is complete, which takes over its owner and mode. A symbolic link is kept: its target is
// written, or created if it does not exist, where the kernel lets this process follow the link.
// Devices and pipes are written in place. Failure(failed) says what went wrong.
void write_file(const std::string &file, std::string_view bytes);

}  // namespace aaactl
