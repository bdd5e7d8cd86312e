// SPDX-License-Identifier: Apache-2.0
//
// aaad --check.
#pragma once

#include "config/keeper.hpp"

namespace service {

// Reads files and database, and prints what is wrong to standard output. The exit status: 0
// when nothing is, 1 otherwise.
int check_configuration(const KeeperOptions &options);

}  // namespace service
