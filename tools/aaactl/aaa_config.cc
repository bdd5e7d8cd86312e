// SPDX-License-Identifier: Apache-2.0

#include "aaa_config.hpp"

#include <arpa/inet.h>
#include <algorithm>
#include <charconv>

namespace aaactl {
namespace {

constexpr size_t kSlots = 4;

std::string without_slash(std::string name) {
    if (name.ends_with('/')) {
        name.pop_back();
    }
    return name;
}

// All of the text as a number, hexadecimal after "0x".
std::optional<uint32_t> number_in(std::string_view text) {
    const bool hexadecimal = text.starts_with("0x");
    const std::string_view digits = hexadecimal ? text.substr(2) : text;
    uint32_t number = 0;
    const char *end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, number, hexadecimal ? 16 : 10);
    return error == std::errc() && stop == end && !digits.empty() ? std::optional(number) : std::nullopt;
}

// ---- servers

bool is_address(const std::string &host) {
    unsigned char bytes[16];
    return inet_pton(AF_INET, host.c_str(), bytes) == 1 || inet_pton(AF_INET6, host.c_str(), bytes) == 1;
}

// "HOST", "HOST,PORT" or "HOST,PORT,PORT"; ports of other protocols than RADIUS are hexadecimal.
void read_entry(Server &server, std::string_view entry, size_t most_ports) {
    server.host = std::string(entry.substr(0, entry.find(',')));
    while (entry.find(',') != std::string_view::npos && server.defect.empty()) {
        entry.remove_prefix(entry.find(',') + 1);
        const auto port = number_in(entry.substr(0, entry.find(',')));
        if (!port || *port > 65535) {
            server.defect = "\"" + escaped(entry.substr(0, entry.find(','))) + "\" is no port";
        } else {
            server.ports.push_back(*port);
        }
    }
    if (server.defect.empty() && server.ports.size() > most_ports) {
        server.defect = "it has more than " + std::to_string(most_ports) + " port(s)";
    }
    if (server.defect.empty() && !is_address(server.host)) {
        server.defect = "\"" + escaped(server.host) + "\" is no address";
    }
}

// Below an ordinal "0x1/" stands one server, as an item or as a directory.
void read_ordinal(Database &database, const std::string &directory, const Entry &ordinal,
                  const Protocol &protocol, bool is_private, std::vector<Server> &servers) {
    const auto index = number_in(without_slash(ordinal.name));
    const std::string path = directory + ordinal.name;
    if (!index || !ordinal.is_directory()) {
        servers.push_back(
            {path, 0, {}, {}, is_private, "\"" + escaped(ordinal.name) + "\" is no ordinal of a server"});
        return;
    }
    for (const Entry &entry : database.list(path).value_or(std::vector<Entry>{})) {
        Server server{path + entry.name, *index, {}, {}, is_private, {}};
        read_entry(server, without_slash(entry.name), protocol.number == 1 ? 2 : 1);
        servers.push_back(std::move(server));
    }
}

void read_servers(Database &database, const std::string &directory, const Protocol &protocol, bool is_private,
                  std::vector<Server> &servers) {
    for (const Entry &ordinal : database.list(directory).value_or(std::vector<Entry>{})) {
        read_ordinal(database, directory, ordinal, protocol, is_private, servers);
    }
}

std::string groups_path(const Protocol &protocol) {
    return std::string(kConfigRoot) + "group-server/" + protocol.word + "/";
}

Group read_group(Database &database, const Protocol &protocol, const std::string &name) {
    Group group{protocol, name, groups_path(protocol) + name + "/", {}};
    read_servers(database, group.path + "server/", protocol, false, group.servers);
    read_servers(database, group.path + "server-private/", protocol, true, group.servers);
    return group;
}

// The names of a level, directories without their slash, each once.
std::vector<std::string> names_at(Database &database, const std::string &directory, bool directories_only) {
    std::vector<std::string> names;
    for (const Entry &entry : database.list(directory).value_or(std::vector<Entry>{})) {
        const std::string name = without_slash(entry.name);
        if ((entry.is_directory() || !directories_only) &&
            std::find(names.begin(), names.end(), name) == names.end()) {
            names.push_back(name);
        }
    }
    return names;
}

// ---- method lists

// Any number of integers from four on, of which the last four are the methods, then four names.
void read_fields(MethodList &list, const std::vector<TupleField> &fields) {
    const auto is_name = [](const TupleField &field) { return field.is_name; };
    const auto first_name =
        static_cast<size_t>(std::find_if(fields.begin(), fields.end(), is_name) - fields.begin());
    if (first_name < kSlots || fields.size() != first_name + kSlots ||
        !std::all_of(fields.begin() + static_cast<ptrdiff_t>(first_name), fields.end(), is_name)) {
        list.defect = "it does not hold four methods and four names";
        return;
    }
    for (size_t i = 0; i + kSlots < first_name; ++i) {
        list.leading.push_back(static_cast<uint32_t>(fields[i].number));
    }
    for (size_t i = 0; i < kSlots; ++i) {
        list.slots.push_back(
            {static_cast<uint32_t>(fields[first_name - kSlots + i].number), fields[first_name + i].name});
    }
}

}  // namespace

