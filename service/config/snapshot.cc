// SPDX-License-Identifier: Apache-2.0

#include "config/snapshot.hpp"

#include <algorithm>

#include "aaa/server_groups.h"

namespace service {

namespace {

constexpr char kLoginList[] = "authentication/login/default";

bool has_password(const LocalUser &user) {
    return !user.is_locked();
}

bool any_local_user(const Snapshot &snapshot) {
    return snapshot.settings->system_accounts ||
           (snapshot.users != nullptr &&
            std::any_of(snapshot.users->users.begin(), snapshot.users->users.end(),
                        [](const auto &entry) { return has_password(entry.second); }));
}

bool any_enable_secret(const Snapshot &snapshot) {
    return snapshot.users != nullptr &&
           std::any_of(snapshot.users->enable.begin(), snapshot.users->enable.end(),
                       [](const auto &entry) { return has_password(entry.second); });
}

}  // namespace

const char *protocol_word(Protocol protocol) {
    return aaa_util_get_sg_defined_name(protocol_keyword(protocol));
}

std::uint32_t protocol_keyword(Protocol protocol) {
    switch (protocol) {
        case Protocol::kRadius:
            return AAA_KW_RADIUS;
        case Protocol::kTacacs:
            return AAA_KW_TACACS;
        case Protocol::kDiameter:
            return AAA_KW_DIAMETER;
    }
    return AAA_KW_NONE;
}

std::string Method::text() const {
    if (number == AAA_METHOD_SERVER_GROUP) {
        return "group " + group_name;
    }
    return number == AAA_METHOD_IF_AUTHEN ? "if-authenticated" : aaa_util_print_method(number);
}

std::size_t Snapshot::configured_lists() const {
    return static_cast<std::size_t>(std::count_if(
        lists.begin(), lists.end(), [](const auto &entry) { return entry.second.is_configured; }));
}

std::size_t Snapshot::configured_groups() const {
    return static_cast<std::size_t>(
        std::count_if(groups.begin(), groups.end(), [](const auto &group) { return !group->name.empty(); }));
}

const MethodList *Snapshot::find_list(const std::string &function, const std::string &service,
                                      const std::string &name) const {
    const auto found = lists.find(function + "/" + service + "/" + name);
    return found != lists.end() ? &found->second : nullptr;
}

std::string key_place(const Group &group, const Server &server) {
    const std::string word = protocol_word(group.protocol);
    return (group.name.empty() ? word : "group-server/" + word + "/" + group.name) + "/settings/" +
           server.entry;
}

bool can_pass(const Snapshot &snapshot, const Method &method) {
    switch (method.number) {
        case AAA_METHOD_NONE:
            return true;
        case AAA_METHOD_LOCAL:
            return any_local_user(snapshot);
        case AAA_METHOD_LINE:
            return snapshot.users != nullptr && snapshot.users->line && has_password(*snapshot.users->line);
        case AAA_METHOD_ENABLE:
            return any_enable_secret(snapshot);
        case AAA_METHOD_RADIUS:
        case AAA_METHOD_TACACSPLUS:
        case AAA_METHOD_SERVER_GROUP:
            return method.group != nullptr && !method.group->servers.empty();
        default:
            return false;
    }
}

std::string locks_everybody_out(const Snapshot &snapshot) {
    const auto list = snapshot.lists.find(kLoginList);
    if (list == snapshot.lists.end()) {
        return std::string("the list ") + kLoginList + " is not configured";
    }
    if (list->second.methods.empty()) {
        return std::string("the list ") + kLoginList + " has no method";
    }
    std::string methods;
    for (const Method &method : list->second.methods) {
        if (can_pass(snapshot, method)) {
            return "";
        }
        methods += (methods.empty() ? "" : ", ") + method.text();
    }
    return std::string("no method of the list ") + kLoginList + " can pass a login: " + methods +
           " (no servers, no users or no secret)";
}

void use_fallback(Snapshot &snapshot) {
    snapshot.lists.clear();
    snapshot.is_fallback = true;
    MethodList list;
    for (const std::uint32_t number : snapshot.settings->fallback) {
        list.methods.push_back({number, {}, nullptr});
    }
    snapshot.lists[kLoginList] = list;
    // Someone who is let in to mend the configuration has to be able to run the commands.
    for (const char *path : {"authorization/exec/default", "authorization/commands/default"}) {
        snapshot.lists[path] = {{{AAA_METHOD_LOCAL, {}, nullptr}, {AAA_METHOD_IF_AUTHEN, {}, nullptr}},
                                false};
    }
}

}  // namespace service
