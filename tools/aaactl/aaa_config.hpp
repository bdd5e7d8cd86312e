// SPDX-License-Identifier: Apache-2.0
//
// Method lists and server groups as the system database has them, read
// directly: what the library's lookups leave out, and what they would refuse.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "database.hpp"

namespace aaactl {

inline constexpr std::string_view kConfigRoot = "/cfg/gl/aaa/";
inline constexpr std::string_view kGroupMaps = "/oper/aaa/gl/group-server/";

// The protocols of server groups, in the order in which a name is looked up.
struct Protocol {
    uint32_t number;
    const char *word;
};
inline constexpr Protocol kProtocols[] = {{1, "radius"}, {2, "tacacs"}, {17, "diameter"}};

// An entry of a list of servers.
struct Server {
    std::string path;    // of the entry
    uint32_t index = 0;  // its ordinal
    std::string host;
    std::vector<uint32_t> ports;  // authentication and accounting for RADIUS, else at most one
    bool is_private = false;
    std::string defect;  // "", or why it is no server
};

struct Group {
    Protocol protocol;
    std::string name;
    std::string path;  // of its directory
    std::vector<Server> servers;
};

struct Slot {
    uint32_t method = 0;
    std::string group;  // for a server group
};

struct MethodList {
    std::string function;  // "authentication", ...
    std::string service;   // word of the path
    std::string name;
    std::string path;
    std::vector<uint32_t> leading;  // integers before the methods: three in accounting lists
    std::vector<Slot> slots;        // all four, as they are stored
    std::string defect;             // "", or why it is no method list

    // Those that count: up to the first empty slot.
    std::vector<Slot> methods() const;
};

std::string list_path(std::string_view function, std::string_view service, std::string_view name);

std::optional<MethodList> find_list(Database &database, const std::string &function,
                                    const std::string &service, const std::string &name);
// Names of the lists of a service; empty when it has none.
std::vector<std::string> list_names(Database &database, const std::string &function,
                                    const std::string &service);
// Words of the services that have a directory.
std::vector<std::string> service_words(Database &database, const std::string &function);

// The groups of that name, one for each protocol that has it, in order of lookup.
std::vector<Group> find_groups(Database &database, const std::string &name);
std::vector<Group> all_groups(Database &database);
// The servers that a protocol has without a group.
std::vector<Server> protocol_servers(Database &database, const Protocol &protocol);
std::string protocol_servers_path(const Protocol &protocol);

}  // namespace aaactl
