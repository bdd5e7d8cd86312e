// SPDX-License-Identifier: Apache-2.0
//
// A file that has no name until it is complete.

#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>

namespace aaactl {

// Writes all bytes to a descriptor; false with errno set on failure.
bool write_all(int fd, std::string_view bytes);

// A new file in a directory, which must stay open. On file systems that have no files without a name it has
// one from the beginning, which is removed at the end. Each step returns false and sets errno on failure.
class TemporaryFile {
  public:
    TemporaryFile(int directory, mode_t mode);
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile &) = delete;
    TemporaryFile &operator=(const TemporaryFile &) = delete;

    bool made() const { return fd_ >= 0; }
    // The owner, group and mode of another file. Only root may give files away: a group that cannot be kept
    // loses its rights.
    bool take_after(const struct stat &before);
    // Synced to the disk: otherwise a loss of power might leave neither the old bytes nor the new ones.
    bool fill(std::string_view bytes);
    // Gives it a name that must not exist. EOPNOTSUPP where only names that exist could be replaced.
    bool put_at(const std::string &name);
    // Gives it the name of a file that it replaces.
    bool replace(const std::string &name);

  private:
    bool link_at(const std::string &name) const;
    bool put_by_link(const std::string &name);
    void make_named(mode_t mode);
    bool name_it();

    int directory_;
    int fd_ = -1;
    std::string name_;  // "" while it has none
};

}  // namespace aaactl
