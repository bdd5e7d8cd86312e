// SPDX-License-Identifier: Apache-2.0
//
// Programs that the commands run: the agent in one of its modes, and the service manager.

#pragma once

#include <string>
#include <vector>

#include "cli/json.hpp"

namespace aaactl {

struct Ended {
    int status;  // 128 + the signal's number
    std::string out;
    std::string err;
};
// Runs a program to its end, with nothing on standard input.
Ended run_program(const std::vector<std::string> &arguments);

// The agent's program, which is a package of its own. AAA_SYSDB_AGENT names another one.
std::string agent_program();
// With the settings in a file. Failure when the program is not installed.
Ended run_agent(const std::string &settings, const std::string &mode);
// What it prints in modes that print JSON. Failure when it does not; `settings` is called `name` there.
Json ask_agent(const std::string &settings, const std::string &mode, const std::string &name);
// Its messages as one text for people.
std::string messages_of(const Ended &ended);

// Whether the service manager runs the agent with these settings: it has one unit, for the usual file.
// How to end the agent that `status` is of, after "the agent runs; ". It names a process only if that is an
// agent of this machine.
std::string how_to_end_agent(const Json &status);

bool is_managed(const std::string &settings);
// systemctl with these words. Failure with what it says.
void manage(const std::vector<std::string> &words);

}  // namespace aaactl
