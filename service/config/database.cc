// SPDX-License-Identifier: Apache-2.0
//
// Method lists and groups, as the library resolves them, but all at once: so the service
// answers from memory, and a database that is away delays no login.

#include "config/database.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>

#include "aaa/result_codes.h"
#include "aaa/server_groups.h"
#include "config/database_read.hpp"
#include "numbers/group_numbers.hpp"
#include "platform/cerr.h"

namespace service {

namespace {

constexpr std::size_t kSlots = 4;

struct Tuple {
    std::int32_t leading[3] = {};
    std::uint32_t method[kSlots] = {};
    char name[kSlots][SYSDB_NAME_SIZE] = {};
};

bool unpack(const std::string &bytes, bool accounting, Tuple &tuple) {
    if (accounting && tuple_unpack_mask(bytes.data(), "%d%d%d%d%d%d%d%s%s%s%s", &tuple.leading[0],
                                        &tuple.leading[1], &tuple.leading[2], &tuple.method[0],
                                        &tuple.method[1], &tuple.method[2], &tuple.method[3], tuple.name[0],
                                        tuple.name[1], tuple.name[2], tuple.name[3]) == 0) {
        return true;
    }
    return tuple_unpack_mask(bytes.data(), "%d%d%d%d%s%s%s%s", &tuple.method[0], &tuple.method[1],
                             &tuple.method[2], &tuple.method[3], tuple.name[0], tuple.name[1], tuple.name[2],
                             tuple.name[3]) == 0;
}

// The group that a list means by a name: protocols in their order.
std::shared_ptr<const Group> find_group(const Snapshot &snapshot, const std::string &name) {
    const auto found = std::find_if(snapshot.groups.begin(), snapshot.groups.end(),
                                    [&](const auto &group) { return group->name == name; });
    return found != snapshot.groups.end() ? *found : nullptr;
}

std::shared_ptr<const Group> find_group(const Snapshot &snapshot, std::uint32_t number) {
    const auto found = std::find_if(snapshot.groups.begin(), snapshot.groups.end(),
                                    [&](const auto &group) { return group->number == number; });
    return found != snapshot.groups.end() ? *found : nullptr;
}

std::shared_ptr<const Group> servers_of(const Snapshot &snapshot, Protocol protocol) {
    const auto found = std::find_if(snapshot.groups.begin(), snapshot.groups.end(), [&](const auto &group) {
        return group->name.empty() && group->protocol == protocol;
    });
    return found != snapshot.groups.end() ? *found : nullptr;
}

Method make_method(const Snapshot &snapshot, std::uint32_t number, const char *name) {
    Method method{number, {}, nullptr};
    if (number == AAA_METHOD_SERVER_GROUP) {
        method.group_name = name;
        method.group = method.group_name.empty() ? nullptr : find_group(snapshot, method.group_name);
    } else if (number == AAA_METHOD_RADIUS) {
        method.group = servers_of(snapshot, Protocol::kRadius);
    } else if (number == AAA_METHOD_TACACSPLUS) {
        method.group = servers_of(snapshot, Protocol::kTacacs);
    } else if (number >= 1000) {  // a list that a program has stored with numbers
        method.group = find_group(snapshot, number);
        method.group_name = method.group != nullptr ? method.group->name : std::to_string(number);
        method.number = AAA_METHOD_SERVER_GROUP;
    }
    return method;
}

void read_list(DatabaseReader &reader, const std::string &path, bool accounting, Snapshot &snapshot) {
    const auto bytes = reader.tuple(path);
    Tuple tuple;
    if (!bytes) {
        return;
    }
    if (!unpack(*bytes, accounting, tuple)) {
        reader.fault(path, "it is not a method list, so it is not used; set it: aaactl mlist set");
        return;
    }
    MethodList list;
    list.broadcast = accounting && tuple.leading[2] != 0;
    for (std::size_t i = 0; i < kSlots && tuple.method[i] != AAA_METHOD_NOTSET; ++i) {
        list.methods.push_back(make_method(snapshot, tuple.method[i], tuple.name[i]));
        const Method &method = list.methods.back();
        if (method.number == AAA_METHOD_SERVER_GROUP && method.group == nullptr) {
            reader.fault(path,
                         "the server group \"" + method.group_name + "\" is not configured, and is skipped");
        }
    }
    snapshot.lists.emplace(path, std::move(list));
}

void read_lists(DatabaseReader &reader, Snapshot &snapshot) {
    for (const char *function : {"authentication", "authorization", "accounting", "authorization_nacm"}) {
        const std::string below = std::string(function) + "/";
        for (const DatabaseEntry &service : reader.entries(below)) {
            if (!service.is_directory) {
                continue;
            }
            for (const DatabaseEntry &list : reader.entries(below + service.name + "/")) {
                if (!list.is_directory) {
                    read_list(reader, below + service.name + "/" + list.name,
                              std::strcmp(function, "accounting") == 0, snapshot);
                }
            }
        }
    }
    // The one default list with a method that exists without being configured.
    snapshot.lists.emplace("authentication/ppp/default",
                           MethodList{{{AAA_METHOD_LOCAL, {}, nullptr}}, false, false});
}

std::uint32_t published_number(sysdb_conn_t maps, Protocol protocol, const std::string &name) {
    const std::string path = std::string("sg_name_map/") + protocol_word(protocol) + "/" + name;
    std::uint32_t type = SYSDB_TYPE_U32;
    void *value = nullptr;
    std::uint32_t length = 0;
    std::uint32_t number = 0;
    if (maps != 0 && sysdb_item_get(maps, path.c_str(), &type, &value, &length, 0) == 0) {
        std::memcpy(&number, value, std::min<std::size_t>(length, sizeof number));
        std::free(value);
    }
    return number;
}

std::string not_published(const std::string &name, const std::string &why) {
    return "the number of the server group \"" + name + "\" is not published: " + why;
}

void read_groups(DatabaseReader &reader, sysdb_conn_t maps, OpenedKeys &keys, Snapshot &snapshot) {
    ServersReader servers{reader, keys, snapshot.settings->servers, snapshot.kept_keys};
    for (const Protocol protocol : kProtocols) {
        const std::string word = protocol_word(protocol);
        Group without{protocol, "", 0, servers.read(protocol, word + "/host/", word + "/settings/")};
        snapshot.groups.push_back(std::make_shared<const Group>(std::move(without)));
        const std::string groups = "group-server/" + word + "/";
        for (const DatabaseEntry &entry : reader.entries(groups)) {
            const std::string at = groups + entry.name + "/";
            Group group{protocol, entry.name, published_number(maps, protocol, entry.name), {}};
            for (const char *place : {"server/", "server-private/"}) {
                auto found = servers.read(protocol, at + place, at + "settings/");
                std::move(found.begin(), found.end(), std::back_inserter(group.servers));
            }
            snapshot.groups.push_back(std::make_shared<const Group>(std::move(group)));
        }
    }
}

// What the library says against a change of a group; a group that a list still names keeps its number.
bool is_accepted(std::uint32_t operation, Protocol protocol, const std::string &name,
                 std::vector<std::string> &faults) {
    aaa_cfg_event_t event{};
    event.operation = operation;
    std::uint32_t verdict = 0;
    char *reason = nullptr;
    const cerrno rc =
        aaa_util_svr_grp_verify(&event, &reason, &verdict, name.c_str(), protocol_keyword(protocol));
    if (rc != AAA_OK && rc != AAA_ERR_SG_IN_USE) {
        faults.push_back(not_published(name, reason != nullptr ? reason : cerr_strerror(rc)));
    }
    std::free(reason);
    return rc == AAA_OK && verdict == AAA_VERDICT_ACCEPTED;
}

std::optional<std::set<std::string>> names_in(sysdb_conn_t conn, const std::string &directory) {
    ReadResult result;
    DatabaseReader reader(conn, result);
    std::set<std::string> names;
    for (const DatabaseEntry &entry : reader.entries(directory)) {
        names.insert(entry.name);
    }
    return reader.failed() ? std::nullopt : std::optional(std::move(names));
}

}  // namespace

ReadResult read_database(sysdb_conn_t config, sysdb_conn_t maps, OpenedKeys &keys, Snapshot &snapshot) {
    ReadResult result;
    DatabaseReader reader(config, result);
    keys.begin();
    read_groups(reader, maps, keys, snapshot);
    read_lists(reader, snapshot);
    keys.end(!reader.failed());
    if (reader.failed()) {
        snapshot.kept_keys.clear();
        snapshot.lists.clear();
        snapshot.groups.clear();
    }
    return result;
}

void publish_groups(sysdb_conn_t config, sysdb_conn_t maps, std::vector<std::string> &faults) {
    std::vector<group_numbers::Group> wanted;
    std::vector<group_numbers::Group> unwanted;
    for (const Protocol protocol : kProtocols) {
        const std::string word = protocol_word(protocol);
        const auto configured = names_in(config, "group-server/" + word + "/");
        const auto published = names_in(maps, "sg_name_map/" + word + "/");
        if (!configured || !published) {
            continue;  // an error is not the absence of groups: no number is withdrawn
        }
        for (const std::string &name : *configured) {
            if (published->contains(name) || is_accepted(AAA_CFG_OP_CREATE, protocol, name, faults)) {
                wanted.push_back({word, name});
            }
        }
        for (const std::string &name : *published) {
            if (!configured->contains(name) && is_accepted(AAA_CFG_OP_DELETE, protocol, name, faults)) {
                unwanted.push_back({word, name});
            }
        }
    }
    std::vector<group_numbers::Number> numbers;
    cerrno rc = group_numbers::publish(maps, wanted, numbers);
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        if (numbers[i].rc != AAA_OK) {
            faults.push_back(not_published(wanted[i].name, cerr_strerror(numbers[i].rc)));
        }
    }
    rc = rc == AAA_OK ? group_numbers::withdraw(maps, unwanted) : rc;
    if (rc != AAA_OK) {
        faults.push_back(std::string("the numbers of the server groups are not published: ") +
                         cerr_strerror(rc));
    }
}

}  // namespace service
