// SPDX-License-Identifier: Apache-2.0
//
// The directories of the database. A directory is opened and checked once; everything in
// it is then reached through its descriptor, so that no one can exchange it, or a
// component of its path, between a check and a use.
#pragma once

#include <sys/types.h>

#include <string>

#include "descriptor.hpp"
#include "platform/sysdb.h"

namespace sysdb_lmdb {

class Directory {
  public:
    Directory() = default;

    // Opens a directory, and makes it with its parents if it is missing. Links in the path
    // are the administrator's, and are followed. Logs a failure.
    static cerrno open(const std::string &path, Directory &result);
    // Opens, and makes, a directory inside another one; no link is followed.
    static cerrno open_below(const Directory &parent, const char *name, Directory &result);
    // The same without making it: SYSDB_ERR_NOT_FOUND. Logs only what should not be there.
    static cerrno find_below(const Directory &parent, const char *name, Directory &result);

    // O_PATH.
    int get() const { return descriptor_.get(); }
    explicit operator bool() const { return static_cast<bool>(descriptor_); }
    const std::string &path() const { return path_; }
    uid_t owner() const { return owner_; }
    gid_t group() const { return group_; }
    // The members of its group may make files in it, or only use it.
    bool group_may_write() const { return (mode_ & 0030) == 0030; }
    bool group_may_search() const { return (mode_ & 0010) != 0; }

    // Whether this process may make files here that other processes will rely on.
    bool may_make_files() const;

    // It is on a file system without writing.
    bool is_read_only() const;

    // Makes names that were added durable.
    void sync() const;

  private:
    cerrno check();
    void open_name(const Directory &parent, const char *name);
    cerrno check_below();

    Descriptor descriptor_;
    std::string path_;
    uid_t owner_ = 0;
    gid_t group_ = 0;
    mode_t mode_ = 0;
};

}  // namespace sysdb_lmdb
