// SPDX-License-Identifier: Apache-2.0

#include "running_config/numbers.hpp"

#include <algorithm>

#include "aaa/server_groups.h"
#include "config/groups.hpp"
#include "platform/cerr.h"
#include "running_config/stored.hpp"

namespace aaactl {
namespace {

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
    return {only_in_first(after, before), only_in_first(before, after)};
}

void Numbers::publish() {
    publish(false);
}

void Numbers::settle(Output &out) {
    for (const Owner &owner : groups_.deleted) {
        uint32_t number = 0;
        change_number(database_, owner.of(), *owner.group, AAA_CFG_OP_DELETE, number);
    }
    try {
        publish(true);
    } catch (const Failure &failure) {
        out.note(std::string("aaactl: ") + failure.what() + "; the service publishes the number later");
    }
}

void Numbers::undo() {
    for (const Owner &owner : published_) {
        uint32_t number = 0;
        change_number(database_, owner.of(), *owner.group, AAA_CFG_OP_DELETE, number);
    }
}

void Numbers::publish(bool those_that_take_names) {
    for (const Owner &owner : groups_.created) {
        if (groups_.takes_a_name(owner) == those_that_take_names) {
            publish(owner);
        }
    }
}

void Numbers::publish(const Owner &owner) {
    const auto before = read_group(database_, owner.of(), *owner.group);
    uint32_t number = 0;
    const cerrno rc = change_number(database_, owner.of(), *owner.group, AAA_CFG_OP_CREATE, number);
    if (rc != 0) {
        undo();
        throw Failure(database_failure("", rc).code(),
                      "server group " + escaped(*owner.group) + ": refused: " + escaped(cerr_strerror(rc)));
    }
    if (!before || !before->number) {
        published_.push_back(owner);
    }
}

}  // namespace aaactl
