// SPDX-License-Identifier: Apache-2.0
//
// The command line of aaad.
#pragma once

#include <optional>
#include <string>

namespace service {

struct Options {
    std::string config = "/etc/aaa/aaad.conf";
    std::string socket;  // empty: that of the configuration
    bool foreground = false;
    bool debug = false;
    bool check = false;
    bool force = false;
    std::string drop_queue;  // a group; empty: serve
};

// Null when the program is to end; `status` is then its exit status.
std::optional<Options> read_options(int argc, char **argv, int &status);

}  // namespace service
