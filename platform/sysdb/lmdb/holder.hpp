// SPDX-License-Identifier: Apache-2.0
//
// The process that keeps a lock of the database: the log line that names it.
#pragma once

#include <sys/types.h>

#include <string>

namespace sysdb_lmdb {

// Logs that a thread, or a process, has kept a lock of this file for longer than others
// wait. 0: it is not known.
void log_holder(const std::string &file, pid_t thread, long waited_ms);

}  // namespace sysdb_lmdb
