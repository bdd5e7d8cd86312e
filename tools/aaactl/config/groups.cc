// SPDX-License-Identifier: Apache-2.0
//
// Reads groups and their servers. An entry that cannot be parsed is kept in the
// result, with its defect.

#include "config/groups.hpp"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <memory>
#include <set>

#include "aaa/result_codes.h"
#include "aaa/server_groups.h"
#include "platform/cerr.h"

namespace aaactl {
namespace {

// The directory of an ordinal, "0x1/", holds one server, as an item or as a directory.
void read_ordinal(Database &database, const std::string &directory, const Entry &ordinal,
                  const Protocol &protocol, bool is_private, std::vector<Server> &servers) {
    const std::string name = ordinal.bare_name();
    const auto index = ordinal_in(name);
    const std::string path = directory + ordinal.name;
    if (!index || !ordinal.is_directory()) {
        const std::string defect = "\"" + escaped(ordinal.name) + "\" is not an ordinal of a server";
        servers.push_back({path, 0, name, is_private, name, {}, defect});
        return;
    }
    for (const Entry &entry : database.entries(path)) {
        ServerEntry read = read_server_entry(entry.bare_name(), protocol.is_radius() ? 2 : 1);
        servers.push_back({path + entry.name, *index, entry.bare_name(), is_private, std::move(read.host),
                           std::move(read.ports), std::move(read.defect)});
    }
}

void read_servers(Database &database, const std::string &directory, const Protocol &protocol, bool is_private,
                  std::vector<Server> &servers) {
    for (const Entry &ordinal : database.entries(directory)) {
        read_ordinal(database, directory, ordinal, protocol, is_private, servers);
    }
}

std::string groups_path(const Protocol &protocol) {
    return std::string(kGroupConfig) + protocol.word + "/";
}

std::string numbers_path(const Protocol &protocol) {
    return std::string(kGroupMaps) + "sg_name_map/" + protocol.word + "/";
}

// False when no path can name the group: then it cannot exist.
bool read_configured(Database &database, Group &group) {
    std::string fault;
    const bool is_directory = database.list(group.path, fault).has_value();
    if (!fault.empty() || group.name.find('/') != std::string::npos) {
        return false;
    }
    const std::string item = group.path.substr(0, group.path.size() - 1);
    group.configured = is_directory || database.find(item, fault).has_value() || !fault.empty();
    return true;
}

void read_number(Database &database, Group &group) {
    const auto item = database.find(number_path(group), group.number_defect);
    if (item && item->type == SYSDB_TYPE_U32) {
        group.number = number_of(*item);
    } else if (item) {
        group.number_defect = "it is of type " + type_name(item->type) + ", not a u32";
    }
}

struct FreeText {
    void operator()(char *text) const { std::free(text); }
};

bool is_published(const Group &group) {
    return group.number || !group.number_defect.empty();
}

}  // namespace

bool is_sound(const Server &server) {
    return server.defect.empty();
}

bool any_sound(const std::vector<Server> &servers) {
    return std::any_of(servers.begin(), servers.end(), is_sound);
}

std::string server_text(const Server &server) {
    std::string text = escaped(server.host);
    for (const uint32_t port : server.ports) {
        text += "," + std::to_string(port);
    }
    return text;
}

std::string group_path(const Protocol &protocol, const std::string &name) {
    return groups_path(protocol) + name + "/";
}

std::string number_path(const Group &group) {
    return numbers_path(group.protocol) + group.name;
}

std::optional<Group> read_group(Database &database, const Protocol &protocol, const std::string &name) {
    Group group{protocol, name, group_path(protocol, name), false, {}, {}, {}};
    if (!read_configured(database, group)) {
        return std::nullopt;
    }
    read_number(database, group);
    if (!group.configured && !is_published(group)) {
        return std::nullopt;
    }
    read_servers(database, group.path + "server/", protocol, false, group.servers);
    read_servers(database, group.path + "server-private/", protocol, true, group.servers);
    return group;
}

std::optional<Group> resolve_group(Database &database, const std::string &name) {
    std::optional<Group> configured;
    for (const Protocol &protocol : kProtocols) {
        auto group = read_group(database, protocol, name);
        if (group && is_published(*group)) {
            return group;  // a number that cannot be read ends the clients' search too
        }
        if (group && !configured) {
            configured = std::move(group);
        }
    }
    return configured;
}

std::vector<Group> read_groups(Database &database, const Protocol &protocol) {
    std::set<std::string> names;
    for (const std::string &directory : {groups_path(protocol), numbers_path(protocol)}) {
        for (const Entry &entry : database.entries(directory)) {
            names.insert(entry.bare_name());
        }
    }
    std::vector<Group> groups;
    for (const std::string &name : names) {
        if (auto group = read_group(database, protocol, name)) {
            groups.push_back(*std::move(group));
        }
    }
    return groups;
}

std::vector<std::string> group_names(Database &database) {
    std::vector<std::string> names;
    for (const Protocol &protocol : kProtocols) {
        for (const Group &group : read_groups(database, protocol)) {
            names.push_back(group.name);
        }
    }
    return names;
}

std::string protocol_servers_path(const Protocol &protocol) {
    return kConfigRoot + std::string(protocol.word) + "/host/";
}

std::vector<Server> protocol_servers(Database &database, const Protocol &protocol) {
    std::vector<Server> servers;
    read_servers(database, protocol_servers_path(protocol), protocol, false, servers);
    return servers;
}

// The refusal's reason, or the text of its code if the library gives none.
void verify_group(const Protocol &protocol, const std::string &name, uint32_t operation) {
    aaa_cfg_event_t event{};
    event.operation = operation;
    char *reason = nullptr;
    uint32_t verdict = 0;
    const cerrno rc = aaa_util_svr_grp_verify(&event, &reason, &verdict, name.c_str(), protocol.number);
    const std::unique_ptr<char, FreeText> owner(reason);
    if (rc == AAA_OK && verdict == AAA_VERDICT_ACCEPTED) {
        return;
    }
    if (rc == SYSDB_ERR_LIB_ABSENT) {
        throw database_failure(kGroupMaps, rc);
    }
    const bool is_refusal =
        rc == AAA_ERR_INVALID_ARG || rc == AAA_ERR_SG_NAME_OTHER_PROTOCOL || rc == AAA_ERR_SG_IN_USE;
    throw Failure(is_refusal ? ExitCode::negative : database_failure("", rc).code(),
                  "server group " + escaped(name) +
                      ": refused: " + escaped(reason != nullptr ? reason : cerr_strerror(rc)));
}

std::vector<group_numbers::Number> publish_numbers(Database &database,
                                                   const std::vector<group_numbers::Group> &groups) {
    std::vector<group_numbers::Number> numbers;
    if (groups.empty()) {  // the database of the numbers is not needed
        return numbers;
    }
    if (const cerrno rc = group_numbers::publish(database.connection(kGroupMaps), groups, numbers);
        rc != AAA_OK) {
        throw database_failure(kGroupMaps, rc);
    }
    return numbers;
}

Failure number_failure(const std::string &name, const group_numbers::Number &number) {
    const std::string reason =
        number.is_used_up
            ? "every number of its protocol belongs to a group; delete a group that is not needed"
            : escaped(cerr_strerror(number.rc));
    return {database_failure("", number.rc).code(), "server group " + escaped(name) + ": refused: " + reason};
}

// The configuration and the numbers cannot be changed as one. Who configures a group publishes its number
// afterwards: if that was before the number is withdrawn, the second look sees the group.
cerrno withdraw_unused_numbers(Output &out, Database &database, std::vector<group_numbers::Group> groups) {
    const auto is_configured = [&](const group_numbers::Group &group) {
        const Protocol &protocol = protocol_named(group.protocol);
        Group read{protocol, group.name, group_path(protocol, group.name), false, {}, {}, {}};
        return read_configured(database, read) && read.configured;
    };
    std::erase_if(groups, is_configured);
    if (groups.empty()) {
        return AAA_OK;
    }
    out.progress("Withdrawing " + std::to_string(groups.size()) + " numbers as one change");
    const cerrno rc = group_numbers::withdraw(database.connection(kGroupMaps), groups);
    std::erase_if(groups, [&](const group_numbers::Group &group) { return !is_configured(group); });
    const auto numbers = publish_numbers(database, groups);
    for (size_t i = 0; i < numbers.size(); ++i) {
        if (numbers[i].rc != AAA_OK) {
            throw number_failure(groups[i].name, numbers[i]);
        }
    }
    return rc;
}

}  // namespace aaactl
