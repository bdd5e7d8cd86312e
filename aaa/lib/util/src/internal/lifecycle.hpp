// SPDX-License-Identifier: Apache-2.0
//
// Load and unload of the library, shared by lifecycle.cc (hooks, worker) and
// lifecycle_connections.cc (the two database connections).
#pragma once

#include <cstdint>

#include "aaa/lifecycle.h"

namespace aaautil {

// The operations of the loader's hooks. Any other number aborts.
enum LifecycleOp : uint32_t {
    kLoad = 0,
    kUnload = 1,  // wake the worker, join it, close the connections
    kNothing = 2,
    kJoin = 3,  // join without waking, close the connections
};
void lifecycle(uint32_t op) noexcept;

// Makes the mutex that guards both connection handles. Failure is traced.
void init_connection_mutex() noexcept;

// Makes it again in a forked child, without a trace.
void reset_connection_mutex() noexcept;

// Opens the two event connections, the mapping one first; the configuration
// one only when that succeeded. Failures are not reported further.
void open_event_connections(void *evm) noexcept;

// Closes both database connections, the mapping one first. Named as the
// platform shows a thread that waits in it.
void aaa_close_sysdb_connections() noexcept;

}  // namespace aaautil
