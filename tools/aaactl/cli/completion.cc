// SPDX-License-Identifier: Apache-2.0
//
// Shell completion, generated from the tree of commands: every command, every
// option, and the accepted values of an option. Attributes and result codes are
// completed by name.

#include <map>
#include <memory>

#include "aaa/dictionary.h"
#include "aaa/result_codes.h"
#include "cli/commands.hpp"

namespace aaactl {
namespace {

using Words = std::vector<std::string>;

// "aaactl", "aaactl sysdb", ... with what may follow each.
struct Node {
    std::string path;
    Words commands;
    Words options;
    Words arguments;                      // known values of positional arguments
    std::map<std::string, Words> valued;  // options with a value, and the values that are known
};

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

void add_argument(Node &node, const ArgumentForm &argument) {
    if (argument.names.empty()) {
        append(node.arguments, known_values(argument));
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
             std::vector<Node> &nodes) {
    Node node;
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

std::string joined(const Words &words) {
    std::string text;
    for (const std::string &word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

Words all_words(const Node &node) {
    Words words = node.commands;
    append(words, node.arguments);
    append(words, node.options);
    return words;
}

// The longest path of commands among the words before the cursor decides. Bash
// splits "--kind=list" into three words.
constexpr char kBash[] = R"(_aaactl() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]} path=aaactl word i
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        [[ -n ${_aaactl_words["$path $word"]+x} ]] && path="$path $word"
    done
    [[ $prev == "=" ]] && prev=${COMP_WORDS[COMP_CWORD-2]}
    [[ $cur == "=" ]] && cur=
    if [[ -n ${_aaactl_values["$path $prev"]+x} ]]; then
        mapfile -t COMPREPLY < <(compgen -W "${_aaactl_values["$path $prev"]}" -- "$cur")
    else
        mapfile -t COMPREPLY < <(compgen -W "${_aaactl_words["$path"]}" -- "$cur")
    fi
    [[ ${#COMPREPLY[@]} -eq 0 && $cur != -* ]] && mapfile -t COMPREPLY < <(compgen -f -- "$cur")
}
complete -o filenames -F _aaactl aaactl
)";

void print_bash(Output &out, const std::vector<Node> &nodes) {
    out.line("# bash completion of aaactl: source it, or put it into the completions directory as aaactl");
    out.line("declare -gA _aaactl_words=(");
    for (const Node &node : nodes) {
        out.line("    [\"" + node.path + "\"]=\"" + joined(all_words(node)) + "\"");
    }
    out.line(")");
    out.line("declare -gA _aaactl_values");
    for (const Node &node : nodes) {
        for (const auto &[option, values] : node.valued) {
            out.line("_aaactl_values[\"" + node.path + " " + option + "\"]=\"" + joined(values) + "\"");
        }
    }
    out.line(kBash);
}

constexpr char kZsh[] = R"(_aaactl() {
    local cur=${words[CURRENT]} prev=${words[CURRENT-1]} path_so_far=aaactl word
    for word in ${words[2,CURRENT-1]}; do
        (( ${+_aaactl_words[$path_so_far $word]} )) && path_so_far="$path_so_far $word"
    done
    if (( ${+_aaactl_values[$path_so_far $prev]} )); then
        compadd -- ${=_aaactl_values[$path_so_far $prev]} || _files
    else
        compadd -- ${=_aaactl_words[$path_so_far]} || _files
    fi
}
# When sourced, this registers the function; when autoloaded, it is the function's first call.
if [[ ${funcstack[1]} == _aaactl ]]; then
    _aaactl "$@"
else
    compdef _aaactl aaactl
fi)";

// Keys with blanks are in a list: a subscript of an assignment may not contain any.
void print_zsh(Output &out, const std::vector<Node> &nodes) {
    out.line("#compdef aaactl");
    out.line("typeset -gA _aaactl_words _aaactl_values");
    out.line("_aaactl_words=(");
    for (const Node &node : nodes) {
        out.line("    \"" + node.path + "\" \"" + joined(all_words(node)) + "\"");
    }
    out.line(")");
    out.line("_aaactl_values=(");
    for (const Node &node : nodes) {
        for (const auto &[option, values] : node.valued) {
            out.line("    \"" + node.path + " " + option + "\" \"" + joined(values) + "\"");
        }
    }
    out.line(")");
    out.line(kZsh);
}

// True when only the words of a command, and options, precede the cursor.
std::string fish_condition(const std::string &path) {
    const size_t space = path.find(' ');
    if (space == std::string::npos) {
        return "__fish_use_subcommand";
    }
    std::string condition;
    for (size_t at = space; at != std::string::npos;) {
        const size_t next = path.find(' ', at + 1);
        condition += (condition.empty() ? "" : "; and ") + std::string("__fish_seen_subcommand_from ") +
                     path.substr(at + 1, next == std::string::npos ? next : next - at - 1);
        at = next;
    }
    return condition;
}

void print_fish_option(Output &out, const Node &node, const std::string &option) {
    const auto valued = node.valued.find(option);
    std::string line = "complete -c aaactl -n '" + fish_condition(node.path) + "' -l " + option.substr(2);
    if (valued != node.valued.end()) {
        line += valued->second.empty() ? " -r" : " -x -a '" + joined(valued->second) + "'";
    }
    out.line(line);
}

void print_fish(Output &out, const std::vector<Node> &nodes) {
    for (const Node &node : nodes) {
        Words words = node.commands;
        append(words, node.arguments);
        if (!words.empty()) {
            out.line("complete -c aaactl -n '" + fish_condition(node.path) + "' -a '" + joined(words) + "'");
        }
        for (const std::string &option : node.options) {
            print_fish_option(out, node, option);
        }
    }
}

// For other shells.
Json commands_json(const std::vector<Node> &nodes) {
    Json commands = Json::array();
    for (const Node &node : nodes) {
        Json values = Json::object();
        for (const auto &[option, words] : node.valued) {
            values[option] = words;
        }
        commands.push_back({{"command", node.path},
                            {"commands", node.commands},
                            {"options", node.options},
                            {"arguments", node.arguments},
                            {"values", std::move(values)}});
    }
    return {{"commands", std::move(commands)}};
}

}  // namespace

void add_completion(Command root) {
    auto shell = std::make_shared<std::string>();
    Command sub =
        root.command("completion", "Print the shell's completion script", [root, shell](Output &out) {
            std::vector<Node> nodes;
            collect(root, "aaactl", {}, nodes);
            const auto print = *shell == "bash" ? print_bash : *shell == "zsh" ? print_zsh : print_fish;
            out.result(out.json() ? commands_json(nodes) : Json(), [&] { print(out, nodes); });
            return ExitCode::ok;
        });
    sub.option("SHELL", *shell, "bash, zsh or fish").required().one_of({"bash", "zsh", "fish"});
    sub.footer(
        "JSON, the same for every shell: {commands: [{command, commands, options, arguments, values: "
        "{option: [word]}}]}\n"
        "  source <(aaactl completion bash)\n"
        "  aaactl completion fish > ~/.config/fish/completions/aaactl.fish");
}

}  // namespace aaactl
