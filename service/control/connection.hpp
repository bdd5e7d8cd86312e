// SPDX-License-Identifier: Apache-2.0
//
// One client of the control socket.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "control/follower.hpp"
#include "control/replies.hpp"
#include "listener/access.hpp"
#include "net/descriptor.hpp"
#include "net/loop.hpp"

namespace service {

class ControlConnection {
  public:
    struct Host {
        const ControlSources &sources;
        std::function<std::size_t()> clients;             // of the control socket
        std::function<void(ControlConnection *)> remove;  // destroys the connection
        // With a client that does not read, and with one that asks nothing.
        net::Time patience = 60 * net::kSecond;
    };

    // The host outlives the connection.
    ControlConnection(const Host &host, net::Descriptor socket, Peer peer);
    ~ControlConnection();
    ControlConnection(const ControlConnection &) = delete;
    ControlConnection &operator=(const ControlConnection &) = delete;

    bool usable() const { return watch_.usable(); }
    const Peer &peer() const { return peer_; }
    // There are new events or frames. The connection may be gone when it returns.
    void on_news();
    // The service ends: a capture gets its end, as far as it can be sent at once.
    void end_capture();

  private:
    void give_up();
    void give_up_capture();
    void on_events(std::uint32_t events);
    bool read_some();
    void take_lines();
    void handle(std::string_view line);
    void start_trace(ControlRequest request);
    void start_capture(const ControlRequest &request);
    void append_new();
    // False when the connection is over.
    bool write_some();
    bool is_done() const;
    void wait_for_events();

    const Host &host_;
    net::Descriptor socket_;
    Peer peer_;
    net::Watch watch_;
    net::Timer patience_;
    std::string in_, out_;
    std::unique_ptr<TraceFollower> follower_;
    std::unique_ptr<CaptureReader> capture_;
    bool reads_ = true;  // false after its end, and after a request that is too long
};

}  // namespace service
