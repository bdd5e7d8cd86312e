// SPDX-License-Identifier: Apache-2.0
//
// What the commands on server groups share.

#pragma once

#include <string>
#include <vector>

#include "cli/commands.hpp"
#include "config/groups.hpp"
#include "database/sysdb_apply.hpp"

namespace aaactl {

struct GroupOptions {
    std::string protocol;
    std::string name;
    std::vector<std::string> servers;
    bool is_private = false;
    bool force = false;
};
// The arguments PROTOCOL and NAME.
void add_group_words(Command sub, GroupOptions &options);

// Makes the changes of the configuration of groups; Failure if the database refuses them.
void configure_groups(Database &database, const Changes &changes);

// {protocol, name, number, configured, servers, fault}
Json group_json(Database &database, const Group &group);
std::string servers_text(const Group &group);

// Each adds its part of "sg"; add_sg() calls them.
void add_sg_add(Command sg);
void add_sg_delete(Command sg);
void add_sg_publish(Command sg);
void add_sg_key(Command sg);

}  // namespace aaactl
