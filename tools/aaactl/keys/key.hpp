// SPDX-License-Identifier: Apache-2.0
//
// What the commands on keys share.

#pragma once

#include <string>

#include "cli/commands.hpp"

namespace aaactl {

// A command of "key": with --file.
Command key_command(Command key, const std::string &name, const std::string &help, Action run);

// Asks for a key, twice on a terminal, and seals it.
std::string seal_clear_key(Output &out);

// masters, new-master, rotate, reseal and retire; add_key() calls it.
void add_key_masters(Command key);

}  // namespace aaactl
