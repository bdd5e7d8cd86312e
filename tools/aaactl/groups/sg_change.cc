// SPDX-License-Identifier: Apache-2.0
//
// sg add. Every change passes through the library's routines, so that
// a change that the configuration process refuses is refused here for the same
// reason: first the verification, then the maps of names and numbers, then the
// indexes of the servers.

#include <algorithm>
#include <memory>
#include <set>

#include "aaa/result_codes.h"
#include "aaa/server_groups.h"
#include "cli/suggestion.hpp"
#include "commits/recording.hpp"
#include "config/advice.hpp"
#include "config/server_keys.hpp"
#include "database/sysdb_apply.hpp"
#include "groups/sg.hpp"
#include "platform/cerr.h"

namespace aaactl {
namespace {

// ---- add

uint32_t parse_port(const std::string &text, const std::string &server) {
    char *end = nullptr;
    const unsigned long port =
        text.empty() || text[0] < '0' || text[0] > '9' ? 0 : std::strtoul(text.c_str(), &end, 10);
    if (port == 0 || port > 65535 || *end != '\0') {
        throw Failure(ExitCode::usage, "\"" + escaped(server) + "\": a port is a number from 1 to 65535");
    }
    return static_cast<uint32_t>(port);
}

// HOST, HOST,PORT or, of RADIUS, HOST,AUTHENTICATION_PORT,ACCOUNTING_PORT. A RADIUS server gets both ports,
// others have one or none.
Server parse_server(const std::string &text, const Protocol &protocol) {
    const size_t comma = std::min(text.find(','), text.size());
    const size_t second = std::min(text.find(',', comma + 1), text.size());
    Server server{};
    server.host = text.substr(0, comma);
    check_group_name(server.host);
    if (!is_address(server.host)) {
        throw Failure(ExitCode::usage, "\"" + escaped(server.host) + "\" is not an IPv4 or IPv6 address");
    }
    server.host = canonical_entry(server.host);
    if (comma != text.size()) {
        server.ports.push_back(parse_port(text.substr(comma + 1, second - comma - 1), text));
    }
    if (second != text.size()) {
        if (!protocol.is_radius()) {
            throw Failure(ExitCode::usage,
                          "\"" + escaped(text) + "\": a server of this protocol has one port");
        }
        server.ports.push_back(parse_port(text.substr(second + 1), text));
    }
    if (protocol.is_radius() && server.ports.size() < 2) {
        const uint32_t first = server.ports.empty() ? 1812 : server.ports[0];
        server.ports = {first, parse_port(std::to_string(first + 1), text)};
    }
    return server;
}

std::string hexadecimal(uint32_t number) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", number);
    return text;
}

// A server that is not RADIUS and has a port is a directory: an item's name has no room for the port.
bool is_directory(const Protocol &protocol, const Server &server) {
    return !protocol.is_radius() && !server.ports.empty();
}

// The index that the library assigns to the server; Failure with its reason if it refuses.
uint32_t next_index(const GroupOptions &options, const Protocol &protocol, const Server &server) {
    uint32_t index = 0;
    const uint32_t is_private = options.is_private ? 1 : 0;
    const uint32_t usual = protocol.number == AAA_KW_TACACS ? 49 : 3868;
    const cerrno rc = protocol.is_radius()
                          ? aaa_util_get_next_ord_index(options.name.c_str(), protocol.number, AAA_INDEX_ANY,
                                                        &index, server.host.c_str(), server.ports[0],
                                                        server.ports[1], 0, is_private)
                          : aaa_util_get_next_tacacs_ord_index(
                                options.name.c_str(), protocol.number, AAA_INDEX_ANY, &index,
                                server.host.c_str(), server.ports.empty() ? usual : server.ports[0], 0,
                                is_directory(protocol, server) ? 1 : 0, is_private);
    if (rc == SYSDB_ERR_LIB_ABSENT) {
        throw database_failure(kGroupConfig, rc);
    }
    if (rc != AAA_OK) {
        const bool is_refusal = rc == AAA_ERR_INDEX_IN_USE;
        throw Failure(is_refusal ? ExitCode::negative : database_failure("", rc).code(),
                      "server " + escaped(server.host) + ": refused: " + escaped(cerr_strerror(rc)));
    }
    return index;
}

std::string server_entry(const Protocol &protocol, const Server &server) {
    return is_directory(protocol, server) ? server.host + "," + hexadecimal(server.ports[0]) + "/"
                                          : server_text(server);
}

// The library looks only for the form that the server is to have. Another form, and an IPv6 address that was
// stored as somebody wrote it, name the same server.
void check_other_form(const std::optional<Group> &group, const Protocol &protocol, const Server &server) {
    for (const Server &stored : group ? group->servers : std::vector<Server>{}) {
        const bool is_same = canonical_entry(stored.host) == server.host;
        if (is_same &&
            (!protocol.is_radius() || (stored.host != server.host && stored.ports == server.ports))) {
            throw Failure(ExitCode::negative,
                          "server " + escaped(server.host) + ": refused: the group has it already" +
                              (stored.host == server.host ? "" : ", as " + server_text(stored)));
        }
    }
}

// Consecutive indexes, as if each server had been stored before the next index was requested.
Changes server_changes(const GroupOptions &options, const Protocol &protocol,
                       const std::optional<Group> &group) {
    Changes changes;
    std::set<std::string> hosts;
    std::optional<uint32_t> next;
    for (const std::string &text : options.servers) {
        const Server server = parse_server(text, protocol);
        const std::string entry = server_entry(protocol, server);
        if (!hosts.insert(protocol.is_radius() ? entry : server.host).second) {
            throw Failure(ExitCode::usage, "server " + escaped(text) + " is given twice");
        }
        check_other_form(group, protocol, server);
        const uint32_t index = next_index(options, protocol, server);
        next = next ? *next + 1 : index;
        const std::string ordinal = group_path(protocol, options.name) +
                                    (options.is_private ? "server-private/" : "server/") +
                                    hexadecimal(*next) + "/";
        changes.expect_nothing_in(ordinal);  // another process may take it meanwhile
        if (is_directory(protocol, server)) {
            changes.set(ordinal + entry, {SYSDB_TYPE_DIRECTORY, {}});
        } else {
            changes.set(ordinal + entry, number_item(1));
        }
    }
    if (options.servers.empty()) {
        changes.set(group_path(protocol, options.name) + "server/", {SYSDB_TYPE_DIRECTORY, {}});
    }
    return changes;
}

// aaad asks no server without a key.
void note_missing_keys(Output &out, Database &database, const Group &group) {
    const bool missing = std::any_of(group.servers.begin(), group.servers.end(), [&](const Server &server) {
        return is_sound(server) && read_key(database, group, server).state == KeyState::missing;
    });
    if (missing) {
        out.note("aaactl: " + change_group("no key is stored for some of its servers", "key", group));
    }
}

constexpr int kAttempts = 100;  // each time another process has added a server

// The servers get the next ordinals at the time of the change.
void configure_servers(Database &database, const GroupOptions &options, const Protocol &protocol) {
    cerrno rc = SYSDB_ERR_CONFLICT;
    for (int attempt = 0; attempt < kAttempts && rc == SYSDB_ERR_CONFLICT; ++attempt) {
        const Changes changes =
            server_changes(options, protocol, read_group(database, protocol, options.name));
        size_t failed = 0;
        rc = changes.apply(database, kGroupConfig, failed);
    }
    if (rc != 0) {
        throw database_failure(kGroupConfig, rc);
    }
}

// After a failure, which is the one to report.
void withdraw_number(Output &out, Database &database, const Protocol &protocol, const std::string &name) {
    try {
        withdraw_unused_numbers(out, database, {{protocol.word, name}});
    } catch (const Failure &failure) {
        out.note(std::string("aaactl: ") + failure.what());
    }
}

group_numbers::Number publish_number(Database &database, const Protocol &protocol, const std::string &name) {
    const group_numbers::Number number = publish_numbers(database, {{protocol.word, name}})[0];
    if (number.rc != AAA_OK) {
        throw number_failure(name, number);
    }
    return number;
}

// The number first: the next attempt reuses a number without a group, but a group without a number does not
// work. Again afterwards: the service withdraws numbers of groups that are not configured, and may have read
// the configuration in between.
ExitCode add(Output &out, const GroupOptions &options) {
    check_group_name(options.name);
    const Protocol &protocol = protocol_named(options.protocol);
    Database database;
    verify_group(protocol, options.name, AAA_CFG_OP_CREATE);
    server_changes(options, protocol,
                   read_group(database, protocol, options.name));  // refused before a change
    const bool is_new = publish_number(database, protocol, options.name).is_new;
    try {
        configure_servers(database, options, protocol);
    } catch (const Failure &) {
        if (is_new) {
            withdraw_number(out, database, protocol, options.name);
        }
        throw;
    }
    const uint32_t number = publish_number(database, protocol, options.name).number;
    const Group group = read_group(database, protocol, options.name).value_or(Group{});
    note_missing_keys(out, database, group);
    out.result(group_json(database, group), [&] {
        out.line(options.protocol + " " + escaped(options.name) + " " + std::to_string(number) + ": " +
                 servers_text(group));
    });
    note_goes_back_too(out, database);
    return ExitCode::ok;
}

}  // namespace

