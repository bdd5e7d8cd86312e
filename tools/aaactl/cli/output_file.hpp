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

// The same for what not everyone may read. The file has at most the mode 0640, whatever it had before and
// whatever the umask is. Failure(failed) for a symbolic link of another user than this process's or root, and
// for a file of another user than these and the owner of its directory: that user would choose what is
// overwritten, or own what is written. The directory is found as open_trusted_directory() does.
void write_private_file(const std::string &file, std::string_view bytes);

// The directory of a file, to be closed by the caller. Each link on the way is one of this process's user or
// root; Failure(failed) otherwise: its owner would choose where a file of that name is replaced.
int open_trusted_directory(const std::string &file);

}  // namespace aaactl
