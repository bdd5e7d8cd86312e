// SPDX-License-Identifier: Apache-2.0
//
// Server groups and servers.

#include <cstdlib>
#include <memory>

#include "aaa/names.h"
#include "aaa/server_groups.h"
#include "config/advice.hpp"
#include "config/checks.hpp"
#include "config/server_keys.hpp"
#include "platform/cerr.h"

namespace aaactl {
namespace {

struct FreeText {
    void operator()(char *text) const { std::free(text); }
};
using Text = std::unique_ptr<char, FreeText>;

void check_name(Database &database, const Group &group, Findings &findings) {
    if (is_keyword(group.name)) {
        findings.push_back({Severity::error, "reserved-name", group.path,
                            "\"" + escaped(group.name) + "\" is a keyword of methods and cannot name a group",
                            rename_group("give it another name", database, group)});
    }
}

// The number has to map back to the name. Only RADIUS and TACACS numbers are looked up there.
void check_reverse_map(const Group &group, uint32_t number, Findings &findings) {
    if (group.protocol.number == AAA_KW_DIAMETER) {
        return;
    }
    const Text name(aaa_util_lookup_sg_name(number));
    if (!name || group.name != name.get()) {
        findings.push_back({Severity::error, "contradicting-number", kGroupMaps,
                            "the name \"" + escaped(group.name) + "\" maps to number " +
                                std::to_string(number) + ", but that number maps to " +
                                (name ? "\"" + escaped(name.get()) + "\"" : std::string("no name")),
                            renumber_group("give the group another number", group)});
    }
}

// What clients get for the name, as the library looks it up.
void check_number(Database &database, const Group &group, bool used, Findings &findings) {
    uint32_t number = 0;
    uint32_t protocol = 0;
    const cerrno rc = aaa_util_lookup_sg_index_and_get_type(group.name.c_str(), &number, &protocol);
    const Severity severity = used ? Severity::error : Severity::warning;
    if (rc == SYSDB_ERR_NOT_FOUND) {
        findings.push_back({severity, "unnumbered-group", group.path,
                            "no number is published for it: clients cannot read lists that name it",
                            "number all server groups: aaactl sg publish"});
    } else if (rc != AAA_OK) {
        findings.push_back({Severity::error, "unreadable-number", group.path,
                            std::string("its number cannot be read: ") + escaped(cerr_strerror(rc)),
                            renumber_group("give the group another number", group)});
    } else if (protocol != group.protocol.number) {
        findings.push_back({Severity::error, "ambiguous-group", group.path,
                            "the name selects the group of " +
                                std::string(aaa_util_get_sg_defined_name(protocol)) + " with the same name",
                            rename_group("give this group another name", database, group)});
    } else {
        check_reverse_map(group, number, findings);
    }
}

bool is_same_server(const Server &a, const Server &b) {
    return canonical_entry(a.host) == canonical_entry(b.host) && a.ports == b.ports;
}

// One finding for all servers that share an ordinal, at the second of them.
void check_ordinal(const std::vector<Server> &servers, size_t at, Findings &findings) {
    std::vector<std::string> others;
    size_t earlier = 0;
    for (size_t i = 0; i < servers.size(); ++i) {
        const Server &other = servers[i];
        const bool is_duplicate = is_same_server(other, servers[at]);
        if (!is_duplicate && is_sound(other) && other.index == servers[at].index &&
            other.is_private == servers[at].is_private) {
            others.push_back(server_text(other));
            earlier += i < at ? 1 : 0;
        }
    }
    if (earlier == 1) {
        std::string text = others[0];
        for (size_t i = 1; i < others.size(); ++i) {
            text += (i + 1 == others.size() ? " and " : ", ") + others[i];
        }
        findings.push_back(
            {Severity::warning, "shared-ordinal", servers[at].path,
             text + (others.size() == 1 ? " has" : " have") +
                 " the same ordinal: which of them is asked first is undefined",
             delete_item("delete all but one of them, and configure them again", servers[at].path)});
    }
}

}  // namespace

void check_protocol_keys(Database &database, const Protocol &protocol, bool used, Findings &findings) {
    for (const Server &server : protocol_servers(database, protocol)) {
        const ServerKey key = read_key(database, settings_path(protocol), server, protocol);
        if (is_sound(server) && key.state == KeyState::missing) {
            findings.push_back({used ? Severity::error : Severity::warning, "no-key", server.path,
                                "the server has no key, so aaad does not ask it",
                                seal_new("store it", key.path)});
        }
    }
}

void check_servers(const std::vector<Server> &servers, Findings &findings) {
    for (size_t i = 0; i < servers.size(); ++i) {
        const Server &server = servers[i];
        if (!is_sound(server)) {
            findings.push_back(
                {Severity::error, "malformed-server", server.path, server.defect,
                 delete_item("delete the entry, then configure the server again", server.path)});
            continue;
        }
        for (size_t j = 0; j < i; ++j) {
            if (is_same_server(servers[j], server) && is_sound(servers[j])) {
                findings.push_back(
                    {Severity::warning, "duplicate-server", server.path,
                     server_text(server) + " is in the list already" +
                         (servers[j].host == server.host ? "" : ", as " + server_text(servers[j])) +
                         ": if it does not answer, it is asked again",
                     delete_item("delete one of the entries", server.path)});
            }
        }
        check_ordinal(servers, i, findings);
    }
}

// One finding for the group, or one for each of some servers. A key that does not open is a finding of its
// own.
void check_keys(Database &database, const Group &group, bool used, Findings &findings) {
    std::vector<const Server *> without;
    size_t sound = 0;
    for (const Server &server : group.servers) {
        sound += is_sound(server) ? 1 : 0;
        if (is_sound(server) && read_key(database, group, server).state == KeyState::missing) {
            without.push_back(&server);
        }
    }
    const Severity severity = used ? Severity::error : Severity::warning;
    const std::string remedy = change_group("store it", "key", group);
    if (!without.empty() && without.size() == sound) {
        findings.push_back({severity, "no-key", group.path,
                            "no key is stored that its servers share, so aaad asks none of them", remedy});
        return;
    }
    for (const Server *server : without) {
        findings.push_back(
            {severity, "no-key", server->path, "the server has no key, so aaad does not ask it", remedy});
    }
}

void check_group(Database &database, const Group &group, bool used, Findings &findings) {
    check_name(database, group, findings);
    check_servers(group.servers, findings);
    if (!any_sound(group.servers)) {
        findings.push_back(
            {used ? Severity::error : Severity::warning, "empty-group", group.path, "it has no server",
             change_group("configure a server in it with \"aaactl sg add\", or delete the group", "del",
                          group)});
    }
    check_keys(database, group, used, findings);
    check_number(database, group, used, findings);
}

}  // namespace aaactl