void add_group_words(Command sub, GroupOptions &options) {
    sub.option("PROTOCOL", options.protocol, "radius, tacacs or diameter")
        .required()
        .one_of(protocol_words());
    sub.option("NAME", options.name, "The group's name").required();
}

void configure_groups(Database &database, const Changes &changes) {
    size_t failed = 0;
    const cerrno rc = changes.apply(database, kGroupConfig, failed);
    if (rc != 0) {
        throw database_failure(kGroupConfig, rc);
    }
}

void add_sg_add(Command sg) {
    auto options = std::make_shared<GroupOptions>();
    Command sub = sg.command("add", "Create a server group, or add servers to it",
                             [options](Output &out) { return add(out, *options); });
    add_group_words(sub, *options);
    sub.option("SERVER", options->servers,
               "ADDRESS, ADDRESS,PORT or, of RADIUS, ADDRESS,AUTHENTICATION_PORT,ACCOUNTING_PORT");
    sub.flag("--private", options->is_private, "The servers are private to the group");
    sub.footer(
        "Names and servers that the configuration process would refuse are refused (exit status 1).\n"
        "JSON: one group, as in \"sg list\"\nExample: aaactl sg add radius corp 192.0.2.20 "
        "192.0.2.21,1645,1646");
}

}  // namespace aaactl
