// SPDX-License-Identifier: Apache-2.0
//
// Dispatch of a sysdb connection's channel, for the event manager.
#pragma once

#include "platform/sysdb.h"

namespace aaaplatform {

cerrno sysdb_dispatch_channel(int channel);

}  // namespace aaaplatform
