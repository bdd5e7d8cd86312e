// SPDX-License-Identifier: Apache-2.0
//
// The bytes of a file: read from it, or already in memory.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace sysdb_lmdb {

class FileBytes {
  public:
    explicit FileBytes(int fd) : fd_(fd) {}
    explicit FileBytes(std::string_view bytes) : bytes_(bytes) {}

    bool read(void *to, std::size_t size, std::uint64_t offset) const {
        if (fd_ >= 0) {
            return pread(fd_, to, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
        }
        if (offset > bytes_.size() || size > bytes_.size() - offset) {
            return false;
        }
        bytes_.copy(static_cast<char *>(to), size, offset);
        return true;
    }
    bool get_size(std::uint64_t &size) const {
        struct stat status;
        if (fd_ >= 0 && fstat(fd_, &status) != 0) {
            return false;
        }
        size = fd_ >= 0 ? static_cast<std::uint64_t>(status.st_size) : bytes_.size();
        return true;
    }

  private:
    int fd_ = -1;
    std::string_view bytes_;
};

}  // namespace sysdb_lmdb
