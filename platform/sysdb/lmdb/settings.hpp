// SPDX-License-Identifier: Apache-2.0
//
// Settings of the provider, from the environment; docs/sysdb.md describes them.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace sysdb_lmdb {

// Names of the variables, for log lines.
inline constexpr char kCfgVariable[] = "AAA_SYSDB_CFG_DIR";
inline constexpr char kRunVariable[] = "AAA_SYSDB_RUN_DIR";
inline constexpr char kGroupVariable[] = "AAA_SYSDB_GROUP";
inline constexpr char kWaitVariable[] = "AAA_SYSDB_WAIT_MS";

struct Settings {
    std::string cfg_file;   // the durable database
    std::string oper_file;  // the operational one
    std::size_t map_bytes;  // of each
    long wait_ms;           // for the lock of another process
};

// Ignored, as all of them are, in a process with more rights than its user.
Settings read_settings();

// The group of the directory at a path, which is made in one of the group `above`. Members of
// the group of the AAA processes use the database, and so does a service that is not root: a
// directory that root makes again where root's group has the one above would shut them out. The
// run directory is in one of the service's own group.
gid_t group_of_new_directory(const std::string &path, gid_t above);

// False in a process with more rights than the user who started it (set-user-ID, file
// capabilities). That user chooses its groups, limits and descriptors, so it must make
// nothing that others will rely on.
bool has_callers_rights_only();

// Directory part of a file's path, and the rest.
std::string parent_of(const std::string &file);
std::string name_of(const std::string &file);

}  // namespace sysdb_lmdb
