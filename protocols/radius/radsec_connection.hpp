// SPDX-License-Identifier: Apache-2.0
//
// A connection to a server over TLS (RFC 6614), with a watchdog: a peer that has gone without
// a word would otherwise be noticed only when TCP gives up, after many minutes.
#pragma once

#include <bitset>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "net/loop.hpp"
#include "net/stream.hpp"
#include "radius/exchange.hpp"
#include "radius/packet_stream.hpp"

namespace radius {

class RadsecConnection : public Channel {
  public:
    // After closed() the connection does nothing more; it must not be destroyed by a call.
    struct Calls {
        std::function<void(RadsecConnection &)> opened;
        std::function<void(RadsecConnection &, std::string_view packet)> received;
        std::function<void(RadsecConnection &, std::string_view reason)> closed;
    };

    RadsecConnection(net::Loop &loop, const ServerSettings &settings, Calls calls);

    bool is_open() const { return is_open_; }
    // Whether the server has sent a valid packet.
    bool has_answered() const { return has_answered_; }
    void note_answer() { has_answered_ = true; }
    // Requests of which the outcome is waited for.
    std::size_t in_flight() const { return ids.taken() - 1 - abandoned_.count(); }

    void send(std::string_view packet);
    // Nobody waits for the answer any more. The identifier stays taken until it comes, so
    // that it is not taken for the answer to another request.
    void abandon(std::uint8_t id);
    // The answer to an abandoned request has come. False when there is none of that identifier.
    bool take_abandoned(std::uint8_t id);
    // True when requests that nobody waits for have taken all identifiers.
    bool is_exhausted() const { return ids.taken() == slots.size() && in_flight() == 0; }

    // Ends it; closed() is called unless it has been.
    void close(std::string_view reason);

  private:
    void connected();
    void received(std::string_view bytes);
    void due();
    void send_watchdog();

    const ServerSettings &settings_;
    Calls calls_;
    PacketStream packets_;
    std::bitset<UINT8_MAX + 1> abandoned_;
    std::unique_ptr<Request> watchdog_;  // that waits for its answer
    net::Timer timer_;                   // the limit of connecting, then the watchdog's
    net::Time heard_ = 0;                // when something came last, or a request was sent after a pause
    bool is_open_ = false;
    bool has_answered_ = false;
    bool is_closed_ = false;
    std::unique_ptr<net::Stream> stream_;
};

}  // namespace radius
