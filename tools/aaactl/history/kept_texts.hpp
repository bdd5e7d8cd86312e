// SPDX-License-Identifier: Apache-2.0
//
// What users do with texts that earlier commands have kept.

#pragma once

#include "cli/output.hpp"

namespace aaactl {

// Names those of commands that could not do it: their terminal was closed, or they were killed.
void note_kept_texts(Output &out);
// Deletes all of them.
ExitCode discard_kept_texts(Output &out);

}  // namespace aaactl
