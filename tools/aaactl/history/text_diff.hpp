// SPDX-License-Identifier: Apache-2.0
//
// The differences of two configurations in the words of running_config/.

#pragma once

#include <string>
#include <vector>

#include "cli/output.hpp"
#include "running_config/statements.hpp"

namespace aaactl {

struct LineChange {
    std::string group;  // the line of the server group to which it belongs; "" for others
    std::string line;   // with secrets masked, without indentation
    bool added;         // else removed
};
// In the order of the text. Lines that both have are left out; the order of lines has no meaning of its own.
std::vector<LineChange> line_changes(const Output &out, const Items &before, const Items &after);

// "-" and "+" before the lines, those of a group below its line.
void print_line_changes(Output &out, const std::vector<LineChange> &changes);
// [{change: added|removed, group if it belongs to one, line}]
Json line_changes_json(const std::vector<LineChange> &changes);

}  // namespace aaactl
