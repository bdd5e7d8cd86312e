// SPDX-License-Identifier: Apache-2.0
//
// Remarks on commits that several commands make.

#pragma once

#include "commits/recording.hpp"
#include "running_config/statements.hpp"

namespace aaactl {

// Items that could not be read are in no commit.
void note_left_out(Output &out, size_t count);
// The numbers of groups, after the configuration has gone from one state to another.
void settle_numbers(Output &out, Database &database, const Items &before, const Items &after);

}  // namespace aaactl
