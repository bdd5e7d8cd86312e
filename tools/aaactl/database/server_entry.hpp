// SPDX-License-Identifier: Apache-2.0
//
// The name of a server's entry: "HOST", "HOST,PORT" or "HOST,PORT,PORT". Ports of other protocols than RADIUS
// are hexadecimal.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace aaactl {

struct ServerEntry {
    std::string host;
    std::vector<uint32_t> ports;
    std::string defect;  // "", or why it is not a server
};
ServerEntry read_server_entry(std::string_view entry, size_t most_ports);

// The ordinal of a server, "0x1f"; nullopt for another name.
std::optional<uint32_t> ordinal_in(std::string_view name);

// Whether it is an IPv4 or IPv6 address: clients do not resolve names.
bool is_address(const std::string &host);

// An entry, or its host alone, with an IPv6 address written as the system does: 2001:db8::1 for
// 2001:0DB8:0:0::1. One server has one entry then. Other texts as they are.
std::string canonical_entry(const std::string &entry);

}  // namespace aaactl
