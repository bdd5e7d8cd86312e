// SPDX-License-Identifier: Apache-2.0
//
// A request to this node's agent, from any thread of any program. Each has a connection of its
// own, so that nothing is shared with other threads or with a child.
#pragma once

#include "call/form.hpp"
#include "platform/sysdb_provider.h"

namespace sysdb_etcd {

// Milliseconds of CLOCK_MONOTONIC.
std::int64_t now_ms();

// 0: `answer` is the agent's. SYSDB_ERR_NO_AGENT: it was not asked. SYSDB_ERR_OUTCOME_UNKNOWN: it
// was asked and has not answered.
cerrno ask_agent(const Request &request, Answer &answer);

}  // namespace sysdb_etcd
