// SPDX-License-Identifier: Apache-2.0
//
// Servers: INDEX/HOST, INDEX/HOST,PORT or INDEX/HOST,PORT,PORT below a group's "server/" and
// "server-private/", and their settings beside these, below "settings/".

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <string>
#include <vector>

#include "config/database_read.hpp"

namespace service {

namespace {

constexpr std::uint16_t kRadiusPort = 1812;
constexpr std::uint16_t kRadiusAccountingPort = 1813;
constexpr std::uint16_t kRadiusTlsPort = 2083;
constexpr std::uint16_t kTacacsPort = 49;
constexpr std::uint16_t kTacacsTlsPort = 300;

std::optional<std::uint16_t> port_in(std::string_view text) {
    const bool hexadecimal = text.starts_with("0x");
    const std::string_view digits = hexadecimal ? text.substr(2) : text;
    std::uint16_t port = 0;
    const char *end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, port, hexadecimal ? 16 : 10);
    return error == std::errc() && stop == end && port != 0 ? std::optional(port) : std::nullopt;
}

bool is_address(const std::string &host) {
    unsigned char bytes[16];
    return inet_pton(AF_INET, host.c_str(), bytes) == 1 || inet_pton(AF_INET6, host.c_str(), bytes) == 1;
}

// A fault, or empty.
std::string read_entry(Server &server) {
    const std::string &entry = server.entry;
    const bool radius = server.protocol == Protocol::kRadius;
    server.host = entry.substr(0, entry.find(','));
    server.port = radius ? kRadiusPort : kTacacsPort;
    server.accounting_port = radius ? kRadiusAccountingPort : server.port;
    if (!is_address(server.host)) {
        return "\"" + server.host + "\" is not an address; names are not resolved";
    }
    std::string_view rest = entry;
    std::uint16_t *const ports[] = {&server.port, &server.accounting_port};
    for (std::size_t i = 0; rest.find(',') != std::string_view::npos; ++i) {
        rest.remove_prefix(rest.find(',') + 1);
        const auto port = port_in(rest.substr(0, rest.find(',')));
        if (!port) {
            return "\"" + std::string(rest.substr(0, rest.find(','))) + "\" is not a port";
        }
        if (i >= std::size(ports)) {
            return "it has more than 2 ports";
        }
        *ports[i] = *port;
    }
    return "";
}

// The settings of one server: its own, or those of all servers of the group.
class ServerReader {
  public:
    ServerReader(DatabaseReader &reader, const std::string &settings, const std::string &entry)
        : reader_(reader), own_(settings + entry + "/"), all_(settings) {}

    std::optional<std::uint32_t> number(const char *name, std::uint32_t most) {
        const auto own = reader_.number(own_ + name);
        const auto number = own ? own : reader_.number(all_ + name);
        if (number && *number > most) {
            reader_.fault((own ? own_ : all_) + name,
                          "it is more than " + std::to_string(most) + "; that is used instead");
        }
        return number ? std::optional(std::min(*number, most)) : std::nullopt;
    }

    std::optional<Secret> text(const char *name) {
        auto own = reader_.text(own_ + name);
        place_ = (own ? own_ : all_) + name;
        return own ? std::move(own) : reader_.text(place_);
    }

    void take(const char *name, std::string &out) {
        if (const auto value = text(name)) {
            out = value->text();
        }
    }

    // Of the text that was read last.
    const std::string &place() const { return place_; }

