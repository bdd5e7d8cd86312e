// SPDX-License-Identifier: Apache-2.0

#include "database/server_entry.hpp"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>

#include "cli/output.hpp"

namespace aaactl {
namespace {

// All of the text as a number, hexadecimal after "0x".
std::optional<uint32_t> number_in(std::string_view text) {
    const bool hexadecimal = text.starts_with("0x");
    const std::string_view digits = hexadecimal ? text.substr(2) : text;
    uint32_t number = 0;
    const char *end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, number, hexadecimal ? 16 : 10);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

}  // namespace

ServerEntry read_server_entry(std::string_view entry, size_t most_ports) {
    ServerEntry server;
    std::string_view rest = entry;
    server.host = std::string(rest.substr(0, rest.find(',')));
    while (rest.find(',') != std::string_view::npos && server.defect.empty()) {
        rest.remove_prefix(rest.find(',') + 1);
        const std::string_view word = rest.substr(0, rest.find(','));
        const auto port = number_in(word);
        if (!port || *port == 0 || *port > 65535) {
            server.defect = "\"" + escaped(word) + "\" is not a port";
        } else {
            server.ports.push_back(*port);
        }
    }
    if (server.defect.empty() && server.ports.size() > most_ports) {
        server.defect = "it has more than " + std::to_string(most_ports) + " port(s)";
    }
    if (server.defect.empty() && !is_address(server.host)) {
        server.defect = "\"" + escaped(server.host) + "\" is not an address";
    }
    return server;
}

std::optional<uint32_t> ordinal_in(std::string_view name) {
    return name.starts_with("0x") ? number_in(name) : std::nullopt;
}

bool is_address(const std::string &host) {
    unsigned char bytes[16];
    return inet_pton(AF_INET, host.c_str(), bytes) == 1 || inet_pton(AF_INET6, host.c_str(), bytes) == 1;
}

std::string canonical_entry(const std::string &entry) {
    const size_t end = std::min(entry.find(','), entry.size());
    in6_addr address{};
    char text[INET6_ADDRSTRLEN];
    return inet_pton(AF_INET6, entry.substr(0, end).c_str(), &address) == 1 &&
                   inet_ntop(AF_INET6, &address, text, sizeof text) != nullptr
               ? text + entry.substr(end)
               : entry;
}

}  // namespace aaactl
