// SPDX-License-Identifier: Apache-2.0
//
// A question under way, and the part of a client that does not depend on the transport:
// all questions with their tickets, the check of answers, and the calls of the functions
// that get the outcomes.
#pragma once

#include <array>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "net/loop.hpp"
#include "radius/counters.hpp"
#include "radius/identifiers.hpp"
#include "radius/outcome.hpp"
#include "radius/question.hpp"
#include "radius/settings.hpp"

namespace radius {

struct Exchange;

// A socket or a connection with its identifiers, and the requests that have them.
struct Channel {
    struct Slot {
        Exchange *exchange = nullptr;
        const Request *request = nullptr;
    };
    Identifiers ids;
    std::array<Slot, UINT8_MAX + 1> slots;
};

// A packet of a question. There is a second one when Acct-Delay-Time has changed.
struct Attempt {
    Channel *channel;
    std::unique_ptr<Request> request;
    std::uint32_t delay;  // seconds that were added to Acct-Delay-Time
    int sent = 0;
};

struct Exchange {
    using Ticket = std::uint64_t;
    using Done = std::function<void(const Outcome &)>;

    Exchange(net::Loop &loop, Ticket ticket, Question question, Done done, net::Time deadline,
             std::function<void()> timed_out);

    const Ticket ticket;
    Question question;
    Done done;
    const net::Time deadline;
    const net::Time asked = net::Loop::clock();
    net::Time first_sent = 0;
    net::Time last_sent = 0;
    net::Time wait = 0;  // after the last try
    int tries = 0;
    std::vector<Attempt> attempts;
    std::array<std::uint64_t, kFaults> dropped = {};  // what came instead of the answer
    net::Timer timer;
    bool is_finished = false;
    Outcome outcome;
};

// What sends questions. None of the functions may destroy an exchange.
class Transport {
  public:
    virtual ~Transport() = default;
    virtual void start(Exchange &exchange) = 0;
    // Its timer, which the transport sets, is due; not called after the deadline.
    virtual void time_out(Exchange &exchange) = 0;
    // Its time has come before it was sent. The transport finishes it.
    virtual void expire_unsent(Exchange &exchange) = 0;
    // It has ended, with the kind of outcome that it has, or was cancelled. The transport
    // gives up its attempts.
    virtual void forget(Exchange &exchange) = 0;
};

class Exchanges {
  public:
    Exchanges(net::Loop &loop, ServerSettings settings);
    Exchanges(const Exchanges &) = delete;
    Exchanges &operator=(const Exchanges &) = delete;

    void use(Transport &transport) { transport_ = &transport; }
    Exchange::Ticket add(Question question, Exchange::Done done, net::Time deadline);
    void cancel(Exchange::Ticket ticket);
    // Makes the packet of an attempt. Null, and the exchange is finished, when it cannot be made.
    std::unique_ptr<Request> make_request(Exchange &exchange, std::uint8_t id, std::uint32_t delay);
    // Seconds since the question was asked, for Acct-Delay-Time.
    static std::uint32_t delay_of(const Exchange &exchange);
    // A packet of it was sent just now.
    void count_try(Exchange &exchange);
    // Has its timer called after a wait or at its deadline.
    void set_timer(Exchange &exchange, net::Time at);

    // Checks bytes that came over a channel. The exchange that they answer is finished.
    Fault receive(Channel &channel, std::string_view bytes);

    void finish(Exchange &exchange, Outcome::Kind kind, std::string text);
    // The texts of outcomes.
    std::string silence(const Exchange &exchange) const;
    std::string name() const { return settings.address.text(); }

    std::size_t size() const { return all_.size(); }

    net::Loop &loop;
    const ServerSettings settings;
    Counters counters;

  private:
    void timed_out(Exchange::Ticket ticket);
    void answered(Exchange &exchange, const Reply &reply);
    void count(const Exchange &exchange, Code code);
    MessageAuthenticator required(const Request &request) const;
    void end(Exchange &exchange);
    void deliver();

    Transport *transport_ = nullptr;
    Exchange::Ticket last_ticket_ = 0;
    std::unordered_map<Exchange::Ticket, std::unique_ptr<Exchange>> all_;
    std::deque<Exchange::Ticket> finished_;  // whose functions are to be called
    net::Timer delivery_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace radius
