// SPDX-License-Identifier: Apache-2.0
//
// A consistent state of a directory of the system database. The database is read
// item by item while other programs may change it: the items are of one state if
// nothing changed from before the first until after the last was read.

#pragma once

#include "database/dump.hpp"

namespace aaactl {

// As read_database(), repeated while the directory changes; a note says so if the changes do not end. A user
// who may not watch the database, because the watch cannot be stored in its directory, reads it once.
Dump read_snapshot(Output &out, Database &database, const std::string &directory, bool secrets);

}  // namespace aaactl
