// SPDX-License-Identifier: Apache-2.0
//
// help: the text of --help for a command that is named by its words.

#include <algorithm>
#include <memory>

#include "cli/commands.hpp"
#include "cli/suggestion.hpp"

namespace aaactl {
namespace {

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
        const auto found =
            std::find_if(below.begin(), below.end(), [&](const Command &sub) { return sub.name() == word; });
        if (found == below.end()) {
            throw Failure(ExitCode::usage,
                          "\"" + escaped(word) + "\" is not a command of " + path +
                              (below.empty() ? ", which has none" : suggestion(word, names_of(command))));
        }
        path += " " + word;
        command = *found;
    }
    std::string text = command.help(path);
    while (text.ends_with('\n')) {
        text.pop_back();
    }
    out.result({{"command", path}, {"commands", names_of(command)}, {"help", text}}, [&] { out.line(text); });
    return ExitCode::ok;
}

}  // namespace

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

}  // namespace aaactl
