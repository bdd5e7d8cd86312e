// SPDX-License-Identifier: Apache-2.0
//
// sg list, and what the commands on server groups share.

#include "groups/sg.hpp"

#include <memory>

#include "cli/suggestion.hpp"
#include "config/server_keys.hpp"

namespace aaactl {
namespace {

std::string one_server_text(const Server &server) {
    return server_text(server) + (server.is_private ? " (private)" : "") +
           (is_sound(server) ? "" : " (not usable: " + server.defect + ")");
}

// The servers, and whether each has a key that opens.
std::string keyed_servers(const Output &out, Database &database, const Group &group) {
    std::string text;
    for (const Server &server : group.servers) {
        text += (text.empty() ? "" : " ") + one_server_text(server);
        if (is_sound(server)) {
            const KeyState state = read_key(database, group, server).state;
            text += " " + out.styled(is_asked_with(state) ? Style::dim : Style::bad,
                                     std::string("[") + key_text(state) + "]");
        }
    }
    return text;
}

std::string state_text(const Output &out, Database &database, const Group &group) {
    std::string text = group.configured ? keyed_servers(out, database, group)
                                        : out.styled(Style::bad, "(published, not configured)");
    if (!group.number_defect.empty()) {
        text += (text.empty() ? "" : " ") + out.styled(Style::bad, "(number: " + group.number_defect + ")");
    }
    return text;
}

ExitCode list(Output &out, const GroupOptions &options) {
    Database database(Database::Use::reading);
    Json document = {{"groups", Json::array()}};
    std::vector<std::vector<std::string>> rows;
    std::vector<std::string> faults;
    for (const Protocol &protocol : kProtocols) {
        if (!options.protocol.empty() && protocol.word != options.protocol) {
            continue;
        }
        for (const Group &group : read_groups(database, protocol)) {
            if (!options.name.empty() && group.name != options.name) {
                continue;
            }
            document["groups"].push_back(group_json(database, group));
            rows.push_back({protocol.word, escaped(group.name),
                            group.number ? std::to_string(*group.number) : "-",
                            state_text(out, database, group)});
            if (!group.number_defect.empty()) {
                faults.push_back(escaped(number_path(group)) + ": " + group.number_defect);
            }
        }
    }
    if (rows.empty() && !options.name.empty()) {
        throw Failure(ExitCode::not_found, escaped(options.name) + ": no such server group" +
                                               did_you_mean(options.name, group_names(database)));
    }
    out.result(document, [&] { out.table({"PROTOCOL", "NAME", "NUMBER", "SERVERS"}, rows); });
    for (const std::string &fault : faults) {
        out.note("aaactl: " + fault);
    }
    return faults.empty() ? ExitCode::ok : ExitCode::bad_input;
}

void add_list(Command sg) {
    auto options = std::make_shared<GroupOptions>();
    Command sub = sg.command("list", "Print server groups with their numbers and servers",
                             [options](Output &out) { return list(out, *options); });
    sub.also({"ls", "show"});
    sub.option("NAME", options->name, "Only the group of this name");
    sub.option("--protocol", options->protocol, "Only groups of radius, tacacs or diameter")
        .one_of(protocol_words());
    sub.footer(
        "A group without a number (-) is not published: \"sg publish\" does it. A number that\ncannot be "
        "read is reported with the others (exit status 3).\n"
        "Of each server it says whether it has a key that opens: \"sg key\" stores one. The key is not "
        "checked\n"
        "where this user may not read the master keys.\n"
        "JSON: {groups: [{protocol, name, number, configured, servers: [{index, address, ports, private, "
        "key: "
        "opens|\nmissing|unusable|unprintable|unchecked|not needed}]}]}, with \"fault\" or, of a server, "
        "\"defect\" "
        "instead of "
        "\"key\"\nif there is one\n"
        "Example: aaactl sg list --protocol radius");
}

}  // namespace

std::string servers_text(const Group &group) {
    std::string text;
    for (const Server &server : group.servers) {
        text += (text.empty() ? "" : " ") + one_server_text(server);
    }
    return text;
}

Json group_json(Database &database, const Group &group) {
    Json document = {{"protocol", group.protocol.word},
                     {"name", escaped(group.name)},
                     {"number", group.number ? Json(*group.number) : Json()},
                     {"configured", group.configured},
                     {"servers", Json::array()}};
    for (const Server &server : group.servers) {
        Json &one = document["servers"].push_back({{"index", server.index},
                                                   {"address", escaped(server.host)},
                                                   {"ports", server.ports},
                                                   {"private", server.is_private}});
        if (!is_sound(server)) {
            one["defect"] = server.defect;
        } else {
            one["key"] = key_word(read_key(database, group, server).state);
        }
    }
    if (!group.number_defect.empty()) {
        document["fault"] = group.number_defect;
    }
    return document;
}

void add_sg(Command root) {
    Command sg = root.group("sg", "Show and change server groups");
    add_list(sg);
    add_sg_add(sg);
    add_sg_delete(sg);
    add_sg_publish(sg);
    add_sg_key(sg);
}

}  // namespace aaactl
