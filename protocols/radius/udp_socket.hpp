// SPDX-License-Identifier: Apache-2.0
//
// A connected UDP socket to a server. The system drops what other addresses send to it,
// and reports when the server's port is closed.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "net/descriptor.hpp"
#include "net/loop.hpp"
#include "net/tap.hpp"
#include "radius/exchange.hpp"

namespace radius {

class UdpSocket : public Channel {
  public:
    struct Calls {
        std::function<void(UdpSocket &, std::string_view bytes)> received;
        std::function<void(UdpSocket &, int error)> failed;  // an error number of the network's
    };

    // Null when the system refuses; `error` then says why, and `unreachable` whether it was
    // for want of a route.
    static std::unique_ptr<UdpSocket> open(net::Loop &loop, const ServerSettings &settings, Calls calls,
                                           std::string &error, bool &unreachable);

    // 0, or an error number. What the system has no room for is lost, as in the network.
    int send(std::string_view bytes);

    // Requests have not been answered over it, so another one is preferred.
    bool is_worn = false;

    // True when the network, not this system, reports the error: nothing answers there.
    static bool is_of_network(int error);

  private:
    UdpSocket(net::Loop &loop, net::Descriptor descriptor, const net::Address &server, Calls calls);
    void readable();
    void show(net::Tap::Way way, std::string_view bytes) const;

    net::Loop &loop_;
    const net::Address server_;
    net::Descriptor descriptor_;
    Calls calls_;
    net::Watch watch_;
};

}  // namespace radius
