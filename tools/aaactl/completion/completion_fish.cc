// SPDX-License-Identifier: Apache-2.0
//
// Completion in fish.

#include <utility>

#include "completion/completion.hpp"

namespace aaactl {
namespace {

constexpr char kFish[] = R"(function _aaactl_ask
    aaactl --color never sysdb ls $argv[1] 2>/dev/null </dev/null | string match -rv '\\\\'
end
# The names of one level of the database without the slash of directories.
function _aaactl_names
    _aaactl_ask $argv[1] | string replace -r '/$' ''
end
function _aaactl_groups
    set -q argv[1]; or set argv radius tacacs diameter
    for protocol in $argv
        _aaactl_names /cfg/gl/aaa/group-server/$protocol/
    end
end
function _aaactl_servers
    for place in server server-private
        for index in (_aaactl_ask "/cfg/gl/aaa/group-server/$argv[1]/$argv[2]/$place/")
            _aaactl_names "/cfg/gl/aaa/group-server/$argv[1]/$argv[2]/$place/$index" | string replace -r ',.*' ''
        end
    end
end
# The numbers and labels of commits.
function _aaactl_commits
    aaactl --json history 2>/dev/null </dev/null |
        string replace -rf '^      "(?:commit|label)["]: "?([^"\\\\]+?)["]?,$' '$1'
end
# Candidates for a positional argument, one a line: the word at the cursor, the command and the argument's
# name, then the arguments before it.
function _aaactl_position
    set -l cur $argv[1]
    set -l place $argv[2]
    set -l name $argv[3]
    set -l given $argv[4..-1]
    switch "$place $name"
        case '* PATH'
            set -l base (string replace -r '[^/]*$' '' -- "$cur")
            if not string match -q '/*' -- "$cur"; or test "$base" = /
                printf '%s\n' /cfg/ /oper/
            else
                for word in (_aaactl_ask $base)
                    printf '%s\n' $base$word
                end
            end
        case 'aaactl show commit REV' 'aaactl rollback REV' 'aaactl diff *'
            echo last
            test "$place" = 'aaactl diff'; and echo running
            _aaactl_commits
        case 'aaactl sg list NAME'
            _aaactl_groups
        case 'aaactl sg * NAME' 'aaactl sg key GROUP'
            _aaactl_groups $given[1]
        case 'aaactl sg del SERVER' 'aaactl sg delete SERVER' 'aaactl sg rm SERVER' 'aaactl sg key SERVER'
            _aaactl_servers $given[1] $given[2]
        case 'aaactl mlist * SERVICE' 'aaactl explain SERVICE'
            printf '%s\n' $_aaactl_services
            _aaactl_names "/cfg/gl/aaa/$given[1]/"
        case 'aaactl mlist * NAME'
            echo default
            _aaactl_names "/cfg/gl/aaa/$given[1]/$given[2]/"
        case 'aaactl mlist set METHOD'
            printf '%s\n' $_aaactl_methods
            _aaactl_groups | string replace -r '^' group:
        case 'aaactl help COMMAND'
            _aaactl_words (string join ' ' aaactl $given) | string match -v -- '-*'
    end
end
function _aaactl
    set -l place aaactl
    set -l option ''
    set -l given
    set -l is_value 0
    set -l tokens (commandline -opc)
    for word in $tokens[2..-1]
        if test $is_value = 1
            set is_value 0
            set option ''
        else if string match -q -- '-*' "$word"
            if not string match -q -- '*=*' "$word"; and _aaactl_values "$place $word" >/dev/null
                set option $word
                set is_value 1
            end
        else if _aaactl_words "$place $word" >/dev/null
            set place "$place $word"
        else
            set -a given (string unescape -- "$word"; or printf '%s\n' "$word")
        end
    end
    set -l cur (commandline -ct | string replace -ra '[\\\\\'"]' '')
    set -l before ''
    if string match -q -- '--*=*' "$cur"; and _aaactl_values "$place "(string replace -r '=.*' '' -- $cur) >/dev/null
        set option (string replace -r '=.*' '' -- $cur)
        set before "$option="
    end
    set -l candidates
    if test -n "$option"
        set candidates $before(_aaactl_values "$place $option")
    else if string match -q -- '-*' "$cur"; or not _aaactl_positions $place >/dev/null
        set candidates (_aaactl_words $place)
    else
        set -l positions (_aaactl_positions $place)
        set -l name $positions[(math (count $given) + 1)]
        if test -z "$name"; and string match -q '*...' -- $positions[-1]
            set name $positions[-1]
        end
        set name (string replace -r '\.\.\.$' '' -- $name)
        if test -z "$name"
            set candidates (_aaactl_words $place | string match -- '-*')
        else
            set candidates (_aaactl_values "$place $name"; _aaactl_position "$cur" $place $name $given)
        end
    end
    set -l fits 0
    for word in $candidates
        if test (string sub -l (string length -- "$cur") -- "$word") = "$cur"
            set fits 1
            printf '%s\n' $word
        end
    end
    if test $fits = 0; and not string match -q -- '-*' "$cur"
        __fish_complete_path $cur
    end
end
complete -c aaactl -f -a '(_aaactl)')";

void print_fish_table(Output &out, const std::string &function,
                      const std::vector<std::pair<std::string, Words>> &table) {
    out.line("function " + function);
    out.line("    switch \"$argv[1]\"");
    for (const auto &[key, words] : table) {
        out.line("        case '" + key + "'");
        out.line(words.empty() ? "            true" : "            printf '%s\\n' " + joined(words));
    }
    out.line("        case '*'");
    out.line("            return 1");
    out.line("    end");
    out.line("end");
}

}  // namespace

// Fish has no arrays with words as indexes: functions, which fail for an unknown word.
void print_fish(Output &out, const std::vector<CompletionNode> &nodes) {
    std::vector<std::pair<std::string, Words>> words;
    std::vector<std::pair<std::string, Words>> values;
    std::vector<std::pair<std::string, Words>> positions;
    for (const CompletionNode &node : nodes) {
        words.emplace_back(node.path, all_words(node));
        for (const auto *known : {&node.valued, &node.placed}) {
            for (const auto &[name, list] : *known) {
                values.emplace_back(node.path + " " + name, list);
            }
        }
        if (node.commands.empty()) {
            positions.emplace_back(node.path, node.positions);
        }
    }
    print_fish_table(out, "_aaactl_words", words);
    print_fish_table(out, "_aaactl_values", values);
    print_fish_table(out, "_aaactl_positions", positions);
    out.line("set -g _aaactl_services " + joined(service_words_of_library()));
    out.line("set -g _aaactl_methods " + joined(method_words_of_library()));
    out.line(kFish);
}

}  // namespace aaactl
