// SPDX-License-Identifier: Apache-2.0
//
// The numbers of server groups, when many of them change at a time: a group without a number does not work.

#pragma once

#include <vector>

#include "running_config/statements.hpp"

namespace aaactl {

struct GroupChanges {
    std::vector<Owner> created;
    std::vector<Owner> deleted;

    // A group of another protocol gives its name up in the same change.
    bool takes_a_name(const Owner &owner) const;
};
GroupChanges group_changes(const Items &before, const Items &after);

class Numbers {
  public:
    Numbers(Database &database, const GroupChanges &groups) : database_(database), groups_(groups) {}

    // Before the groups are configured, as "sg add" does: those whose names are free. Failure when one is
    // refused; the others have no numbers then.
    void publish();
    // When they are configured: the numbers of deleted groups, and then of those that take their names. A
    // failure is a note, because the configuration is stored.
    void settle(Output &out);
    // When they could not be configured.
    void undo();

  private:
    void publish(bool those_that_take_names);
    void publish(const Owner &owner);

    Database &database_;
    const GroupChanges &groups_;
    std::vector<Owner> published_;
};

}  // namespace aaactl
