// SPDX-License-Identifier: Apache-2.0
//
// The words of completion, and the functions that bash and zsh share.

#include "aaa/names.h"
#include "completion/completion.hpp"

namespace aaactl {
namespace {

// What may be at a position of the command line, for bash and zsh, which both run it: `cur` is the word at
// the cursor. Paths, groups, lists and servers are those of the database: without a database, there are none.
// A variable "path" would be the search path of zsh.
constexpr char kPositions[] = R"(_aaactl_ask() {
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
    local place=$1 name=$2 base word
    shift 2
    case "$place $name" in
    *" PATH")
        [[ $cur == /* ]] || { printf '%s\n' /cfg/ /oper/; return; }
        base=${cur%/*}/
        [[ $base == / ]] && { printf '%s\n' /cfg/ /oper/; return; }
        _aaactl_ask "$base" | while IFS= read -r word; do printf '%s\n' "$base$word"; done
        ;;
    "aaactl sg list NAME") _aaactl_groups ;;
    "aaactl show commit REV" | "aaactl rollback REV" | "aaactl diff "*)
        printf '%s\n' last
        [[ $place != "aaactl diff" ]] || echo running
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
        place=aaactl
        for base in "$@"; do place="$place $base"; done
        printf '%s\n' ${_aaactl_words[$place]} | grep -v '^-'
        ;;
    esac
})";

}  // namespace

std::string joined(const Words &words) {
    std::string text;
    for (const std::string &word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

Words all_words(const CompletionNode &node) {
    Words words = node.commands;
    words.insert(words.end(), node.arguments.begin(), node.arguments.end());
    words.insert(words.end(), node.options.begin(), node.options.end());
    return words;
}

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

void print_positions(Output &out) {
    out.line("_aaactl_services=\"" + joined(service_words_of_library()) + "\"");
    out.line("_aaactl_methods=\"" + joined(method_words_of_library()) + "\"");
    out.line(kPositions);
}

}  // namespace aaactl