  private:
    DatabaseReader &reader_;
    std::string own_, all_, place_;
};

std::string in_shell(const std::string &word) {
    std::string quoted;
    for (const char c : word) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    constexpr std::string_view kPlain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./:,";
    return word.find_first_not_of(kPlain) == std::string::npos ? word : "'" + quoted + "'";
}

// `place`: group-server/PROTOCOL/GROUP/settings/[ENTRY/]key, or PROTOCOL/settings/[ENTRY/]key, whose servers
// have no command of their own.
std::string how_to_store_key(const std::string &place) {
    std::vector<std::string> names;
    for (std::size_t at = 0; at <= place.size();) {
        const std::size_t end = std::min(place.find('/', at), place.size());
        names.push_back(place.substr(at, end - at));
        at = end + 1;
    }
    if (names.size() < 5 || names[0] != "group-server") {
        return "store it: aaactl key seal | aaactl sysdb set --type string " +
               in_shell("/cfg/gl/aaa/" + place);
    }
    return "store it: aaactl sg key " + in_shell(names[1]) + " " + in_shell(names[2]) +
           (names.size() > 5 ? " " + in_shell(names[4]) : "");
}

// False, with a fault, when the server cannot be used. One whose key cannot be opened now goes on
// with the key that it had: otherwise the next method would decide in its place.
bool read_key(ServersReader &reading, ServerReader &settings, const std::string &path, Server &server,
              const std::string &place) {
    DatabaseReader &reader = reading.reader;
    const auto stored = settings.text("key");
    if (!stored) {
        // RADIUS over TLS has a fixed key, TACACS+ over TLS none.
        if (server.transport != "tls" && !reader.failed()) {
            reader.fault(path,
                         "the server has no key, so it is not asked; " + how_to_store_key(settings.place()));
        }
        return server.transport == "tls";
    }
    auto key = reading.keys.open(place, *stored);
    if (!key) {
        reader.fault(settings.place(), "it cannot be opened here, so the server " + server.entry +
                                           " is not asked; " + kMasterKeysAdvice + "; or " +
                                           how_to_store_key(settings.place()));
        reader.locked(server.name());
        return false;
    }
    if (key->is_kept) {
        reader.fault(settings.place(), "it cannot be opened now, so the server " + server.entry +
                                           " is asked with the key that was opened before, until the service "
                                           "ends; " +
                                           kMasterKeysAdvice + "; or " + how_to_store_key(settings.place()));
        reading.kept_keys.insert(place);
    }
    server.key = std::move(key->text);
    return true;
}

bool read_transport(DatabaseReader &reader, ServerReader &settings, Server &server) {
    server.transport = server.protocol == Protocol::kRadius ? "udp" : "tcp";
    const std::string usual = server.transport;
    settings.take("transport", server.transport);
    if (server.transport != usual && server.transport != "tls") {
        reader.fault(settings.place(), "\"" + server.transport + "\" is neither " + usual +
                                           " nor tls, so the server " + server.entry + " is not asked");
        return false;
    }
    return true;
}

void read_settings(ServerReader &settings, const ServerSettings &defaults, bool has_port, Server &server) {
    constexpr std::uint32_t kMostMs = 60000;
    constexpr std::uint32_t kMostTries = 10;
    constexpr std::uint32_t kDay = 86400;
    server.timeout_ms = std::max(settings.number("timeout", kMostMs).value_or(defaults.timeout_ms), 10U);
    server.tries = std::max(settings.number("tries", kMostTries).value_or(defaults.tries), 1U);
    server.dead_time_s = settings.number("dead-time", kDay).value_or(defaults.dead_time_s);
    settings.take("server-name", server.server_name);
    settings.take("ca-file", server.ca_file);
    settings.take("certificate-file", server.certificate_file);
    settings.take("key-file", server.key_file);
    settings.take("crl-file", server.crl_file);
    settings.take("source", server.source);
    settings.take("source-interface", server.source_interface);
    settings.take("vrf", server.vrf);
    server.legacy = settings.number("legacy", 1).value_or(0) != 0;
    server.single_connect = settings.number("single-connect", 1).value_or(1) != 0;
    server.status_server = settings.number("status-server", 1).value_or(0) != 0;
    settings.take("probe-user", server.probe_user);
    server.pap = settings.number("pap", 1).value_or(0) != 0;
    settings.take("nas-identifier", server.nas_identifier);
    settings.take("vendor-map", server.vendor_map);
    if (server.protocol == Protocol::kRadius && server.transport == "tls" && !has_port) {
        server.port = server.accounting_port = kRadiusTlsPort;
    }
    if (server.protocol == Protocol::kTacacs && !has_port) {
        const std::uint32_t usual = server.transport == "tls" ? kTacacsTlsPort : kTacacsPort;
        server.port = static_cast<std::uint16_t>(settings.number("port", UINT16_MAX).value_or(usual));
        server.accounting_port = server.port;
    }
}

}  // namespace

std::optional<Server> ServersReader::read_one(Protocol protocol, const std::string &entry,
                                              const std::string &path, const std::string &settings) {
    Server server;
    server.protocol = protocol;
    server.entry = entry;
    if (const std::string defect = read_entry(server); !defect.empty()) {
        reader.fault(path, defect + "; the server is not asked");
        return std::nullopt;
    }
    ServerReader own(reader, settings, entry);
    if (!read_transport(reader, own, server)) {
        return std::nullopt;
    }
    read_settings(own, defaults, entry.find(',') != std::string::npos, server);
    return read_key(*this, own, path, server, settings + entry) ? std::optional(std::move(server))
                                                                : std::nullopt;
}

std::vector<Server> ServersReader::read(Protocol protocol, const std::string &directory,
                                        const std::string &settings) {
    std::vector<Server> servers;
    for (const DatabaseEntry &ordinal : reader.entries(directory)) {
        if (!ordinal.is_directory) {
            continue;
        }
        const std::string at = directory + ordinal.name + "/";
        for (const DatabaseEntry &entry : reader.entries(at)) {
            if (auto server = read_one(protocol, entry.name, at + entry.name, settings)) {
                servers.push_back(*std::move(server));
            }
        }
    }
    return servers;
}

}  // namespace service
