// SPDX-License-Identifier: Apache-2.0
//
// One run of the program.

#pragma once

namespace aaactl {

// Parses one command line and runs the command that it names. Returns the
// process's exit status.
int run(int argc, const char *const *argv);

}  // namespace aaactl
