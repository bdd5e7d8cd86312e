// SPDX-License-Identifier: Apache-2.0
//
// Shell completion, generated from the tree of commands: every command, every
// option, positional arguments, and the accepted values of both. Attributes and
// result codes are completed by name, and paths, groups, lists and servers as they
// are in the database.

#include <memory>

#include "aaa/dictionary.h"
#include "aaa/result_codes.h"
#include "cli/commands.hpp"
#include "completion/completion.hpp"

namespace aaactl {
namespace {

Words attribute_words() {
    Words words;
    for (const aaa_table_row_t &row : aaa_table) {
        if (row.name != nullptr) {
            words.emplace_back(row.name);
        }
    }
    return words;
}

Words code_words() {
    return {
#define AAA_RESULT_CODE(index, name, text) #name,
#include "aaa/result_codes.def"
    };
}

Words known_values(const ArgumentForm &argument) {
    return argument.position == "ATTRIBUTE" ? attribute_words()
           : argument.position == "CODE"    ? code_words()
                                            : argument.values;
}

void append(Words &words, const Words &more) {
    words.insert(words.end(), more.begin(), more.end());
}

void add_argument(CompletionNode &node, const ArgumentForm &argument) {
    if (argument.names.empty()) {
        append(node.arguments, known_values(argument));
        node.positions.push_back(argument.position + (argument.repeats ? "..." : ""));
        if (const Words values = known_values(argument); !values.empty()) {
            node.placed[argument.position] = values;
        }
    }
    for (const std::string &name : argument.names) {
        if (name.starts_with("--")) {
            node.options.push_back(name);
        }
        if (argument.has_value) {
            node.valued[name] = known_values(argument);
        }
    }
}

// `above` are the arguments of the commands above, which this one takes too.
void collect(const Command &command, const std::string &path, const std::vector<ArgumentForm> &above,
             std::vector<CompletionNode> &nodes) {
    CompletionNode node;
    node.path = path;
    for (const Command &sub : command.commands()) {
        node.commands.push_back(sub.name());
    }
    std::vector<ArgumentForm> arguments = command.arguments();
    arguments.insert(arguments.end(), above.begin(), above.end());
    for (const ArgumentForm &argument : arguments) {
        add_argument(node, argument);
    }
    nodes.push_back(std::move(node));
    for (const Command &sub : command.commands()) {
        collect(sub, path + " " + sub.name(), arguments, nodes);
        for (const std::string &name : sub.other_names()) {
            collect(sub, path + " " + name, arguments, nodes);
        }
    }
}

// For other shells.
Json commands_json(const std::vector<CompletionNode> &nodes) {
    Json commands = Json::array();
    for (const CompletionNode &node : nodes) {
        Json values = Json::object();
        for (const auto &[option, words] : node.valued) {
            values[option] = words;
        }
        commands.push_back({{"command", node.path},
                            {"commands", node.commands},
                            {"options", node.options},
                            {"arguments", node.arguments},
                            {"positions", node.positions},
                            {"values", std::move(values)}});
    }
    return {{"commands", std::move(commands)}};
}

}  // namespace

void add_completion(Command root) {
    auto shell = std::make_shared<std::string>();
    Command sub =
        root.command("completion", "Print the shell's completion script", [root, shell](Output &out) {
            std::vector<CompletionNode> nodes;
            collect(root, "aaactl", {}, nodes);
            const auto print = *shell == "bash" ? print_bash : *shell == "zsh" ? print_zsh : print_fish;
            out.result(out.json() ? commands_json(nodes) : Json(), [&] { print(out, nodes); });
            return ExitCode::ok;
        });
    sub.option("SHELL", *shell, "bash, zsh or fish").required().one_of({"bash", "zsh", "fish"});
    sub.footer(
        "Paths, groups, lists and servers of the database are completed too.\n"
        "JSON, the same for every shell: {commands: [{command, commands, options, arguments, positions, "
        "values:\n{option: [word]}}]}\n"
        "  source <(aaactl completion bash)\n"
        "  aaactl completion fish > ~/.config/fish/completions/aaactl.fish");
}

}  // namespace aaactl
