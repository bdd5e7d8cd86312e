// SPDX-License-Identifier: Apache-2.0
//
// Packets of IP around what sockets send and receive, as programs for captures expect them.
// Addresses, ports, order and bytes are those of the sockets. Sequence numbers are counted here,
// and how the network cut the bytes is not known.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "net/tap.hpp"

namespace service {

class Segments {
  public:
    using Way = net::Tap::Way;

    static std::string datagram(const net::Tap::Path &path, Way way, std::string_view bytes);
    // A packet, or several, in order.
    std::vector<std::string> opened(const net::Tap::Path &path);
    std::vector<std::string> bytes(const net::Tap::Path &path, Way way, std::string_view bytes);
    std::vector<std::string> closed(const net::Tap::Path &path, Way way);

  private:
    // The next sequence number of each side. A connection that was open before the capture begins
    // in its middle.
    struct Flow {
        std::uint32_t sent = 1, received = 1;
    };
    Flow &flow_of(const net::Tap::Path &path);

    std::map<std::string, Flow> flows_;  // by both addresses
};

}  // namespace service
