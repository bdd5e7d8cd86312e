// SPDX-License-Identifier: Apache-2.0

#include "config/advice.hpp"

#include <algorithm>
#include <set>
#include <string_view>

#include "aaa/names.h"
#include "config/server_keys.hpp"
#include "database/schema.hpp"
#include "database/sysdb_values.hpp"
#include "dictionary/enum_words.hpp"

namespace aaactl {
namespace {

constexpr size_t kAnySealed = 128;  // digits that look like a sealed key

// A remedy for what has a name that commands refuse.
std::string under_another_name(const std::string &what) {
    return what + "; as commands refuse its name, do it under another name and delete this one";
}

// What begins with a hyphen is an argument, not an option, after "--".
std::string words(const std::vector<std::string> &arguments) {
    const bool hyphen = std::any_of(arguments.begin(), arguments.end(),
                                    [](const std::string &text) { return text.starts_with('-'); });
    std::string line = hyphen ? " --" : "";
    for (const std::string &text : arguments) {
        line += " " + shell_word(text);
    }
    return line;
}

bool can_be_set(const std::string &function, const Method &method) {
    return method.is_group() ? method.configured() != nullptr && is_group_name(method.group)
                             : answers_for(function, method.number);
}

std::string word_of(const Method &method) {
    return method.is_group() ? "group:" + method.group : method_word(method.number);
}

// Whether commands reach the path: printable, and no part of it empty.
bool can_be_named(const std::string &path) {
    return path.find("//") == std::string::npos && !path.ends_with('/') &&
           std::all_of(path.begin(), path.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

}  // namespace

std::string set_list(const std::string &what, const MethodList &list, std::vector<Method> methods) {
    if (!is_group_name(list.service) || !is_group_name(list.name)) {
        return under_another_name(what);
    }
    std::erase_if(methods, [&](const Method &method) { return !can_be_set(list.function, method); });
    if (methods.empty()) {
        methods.push_back({list.function == "accounting" ? AAA_METHOD_SYSLOG : AAA_METHOD_LOCAL, {}, {}});
    }
    std::vector<std::string> arguments{list.function, list.service, list.name};
    std::transform(methods.begin(), methods.end(), std::back_inserter(arguments), word_of);
    const auto used = used_service_words(list.function);
    const bool is_used = std::find(used.begin(), used.end(), list.service) != used.end();
    return what + ": aaactl mlist set" + (is_used ? "" : " --force") + words(arguments);
}

std::string renumber_group(const std::string &what, const Group &group) {
    return group.configured && is_group_name(group.name) ? what + ": aaactl sg publish"
                                                         : change_group(what, "add", group);
}

std::string change_group(const std::string &what, const char *subcommand, const Group &group) {
    if (!is_group_name(group.name)) {
        return under_another_name(what);
    }
    return what + ": aaactl sg " + subcommand + words({group.protocol.word, group.name});
}

std::string rename_group(const std::string &what, Database &database, const Group &group) {
    const std::string name = group.name + "-" + group.protocol.word;
    if (!is_group_name(name)) {
        return what;
    }
    std::vector<std::string> servers[2];
    std::set<std::string> keys;
    for (const Server &server : group.servers) {
        if (!is_sound(server)) {
            continue;
        }
        servers[server.is_private ? 1 : 0].push_back(server_text(server));
        const ServerKey key = read_key(database, group, server);
        if (key.state != KeyState::missing && key.state != KeyState::not_needed) {
            keys.insert(key.path == settings_path(group) + "key" ? "" : server_text(server));
        }
    }
    std::string commands;
    const auto add = [&](const char *command, std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {group.protocol.word, name});
        commands += (commands.empty() ? "aaactl " : " && aaactl ") + std::string(command) + words(arguments);
    };
    if (!servers[0].empty() || servers[1].empty()) {
        add("sg add", servers[0]);
    }
    if (!servers[1].empty()) {
        add("sg add --private", servers[1]);
    }
    for (const std::string &server : keys) {
        add("sg key", server.empty() ? std::vector<std::string>{} : std::vector{server});
    }
    // Lists that name the group mean the other one of this name, or a method.
    commands += " && aaactl sg del --force" + words({group.protocol.word, group.name});
    return what + ": " + commands;
}

std::string delete_item(const std::string &what, const std::string &path) {
    if (can_be_named(path)) {
        return what + ": aaactl sysdb del" + words({path});
    }
    if (path.ends_with('/') && can_be_named(path.substr(0, path.size() - 1))) {
        return what + ": aaactl sysdb del -r" + words({path});
    }
    const std::string tree = path.substr(0, path.find('/', 1) + 1);
    return what + " by storing the others: aaactl sysdb dump --show-secrets " + tree +
           " | aaactl sysdb load --replace -";
}

std::string seal_new(const std::string &what, const std::string &path) {
    return what + ": aaactl key seal | aaactl sysdb set --type string" + words({path});
}

std::string seal_item(const std::string &what, const std::string &path, const std::string &key) {
    if (!can_be_named(path) || escaped(key) != key) {
        return what + " with \"aaactl key seal\", and store the result at this path";
    }
    // A variable, so that nothing is stored when a command before that fails.
    // A key may be kept where the AAA service reads none.
    const bool is_read = schema_fault(path, text_item(std::string(kAnySealed, '0'))).empty();
    return what + ": key=$(aaactl sysdb get --show-secrets" + words({path}) +
           " | aaactl key seal) && printf %s \"$key\" | aaactl sysdb set --type string" +
           (is_read ? "" : " --force") + words({path});
}

}  // namespace aaactl
