// SPDX-License-Identifier: Apache-2.0

#include "config/references.hpp"

#include <algorithm>
#include <optional>

#include "cli/suggestion.hpp"
#include "config/groups.hpp"
#include "config/method_lists.hpp"

namespace aaactl {
namespace {

using Paths = std::set<std::string>;

// ---- groups of lists

// The component of a path that begins at a position.
std::string component(const std::string &path, size_t at) {
    return path.substr(at, std::min(path.find('/', at), path.size()) - at);
}

// Visits the path's tree; `visit` returns whether to go on.
template <typename Visit>
void below(const Paths &paths, const std::string &directory, Visit visit) {
    for (auto at = paths.lower_bound(directory); at != paths.end() && at->starts_with(directory); ++at) {
        if (!visit(*at)) {
            return;
        }
    }
}

bool any_in(const Paths &paths, const std::string &directory) {
    bool found = false;
    below(paths, directory, [&](const std::string &) { return !(found = true); });
    return found;
}

std::vector<std::string> configured_groups(const Paths &paths) {
    std::set<std::string> names;
    for (const Protocol &protocol : kProtocols) {
        const std::string groups = std::string(kGroupConfig) + protocol.word + "/";
        below(paths, groups, [&](const std::string &path) {
            names.insert(component(path, groups.size()));
            return true;
        });
    }
    names.erase("");
    return {names.begin(), names.end()};
}

std::string group_fault(const std::string &name, const ConfigPaths &config) {
    const bool exists = std::any_of(
        std::begin(kProtocols), std::end(kProtocols),
        [&](const Protocol &protocol) { return any_in(config.paths, group_path(protocol, name)); });
    if (name.empty() || exists || config.is_published(name)) {
        return "";
    }
    const std::vector<std::string> groups = configured_groups(config.paths);
    return "no server group \"" + escaped(name) + "\" exists, and the service skips it" +
           (groups.empty() ? "; create it with \"aaactl sg add\"" : suggestion(name, groups));
}

bool is_list(const std::string &path, const Item &item) {
    return item.type == SYSDB_TYPE_TUPLE &&
           std::any_of(list_functions().begin(), list_functions().end(), [&](const std::string &function) {
               return path.starts_with(kConfigRoot + function + "/");
           });
}

// The names are the last fields, each at the place of its method.
std::string list_reference_fault(const Item &item, const ConfigPaths &config) {
    const std::vector<TupleField> fields = tuple_fields(item);
    if (fields.size() < 2 * kMaxMethods) {
        return "";  // it is no list, which is a fault of its form
    }
    for (size_t i = fields.size() - kMaxMethods; i < fields.size(); ++i) {
        const TupleField &method = fields[i - kMaxMethods];
        const bool names_group = !method.is_name && fields[i].is_name &&
                                 static_cast<uint32_t>(method.number) == AAA_METHOD_SERVER_GROUP;
        const std::string fault = names_group ? group_fault(fields[i].name, config) : "";
        if (!fault.empty()) {
            return fault;
        }
    }
    return "";
}

// ---- servers of settings

struct ServerSetting {
    std::string owner;  // the directory of the group or protocol
    std::string entry;  // of the server
};

// OWNER/settings/ENTRY/NAME
std::optional<ServerSetting> server_setting(const std::string &path) {
    size_t at = sizeof kConfigRoot - 1;
    if (path.starts_with(kGroupConfig)) {  // a group may be called "settings"
        at = path.find('/', sizeof kGroupConfig - 1);
        at = at == std::string::npos ? at : path.find('/', at + 1);
    } else if (path.starts_with(kConfigRoot)) {
        at = path.find('/', at);
    } else {
        return std::nullopt;
    }
    constexpr std::string_view kSettingsPart = "/settings/";
    if (at == std::string::npos || path.compare(at, kSettingsPart.size(), kSettingsPart) != 0) {
        return std::nullopt;
    }
    const size_t begin = at + kSettingsPart.size();
    const size_t end = path.find('/', begin);
    if (end == std::string::npos || end + 1 == path.size()) {
        return std::nullopt;
    }
    return ServerSetting{path.substr(0, at + 1), path.substr(begin, end - begin)};
}

// The entries of an owner's servers: PLACE/ORDINAL/ENTRY.
std::vector<std::string> server_entries(const Paths &paths, const std::string &owner) {
    std::vector<std::string> entries;
    for (const char *place : {"server/", "server-private/", "host/"}) {
        const std::string directory = owner + place;
        below(paths, directory, [&](const std::string &path) {
            const size_t slash = path.find('/', directory.size());
            if (slash != std::string::npos && slash + 1 < path.size()) {
                entries.push_back(component(path, slash + 1));
            }
            return true;
        });
    }
    return entries;
}

std::string setting_reference_fault(const ServerSetting &setting, const ConfigPaths &config) {
    const std::vector<std::string> entries = server_entries(config.paths, setting.owner);
    if (std::find(entries.begin(), entries.end(), setting.entry) != entries.end()) {
        return "";
    }
    return "no server \"" + escaped(setting.entry) + "\" exists in " + escaped(setting.owner) +
           ", so nothing reads its settings" +
           (entries.empty() ? "; add the server first" : suggestion(setting.entry, entries));
}

// ---- groups of servers and settings

// GROUP, of a path below group-server/PROTOCOL/GROUP/.
std::optional<Group> group_of(const std::string &path) {
    for (const Protocol &protocol : kProtocols) {
        const std::string groups = std::string(kGroupConfig) + protocol.word + "/";
        const size_t end = path.starts_with(groups) ? path.find('/', groups.size()) : std::string::npos;
        if (end != std::string::npos) {
            const std::string name = component(path, groups.size());
            return Group{protocol, name, group_path(protocol, name), false, {}, {}, {}};
        }
    }
    return std::nullopt;
}

std::string taken_name_fault(const Group &group, const ConfigPaths &config) {
    for (const Protocol &protocol : kProtocols) {
        if (protocol.number != group.protocol.number &&
            any_in(config.paths, group_path(protocol, group.name))) {
            return std::string("a server group of ") + protocol.word + " has the name \"" +
                   escaped(group.name) + "\" already; programs would not find both";
        }
    }
    return "";
}

// A directory made for the group is enough; settings alone make no group.
std::string lonely_setting_fault(const Group &group, const std::string &path, const ConfigPaths &config) {
    const bool exists = config.paths.contains(group.path) || any_in(config.paths, group.path + "server/") ||
                        any_in(config.paths, group.path + "server-private/");
    if (exists || !path.starts_with(group.path + "settings/")) {
        return "";
    }
    return std::string("no server group \"") + escaped(group.name) + "\" of " + group.protocol.word +
           " exists, so nothing reads its settings; create it with \"aaactl sg add " + group.protocol.word +
           " " + shell_word(escaped(group.name)) + "\"";
}

}  // namespace

ConfigPaths config_paths(Database &database) {
    ConfigPaths config;
    database.walk(
        kConfigRoot, [&](const std::string &path, const Item &) { config.paths.insert(path); },
        [&](const Unreadable &item) { config.paths.insert(item.path); });
    config.is_published = [&database](const std::string &name) {
        const auto group = resolve_group(database, name);
        return group && !group->configured;
    };
    return config;
}

std::string reference_fault(const std::string &path, const Item &item, const ConfigPaths &config) {
    if (is_list(path, item)) {
        return list_reference_fault(item, config);
    }
    if (const auto group = group_of(path)) {
        const std::string taken = config.checks_names ? taken_name_fault(*group, config) : "";
        const std::string fault = !taken.empty() ? taken : lonely_setting_fault(*group, path, config);
        if (!fault.empty()) {
            return fault;
        }
    }
    const auto setting = server_setting(path);
    return setting ? setting_reference_fault(*setting, config) : "";
}

}  // namespace aaactl
