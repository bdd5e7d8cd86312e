// SPDX-License-Identifier: Apache-2.0
//
// Shell completion, generated from the tree of commands: every command, every
// option, and the accepted values of an option. Attributes and result codes are
// completed by name. The script for bash also knows positional arguments, and
// completes what is in the database.

#include <map>
#include <memory>

#include "aaa/dictionary.h"
#include "aaa/names.h"
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
    Words positions;                      // names of positional arguments, in order; "NAME..." repeats
    std::map<std::string, Words> valued;  // options with a value, and the values that are known
    std::map<std::string, Words> placed;  // positional arguments whose values are known
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

// The words before the cursor say which command it is and which of its positional arguments comes next.
// Bash splits words at ':' and '='; they are joined again, and what precedes the last of these characters is
// cut off the answers. Paths, groups, lists and servers are those of the database: without a database, there
// are none.
constexpr char kBash[] = R"(_aaactl_ask() {
    aaactl --color never sysdb ls "$1" 2>/dev/null </dev/null | grep -v '\\'
}
# The names of one level of the database without the slash of directories.
_aaactl_names() {
    _aaactl_ask "$1" | sed 's,/$,,'
}
_aaactl_groups() {
    local protocol
    for protocol in ${1:-radius tacacs diameter}; do
        _aaactl_names "/cfg/gl/aaa/group-server/$protocol/"
    done
}
# The numbers and labels of commits.
_aaactl_commits() {
    aaactl --json history 2>/dev/null </dev/null | sed -n 's/^      "commit": \([0-9]*\),$/\1/p
        /^      "label": "[^"]/ { s/^[^:]*: "//; s/",$//; /\\/!p; }'
}
# Candidates for a positional argument, one a line: its command and name, then those before it.
_aaactl_position() {
    local path=$1 name=$2 base word
    shift 2
    case "$path $name" in
    *" PATH")
        [[ $cur == /* ]] || { printf '%s\n' /cfg/ /oper/; return; }
        base=${cur%/*}/
        [[ $base == / ]] && { printf '%s\n' /cfg/ /oper/; return; }
        _aaactl_ask "$base" | while IFS= read -r word; do printf '%s\n' "$base$word"; done
        ;;
    "aaactl sg list NAME") _aaactl_groups ;;
    "aaactl show commit REV" | "aaactl rollback REV" | "aaactl diff "*)
        printf '%s\n' last
        [[ $path != "aaactl diff" ]] || echo running
        _aaactl_commits
        ;;
    "aaactl sg "*" NAME" | "aaactl sg key GROUP") _aaactl_groups "$1" ;;
    "aaactl sg del SERVER" | "aaactl sg delete SERVER" | "aaactl sg rm SERVER" | "aaactl sg key SERVER")
        for base in server server-private; do
            _aaactl_ask "/cfg/gl/aaa/group-server/$1/$2/$base/" | while read -r index; do
                _aaactl_names "/cfg/gl/aaa/group-server/$1/$2/$base/$index" | sed 's/,.*//'
            done
        done
        ;;
    "aaactl mlist "*" SERVICE" | "aaactl explain SERVICE")
        printf '%s\n' ${_aaactl_services}
        _aaactl_names "/cfg/gl/aaa/$1/"
        ;;
    "aaactl mlist "*" NAME")
        echo default
        _aaactl_names "/cfg/gl/aaa/$1/$2/"
        ;;
    "aaactl mlist set METHOD")
        printf '%s\n' ${_aaactl_methods}
        _aaactl_groups | sed 's/^/group:/'
        ;;
    "aaactl help COMMAND")
        path=aaactl
        for base in "$@"; do path="$path $base"; done
        printf '%s\n' ${_aaactl_words["$path"]} | grep -v '^-'
        ;;
    esac
}
_aaactl() {
    local IFS=$' \t\n' cur path=aaactl word option='' strip='' glue=0 i
    local -a words=() arguments=() positions candidates=()
    for ((i = 0; i <= COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if ((i > 1)) && [[ $glue == 1 || $word =~ ^[:=]+$ ]]; then
            words[${#words[@]} - 1]+=$word
        else
            words+=("$word")
        fi
        glue=0
        [[ $word =~ ^[:=]+$ ]] && glue=1
    done
    cur=${words[${#words[@]} - 1]}
    cur=${cur#[\"\']}
    cur=${cur//\\/}
    [[ $cur == *[:=]* ]] && strip=${cur%"${cur##*[:=]}"}
    for ((i = 1; i < ${#words[@]} - 1; i++)); do
        word=${words[i]}
        option=
        if [[ $word == -* ]]; then
            if [[ $word != *=* && -n ${_aaactl_values["$path $word"]+x} ]]; then
                option=$word
                ((i++))
            fi
        elif [[ -n ${_aaactl_words["$path $word"]+x} ]]; then
            path="$path $word"
        else
            word=${word//\\/}
            word=${word#[\"\']}
            arguments+=("${word%[\"\']}")
        fi
    done
    ((i == ${#words[@]})) || option=
    if [[ $cur == --*=* && -n ${_aaactl_values["$path ${cur%%=*}"]+x} ]]; then
        option=${cur%%=*}
        cur=${cur#*=}
        strip=
    fi
    COMPREPLY=()
    if [[ -n $option ]]; then
        mapfile -t candidates < <(printf '%s\n' ${_aaactl_values["$path $option"]})
    elif [[ $cur == -* || -z ${_aaactl_positions["$path"]+x} ]]; then
        mapfile -t candidates < <(printf '%s\n' ${_aaactl_words["$path"]})
    else
        read -ra positions <<<"${_aaactl_positions["$path"]}"
        word=${positions[${#arguments[@]}]-}
        if [[ -z $word && ${#positions[@]} -gt 0 && ${positions[${#positions[@]} - 1]} == *... ]]; then
            word=${positions[${#positions[@]} - 1]}
        fi
        word=${word%...}
        if [[ -z $word ]]; then
            mapfile -t candidates < <(printf '%s\n' ${_aaactl_words["$path"]} | grep '^-')
        else
            mapfile -t candidates < <(
                printf '%s\n' ${_aaactl_values["$path $word"]}
                _aaactl_position "$path" "$word" "${arguments[@]}")
        fi
    fi
    local -A seen=()
    for word in "${candidates[@]}"; do
        if [[ -n $word && $word == "$cur"* && -z ${seen["$word"]+x} ]]; then
            seen["$word"]=1
            COMPREPLY+=("${word#"$strip"}")
        fi
    done
    if [[ ${#COMPREPLY[@]} -eq 0 && $cur != -* ]]; then
        mapfile -t COMPREPLY < <(compgen -f -- "$cur")
    elif [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == */ ]]; then
        compopt -o nospace 2>/dev/null
    fi
    return 0
}
complete -o filenames -F _aaactl aaactl
)";

Words service_words_of_library() {
    Words words;
    for (int32_t service = AAA_SVC_LOGIN; service <= AAA_SVC_MGBL_ACCT; ++service) {
        const std::string name = aaa_print_service(service);
        if (!name.starts_with('<') && name.find(' ') == std::string::npos) {
            words.push_back(name);
        }
    }
    return words;
}

Words method_words_of_library() {
    Words words;
    for (const uint32_t method : {AAA_METHOD_NONE, AAA_METHOD_LOCAL, AAA_METHOD_RADIUS, AAA_METHOD_TACACSPLUS,
                                  AAA_METHOD_LINE, AAA_METHOD_ENABLE, AAA_METHOD_SYSLOG}) {
        words.emplace_back(aaa_util_print_method(method));
    }
    return words;
}

void print_bash(Output &out, const std::vector<Node> &nodes) {
    out.line("# bash completion of aaactl: source it, or put it into the completions directory as aaactl");
    out.line("declare -gA _aaactl_words=(");
    for (const Node &node : nodes) {
        out.line("    [\"" + node.path + "\"]=\"" + joined(all_words(node)) + "\"");
    }
    out.line(")");
    out.line("declare -gA _aaactl_values _aaactl_positions");
    for (const Node &node : nodes) {
        for (const auto &[option, values] : node.valued) {
            out.line("_aaactl_values[\"" + node.path + " " + option + "\"]=\"" + joined(values) + "\"");
        }
        for (const auto &[position, values] : node.placed) {
            out.line("_aaactl_values[\"" + node.path + " " + position + "\"]=\"" + joined(values) + "\"");
        }
        if (node.commands.empty()) {
            out.line("_aaactl_positions[\"" + node.path + "\"]=\"" + joined(node.positions) + "\"");
        }
    }
    out.line("_aaactl_services=\"" + joined(service_words_of_library()) + "\"");
    out.line("_aaactl_methods=\"" + joined(method_words_of_library()) + "\"");
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
            std::vector<Node> nodes;
            collect(root, "aaactl", {}, nodes);
            const auto print = *shell == "bash" ? print_bash : *shell == "zsh" ? print_zsh : print_fish;
            out.result(out.json() ? commands_json(nodes) : Json(), [&] { print(out, nodes); });
            return ExitCode::ok;
        });
    sub.option("SHELL", *shell, "bash, zsh or fish").required().one_of({"bash", "zsh", "fish"});
    sub.footer(
        "In bash, paths, groups, lists and servers of the database are completed too.\n"
        "JSON, the same for every shell: {commands: [{command, commands, options, arguments, positions, "
        "values:\n{option: [word]}}]}\n"
        "  source <(aaactl completion bash)\n"
        "  aaactl completion fish > ~/.config/fish/completions/aaactl.fish");
}

}  // namespace aaactl
