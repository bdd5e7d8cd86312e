// SPDX-License-Identifier: Apache-2.0
//
// Shell completion, made from the tree of commands itself, so that it knows
// every command and option there is.

#include <memory>

#include "commands.hpp"

namespace aaactl {
namespace {

// "aaactl", "aaactl sysdb", ... with the words that may follow each.
struct Node {
    std::string path;
    std::vector<std::string> words;
};

void collect(const CLI::App *app, const std::string &path, std::vector<Node> &nodes) {
    Node node{path, {}};
    for (const CLI::App *sub : app->get_subcommands({})) {
        node.words.push_back(sub->get_name());
    }
    for (const CLI::App *level = app; level != nullptr; level = level->get_parent()) {
        for (const CLI::Option *option : level->get_options()) {
            for (const std::string &name : option->get_lnames()) {
                node.words.push_back("--" + name);
            }
        }
    }
    nodes.push_back(node);
    for (const CLI::App *sub : app->get_subcommands({})) {
        collect(sub, path + " " + sub->get_name(), nodes);
    }
}

std::string joined(const std::vector<std::string> &words) {
    std::string text;
    for (const std::string &word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

// The command so far is the words before the cursor without options and what
// follows; the longest prefix of it that is a command decides.
constexpr char kBash[] = R"(_aaactl() {
    local cur=${COMP_WORDS[COMP_CWORD]} path=aaactl word i
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        [[ -n ${_aaactl_words["$path $word"]+x} ]] && path="$path $word"
    done
    mapfile -t COMPREPLY < <(compgen -W "${_aaactl_words["$path"]}" -- "$cur")
    [[ ${#COMPREPLY[@]} -eq 0 && $cur != -* ]] && mapfile -t COMPREPLY < <(compgen -f -- "$cur")
}
complete -o filenames -F _aaactl aaactl
)";

void print_bash(Output &out, const std::vector<Node> &nodes) {
    out.line("# bash completion of aaactl: source it, or put it into the completions directory");
    out.line("declare -gA _aaactl_words=(");
    for (const Node &node : nodes) {
        out.line("    [\"" + node.path + "\"]=\"" + joined(node.words) + "\"");
    }
    out.line(")");
    out.line(kBash);
}

// zsh runs bash's completion functions.
void print_zsh(Output &out, const std::vector<Node> &nodes) {
    out.line("autoload -U +X bashcompinit && bashcompinit");
    out.line("typeset -gA _aaactl_words");
    for (const Node &node : nodes) {
        out.line("_aaactl_words[" + node.path + "]=\"" + joined(node.words) + "\"");
    }
    out.line(R"(_aaactl() {
    local cur=${words[CURRENT]} path_so_far=aaactl word
    for word in ${words[2,CURRENT-1]}; do
        (( ${+_aaactl_words[$path_so_far $word]} )) && path_so_far="$path_so_far $word"
    done
    compadd -- ${=_aaactl_words[$path_so_far]} || _files
}
compdef _aaactl aaactl)");
}

void print_fish(Output &out, const std::vector<Node> &nodes) {
    for (const Node &node : nodes) {
        std::string condition;
        const size_t space = node.path.find(' ');
        if (space == std::string::npos) {
            condition = "__fish_use_subcommand";
        } else {
            std::string rest = node.path.substr(space + 1);
            for (size_t at = 0; at != std::string::npos;) {
                const size_t next = rest.find(' ', at);
                condition += (condition.empty() ? "" : "; and ") + std::string("__fish_seen_subcommand_from ") +
                             rest.substr(at, next == std::string::npos ? next : next - at);
                at = next == std::string::npos ? next : next + 1;
            }
        }
        out.line("complete -c aaactl -n '" + condition + "' -a '" + joined(node.words) + "'");
    }
}

} // namespace

void add_completion(Program &program) {
    auto shell = std::make_shared<std::string>();
    CLI::App *sub = program.command(&program.app, "completion", "Print the shell's completion script",
                                    [&program, shell](Output &out) {
                                        std::vector<Node> nodes;
                                        collect(&program.app, "aaactl", nodes);
                                        (*shell == "bash" ? print_bash : *shell == "zsh" ? print_zsh : print_fish)(out, nodes);
                                        return ExitCode::ok;
                                    });
    sub->add_option("SHELL", *shell, "bash, zsh or fish")->required()->check(CLI::IsMember({"bash", "zsh", "fish"}));
}

} // namespace aaactl
