// SPDX-License-Identifier: Apache-2.0
//
// The numbers of server groups, when many of them change at a time: a group without a number does not work.

#pragma once

#include <vector>

#include "config/groups.hpp"
#include "running_config/statements.hpp"

namespace aaactl {

struct GroupChanges {
    std::vector<Owner> created;
    std::vector<Owner> deleted;
    std::vector<Owner> changed;  // and there before: another process may delete them at the same time

    // A group of another protocol gives its name up in the same change.
    bool takes_a_name(const Owner &owner) const;
};
GroupChanges group_changes(const Items &before, const Items &after);

// The numbers of all groups that one change of the configuration creates or deletes; each function is one
// change of the database.
class Numbers {
  public:
    Numbers(Database &database, const GroupChanges &groups) : database_(database), groups_(groups) {}

    // Before the groups are configured, as "sg add" does: those whose names are free. Failure when one is
    // refused; undo() then withdraws the others.
    void publish();
    // When they are configured: the numbers of deleted groups, and then of all that are created or changed,
    // because others withdraw numbers of groups that are not configured (yet). A failure is a note, because
    // the configuration is stored.
    void settle(Output &out);
    // When they could not be configured: what publish() has published.
    void undo(Output &out);

  private:
    std::vector<group_numbers::Group> created(bool with_those_that_take_names) const;

    Database &database_;
    const GroupChanges &groups_;
    std::vector<group_numbers::Group> published_;
};

}  // namespace aaactl
