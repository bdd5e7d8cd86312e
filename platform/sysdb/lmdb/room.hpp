// SPDX-License-Identifier: Apache-2.0
//
// A file system without room: the log line that says which one.
#pragma once

#include <string>

#include "platform/sysdb.h"

namespace sysdb_lmdb {

// Logs that a file cannot grow, for ENOSPC, EDQUOT or EFBIG, with the file system that a
// descriptor is on and its free space. SYSDB_ERR_FULL.
cerrno report_no_room(int fd, const std::string &file, int error);

}  // namespace sysdb_lmdb
