// SPDX-License-Identifier: Apache-2.0
//
// Runs the built aaactl to its end and keeps its output.

#pragma once

#include <string>
#include <vector>

#include "aaactl/support/json_document.hpp"

namespace aaactl_test {

struct Run {
    int status = -1;  // exit status, or 128 + the signal's number
    std::string out;
    std::string err;

    // What it printed, which must be JSON.
    JsonDocument json() const;
};

// Feeds `input` to a process and reads both its outputs, until all three are closed.
// Closes the descriptors.
void exchange(int in, int out, int err, const std::string &input, Run &run);

// A document that --json prints must be as its schema says.
Run aaactl(const std::vector<std::string> &args, const std::string &input = "");
// A command line of a shell that finds the program as "aaactl".
Run in_shell(const std::string &line);

}  // namespace aaactl_test
