// SPDX-License-Identifier: Apache-2.0
//
// How a server is reached and asked.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "net/address.hpp"
#include "net/loop.hpp"
#include "net/stream.hpp"
#include "radius/packet.hpp"
#include "radius/secret.hpp"

namespace radius {

struct ServerSettings {
    net::Address address;  // with the port of what is asked: 1812, 1813
    Secret secret;         // shared with the server
    // The address from which UDP requests are sent, for servers that know their clients by it.
    std::optional<net::Address> local;
    std::string device = {};  // that requests leave over; empty: any
    // Identifies this system to the server, in every request that has none (NAS-Identifier).
    // RFC 2865 demands this or NAS-IP-Address in each access request.
    std::string nas_identifier;
    // For a server that sends no Message-Authenticator: its answers can be forged by an
    // attacker between the two (MD5 collisions), so that a refusal becomes a permission.
    bool legacy = false;

    // Retransmission (RFC 5080, 2.2.1): the first wait, the longest one, and how often a
    // request is sent. Each wait is twice the one before, and differs by a tenth at random.
    net::Time timeout = 2 * net::kSecond;
    net::Time longest_timeout = 8 * net::kSecond;
    int tries = 3;

    std::size_t max_sockets = 16;    // with 256 requests in flight on each
    std::size_t max_queued = 10000;  // requests that wait for one of the others
    // TLS instead of UDP when its context is set (RFC 6614). The secret is then "radsec",
    // whatever is set above, and answers need no Message-Authenticator.
    net::TlsPeer tls;
    net::Time connect_timeout = 5 * net::kSecond;  // TCP and TLS together
    // The wait after a first failure to connect; each next one is twice as long.
    net::Time reconnect = net::kSecond / 10;
    net::Time longest_reconnect = 30 * net::kSecond;
    // A server that owes answers and sends nothing for so long is asked whether it is there
    // (Status-Server); when it sends nothing for so long again, the connection is lost.
    net::Time watchdog = 5 * net::kSecond;
    net::Time idle = 20 * net::kSecond;  // servers close after 30 s, often in the middle of a request
    std::size_t max_connections = 4;     // with 255 requests in flight on each

    // How long the identifier of a request is not used again when an answer may come late.
    net::Time rest = 30 * net::kSecond;
};

// The longest time that a question takes after it was sent, for callers whose own time is
// limited. One that has to wait for an identifier may take as long before.
net::Time longest_wait(const ServerSettings &settings);

// Why the settings cannot be used; empty when they can.
std::string fault_of(const ServerSettings &settings);

}  // namespace radius
