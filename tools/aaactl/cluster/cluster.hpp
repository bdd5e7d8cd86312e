// SPDX-License-Identifier: Apache-2.0
//
// cluster: this node and the cluster that its configuration is kept in. The agent's program asks the
// servers; these commands decide, write its settings and start it.

#pragma once

#include <string>
#include <vector>

#include "cli/command_line.hpp"

namespace aaactl {

inline constexpr char kAgentSettings[] = "/etc/aaa/agent.conf";
inline constexpr char kAgentUnit[] = "aaa-sysdb-agent.service";

void add_cluster_join(Command cluster);
void add_cluster_leave(Command cluster);
void add_cluster_status(Command cluster);

// A line about servers of the cluster that traffic goes to in the clear, over a network.
void note_servers_in_clear(Output &out, const std::vector<std::string> &servers);

// The option that all of them have.
void add_settings_option(Command sub, std::string &file);

}  // namespace aaactl
