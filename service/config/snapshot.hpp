// SPDX-License-Identifier: Apache-2.0
//
// The configuration at one moment: settings, local users, method lists, server groups with
// their servers and keys. Never changed once it is made, so a request that began with one
// ends with it, whatever is configured meanwhile.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "aaa/names.h"
#include "base/secret.hpp"
#include "config/settings.hpp"
#include "config/users.hpp"

namespace service {

enum class Protocol : std::uint8_t { kRadius, kTacacs, kDiameter };
// In the order in which the name of a group is looked for.
inline constexpr Protocol kProtocols[] = {Protocol::kRadius, Protocol::kTacacs, Protocol::kDiameter};
// "radius", the word of paths.
const char *protocol_word(Protocol protocol);
// The number of the library's functions: 1, 2 or 17.
std::uint32_t protocol_keyword(Protocol protocol);

struct Server {
    Protocol protocol = Protocol::kRadius;
    std::string entry;       // as it is configured: "192.0.2.1,1812,1813"
    std::string host;        // an address
    std::uint16_t port = 0;  // for authentication; of TACACS+ for everything
    std::uint16_t accounting_port = 0;
    Secret key;
    std::uint32_t timeout_ms = 0;  // for one try
    std::uint32_t tries = 0;
    std::uint32_t dead_time_s = 0;  // for which it is not asked when it was silent
    std::string transport;          // "udp" or "tls" for RADIUS, "tcp" or "tls" for TACACS+
    std::string server_name;        // in its certificate; the four files are for TLS too
    std::string ca_file;
    std::string certificate_file;
    std::string key_file;
    std::string crl_file;
    std::string source;  // local address; empty: that of source_interface, or the system's choice
    std::string source_interface;
    std::string vrf;             // device of the VRF in which it is reached; empty: the usual routes
    bool legacy = false;         // answers need no Message-Authenticator
    bool single_connect = true;  // several sessions on one connection, if the server agrees
    bool status_server = false;  // RADIUS: it answers Status-Server, so that is what it is probed with
    // As whom a server without Status-Server is probed; empty: it is not.
    std::string probe_user = "aaad-probe";
    bool pap = false;            // TACACS+: a password that came with a request is sent at once
    std::string nas_identifier;  // RADIUS: how this system calls itself; empty: the host's name
    std::string vendor_map;      // RADIUS: file that says what attributes of vendors mean

    // "radius/192.0.2.1,1812,1813": names the server in log lines and in the table of dead ones.
    std::string name() const { return std::string(protocol_word(protocol)) + "/" + entry; }
    friend bool operator==(const Server &, const Server &) = default;
};

struct Group {
    Protocol protocol = Protocol::kRadius;
    std::string name;  // empty for the servers that a protocol has without a group
    std::uint32_t number = 0;
    std::vector<Server> servers;  // in the order in which they are asked; only usable ones
};

struct Method {
    std::uint32_t number = 0;  // AAA_METHOD_...
    std::string group_name;    // of AAA_METHOD_SERVER_GROUP
    // Of a server group, and of "radius" and "tacacs+". Null for a group that is not configured.
    std::shared_ptr<const Group> group;

    // "group corp", "local": for log lines.
    std::string text() const;
};

struct MethodList {
    std::vector<Method> methods;
    bool broadcast = false;     // of accounting: every method gets the record
    bool is_configured = true;  // false: the service supplies it
};

struct Snapshot {
    std::uint64_t number = 0;  // counts the snapshots of the process
    std::shared_ptr<const Settings> settings;
    std::shared_ptr<const Users> users;  // null: there is no usable file
    // By "authentication/login/default".
    std::map<std::string, MethodList, std::less<>> lists;
    std::vector<std::shared_ptr<const Group>> groups;
    // Servers whose keys cannot be opened now, and that go on with those opened before.
    std::set<std::string> kept_keys;
    bool is_fallback = false;  // the lists are those of the settings, not of the database

    // As aaactl lint counts them.
    std::size_t configured_lists() const;
    std::size_t configured_groups() const;

    const MethodList *find_list(const std::string &function, const std::string &service,
                                const std::string &name) const;
};
using SnapshotPtr = std::shared_ptr<const Snapshot>;

// In the set of kept keys: a server of a group, or of those without one.
std::string key_place(const Group &group, const Server &server);

// Whether a method could pass a login.
bool can_pass(const Snapshot &snapshot, const Method &method);
// Why no one could log in; empty when someone could.
std::string locks_everybody_out(const Snapshot &snapshot);
// Puts the fallback methods of the settings in place of all lists.
void use_fallback(Snapshot &snapshot);

}  // namespace service
