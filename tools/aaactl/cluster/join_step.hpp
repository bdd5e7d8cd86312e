// SPDX-License-Identifier: Apache-2.0
//
// What cluster join does, by what the agent's program has found out; or why it does nothing.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cli/json.hpp"
#include "cluster/agent_program.hpp"
#include "cluster/cluster.hpp"

namespace aaactl {

struct JoinOptions {
    std::string settings = kAgentSettings;
    std::vector<std::string> servers;
    std::string prefix;
    std::string node;
    std::string user;
    std::string password_file;
    std::string ca;
    std::string certificate;
    std::string key;
    bool import = false;
    bool replace = false;
    bool take_name = false;
    bool no_wait = false;
    uint32_t seconds = 60;
};

enum class Step { adopt, replace, import, none };

std::string items_text(uint64_t number);

// Throws a Failure when no server was reached.
void check_reached(const Json &probe);
Step step_for(const JoinOptions &options, const Json &probe);

}  // namespace aaactl
