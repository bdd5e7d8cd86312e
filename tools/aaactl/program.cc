// SPDX-License-Identifier: Apache-2.0
//
// From the command line to the exit status.

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "commands.hpp"
#include "version.hpp"

namespace aaactl {
namespace {

void add_global_options(Program &program) {
    CLI::App &app = program.app;
    app.require_subcommand(1);
    app.fallthrough();  // global options may follow a command's name
    app.set_version_flag("--version", std::string("aaactl ") + kVersion);
    app.set_help_all_flag("--help-all", "Print the help of every command and exit");
    app.add_flag("--json", program.options.json, "Print one JSON document instead of text");
    app.add_flag("--show-secrets", program.options.show_secrets,
                 "Print passwords and keys instead of ********");
    app.add_option_function<std::string>(
           "--color,--colour",
           [&program](const std::string &when) {
               program.options.colour = when == "always"  ? Colour::always
                                        : when == "never" ? Colour::never
                                                          : Colour::automatic;
           },
           "Colours: always, auto (on a terminal) or never")
        ->check(CLI::IsMember({"always", "auto", "never"}))
        ->type_name("WHEN");
    app.footer(
        "Exit status: 0 yes or done, 1 no (denied, differences, findings), 2 usage, 3 malformed input,\n"
        "4 not found, 5 database, key file or server unavailable, 6 any other failure.\n"
        "JSON of a failure: {error: {message, exit, code where the library or the platform gave one}}");
}

void add_commands(Program &program) {
    add_decode(program);
    add_encode(program);
    add_attr(program);
    add_err(program);
    add_explain(program);
    add_lint(program);
    add_sysdb(program);
    add_mlist(program);
    add_sg(program);
    add_key(program);
    add_login(program);
    add_acct(program);
    add_completion(program);
}

// Where the command line is wrong, its flags have not been stored.
bool wants_json(int argc, const char *const *argv) {
    return std::any_of(argv, argv + argc,
                       [](const char *word) { return std::string_view(word) == "--json"; });
}

// CLI11 prints help and version. What is wrong with the command line may quote its words, whatever bytes they
// hold.
int usage(Program &program, const CLI::ParseError &error, bool json) {
    if (error.get_exit_code() == 0) {
        return program.app.exit(error);
    }
    // A mistyped command is the reason that none is there.
    const auto unknown = program.app.remaining(true);
    const bool mistyped = dynamic_cast<const CLI::RequiredError *>(&error) != nullptr && !unknown.empty();
    const std::string why =
        mistyped ? "The following argument was not expected: " + unknown.front() : error.what();
    program.options.json = json;
    Output(program.options).failure(Failure(ExitCode::usage, escaped(why) + " (see --help)"));
    return static_cast<int>(ExitCode::usage);
}

}  // namespace

int run(int argc, const char *const *argv) {
    Program program;
    add_global_options(program);
    add_commands(program);
    try {
        program.app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return usage(program, error, wants_json(argc, argv));
    }
    Output out(program.options);
    ExitCode code = ExitCode::failed;
    try {
        code = program.action(out);
    } catch (const Failure &failure) {
        out.failure(failure);
        code = failure.code();
    } catch (const std::exception &error) {
        out.failure(Failure(ExitCode::failed, error.what()));
    }
    if (std::fflush(stdout) != 0 && code == ExitCode::ok) {
        std::perror("aaactl: standard output");
        code = ExitCode::failed;
    }
    return static_cast<int>(code);
}

}  // namespace aaactl
