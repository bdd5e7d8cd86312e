// SPDX-License-Identifier: Apache-2.0
//
// One state of a directory of the system database. The database is read item by
// item, and others may change it meanwhile: what was read is one state when
// nothing has been changed from before the first item until after the last.

#pragma once

#include "database/dump.hpp"

namespace aaactl {

// As read_database(), again while somebody changes the directory; says so when that does not end. Who may not
// watch the database, because the watch could not be kept in its directory, reads it once.
Dump read_snapshot(Output &out, Database &database, const std::string &directory, bool secrets);

}  // namespace aaactl
