// SPDX-License-Identifier: Apache-2.0
//
// The text of a configuration as it is shown: secrets masked, with a line between its parts.

#pragma once

#include <string>
#include <vector>

#include "running_config/statements.hpp"

namespace aaactl {

struct ShownConfiguration {
    std::string text;   // with separators, without the last line
    std::string plain;  // without separators
    size_t masked = 0;
};
ShownConfiguration shown_configuration(const Output &out, const Items &items);

// Masks secret values unless they are to be shown, and counts them. Sealed keys stay: only a holder of the
// master keys can open them.
size_t mask_secrets(const Output &out, Statements &statements);

// The lines of a text as an array.
std::vector<Json> lines_json(const std::string &text);
// A remark on masked values.
void note_masked(Output &out, size_t masked);

}  // namespace aaactl
