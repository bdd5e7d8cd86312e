// SPDX-License-Identifier: Apache-2.0
//
// Secrets come from standard input, never from the command line, which every
// user of the machine can read: typed at a prompt without echo, or piped.

#pragma once

#include <optional>
#include <string>

namespace aaactl {

// From a terminal: one line after the prompt (on standard error), not echoed. Otherwise all of standard input
// without its trailing line feed. Failure(bad_input) for more than `limit` bytes, Failure(usage) for an empty
// input.
std::string read_secret(const std::string &prompt, size_t limit = 65536);

// One answer of several: a line from a terminal after the prompt, echoed if `echo` says so; otherwise the
// next line of standard input. nullopt at its end. Failure(bad_input) for more than `limit` bytes.
std::optional<std::string> read_answer(const std::string &prompt, bool echo, size_t limit = 1024);

// Overwrites the text, so that its memory can be released.
void wipe(std::string &text);

}  // namespace aaactl
