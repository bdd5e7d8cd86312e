// SPDX-License-Identifier: Apache-2.0

#include "running_config/numbers.hpp"

#include <algorithm>

#include "aaa/server_groups.h"
#include "config/groups.hpp"
#include "platform/cerr.h"
#include "running_config/stored.hpp"

namespace aaactl {
namespace {

constexpr char kPublish[] = "; to number the groups, say: aaactl sg publish";

std::vector<Owner> only_in_first(const Items &first, const Items &second) {
    const std::vector<Owner> others = group_owners(second);
    std::vector<Owner> owners = group_owners(first);
    std::erase_if(owners, [&](const Owner &owner) {
        return std::find(others.begin(), others.end(), owner) != others.end();
    });
    return owners;
}

}  // namespace

bool GroupChanges::takes_a_name(const Owner &owner) const {
    return std::any_of(deleted.begin(), deleted.end(),
                       [&](const Owner &one) { return one.group == owner.group; });
}

GroupChanges group_changes(const Items &before, const Items &after) {
    Items differing;
    for (const auto &[path, item] : after) {
        const auto found = before.find(path);
        if (found == before.end() || !(found->second == item)) {
            differing.emplace_hint(differing.end(), path, item);
        }
    }
    GroupChanges groups{only_in_first(after, before), only_in_first(before, after), group_owners(differing)};
    std::erase_if(groups.changed, [&](const Owner &owner) {
        return std::find(groups.created.begin(), groups.created.end(), owner) != groups.created.end();
    });
    return groups;
}

void Numbers::publish() {
    const std::vector<group_numbers::Group> groups = created(false);
    const std::vector<group_numbers::Number> numbers = publish_numbers(database_, groups);
    for (size_t i = 0; i < groups.size(); ++i) {
        if (numbers[i].is_new) {
            published_.push_back(groups[i]);
        }
    }
    for (size_t i = 0; i < groups.size(); ++i) {
        if (numbers[i].rc != 0) {
            throw number_failure(groups[i].name, numbers[i]);
        }
    }
}

void Numbers::undo(Output &out) {
    try {
        if (const cerrno rc = withdraw_unused_numbers(out, database_, published_); rc != 0) {
            out.note("aaactl: numbers of groups that are not configured stay published: " +
                     escaped(cerr_strerror(rc)) +
                     "; the next load uses them, and \"aaactl lint\" lists them");
        }
    } catch (const Failure &failure) {  // of a group that another process has configured
        out.note(std::string("aaactl: ") + failure.what() + kPublish);
    }
    published_.clear();
}

void Numbers::settle(Output &out) {
    std::vector<group_numbers::Group> deleted;
    for (const Owner &owner : groups_.deleted) {
        deleted.push_back({owner.of().word, *owner.group});
    }
    std::vector<group_numbers::Group> groups = created(true);
    const size_t new_groups = groups.size();  // of others a refusal is not the fault of this change
    for (const Owner &owner : groups_.changed) {
        groups.push_back({owner.of().word, *owner.group});
    }
    try {
        const cerrno rc = withdraw_unused_numbers(out, database_, deleted);
        const auto numbers = publish_numbers(database_, groups);
        for (size_t i = 0; i < new_groups; ++i) {
            if (numbers[i].rc != 0) {
                throw number_failure(groups[i].name, numbers[i]);
            }
        }
        if (rc != 0) {
            throw database_failure(kGroupMaps, rc);
        }
    } catch (const Failure &failure) {
        out.note(std::string("aaactl: everything is stored, but ") + failure.what() + kPublish);
    }
}

std::vector<group_numbers::Group> Numbers::created(bool with_those_that_take_names) const {
    std::vector<group_numbers::Group> groups;
    for (const Owner &owner : groups_.created) {
        if (with_those_that_take_names || !groups_.takes_a_name(owner)) {
            groups.push_back({owner.of().word, *owner.group});
        }
    }
    return groups;
}

}  // namespace aaactl
