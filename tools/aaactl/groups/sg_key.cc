// SPDX-License-Identifier: Apache-2.0
//
// sg key: stores the key that is shared with the servers of a group, or with one of them. It is sealed before
// it reaches the database.

#include <algorithm>
#include <memory>

#include "aaa/names.h"
#include "cli/suggestion.hpp"
#include "commits/recording.hpp"
#include "config/server_keys.hpp"
#include "groups/sg.hpp"
#include "keys/key.hpp"
#include "keys/sealed_keys.hpp"

namespace aaactl {
namespace {

struct KeyOptions {
    std::string protocol;
    std::string name;
    std::string server;
};

bool is_named(const Server &server, const std::string &text) {
    const std::string same = canonical_entry(text);
    return same == canonical_entry(server.host) || text == server.entry ||
           same == canonical_entry(server_text(server));
}

Group group_of(Database &database, const KeyOptions &options) {
    check_group_name(options.name);
    const auto group = read_group(database, protocol_named(options.protocol), options.name);
    if (!group || !group->configured) {
        throw Failure(ExitCode::not_found, escaped(options.name) + ": no such server group of " +
                                               options.protocol +
                                               did_you_mean(options.name, group_names(database)));
    }
    return *group;
}

// The items to store: one for all servers, or one for each entry of the server's address.
std::vector<std::string> paths_of(const Group &group, const KeyOptions &options) {
    const std::string settings = settings_path(group);
    if (options.server.empty()) {
        return {settings + "key"};
    }
    std::vector<std::string> paths;
    for (const Server &server : group.servers) {
        if (is_sound(server) && is_named(server, options.server)) {
            paths.push_back(settings + server.entry + "/key");
        }
    }
    if (paths.empty()) {
        throw Failure(ExitCode::not_found,
                      "server group " + escaped(group.name) + " has no server " + escaped(options.server));
    }
    return paths;
}

// A key of one server that is stored precedes the one for all.
void note_own_keys(Output &out, Database &database, const Group &group, const KeyOptions &options) {
    for (const Server &server : group.servers) {
        const ServerKey key = read_key(database, group, server);
        if (options.server.empty() && key.state != KeyState::missing &&
            key.path != settings_path(group) + "key") {
            out.note("aaactl: " + server_text(server) + " keeps its own key: " + escaped(key.path));
        }
    }
}

ExitCode store_key(Output &out, const KeyOptions &options) {
    Database database;
    const Group group = group_of(database, options);
    const std::vector<std::string> paths = paths_of(group, options);
    master_keys();  // before the key is typed
    const std::string sealed = seal_clear_key(out);
    Json stored = Json::array();
    for (const std::string &path : paths) {
        database.set(path, text_item(sealed));
        stored.push_back(escaped(path));
    }
    note_own_keys(out, database, group, options);
    out.result({{"protocol", options.protocol},
                {"name", escaped(options.name)},
                {"generation", *sealed_generation(sealed)},
                {"stored", stored}},
               [&] {
                   for (const std::string &path : paths) {
                       out.line("stored, sealed with master key generation " +
                                generation_text(*sealed_generation(sealed)) + ": " + escaped(path));
                   }
               });
    note_goes_back_too(out, database);
    return ExitCode::ok;
}

}  // namespace

void add_sg_key(Command sg) {
    auto options = std::make_shared<KeyOptions>();
    Command sub = key_command(sg, "key", "Store the key that is shared with the servers of a group",
                              [options](Output &out) { return store_key(out, *options); });
    sub.option("PROTOCOL", options->protocol, "radius or tacacs").required().one_of({"radius", "tacacs"});
    sub.option("GROUP", options->name, "The group's name").required();
    sub.option("SERVER", options->server, "Only this server: HOST, or as \"sg list\" prints it");
    sub.footer(
        "The key is asked for twice without echo, or is the line of standard input: printable ASCII. It is "
        "sealed with the newest master\n"
        "key and stored as the setting \"key\", see sysdb(5). \"sg list\" says which servers have one.\n"
        "JSON: {protocol, name, generation, stored: [path]}\n"
        "Example: aaactl sg key radius corp 192.0.2.20");
}

}  // namespace aaactl
