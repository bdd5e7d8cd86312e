// SPDX-License-Identifier: Apache-2.0

#include "groups.hpp"

#include <charconv>
#include <nlohmann/json.hpp>
#include <set>

#include "aaa/method_lists.h"
#include "aaa/server_groups.h"

namespace aaactl::configured {
namespace {

constexpr std::string_view kServerDirectories[] = {"server/", "server-private/"};

std::string without_slash(const std::string &name) {
    return name.ends_with('/') ? name.substr(0, name.size() - 1) : name;
}

// "0x14/", the index of a list of servers; whatever else stands there is none.
std::optional<uint32_t> index_of(const std::string &name) {
    uint32_t index = 0;
    const char *end = name.data() + name.size() - (name.ends_with('/') ? 1 : 0);
    if (!name.starts_with("0x")) {
        return std::nullopt;
    }
    const auto [stop, error] = std::from_chars(name.data() + 2, end, index, 16);
    return error == std::errc() && stop == end ? std::optional(index) : std::nullopt;
}

void read_servers(Database &database, const std::string &directory, bool is_private,
                  std::vector<GroupServer> &servers) {
    for (const Entry &level : database.list(directory).value_or(std::vector<Entry>{})) {
        const auto index = index_of(level.name);
        if (!index || !level.is_directory()) {
            continue;
        }
        for (const Entry &entry : database.list(directory + level.name).value_or(std::vector<Entry>{})) {
            servers.push_back({*index, entry.name, is_private});
        }
    }
}

std::set<std::string> names_in(Database &database, const std::string &directory) {
    std::set<std::string> names;
    for (const Entry &entry : database.list(directory).value_or(std::vector<Entry>{})) {
        names.insert(without_slash(entry.name));
    }
    return names;
}

// The fields of "host,1812,1813" or, of a directory, "host,0x31/".
std::vector<std::string> fields_of(const std::string &entry) {
    std::vector<std::string> fields;
    const std::string text = without_slash(entry);
    for (size_t at = 0; at <= text.size();) {
        const size_t comma = std::min(text.find(',', at), text.size());
        fields.push_back(text.substr(at, comma - at));
        at = comma + 1;
    }
    return fields;
}

}  // namespace

std::string protocol_name(uint32_t protocol) {
    const char *name = aaa_util_get_sg_defined_name(protocol);
    return name != nullptr ? name : "protocol " + std::to_string(protocol);
}

const std::vector<std::string> &protocol_names() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all;
        for (const uint32_t protocol : kProtocols) {
            all.push_back(protocol_name(protocol));
        }
        return all;
    }();
    return names;
}

uint32_t protocol_number(std::string_view name) {
    for (const uint32_t protocol : kProtocols) {
        if (protocol_name(protocol) == name) {
            return protocol;
        }
    }
    throw Failure(ExitCode::usage, "\"" + escaped(name) + "\" is no protocol: radius, tacacs or diameter");
}

std::string GroupServer::host() const {
    return fields_of(entry).front();
}

std::vector<uint32_t> GroupServer::ports() const {
    std::vector<uint32_t> ports;
    const std::vector<std::string> fields = fields_of(entry);
    for (size_t i = 1; i < fields.size(); ++i) {
        const bool is_hex = fields[i].starts_with("0x");
        uint32_t port = 0;
        std::from_chars(fields[i].data() + (is_hex ? 2 : 0), fields[i].data() + fields[i].size(), port,
                        is_hex ? 16 : 10);
        ports.push_back(port);
    }
    return ports;
}

std::string number_path(uint32_t protocol, const std::string &name) {
    return std::string(kGroupMaps) + "sg_name_map/" + protocol_name(protocol) + "/" + name;
}

std::string group_directory(uint32_t protocol, const std::string &name) {
    return kGroupConfig + protocol_name(protocol) + "/" + name + "/";
}

std::optional<Group> read_group(Database &database, uint32_t protocol, const std::string &name) {
    Group group{protocol, name, false, std::nullopt, {}, {}};
    const std::string directory = group_directory(protocol, name);
    std::string fault;
    group.configured = database.list(directory).has_value() ||
                       database.find(without_slash(directory), fault).has_value() || !fault.empty();
    const auto item = database.find(number_path(protocol, name), group.fault);
    if (item && item->type == SYSDB_TYPE_U32) {
        group.number = number_of(*item);
    } else if (item) {
        group.fault = "it is of type " + type_name(item->type) + ", not a u32";
    }
    if (!group.configured && !item && group.fault.empty()) {
        return std::nullopt;
    }
    for (const std::string_view part : kServerDirectories) {
        read_servers(database, directory + std::string(part), part != kServerDirectories[0], group.servers);
    }
    return group;
}

std::optional<Group> resolve_group(Database &database, const std::string &name) {
    std::optional<Group> configured;
    for (const uint32_t protocol : kProtocols) {
        auto group = read_group(database, protocol, name);
        if (group && (group->number || !group->fault.empty())) {
            return group;  // a number that cannot be read ends the clients' search too
        }
        if (group && !configured) {
            configured = std::move(group);
        }
    }
    return configured;
}

std::vector<Group> read_groups(Database &database, uint32_t protocol) {
    std::set<std::string> names = names_in(database, kGroupConfig + protocol_name(protocol) + "/");
    names.merge(names_in(database, std::string(kGroupMaps) + "sg_name_map/" + protocol_name(protocol) + "/"));
    std::vector<Group> groups;
    for (const std::string &name : names) {
        if (auto group = read_group(database, protocol, name)) {
            groups.push_back(*std::move(group));
        }
    }
    return groups;
}

Json group_json(const Group &group) {
    Json document = {{"protocol", protocol_name(group.protocol)},
                     {"name", escaped(group.name)},
                     {"number", group.number ? Json(*group.number) : Json()},
                     {"configured", group.configured},
                     {"servers", Json::array()}};
    for (const GroupServer &server : group.servers) {
        document["servers"].push_back({{"index", server.index},
                                       {"address", escaped(server.host())},
                                       {"ports", server.ports()},
                                       {"private", server.is_private}});
    }
    if (!group.fault.empty()) {
        document["fault"] = group.fault;
    }
    return document;
}

std::string server_text(const GroupServer &server) {
    std::string text = escaped(server.host());
    for (const uint32_t port : server.ports()) {
        text += "," + std::to_string(port);
    }
    return text + (server.is_private ? " (private)" : "");
}

void check_group_name(const std::string &name) {
    std::string copy = name;  // the library takes it without const
    const bool printable = name.find('\0') == std::string::npos && aaa_is_name_valid(copy.data()) == 1;
    if (name.empty() || !printable || name.find('/') != std::string::npos || name.size() >= SYSDB_NAME_SIZE) {
        throw Failure(ExitCode::usage,
                      "\"" + escaped(name) + "\" is no name: 1 to 49 printable characters, no '/'");
    }
}

}  // namespace aaactl::configured
