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
// With `of_one_moment` that is false then, and there is no note.
Dump read_snapshot(Output &out, Database &database, const std::string &directory, bool secrets,
                   bool *of_one_moment = nullptr);

}  // namespace aaactl
