// SPDX-License-Identifier: Apache-2.0
//
// The directory of the journal. It holds names and commands of users, and whoever could
// change it could make or hide records. So only its owner, the service's user, may enter
// it, and only files that this user made are used.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "records/files.hpp"

namespace accounting {

class Directory {
  public:
    explicit Directory(Files &files) : files_(files) {}

    // Makes the directory where it does not exist, checks it, and locks it against other
    // processes. `error` says what is wrong and what to do.
    bool open(const std::string &path, std::string &error);

    // What open() would refuse in a directory that exists, as far as any user can see. Changes
    // nothing.
    static std::string fault_of(const std::string &path);

    // A file of the directory; with O_CREAT a new one. Empty with errno on failure: EPERM
    // for a file that is not the service's own.
    net::Descriptor open_file(const std::string &name, int flags) const;
    // Makes names that were added or removed durable.
    bool sync() const;
    // In order.
    bool names(std::vector<std::string> &names) const;
    bool rename(const std::string &from, const std::string &to) const;
    bool remove(const std::string &name) const;

    Files &files() const { return files_; }
    const std::string &path() const { return path_; }

  private:
    bool open_checked(std::string &error);
    bool lock(std::string &error);

    Files &files_;
    std::string path_;
    net::Descriptor directory_;
    net::Descriptor lock_;
};

}  // namespace accounting
