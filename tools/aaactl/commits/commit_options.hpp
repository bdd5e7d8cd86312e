// SPDX-License-Identifier: Apache-2.0
//
// The options of commands that make a commit.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "cli/command_line.hpp"

namespace aaactl {

struct CommitOptions {
    std::string label;
    bool has_label = false;  // --label was given
    std::string message;
    uint32_t minutes = 0;  // 0: it needs no confirmation

    bool given() const { return !label.empty() || !message.empty() || minutes != 0; }
};

// --label, unless the command takes the label as its argument, --message and --confirm.
void add_commit_options(Command &command, CommitOptions &options, bool label = true);

// The same options as words of a command line, each with a blank before it.
std::string command_words(const CommitOptions &options);

// Bytes of what a commit may be given, and of what is shown of it.
inline constexpr size_t kLongestLabel = 64;
inline constexpr size_t kLongestMessage = 4096;
inline constexpr size_t kLongestAuthor = 128;

inline constexpr char kEmptyLabel[] = "the label is empty; give the commit a name, such as before-upgrade";

// Failure(usage) for an empty label, or a label that names a commit by other means, or has hidden characters.
void check_commit_options(const CommitOptions &options);

}  // namespace aaactl
