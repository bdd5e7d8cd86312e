// SPDX-License-Identifier: Apache-2.0
//
// Files and directories that are still open.
#pragma once

#include <filesystem>
#include <string>
#include <system_error>

// Whether this process has a descriptor of the file or directory, or of a
// deleted one at the same path.
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
