// SPDX-License-Identifier: Apache-2.0
//
// What a capture sees of the traffic with servers: every byte that a socket sends or receives, as
// it is on the wire. Without a tap in the loop, the sockets test one pointer for it.
#pragma once

#include <cstdint>
#include <string_view>

#include "net/address.hpp"

namespace net {

// Called by the loop's thread. A tap must not throw, and must not change a socket.
class Tap {
  public:
    enum class Way : std::uint8_t { kSent, kReceived };
    struct Path {
        Address local, server;
    };

    virtual ~Tap() = default;
    // A datagram of UDP.
    virtual void datagram(const Path &path, Way way, std::string_view bytes) = 0;
    // A connection over TCP: made, its bytes in order, closed by this side or by the server.
    virtual void opened(const Path &path) = 0;
    virtual void bytes(const Path &path, Way way, std::string_view bytes) = 0;
    virtual void closed(const Path &path, Way way) = 0;
    // A line for a log of TLS keys.
    virtual void tls_key(std::string_view line) = 0;
};

}  // namespace net