std::vector<Slot> MethodList::methods() const {
    const auto empty = [](const Slot &slot) { return slot.method == 0; };
    return {slots.begin(), std::find_if(slots.begin(), slots.end(), empty)};
}

std::string list_path(std::string_view function, std::string_view service, std::string_view name) {
    return std::string(kConfigRoot) + std::string(function) + "/" + std::string(service) + "/" +
           std::string(name);
}

std::optional<MethodList> find_list(Database &database, const std::string &function,
                                    const std::string &service, const std::string &name) {
    MethodList list{function, service, name, list_path(function, service, name), {}, {}, {}};
    const auto item = database.find(list.path, list.defect);
    if (!list.defect.empty()) {
        return list;
    }
    if (!item) {
        return std::nullopt;
    }
    if (item->type != SYSDB_TYPE_TUPLE) {
        list.defect = "it is of type " + type_name(item->type) + ", not a tuple";
        return list;
    }
    read_fields(list, tuple_fields(*item));
    return list;
}

std::vector<std::string> list_names(Database &database, const std::string &function,
                                    const std::string &service) {
    std::vector<std::string> names;
    for (const Entry &entry :
         database.list(list_path(function, service, "")).value_or(std::vector<Entry>{})) {
        if (!entry.is_directory()) {
            names.push_back(entry.name);
        }
    }
    return names;
}

std::vector<std::string> service_words(Database &database, const std::string &function) {
    return names_at(database, std::string(kConfigRoot) + function + "/", true);
}

std::vector<Group> find_groups(Database &database, const std::string &name) {
    std::vector<Group> found;
    for (const Protocol &protocol : kProtocols) {
        const auto names = names_at(database, groups_path(protocol), false);
        if (std::find(names.begin(), names.end(), name) != names.end()) {
            found.push_back(read_group(database, protocol, name));
        }
    }
    return found;
}

std::vector<Group> all_groups(Database &database) {
    std::vector<Group> groups;
    for (const Protocol &protocol : kProtocols) {
        for (const std::string &name : names_at(database, groups_path(protocol), false)) {
            groups.push_back(read_group(database, protocol, name));
        }
    }
    return groups;
}

std::string protocol_servers_path(const Protocol &protocol) {
    return std::string(kConfigRoot) + protocol.word + "/host/";
}

std::vector<Server> protocol_servers(Database &database, const Protocol &protocol) {
    std::vector<Server> servers;
    read_servers(database, protocol_servers_path(protocol), protocol, false, servers);
    return servers;
}

}  // namespace aaactl
