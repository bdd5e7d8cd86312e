// SPDX-License-Identifier: Apache-2.0
//
// The process that keeps a lock of the database: the log line that names it.
#pragma once

#include <sys/types.h>

#include <string>

#include "files.hpp"

namespace sysdb_lmdb {

// Who says which process keeps a lock.
enum class Witness {
    kKernel,    // which keeps the lock itself
    kLockFile,  // which every member of the group may write
};

// Logs that a thread, or a process, has kept a lock of this database for longer than others
// wait. 0: it is not known. The line advises to end the process only if it can be the
// holder: according to the kernel, or because it has the lock file open and is not this one.
void log_holder(const std::string &database, const FileIdentity &lock_file, pid_t thread, Witness witness,
                long waited_ms);

}  // namespace sysdb_lmdb
