// SPDX-License-Identifier: Apache-2.0
//
// Questions over UDP: which socket and identifier a request gets, retransmission, and the
// queue of those that wait for an identifier.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "net/loop.hpp"
#include "radius/exchange.hpp"
#include "radius/udp_socket.hpp"

namespace radius {

class UdpTransport : public Transport {
  public:
    explicit UdpTransport(Exchanges &exchanges);

    void start(Exchange &exchange) override;
    void time_out(Exchange &exchange) override;
    void expire_unsent(Exchange &exchange) override;
    void forget(Exchange &exchange) override;

  private:
    struct Place {
        UdpSocket *socket = nullptr;
        std::uint8_t id = 0;
    };

    Place take_place();
    Place take_place_of(bool worn);
    std::unique_ptr<UdpSocket> open_socket();
    bool add_attempt(Exchange &exchange, Place place, std::uint32_t delay);
    void transmit(Exchange &exchange, std::size_t attempt);
    void refuse_sent(UdpSocket &socket, int error);
    std::string refusal(int error) const;
    bool needs_new_packet(const Exchange &exchange) const;
    // Starts questions of the queue, and closes sockets that are not needed any more. Called
    // by a timer: what leads to it may be in the middle of a socket's function.
    void tidy();

    Exchanges &exchanges_;
    std::vector<std::unique_ptr<UdpSocket>> sockets_;
    std::deque<Exchange *> queue_;
    net::Timer tidying_;
    std::string open_error_;  // why the last socket could not be opened
    bool open_unreachable_ = false;
};

}  // namespace radius
