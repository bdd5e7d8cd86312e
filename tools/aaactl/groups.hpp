// SPDX-License-Identifier: Apache-2.0
//
// Server groups as they are configured, below /cfg/gl/aaa/group-server/, and
// as they are published with their numbers, below /oper/aaa/gl/group-server/.

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "database.hpp"

namespace aaactl::configured {

inline constexpr char kGroupConfig[] = "/cfg/gl/aaa/group-server/";
inline constexpr char kGroupMaps[] = "/oper/aaa/gl/group-server/";
inline constexpr uint32_t kProtocols[] = {1, 2, 17};  // RADIUS, TACACS, Diameter

// "radius", "tacacs" or "diameter".
std::string protocol_name(uint32_t protocol);
uint32_t protocol_number(std::string_view name);
const std::vector<std::string> &protocol_names();

struct GroupServer {
    uint32_t index = 0;
    std::string entry;  // as it is stored: host and ports, '/' at its end for a directory
    bool is_private = false;

    std::string host() const;
    // The numbers behind the host, in the order in which they stand there.
    std::vector<uint32_t> ports() const;
};

struct Group {
    uint32_t protocol = 0;
    std::string name;
    bool configured = false;
    std::optional<uint32_t> number;
    std::vector<GroupServer> servers;
    std::string fault;  // "", or why the number cannot be read
};

// "/oper/aaa/gl/group-server/sg_name_map/radius/corp", the item with the group's number
std::string number_path(uint32_t protocol, const std::string &name);
// "/cfg/gl/aaa/group-server/radius/corp/"
std::string group_directory(uint32_t protocol, const std::string &name);
// Reads one group; one that is neither configured nor published: nullopt.
std::optional<Group> read_group(Database &database, uint32_t protocol, const std::string &name);
// The group that a method list means by a name: protocols in their order, published ones first.
std::optional<Group> resolve_group(Database &database, const std::string &name);
// All of a protocol, by name.
std::vector<Group> read_groups(Database &database, uint32_t protocol);

// {protocol, name, number or null, configured, servers: [{index, address, ports, private}], fault if there is
// one}
Json group_json(const Group &group);
std::string server_text(const GroupServer &server);

// Printable, without '/', and of a length that fits a method list; Failure(usage) says what it is not.
void check_group_name(const std::string &name);

}  // namespace aaactl::configured
