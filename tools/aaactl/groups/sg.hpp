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

// Each adds its part of "sg"; add_sg() calls them.
void add_sg_add(Command sg);
void add_sg_delete(Command sg);
void add_sg_publish(Command sg);
void add_sg_key(Command sg);

}  // namespace aaactl
