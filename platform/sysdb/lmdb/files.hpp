// SPDX-License-Identifier: Apache-2.0
//
// Directories and permissions of the database's files.
#pragma once

#include <string>

#include <sys/types.h>

#include "platform/sysdb.h"

namespace sysdb_lmdb {

// Directories are made 02770: what is created in them gets their group, whose
// members may use the database. An administrator's own modes are left alone.
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

// Makes a directory with its parents when it is missing. Logs what is wrong
// and names the variable that may be set to another place.
cerrno ensure_directory(const std::string &directory);

// Directory part of a file's path.
std::string parent_of(const std::string &file);

// Gives a file that this process has just made its mode, whatever the umask.
void set_file_mode(const std::string &file, mode_t mode);

// Makes a new file's name survive a loss of power.
void sync_directory(const std::string &directory);

// Which file is behind a name now.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    bool operator==(const FileIdentity &) const = default;
};

// False when there is none.
bool identify(const std::string &file, FileIdentity &identity);

// Keeps this process's descriptors of a file from the programs that it starts;
// LMDB sees to that for its lock file only.
void close_on_exec(const FileIdentity &identity);

}  // namespace sysdb_lmdb
