// SPDX-License-Identifier: Apache-2.0
//
// From the command line to the exit status.

#include "cli/program.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <set>
#include <string_view>

#include "cli/commands.hpp"
#include "cli/version.hpp"

namespace aaactl {
namespace {

// Several words are NAME..., whatever the most of them is; CLI11 has "(1x)" for "one to four".
class UsageLine : public CLI::Formatter {
    [[nodiscard]] std::string make_option_usage(const CLI::Option *option) const override {
        const std::string words = option->get_name(true) + (option->get_expected_max() > 1 ? "..." : "");
        return option->get_required() ? words : "[" + words + "]";
    }
};

void add_global_options(Program &program) {
    CLI::App &app = program.app;
    app.formatter(std::make_shared<UsageLine>());  // which the commands take over
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

using Words = std::vector<std::string>;

// Where the command line is wrong, its flags have not been stored.
bool has(const Words &words, std::string_view flag) {
    return std::find(words.begin(), words.end(), flag) != words.end();
}

void add_option_names(const CLI::App &app, std::set<std::string> &names) {
    for (const CLI::Option *option : app.get_options()) {
        for (const std::string &name : option->get_lnames()) {
            names.insert("--" + name);
        }
        for (const std::string &name : option->get_snames()) {
            names.insert("-" + name);
        }
    }
}

// Names of the commands and options at and below a command.
void collect_names(const CLI::App &app, std::set<std::string> &names) {
    names.insert(app.get_name());
    add_option_names(app, names);
    for (const CLI::App *sub : app.get_subcommands({})) {
        collect_names(*sub, names);
    }
}

// Puts the mask in place of a word wherever it does not stand inside another.
void mask(std::string &text, const std::string &word) {
    const auto inside = [&](size_t at) {
        return at < text.size() && std::isalnum(static_cast<unsigned char>(text[at])) != 0;
    };
    for (size_t at = 0; !word.empty() && (at = text.find(word, at)) != std::string::npos;) {
        const bool whole = (at == 0 || !inside(at - 1)) && !inside(at + word.size());
        if (whole) {
            text.replace(at, word.size(), kMask);
        }
        at += whole ? kMask.size() : 1;
    }
}

// Keys do not belong on the command line; one that somebody has put there all the same does not go on to logs
// and screens.
std::string without_keys(std::string why, const CLI::App &key, const Words &words) {
    std::set<std::string> known;
    collect_names(key, known);
    add_option_names(*key.get_parent(), known);  // which may stand behind it too
    const auto longer = [](const std::string &a, const std::string &b) {
        return a.size() != b.size() ? a.size() > b.size() : a < b;
    };
    std::set<std::string, decltype(longer)> unknown(longer);
    for (auto word = std::find(words.begin(), words.end(), key.get_name()); word != words.end(); ++word) {
        const size_t end = word->starts_with('-') ? std::min(word->find('='), word->size()) : word->size();
        if (!known.contains(word->substr(0, end))) {
            unknown.insert(*word);
        } else if (end < word->size()) {
            unknown.insert(word->substr(end + 1));
        }
    }
    for (const std::string &word : unknown) {
        mask(why, word);
    }
    return why;
}

// The answer is told by the exit status and by what is printed: without the one the other is half of it.
ExitCode flushed(ExitCode code) {
    const bool cut = std::fflush(stdout) != 0;
    if (cut || std::ferror(stdout) != 0) {
        std::fprintf(stderr, "aaactl: standard output: %s\n",
                     cut ? std::strerror(errno) : "cannot be written");
        return code == ExitCode::ok || code == ExitCode::negative ? ExitCode::failed : code;
    }
    return code;
}

// CLI11 prints help and version. What is wrong with the command line may quote its words, whatever bytes they
// hold.
int usage(Program &program, const CLI::ParseError &error, const Words &words) {
    if (error.get_exit_code() == 0) {
        program.app.exit(error);
        std::cout.flush();
        return static_cast<int>(flushed(ExitCode::ok));
    }
    // A mistyped command is the reason that none is there.
    const auto unknown = program.app.remaining(true);
    const bool mistyped = dynamic_cast<const CLI::RequiredError *>(&error) != nullptr && !unknown.empty();
    std::string why = mistyped ? "The following argument was not expected: " + unknown.front() : error.what();
    const CLI::App *key = program.app.get_subcommand("key");
    if (key->parsed() && !has(words, "--show-secrets")) {
        why = without_keys(std::move(why), *key, words);
    }
    program.options.json = has(words, "--json");
    Output(program.options).failure(Failure(ExitCode::usage, escaped(why) + " (see --help)"));
    return static_cast<int>(ExitCode::usage);
}

int perform(Program &program) {
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
    return static_cast<int>(flushed(code));
}

}  // namespace

int run(int argc, const char *const *argv) {
    Program program;
    add_global_options(program);
    add_commands(program);
    try {
        program.app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return usage(program, error, {argv, argv + argc});
    }
    return perform(program);
}

}  // namespace aaactl
