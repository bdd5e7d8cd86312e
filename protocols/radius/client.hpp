// SPDX-License-Identifier: Apache-2.0
//
// A client of one RADIUS server, on a loop. Any number of questions can be under way; none
// delays another. The loop's thread makes all calls.
//
// A packet that is not a valid answer is dropped and counted, and the wait goes on:
// otherwise anybody who can send a datagram could fail logins.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "net/loop.hpp"
#include "radius/counters.hpp"
#include "radius/outcome.hpp"
#include "radius/question.hpp"
#include "radius/settings.hpp"

namespace radius {

class Client {
  public:
    // Identifies a question; never 0.
    using Ticket = std::uint64_t;
    // Called by the loop, never from within a function of the client, once for each
    // question that is not cancelled. It may destroy the client.
    using Done = std::function<void(const Outcome &)>;

    // Null when the settings cannot be used; `error` then says why.
    static std::unique_ptr<Client> make(net::Loop &loop, ServerSettings settings, std::string &error);
    // Questions that are under way end without a call.
    ~Client();
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    // The outcome comes at the deadline at the latest (a time of the loop's clock).
    Ticket ask(Question question, Done done, net::Time deadline = INT64_MAX);
    // Asks whether the server is there (Status-Server). It is when any answer comes.
    Ticket ask_status(Done done, net::Time deadline = INT64_MAX);
    // Ends a question without a call of its function. Nothing happens when it has ended.
    void cancel(Ticket ticket);

    const Counters &counters() const;
    // Questions whose function is still to be called.
    std::size_t under_way() const;

  private:
    class Impl;
    explicit Client(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

}  // namespace radius
