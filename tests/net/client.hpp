// SPDX-License-Identifier: Apache-2.0
//
// A stream of a test, and what it has heard.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "net/stream.hpp"

namespace net_test {

class Client {
  public:
    Client(net::Loop &loop, const net::Address &server, net::TlsPeer peer = {}) : loop_(loop) {
        stream = std::make_unique<net::Stream>(loop, server, std::move(peer),
                                               net::Stream::Calls{.connected = [this] { connected = true; },
                                                                  .received =
                                                                      [this](std::string_view bytes) {
                                                                          received += bytes;
                                                                          ++reads;
                                                                      },
                                                                  .closed =
                                                                      [this](std::string_view why) {
                                                                          closed = true;
                                                                          reason = why;
                                                                      }});
    }

    void run_until(const std::function<bool()> &done) {
        while (!done()) {
            loop_.run_once(INT64_MAX);
        }
    }
    void run_until_closed() {
        run_until([this] { return closed; });
    }
    void run_until_received(std::size_t size) {
        run_until([&] { return received.size() >= size || closed; });
    }

    std::unique_ptr<net::Stream> stream;
    bool connected = false;
    bool closed = false;
    std::string reason;
    std::string received;
    int reads = 0;

  private:
    net::Loop &loop_;
};

}  // namespace net_test
