// SPDX-License-Identifier: Apache-2.0
//
// Paths and values of stored servers and lists.

#include "running_config/stored.hpp"

#include <charconv>
#include <set>

namespace aaactl {

std::string Owner::path() const {
    return group ? group_path(of(), *group) : std::string(kConfigRoot) + of().word + "/";
}

std::vector<std::string> server_directories(const Owner &owner) {
    return owner.group ? std::vector<std::string>{"server/", "server-private/"}
                       : std::vector<std::string>{"host/"};
}

std::vector<StoredServer> stored_servers(const Items &items, const Owner &owner,
                                         const std::string &directory) {
    std::vector<StoredServer> servers;
    const std::string above = owner.path() + directory;
    for (auto at = items.lower_bound(above); at != items.end() && at->first.starts_with(above); ++at) {
        const std::string rest = at->first.substr(above.size());
        const size_t slash = rest.find('/');
        std::string entry = slash == std::string::npos ? "" : rest.substr(slash + 1);
        if (entry.ends_with('/')) {
            entry.pop_back();
        }
        if (entry.empty() || entry.find('/') != std::string::npos) {
            continue;
        }
        StoredServer server{at->first, directory, rest.substr(0, slash), std::nullopt, entry};
        uint32_t index = 0;
        const char *end = server.index_text.data() + server.index_text.size();
        if (server.index_text.starts_with("0x")) {
            const auto [stop, error] = std::from_chars(server.index_text.data() + 2, end, index, 16);
            if (error == std::errc() && stop == end) {
                server.index = index;
            }
        }
        servers.push_back(std::move(server));
    }
    return servers;
}

std::vector<Owner> group_owners(const Items &items) {
    std::vector<Owner> owners;
    for (uint32_t protocol = 0; protocol < std::size(kProtocols); ++protocol) {
        std::set<std::string> names;
        const std::string above = std::string(kGroupConfig) + kProtocols[protocol].word + "/";
        for (auto at = items.lower_bound(above); at != items.end() && at->first.starts_with(above); ++at) {
            const size_t slash = at->first.find('/', above.size());
            if (slash != std::string::npos) {
                names.insert(at->first.substr(above.size(), slash - above.size()));
            }
        }
        for (const std::string &name : names) {
            owners.push_back({protocol, name});
        }
    }
    return owners;
}

bool any_below(const Items &items, const std::string &directory) {
    const auto at = items.upper_bound(directory);  // not the empty directory itself
    return at != items.end() && at->first.starts_with(directory);
}

std::string index_text(uint32_t index) {
    char text[16] = "0x";
    const auto result = std::to_chars(text + 2, text + sizeof text, index, 16);
    return {text, result.ptr};
}

Item list_item(const ListStatement &list) {
    std::vector<TupleField> fields;
    if (list.function == "accounting") {
        for (const int32_t number : {0, 0, list.broadcast ? 1 : 0}) {
            fields.push_back({false, number, {}});
        }
    }
    std::vector<ListStatement::Place> places = list.methods;
    places.resize(kMaxMethods);
    for (const auto &place : places) {
        fields.push_back({false, static_cast<int32_t>(place.method), {}});
    }
    for (const auto &place : places) {
        fields.push_back({true, 0, place.group});
    }
    return tuple_item(fields);
}

// A server that is not RADIUS and has a port is a directory: an item's name has no room for the port.
std::string stored_entry(const ServerStatement &server) {
    std::string entry = server.host;
    if (server.owner.of().is_radius()) {
        for (const uint32_t port : server.ports) {
            entry += "," + std::to_string(port);
        }
        return entry;
    }
    return server.ports.empty() ? entry : entry + "," + index_text(server.ports[0]) + "/";
}

std::string server_path(const ServerStatement &server, uint32_t index) {
    const char *directory = !server.owner.group ? "host/" : server.is_private ? "server-private/" : "server/";
    return server.owner.path() + directory + index_text(index) + "/" + stored_entry(server);
}

}  // namespace aaactl
