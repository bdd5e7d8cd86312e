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
void add_edit(Command root);
void add_commit(Command root);
void add_history(Command root);
void add_diff(Command root);
void add_rollback(Command root);
void add_confirm(Command root);
void add_cancel(Command root);
void add_watch_confirm(Command root);
void add_key(Command root);
void add_cluster(Command root);
void add_status(Command root);
void add_servers(Command root);
void add_report(Command root);
void add_trace(Command root);
void add_capture(Command root);
void add_test(Command root);
void add_login(Command root);
void add_acct(Command root);
void add_completion(Command root);
void add_help(Command root);

// Below "show".
void add_show_commit(Command show);

}  // namespace aaactl
