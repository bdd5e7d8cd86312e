// SPDX-License-Identifier: Apache-2.0
//
// What the program does instead of running as the agent, for administrators and for aaactl. Each
// returns the exit status.
#pragma once

#include <string>
#include <vector>

#include "agent/settings.hpp"
#include "joining/node_name.hpp"
#include "platform/cerr.h"

namespace sysdb_etcd {

// The status of an import that is refused because the configuration of another node is, or will be, in force.
inline constexpr int kRefused = 3;

// Sends this node's configuration to a cluster that has none.
int import_configuration(Settings settings);
// Makes this node's configuration the mirror of what an agent will read, which replaces it.
int adopt(const Settings &settings);
// Claims, takes or releases this node's name in the cluster.
int name_node(const Settings &settings, NodeName::Step step);
// Whether this node's configuration is a mirror, and whether an import of it has begun and not ended.
struct Joined {
    bool joined = false;
    bool importing = false;
    std::string prefix;  // of the configuration that it has
};
// A code when the database cannot be read.
cerrno read_joined(Joined &joined);
// What is wrong when agent.conf names another prefix than that of the configuration which this node has
// joined.
std::string prefix_fault(const Joined &joined, const Settings &settings);
// Makes the configuration this node's own again, as it is.
int leave();
// Both print JSON: whether this node can join the cluster, and the state of this node.
int probe(Settings settings);
int print_status(Settings settings, const std::vector<std::string> &faults);

}  // namespace sysdb_etcd
