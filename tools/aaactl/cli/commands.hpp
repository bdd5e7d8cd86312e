// SPDX-License-Identifier: Apache-2.0
//
// The tree of commands: each area adds its own in a function of this list, and
// says what is to run once the whole command line has been understood.

#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "cli/output.hpp"

namespace aaactl {

using Action = std::function<ExitCode(Output &)>;

// The command line's root, and the action that it chose.
struct Program {
    CLI::App app{"Shows, checks and changes what the AAA service exchanges and is configured with.",
                 "aaactl"};
    OutputOptions options;
    Action action;

    // A command that does something. Bind its options to a shared_ptr that the
    // action owns: they are filled in before it runs.
    CLI::App *command(CLI::App *parent, const std::string &name, const std::string &help, Action run) {
        CLI::App *sub = parent->add_subcommand(name, help);
        sub->final_callback([this, run = std::move(run)] { action = run; });
        return sub;
    }
    // A command that only groups others; one of them is needed.
    CLI::App *group(const std::string &name, const std::string &help) {
        CLI::App *sub = app.add_subcommand(name, help);
        sub->require_subcommand(1);
        return sub;
    }
};

// In the order in which --help lists them.
void add_decode(Program &program);
void add_encode(Program &program);
void add_attr(Program &program);
void add_err(Program &program);
void add_explain(Program &program);
void add_lint(Program &program);
void add_sysdb(Program &program);
void add_mlist(Program &program);
void add_sg(Program &program);
void add_key(Program &program);
void add_login(Program &program);
void add_acct(Program &program);
void add_completion(Program &program);

}  // namespace aaactl
