// SPDX-License-Identifier: Apache-2.0
//
// From the command line to the exit status, and help.

#include "cli/program.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <set>
#include <string_view>

#include "cli/commands.hpp"
#include "cli/stored.hpp"
#include "cli/suggestion.hpp"
#include "cli/version.hpp"

namespace aaactl {
namespace {

void add_global_options(Command root, OutputOptions &options) {
    root.flag("--json", options.json, "Print one JSON document instead of text");
    root.flag("--show-secrets", options.show_secrets, "Print passwords and keys instead of ********");
    root.option(
            "--color,--colour",
            [&options](const std::string &when) {
                options.colour = when == "always"  ? Colour::always
                                 : when == "never" ? Colour::never
                                                   : Colour::automatic;
            },
            "Colours: always, auto (on a terminal) or never")
        .one_of({"always", "auto", "never"})
        .type("WHEN");
    root.footer(
        "Exit status: 0 yes or done, 1 no (denied, differences, findings), 2 usage, 3 malformed input,\n"
        "4 not found, 5 database, key file or server unavailable, 6 any other failure.\n"
        "JSON of a failure: {error: {message, exit, code where the library or the platform gave one}}");
}

std::vector<std::string> names_of(const Command &command) {
    std::vector<std::string> names;
    for (const Command &sub : command.commands()) {
        names.push_back(sub.name());
    }
    return names;
}

ExitCode help(Output &out, const Command &root, const std::vector<std::string> &words) {
    Command command = root;
    std::string path = root.name();
    for (const std::string &word : words) {
        const std::vector<Command> below = command.commands();
        const auto found = std::find_if(below.begin(), below.end(), [&](const Command &sub) {
            const std::vector<std::string> others = sub.other_names();
            return sub.name() == word || std::find(others.begin(), others.end(), word) != others.end();
        });
        if (found == below.end()) {
            throw Failure(ExitCode::usage,
                          "\"" + escaped(word) + "\" is not a command of " + path +
                              (below.empty() ? ", which has none" : suggestion(word, names_of(command))));
        }
        command = *found;
        path += " " + command.name();
    }
    std::string text = command.help(path);
    while (text.ends_with('\n')) {
        text.pop_back();
    }
    out.result({{"command", path}, {"commands", names_of(command)}, {"help", text}}, [&] { out.line(text); });
    return ExitCode::ok;
}

void add_commands(Command root) {
    add_decode(root);
    add_encode(root);
    add_attr(root);
    add_err(root);
    add_explain(root);
    add_lint(root);
    add_sysdb(root);
    add_mlist(root);
    add_sg(root);
    add_running_config(root);
    add_load(root);
    add_edit(root);
    add_commit(root);
    add_history(root);
    add_diff(root);
    add_rollback(root);
    add_confirm(root);
    add_cancel(root);
    add_watch_confirm(root);
    add_key(root);
    add_cluster(root);
    add_status(root);
    add_servers(root);
    add_report(root);
    add_trace(root);
    add_capture(root);
    add_test(root);
    add_login(root);
    add_acct(root);
    add_completion(root);
    add_help(root);
}

using Words = std::vector<std::string>;

// The flags of a wrong command line are not stored, so its words are searched.
bool has(const Words &words, std::string_view flag) {
    return std::find(words.begin(), words.end(), flag) != words.end();
}

void add_argument_names(const Command &command, std::set<std::string> &names) {
    for (const ArgumentForm &argument : command.arguments()) {
        names.insert(argument.names.begin(), argument.names.end());
    }
}

// Names of the commands and options at and below a command.
void collect_names(const Command &command, std::set<std::string> &names) {
    names.insert(command.name());
    add_argument_names(command, names);
    for (const Command &sub : command.commands()) {
        collect_names(sub, names);
    }
}

// Masks a word wherever it is not part of a longer one.
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

// Keys do not belong on the command line. One that is given there must not be repeated on screens and in
// logs.
std::string without_keys(std::string why, const Command &root, const Command &key, const Words &words) {
    std::set<std::string> known;
    collect_names(key, known);
    add_argument_names(root, known);  // which may follow it too
    const auto longer = [](const std::string &a, const std::string &b) {
        return a.size() != b.size() ? a.size() > b.size() : a < b;
    };
    std::set<std::string, decltype(longer)> unknown(longer);
    for (auto word = std::find(words.begin(), words.end(), key.name()); word != words.end(); ++word) {
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

// The exit status and the output are one answer: lost output is a failure.
ExitCode flushed(ExitCode code) {
    const bool cut = std::fflush(stdout) != 0;
    if (cut || std::ferror(stdout) != 0) {
        const bool done = code == ExitCode::ok || code == ExitCode::negative;
        std::fprintf(stderr, "aaactl: standard output: %s%s\n",
                     cut ? std::strerror(errno) : "cannot be written",
                     done && change_is_stored() ? "; the change is stored" : "");
        return code == ExitCode::ok || code == ExitCode::negative ? ExitCode::failed : code;
    }
    return code;
}

// The error of a "key" command may quote a key.
std::string usage_text(const Command &root, std::string why, const Words &words) {
    for (const Command &command : root.commands()) {
        if (command.name() == "key" && command.was_given() && !has(words, "--show-secrets")) {
            return without_keys(std::move(why), root, command, words);
        }
    }
    return why;
}

ExitCode refuse(const Command &root, const UsageError &error, const Words &words) {
    OutputOptions options;
    options.json = has(words, "--json");
    const std::string why = usage_text(root, error.what(), words);
    Output(options).failure(Failure(ExitCode::usage, escaped(why) + " (see --help)"));
    return ExitCode::usage;
}

ExitCode perform(const Action &action, const OutputOptions &options) {
    Output out(options);
    try {
        return action(out);
    } catch (const Failure &failure) {
        out.failure(failure);
        return failure.code();
    } catch (const std::exception &error) {
        out.failure(Failure(ExitCode::failed, error.what()));
        return ExitCode::failed;
    }
}

ExitCode run_words(CommandLine &line, int argc, const char *const *argv, const OutputOptions &options) {
    try {
        const Action action = line.parse(argc, argv);
        const ExitCode code = action ? perform(action, options) : ExitCode::ok;
        print_log_lines();
        return flushed(code);
    } catch (const UsageError &error) {
        return refuse(line.root(), error, {argv, argv + argc});
    }
}

}  // namespace

// The text of --help for a command that is named by its words.
void add_help(Command root) {
    auto words = std::make_shared<std::vector<std::string>>();
    Command sub = root.command("help", "Print the help of a command",
                               [root, words](Output &out) { return help(out, root, *words); });
    sub.option("COMMAND", *words, "The words of the command; without them, the list of commands");
    sub.footer(
        "The same as \"--help\" after the command.\n"
        "JSON: {command, commands: the names of those below it, help}\n"
        "Example: aaactl help sysdb load");
}

int run(int argc, const char *const *argv) {
    OutputOptions options;
    CommandLine line("aaactl", kVersion,
                     "Shows, checks and changes what the AAA service exchanges and is configured with.");
    add_global_options(line.root(), options);
    add_commands(line.root());
    return static_cast<int>(run_words(line, argc, argv, options));
}

}  // namespace aaactl
