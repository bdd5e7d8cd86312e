// SPDX-License-Identifier: Apache-2.0
//
// What the commands on server groups share.

#pragma once

#include <string>
#include <vector>

#include "cli/commands.hpp"
#include "config/groups.hpp"

namespace aaactl {

struct GroupOptions {
    std::string protocol;
    std::string name;
    std::vector<std::string> servers;
    bool is_private = false;
};

// {protocol, name, number, configured, servers, fault}
Json group_json(Database &database, const Group &group);
std::string servers_text(const Group &group);

// Asks the library whether the group may be created or deleted. Failure with its reason, or with the text of
// its code if it gives none.
void verify_change(const GroupOptions &options, uint32_t operation);
// Has the library change the maps of names and numbers.
cerrno apply_to_maps(Database &database, const GroupOptions &options, uint32_t operation, uint32_t &number);

// Each adds its part of "sg"; add_sg() calls them.
void add_sg_add(Command sg);
void add_sg_delete(Command sg);
void add_sg_publish(Command sg);
void add_sg_key(Command sg);

}  // namespace aaactl
