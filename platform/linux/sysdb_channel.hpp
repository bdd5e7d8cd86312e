// SPDX-License-Identifier: Apache-2.0
//
// How the event manager has a sysdb connection's channel dispatched.
#pragma once

#include "platform/sysdb.h"

namespace aaaplatform {

cerrno sysdb_dispatch_channel(int channel);

}  // namespace aaaplatform
