// SPDX-License-Identifier: Apache-2.0
//
// aaad --drop-queue: gives up the accounting records that wait for a group that is gone.
#pragma once

#include <string>

#include "config/keeper.hpp"

namespace service {

// While the service is stopped. Prints what was done, and returns the exit status.
int drop_queue(const KeeperOptions &options, const std::string &group);

}  // namespace service
