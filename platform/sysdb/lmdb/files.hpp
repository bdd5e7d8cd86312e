// SPDX-License-Identifier: Apache-2.0
//
// Directories and permissions of the database's files.
#pragma once

#include <string>

#include <sys/types.h>

#include "platform/sysdb.h"

namespace sysdb_lmdb {

// Directories are made with mode 02770: files in them get their group, whose
// members may use the database. Existing modes are not changed.
inline constexpr mode_t kDirectoryMode = 02770;
inline constexpr mode_t kFileMode = 0660;

struct Configuration {
    std::string cfg_file;   // the durable database
    std::string oper_file;  // the operational one
    std::string watcher_directory;
    std::size_t map_bytes;  // of each
};

// From the environment, see docs/sysdb.md.
Configuration read_configuration();

// Makes a directory with its parents if it is missing. Logs a failure with the
// variable that sets another place.
cerrno ensure_directory(const std::string &directory);

// Directory part of a file's path.
std::string parent_of(const std::string &file);

// Sets the mode of a file that this process has just made, regardless of the umask.
void set_file_mode(const std::string &file, mode_t mode);

// Makes a new file's name durable.
void sync_directory(const std::string &directory);

// The file that a name belongs to.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    bool operator==(const FileIdentity &) const = default;
};

// False when there is none.
bool identify(const std::string &file, FileIdentity &identity);

// Closes this process's descriptors of a file in programs that it starts; LMDB
// does so for its lock file only.
void close_on_exec(const FileIdentity &identity);

}  // namespace sysdb_lmdb
