// SPDX-License-Identifier: Apache-2.0
//
// What the program does instead of running as the agent, for administrators and for aaactl. Each
// returns the exit status.
#pragma once

#include <string>
#include <vector>

#include "agent/settings.hpp"
#include "platform/cerr.h"

namespace sysdb_etcd {

// Sends this node's configuration to a cluster that has none.
int import_configuration(Settings settings);
// Makes this node's configuration the mirror of what an agent will read, which replaces it.
int adopt(const Settings &settings);
// Whether this node's configuration is a mirror. A code when the database cannot be read.
cerrno read_joined(bool &joined);
// Makes the configuration this node's own again, as it is.
int leave();
// Both print JSON: whether this node can join the cluster, and the state of this node.
int probe(Settings settings);
int print_status(Settings settings, const std::vector<std::string> &faults);

}  // namespace sysdb_etcd
