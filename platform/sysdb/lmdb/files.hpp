// SPDX-License-Identifier: Apache-2.0
//
// The files in a database's directory: who may own one, its rights, making a new one.
// The members of the directory's group share the files. What one of them plants, a link
// to root's files or a device, must not be opened by the others.
#pragma once

#include <sys/stat.h>

#include <string>

#include "descriptor.hpp"
#include "directory.hpp"

namespace sysdb_lmdb {

// The file that a name or a descriptor belongs to.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    bool operator==(const FileIdentity &) const = default;
};

FileIdentity identity_of(const struct stat &status);

// False when the path names nothing. A link is itself.
bool identify(const std::string &path, FileIdentity &identity);

// A file of the database that was found or made, and checked. It is not open.
struct CheckedFile {
    FileIdentity identity;
    mode_t mode = 0;
    gid_t group = 0;
    off_t size = 0;
};

// Rights for a new file of a directory: its group's, if that has any.
struct FileRights {
    mode_t mode;
    gid_t group;
};
FileRights rights_in(const Directory &directory);

// Checks the file of that name; SYSDB_ERR_NOT_FOUND without a log line when there is none.
// SYSDB_ERR_ACCESS for a file that is not used; the log names it and the remedy.
cerrno check_file(const Directory &directory, const std::string &name, CheckedFile &file);

// Makes an empty file with these rights, and checks it; one that exists meanwhile is fine.
cerrno make_file(const Directory &directory, const std::string &name, FileRights rights, CheckedFile &file);

// Gives a file that this user owns these rights; of others it is left as it is.
void repair_rights(const Directory &directory, const std::string &name, FileRights rights, CheckedFile &file);

// Opens a checked file; ESTALE when the name belongs to another file meanwhile.
Descriptor open_checked(const Directory &directory, const std::string &name, const FileIdentity &identity,
                        int flags);

}  // namespace sysdb_lmdb
