// SPDX-License-Identifier: Apache-2.0
//
// sg delete. A group that method lists name keeps its last server, and is not deleted, without --force: the
// requests of these lists would have one method less, and logins perhaps none.

#include <algorithm>
#include <functional>
#include <memory>

#include "aaa/result_codes.h"
#include "aaa/server_groups.h"
#include "cli/suggestion.hpp"
#include "commits/recording.hpp"
#include "config/lookup.hpp"
#include "config/method_lists.hpp"
#include "config/server_keys.hpp"
#include "dictionary/enum_words.hpp"
#include "groups/sg.hpp"
#include "platform/cerr.h"

namespace aaactl {
namespace {

// ---- the lists that name a group

bool names(const MethodList &list, const Group &group) {
    const auto methods = list.methods();
    return std::any_of(methods.begin(), methods.end(),
                       [&](const Method &method) { return method.is_group() && method.group == group.name; });
}

std::vector<MethodList> lists_with(Database &database, const Group &group) {
    std::vector<MethodList> found;
    for (const std::string &function : list_functions()) {
        for (const std::string &service : service_words(database, function)) {
            for (const std::string &name : list_names(database, function, service)) {
                auto list = find_list(database, function, service, name);
                if (list && names(*list, group)) {
                    found.push_back(*std::move(list));
                }
            }
        }
    }
    return found;
}

// The methods that remain, as words of "mlist set".
std::vector<std::string> other_methods(const MethodList &list, const Group &group) {
    std::vector<std::string> words;
    for (const Method &method : list.methods()) {
        if (!method.is_group()) {
            words.push_back(method_word(method.number));
        } else if (method.group != group.name) {
            words.push_back("group:" + escaped(method.group));
        }
    }
    return words;
}

std::string consequence(const MethodList &list, const Group &group) {
    std::string left;
    for (const std::string &word : other_methods(list, group)) {
        left += (left.empty() ? "" : ", ") + word;
    }
    const std::string subject = "method list " +
                                escaped(list.function + " " + list.service + " " + list.name) + ": without " +
                                escaped(group.name) + " ";
    return left.empty() ? subject + "it has no method that can work: " + consequence_of_failure(list)
                        : subject + "requests are left to " + left;
}

Json uses_json(const std::vector<MethodList> &lists, const Group &group) {
    Json uses = Json::array();
    for (const MethodList &list : lists) {
        Json methods = Json::array();
        for (const std::string &word : other_methods(list, group)) {
            methods.push_back(word);
        }
        uses.push_back({{"function", list.function},
                        {"service", escaped(list.service)},
                        {"name", escaped(list.name)},
                        {"methods_left", methods}});
    }
    return uses;
}

// `what` is to be done to the group: "deleted", or "left without a server".
void check_unused(Output &out, Database &database, const GroupOptions &options, const Group &group,
                  const std::string &what) {
    const std::vector<MethodList> lists = lists_with(database, group);
    for (const MethodList &list : lists) {
        out.note("aaactl: " + consequence(list, group));
    }
    if (!lists.empty() && !options.force) {
        throw Failure(ExitCode::negative, "server group " + escaped(group.name) + " is not " + what + ": " +
                                              counted(lists.size(), "method list") +
                                              (lists.size() == 1 ? " names it; change that list"
                                                                 : " name it; change these lists") +
                                              " first with \"aaactl mlist set\", or use --force")
            .with({{"lists", uses_json(lists, group)}});
    }
}

// ---- servers

struct Deletions {
    Changes changes;
    std::vector<const Server *> servers;
};

// The stored entries that the words name: by host, or by host and ports.
Deletions server_deletions(const GroupOptions &options, const Group &group) {
    Deletions deletions;
    std::vector<std::string> known;
    for (const Server &server : group.servers) {
        known.push_back(server_text(server));
    }
    for (const std::string &text : options.servers) {
        bool found = false;
        for (const Server &server : group.servers) {
            const std::string same = canonical_entry(text);
            if (same == canonical_entry(server.host) || text == server.entry ||
                same == canonical_entry(server_text(server))) {
                deletions.servers.push_back(&server);
                found = true;
            }
        }
        if (!found) {
            throw Failure(ExitCode::not_found, "server group " + escaped(group.name) + " has no server " +
                                                   escaped(text) + did_you_mean(text, known));
        }
    }
    return deletions;
}

bool any_left(const Group &group, const Deletions &deletions,
              const std::function<bool(const Server &)> &counts) {
    return std::any_of(group.servers.begin(), group.servers.end(), [&](const Server &server) {
        const bool is_deleted =
            std::find(deletions.servers.begin(), deletions.servers.end(), &server) != deletions.servers.end();
        return !is_deleted && counts(server);
    });
}

// The settings of a server go with it: its key would wait for a server that gets the same address later.
Changes changes_of(const Group &group, const Deletions &deletions) {
    Changes changes;
    for (const Server *server : deletions.servers) {
        server->path.ends_with('/') ? changes.prune(server->path) : changes.erase(server->path);
        if (!any_left(group, deletions, [&](const Server &other) { return other.entry == server->entry; })) {
            changes.prune(settings_path(group) + server->entry + "/");
        }
    }
    // The group remains when it has no server left.
    changes.set(group.path + "server/", {SYSDB_TYPE_DIRECTORY, {}});
    return changes;
}

void delete_servers(Output &out, Database &database, const GroupOptions &options, const Group &group) {
    const Deletions deletions = server_deletions(options, group);
    if (any_sound(group.servers) && !any_left(group, deletions, is_sound)) {
        check_unused(out, database, options, group, "left without a server");
    }
    configure_groups(database, changes_of(group, deletions));
}

// ---- groups

// The library does not remove a number that it cannot read.
void drop_number(Database &database, const Group &group) {
    database.remove(number_path(group));
    const std::string map = std::string(kGroupMaps) + "sg_num_map/" + group.protocol.word + "/";
    std::string fault;
    for (const Entry &entry : database.entries(map)) {
        const auto item = entry.is_directory() ? std::nullopt : database.find(map + entry.name, fault);
        if (item && item->type == SYSDB_TYPE_STRING && text_of(*item) == group.name) {
            database.remove(map + entry.name);
        }
    }
}

// The library refuses a group that lists name, which --force overrides. The configuration first: after an
// interruption, a second attempt finds the number and removes it.
void delete_group(Output &out, Database &database, const GroupOptions &options, const Group &group) {
    check_unused(out, database, options, group, "deleted");
    if (!options.force) {
        verify_group(group.protocol, options.name, AAA_CFG_OP_DELETE);
    }
    Changes changes;
    changes.prune(group.path);
    configure_groups(database, changes);
    if (!group.number_defect.empty()) {
        drop_number(database, group);
    }
    const cerrno rc = withdraw_unused_numbers(out, database, {{group.protocol.word, options.name}});
    if (rc != AAA_OK && rc != SYSDB_ERR_NOT_FOUND) {
        throw database_failure(kGroupMaps, rc);
    }
}

ExitCode remove(Output &out, const GroupOptions &options) {
    check_group_name(options.name);
    Database database;
    const auto group = read_group(database, protocol_named(options.protocol), options.name);
    if (!group) {
        throw Failure(ExitCode::not_found, escaped(options.name) + ": no such server group of " +
                                               options.protocol +
                                               did_you_mean(options.name, group_names(database)));
    }
    if (options.servers.empty()) {
        delete_group(out, database, options, *group);
    } else {
        delete_servers(out, database, options, *group);
    }
    const auto left = read_group(database, group->protocol, group->name);
    out.result({{"deleted", true}, {"group", left ? group_json(database, *left) : Json()}}, [] {});
    note_goes_back_too(out, database);
    return ExitCode::ok;
}

}  // namespace

void add_sg_delete(Command sg) {
    auto options = std::make_shared<GroupOptions>();
    Command sub = sg.command("del", "Delete a server group, or servers of it",
                             [options](Output &out) { return remove(out, *options); });
    sub.also({"delete", "rm"});
    add_group_words(sub, *options);
    sub.option("SERVER", options->servers, "Only these servers: HOST, or as \"sg list\" prints them");
    sub.flag("--force", options->force, "Delete what method lists need, too");
    sub.footer(
        "A group that a method list names is not deleted, and keeps its last server (exit status 1); the "
        "lists\n"
        "are named, and what they would do without the group. The settings of a server are deleted with it.\n"
        "JSON: {deleted, group: the group that remains, or null}\nExample: aaactl sg del radius corp "
        "192.0.2.21");
}

}  // namespace aaactl
