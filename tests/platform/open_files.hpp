// SPDX-License-Identifier: Apache-2.0
//
// Files and directories that were opened and not closed again.
#pragma once

#include <filesystem>
#include <string>
#include <system_error>

// Whether a descriptor of this process leads to the file or directory, or to
// one that stood in its place and is deleted.
inline bool is_open(const std::string &path) {
    namespace fs = std::filesystem;
    std::error_code ignored;
    const std::string real = fs::weakly_canonical(path, ignored).string();
    for (const auto &descriptor : fs::directory_iterator("/proc/self/fd")) {
        const std::string target = fs::read_symlink(descriptor.path(), ignored).string();
        if (target == real || target == real + " (deleted)") {
            return true;
        }
    }
    return false;
}
