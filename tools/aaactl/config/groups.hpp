// SPDX-License-Identifier: Apache-2.0
//
// Server groups as they are configured, below /cfg/gl/aaa/group-server/, and
// as they are published with their numbers, below /oper/aaa/gl/group-server/.
// Read directly, because the library's lookups omit or refuse some of them.

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "database/database.hpp"
#include "database/protocols.hpp"
#include "database/server_entry.hpp"
#include "numbers/group_numbers.hpp"

namespace aaactl {

inline constexpr char kConfigRoot[] = "/cfg/gl/aaa/";
inline constexpr char kGroupConfig[] = "/cfg/gl/aaa/group-server/";
inline constexpr char kGroupMaps[] = "/oper/aaa/gl/group-server/";

// An entry of a list of servers.
struct Server {
    std::string path;  // of the entry, with '/' at its end for a directory
    uint32_t index = 0;
    std::string entry;  // as it is stored, without that '/'
    bool is_private = false;
    std::string host;
    std::vector<uint32_t> ports;  // authentication and accounting for RADIUS, else at most one
    std::string defect;           // "", or why it is not a server
};
bool is_sound(const Server &server);
bool any_sound(const std::vector<Server> &servers);
// "host", "host,1812,1813"
std::string server_text(const Server &server);

struct Group {
    Protocol protocol;
    std::string name;
    std::string path;  // of its directory
    bool configured = false;
    std::optional<uint32_t> number;  // as it is published
    std::string number_defect;       // "", or why the number cannot be read
    std::vector<Server> servers;
};

// "/cfg/gl/aaa/group-server/radius/corp/"
std::string group_path(const Protocol &protocol, const std::string &name);
// "/oper/aaa/gl/group-server/sg_name_map/radius/corp", the item with the group's number
std::string number_path(const Group &group);
// nullopt for a group that is neither configured nor published.
std::optional<Group> read_group(Database &database, const Protocol &protocol, const std::string &name);
// The group that a method list means by a name: protocols in their order, published ones first.
std::optional<Group> resolve_group(Database &database, const std::string &name);
// All of a protocol, by name.
std::vector<Group> read_groups(Database &database, const Protocol &protocol);

// Names of all groups, for suggestions.
std::vector<std::string> group_names(Database &database);

// The servers that a protocol has without a group.
std::vector<Server> protocol_servers(Database &database, const Protocol &protocol);
std::string protocol_servers_path(const Protocol &protocol);

// The library's routines for a group that is created or deleted. `operation` is AAA_CFG_OP_CREATE or
// AAA_CFG_OP_DELETE. Failure(negative) with the library's reason if it refuses the change.
void verify_group(const Protocol &protocol, const std::string &name, uint32_t operation);
// Publishes the numbers of groups as one change, one element of the result for each. A group that has a
// number keeps it, unless no program can use it or it belongs to another group. Failure if nothing was
// changed.
std::vector<group_numbers::Number> publish_numbers(Database &database,
                                                   const std::vector<group_numbers::Group> &groups);
// Why a group got no number.
Failure number_failure(const std::string &name, const group_numbers::Number &number);
// Removes the numbers of groups as one change, but for those that are configured: another process may do that
// at any moment. The result is that of the change; Failure if a group that lost its number to it gets none.
cerrno withdraw_unused_numbers(Output &out, Database &database, std::vector<group_numbers::Group> groups);

}  // namespace aaactl
