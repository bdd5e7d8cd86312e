// SPDX-License-Identifier: Apache-2.0
//
// Questions over TLS: connections, what is sent again when one is lost, and the queue of
// questions that wait for a connection or for an identifier.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "net/loop.hpp"
#include "radius/exchange.hpp"
#include "radius/radsec_connection.hpp"

namespace radius {

class RadsecTransport : public Transport {
  public:
    explicit RadsecTransport(Exchanges &exchanges);

    void start(Exchange &exchange) override;
    void time_out(Exchange &exchange) override;
    void expire_unsent(Exchange &exchange) override;
    void forget(Exchange &exchange) override;

  private:
    // Sends what waits, and connects when that needs a connection.
    void pump();
    RadsecConnection *connection_with_identifier() const;
    bool is_connecting() const;
    void connect();
    void transmit(Exchange &exchange, RadsecConnection &connection);
    void received(RadsecConnection &connection, std::string_view packet);
    void lost(RadsecConnection &connection, std::string_view reason);
    void count_failure(std::string_view reason);
    void refuse_queue();
    std::string unreachable() const;
    // Called by a timer, because connections are in the middle of their functions: pump(),
    // and the end of connections that were lost or not used for long.
    void tidy();

    Exchanges &exchanges_;
    std::vector<std::unique_ptr<RadsecConnection>> connections_;
    std::vector<std::unique_ptr<RadsecConnection>> lost_;
    std::deque<Exchange *> queue_;
    net::Timer tidying_;
    net::Timer retry_;
    net::Timer idle_;
    int failures_ = 0;            // since a server has answered
    net::Time next_connect_ = 0;  // not before
    std::string reason_;          // of the last failure
};

}  // namespace radius
