// SPDX-License-Identifier: Apache-2.0

#include "history/watchers.hpp"

#include "running_config/numbers.hpp"

namespace aaactl {

void note_left_out(Output &out, size_t count) {
    if (count != 0) {
        out.note("aaactl: items that cannot be read are not in the commit: " + std::to_string(count) +
                 "; \"aaactl lint\" names them");
    }
}

void settle_numbers(Output &out, Database &database, const Items &before, const Items &after) {
    const GroupChanges groups = group_changes(before, after);
    Numbers(database, groups).settle(out);
}

}  // namespace aaactl
