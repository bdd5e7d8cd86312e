// SPDX-License-Identifier: Apache-2.0
//
// Secrets come from standard input, never from the command line, which every
// user of the machine can read: typed at a prompt without echo, or piped.

#pragma once

#include <optional>
#include <string>

namespace aaactl {

// From a terminal: one line after the prompt (on standard error), not echoed. Else all of standard input
// without the line feed that ends it. Failure(bad_input) for more than `limit` bytes, Failure(usage) when
// nothing comes.
std::string read_secret(const std::string &prompt, size_t limit = 65536);

// One answer of several: a line from a terminal after the prompt, echoed only if told so; else the next line
// of standard input. nullopt at its end. Failure(bad_input) for more than `limit` bytes.
std::optional<std::string> read_answer(const std::string &prompt, bool echo, size_t limit = 1024);

// Overwrites the text before its memory is given back.
void wipe(std::string &text);

}  // namespace aaactl
