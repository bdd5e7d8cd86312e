// SPDX-License-Identifier: Apache-2.0
//
// The list of commands: each room adds its own to the root in a function of
// this list.

#pragma once

#include "cli/command_line.hpp"

namespace aaactl {

// In the order in which --help lists them.
void add_decode(Command root);
void add_encode(Command root);
void add_attr(Command root);
void add_err(Command root);
void add_explain(Command root);
void add_lint(Command root);
void add_sysdb(Command root);
void add_mlist(Command root);
void add_sg(Command root);
void add_running_config(Command root);
void add_load(Command root);
void add_key(Command root);
void add_status(Command root);
void add_servers(Command root);
void add_report(Command root);
void add_trace(Command root);
void add_test(Command root);
void add_login(Command root);
void add_acct(Command root);
void add_completion(Command root);
void add_help(Command root);

}  // namespace aaactl
