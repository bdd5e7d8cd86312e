// SPDX-License-Identifier: Apache-2.0
//
// Completion in zsh.

#include "completion/completion.hpp"

namespace aaactl {
namespace {

constexpr char kZsh[] = R"(_aaactl_matches() {
    # As bash: a variable without quotes is split into words.
    setopt local_options sh_word_split no_glob
    local cur=${(Q)PREFIX} place=aaactl word option= i
    local -a given positions candidates directories others
    for ((i = 2; i < CURRENT; i++)); do
        word=${words[i]}
        option=
        if [[ $word == -* ]]; then
            if [[ $word != *=* ]] && (( ${+_aaactl_values[$place $word]} )); then
                option=$word
                (( i++ ))
            fi
        elif (( ${+_aaactl_words[$place $word]} )); then
            place="$place $word"
        else
            given+=("${(Q)word}")
        fi
    done
    (( i == CURRENT + 1 )) || option=
    if [[ $cur == --*=* ]] && (( ${+_aaactl_values[$place ${cur%%=*}]} )); then
        option=${cur%%=*}
        compset -P '*='
    fi
    if [[ -n $option ]]; then
        candidates=(${_aaactl_values[$place $option]})
    elif [[ $cur == -* ]] || (( ! ${+_aaactl_positions[$place]} )); then
        candidates=(${_aaactl_words[$place]})
    else
        positions=(${_aaactl_positions[$place]})
        word=${positions[${#given} + 1]}
        [[ -z $word && ${positions[-1]} == *... ]] && word=${positions[-1]}
        word=${word%...}
        if [[ -z $word ]]; then
            candidates=(${(M)${=_aaactl_words[$place]}:#-*})
        else
            candidates=(${_aaactl_values[$place $word]} "${(@f)$(_aaactl_position "$place" "$word" "${given[@]}")}")
        fi
    fi
    candidates=("${(@u)candidates}")
    directories=("${(@M)candidates:#*/}")
    others=("${(@)candidates:#(|*/)}")
    # A directory is completed further: no blank after it.
    compadd -S '' -a directories
    word=$?
    compadd -a others || [[ $word == 0 ]]
}
# The options of _aaactl_matches would be in the way of _files.
_aaactl() {
    _aaactl_matches || _files
}
# When sourced, this registers the function; when autoloaded, it is the function's first call.
if [[ ${funcstack[1]} == _aaactl ]]; then
    _aaactl "$@"
else
    compdef _aaactl aaactl
fi)";

}  // namespace

// Keys with blanks are in a list: a subscript of an assignment may not contain any.
void print_zsh(Output &out, const std::vector<CompletionNode> &nodes) {
    out.line("#compdef aaactl");
    out.line("typeset -gA _aaactl_words _aaactl_values _aaactl_positions");
    out.line("_aaactl_words=(");
    for (const CompletionNode &node : nodes) {
        out.line("    \"" + node.path + "\" \"" + joined(all_words(node)) + "\"");
    }
    out.line(")");
    out.line("_aaactl_values=(");
    for (const CompletionNode &node : nodes) {
        for (const auto &[option, values] : node.valued) {
            out.line("    \"" + node.path + " " + option + "\" \"" + joined(values) + "\"");
        }
        for (const auto &[position, values] : node.placed) {
            out.line("    \"" + node.path + " " + position + "\" \"" + joined(values) + "\"");
        }
    }
    out.line(")");
    out.line("_aaactl_positions=(");
    for (const CompletionNode &node : nodes) {
        if (node.commands.empty()) {
            out.line("    \"" + node.path + "\" \"" + joined(node.positions) + "\"");
        }
    }
    out.line(")");
    print_positions(out);
    out.line(kZsh);
}

}  // namespace aaactl
