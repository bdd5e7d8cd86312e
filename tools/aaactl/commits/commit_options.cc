// SPDX-License-Identifier: Apache-2.0

#include "commits/commit_options.hpp"

#include <algorithm>

#include "database/sysdb_values.hpp"

namespace aaactl {
namespace {

constexpr int kMostMinutes = 7 * 24 * 60;
// Words that commands take in place of a commit.
constexpr std::string_view kReserved[] = {"running", "last"};

std::string option_text(const char *option, const std::string &value) {
    return value.empty() ? "" : option + shell_word(value);
}

bool is_control(unsigned char c) {
    return c < ' ' || c == 0x7f;
}

}  // namespace

void add_commit_options(Command &command, CommitOptions &options, bool label) {
    if (label) {
        command
            .option(
                "--label",
                [&options](const std::string &word) {
                    options.label = word;
                    options.has_label = true;
                },
                "A name for the commit, by which it can be found again")
            .type("LABEL");
    }
    command.option("-m,--message", options.message, "What was changed, and why").type("MESSAGE");
    command
        .option("--confirm", options.minutes,
                "Go back to the state before in so many minutes, unless \"aaactl confirm\" comes in time")
        .between(1, kMostMinutes)
        .type("MINUTES");
}

std::string command_words(const CommitOptions &options) {
    return option_text(" --label ", options.label) + option_text(" -m ", options.message) +
           (options.minutes != 0 ? " --confirm " + std::to_string(options.minutes) : "");
}

void check_commit_options(const CommitOptions &options) {
    const std::string &label = options.label;
    if (options.has_label && label.empty()) {
        throw Failure(ExitCode::usage, kEmptyLabel);
    }
    if (label.size() > kLongestLabel) {
        throw Failure(ExitCode::usage, "the label is longer than " + std::to_string(kLongestLabel) +
                                           " bytes; use -m for a text");
    }
    if (std::any_of(label.begin(), label.end(), is_control)) {
        throw Failure(ExitCode::usage, "the label has control characters");
    }
    if (!label.empty() &&
        (std::all_of(label.begin(), label.end(), [](char c) { return c >= '0' && c <= '9'; }) ||
         std::find(std::begin(kReserved), std::end(kReserved), label) != std::end(kReserved))) {
        throw Failure(ExitCode::usage,
                      "\"" + label +
                          "\" cannot be a label: commands take it as the number or the name of "
                          "another commit");
    }
    const auto is_bad = [](unsigned char c) { return is_control(c) && c != '\n' && c != '\t'; };
    if (options.message.size() > kLongestMessage ||
        std::any_of(options.message.begin(), options.message.end(), is_bad)) {
        throw Failure(ExitCode::usage, "the message is longer than " + std::to_string(kLongestMessage) +
                                           " bytes, or has control characters");
    }
}

}  // namespace aaactl
