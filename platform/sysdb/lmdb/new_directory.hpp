// SPDX-License-Identifier: Apache-2.0
//
// Making a directory of the database in one that others may write too.
#pragma once

#include <sys/types.h>

#include <cerrno>
#include <string>

namespace sysdb_lmdb {

// Files in it get its group, whose members may use the database.
inline constexpr mode_t kSharedDirectory = 02770;
inline constexpr mode_t kPrivateDirectory = 0700;

struct DirectoryRights {
    mode_t mode;
    gid_t group;
};

// Another process takes or replaces whatever is made.
inline constexpr int kDisturbedMaking = ESTALE;

// Makes a directory with these rights, or finds one of that name. path: for log lines. Zero or
// errno. What killed processes of this user have left beside it is removed.
int make_directory(int parent, const std::string &name, DirectoryRights rights, const std::string &path);

// The path of a directory without links, or else the given one.
std::string place_of(int directory, const std::string &path);

// For advice: a path as a word of a shell. Who may write the directory above can choose a name
// that a shell would take for another command.
std::string shell_word(const std::string &text);

// For advice: the command of a shell that runs another one in a directory, unless a link has
// taken its place. Who may write the directory above can plant one until the advice is
// followed; chmod, and chown without -h, would change its target.
std::string command_inside(const std::string &place, const std::string &command);

}  // namespace sysdb_lmdb
