// SPDX-License-Identifier: Apache-2.0
//
// aaad --check.
#pragma once

#include "config/keeper.hpp"

namespace service {

// Keeps what is logged from now on for the check. Called before main(): the library's thread logs before
// it, too.
void expect_check();

// Reads files and database, and prints what is wrong to standard output. The exit status: 0
// when nothing is, 1 otherwise.
// What is logged meanwhile is printed as faults are.
int check_configuration(const KeeperOptions &options);

}  // namespace service
