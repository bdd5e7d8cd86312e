// SPDX-License-Identifier: Apache-2.0
//
// Completion in bash.

#include "completion/completion.hpp"

namespace aaactl {
namespace {

// The words before the cursor say which command it is and which of its positional arguments comes next.
// Bash splits words at ':' and '='; they are joined again, and what precedes the last of these characters is
// cut off the answers.
constexpr char kBash[] = R"(_aaactl() {
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

}  // namespace

void print_bash(Output &out, const std::vector<CompletionNode> &nodes) {
    out.line("# bash completion of aaactl: source it, or put it into the completions directory as aaactl");
    out.line("declare -gA _aaactl_words=(");
    for (const CompletionNode &node : nodes) {
        out.line("    [\"" + node.path + "\"]=\"" + joined(all_words(node)) + "\"");
    }
    out.line(")");
    out.line("declare -gA _aaactl_values _aaactl_positions");
    for (const CompletionNode &node : nodes) {
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
    print_positions(out);
    out.line(kBash);
}

}  // namespace aaactl
