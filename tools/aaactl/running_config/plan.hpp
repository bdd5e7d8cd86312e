// SPDX-License-Identifier: Apache-2.0
//
// What statements would change of the stored configuration, and the change itself.

#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "commits/recording.hpp"
#include "database/sysdb_apply.hpp"
#include "running_config/numbers.hpp"
#include "running_config/statements.hpp"

namespace aaactl {

struct PlanOptions {
    bool replace = false;  // what the statements do not have is deleted
    bool force = false;    // changed lists may name groups that do not exist
    bool checked = false;  // items have to be what the service reads, unless they are stored already
    bool expect = false;   // with replace: what is changed must be as the plan found it
    std::string again{};   // the command that makes the change, for a user who has interrupted it
};

// What is stored before, and what shall be.
struct Plan {
    Dump stored;
    std::set<std::string> unreadable;
    Items before;
    Applied after;
    Dump wanted;
    std::vector<Difference> differences;
    GroupChanges groups;
    bool of_one_moment = true;  // false: the items changed each time they were read

    // The same for the history.
    history::State state_before() const;
    history::State state_after() const;
};

Plan make_plan(Output &out, Database &database, const PlanOptions &options, const Statements &statements);
// Failure when a group that is created is refused; names its line.
void verify_groups(Output &out, const Plan &plan, const Statements &statements);

// Makes the changes of the plan, with those that `record` adds: of the history. 0, or SYSDB_ERR_CONFLICT when
// others have changed something that the plan was made from; other results are a Failure.
using Record = std::function<void(Changes &changes)>;
cerrno store_plan(Output &out, Database &database, const PlanOptions &options, const Statements &statements,
                  const Plan &plan, const Record &record);

}  // namespace aaactl
