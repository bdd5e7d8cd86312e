// SPDX-License-Identifier: Apache-2.0
//
// Questions over TLS.

#include "radius/radsec.hpp"

#include <algorithm>
#include <utility>

#include "radius/retransmission.hpp"

namespace radius {

using Kind = Outcome::Kind;

RadsecTransport::RadsecTransport(Exchanges &exchanges)
    : exchanges_(exchanges),
      tidying_(exchanges.loop, [this] { tidy(); }),
      retry_(exchanges.loop, [this] { pump(); }),
      idle_(exchanges.loop, [this] {
          while (!connections_.empty()) {
              connections_.back()->close("it was not used");  // takes it from there
          }
      }) {}

void RadsecTransport::start(Exchange &exchange) {
    // TCP repeats packets, so there is one limit for all tries (RFC 6613, 2.6.1).
    exchanges_.set_timer(exchange, exchange.asked + longest_wait(exchanges_.settings));
    if (queue_.size() >= exchanges_.settings.max_queued) {
        exchange.outcome.is_overload = true;
        exchanges_.finish(exchange, Kind::kError,
                          std::to_string(queue_.size()) + " questions to " + exchanges_.name() +
                              " wait already; it answers too slowly or not at all");
        return;
    }
    queue_.push_back(&exchange);
    pump();
}

RadsecConnection *RadsecTransport::connection_with_identifier() const {
    for (const std::unique_ptr<RadsecConnection> &connection : connections_) {
        if (connection->is_open() && connection->ids.taken() < connection->slots.size()) {
            return connection.get();
        }
    }
    return nullptr;
}

bool RadsecTransport::is_connecting() const {
    return std::any_of(connections_.begin(), connections_.end(),
                       [](const auto &connection) { return !connection->is_open(); });
}

void RadsecTransport::pump() {
    while (!queue_.empty()) {
        RadsecConnection *const connection = connection_with_identifier();
        if (connection == nullptr) {
            break;
        }
        Exchange &exchange = *queue_.front();
        queue_.pop_front();
        transmit(exchange, *connection);
    }
    if (queue_.empty() || is_connecting() || connections_.size() >= exchanges_.settings.max_connections) {
        return;
    }
    if (net::Loop::clock() >= next_connect_) {
        connect();
    } else if (connections_.empty() && failures_ >= exchanges_.settings.tries) {
        refuse_queue();
    } else {
        retry_.set(next_connect_);
    }
}

void RadsecTransport::connect() {
    ++exchanges_.counters.connections;
    connections_.push_back(std::make_unique<RadsecConnection>(
        exchanges_.loop, exchanges_.settings,
        RadsecConnection::Calls{.opened = [this](RadsecConnection &) { pump(); },
                                .received = [this](RadsecConnection &connection,
                                                   std::string_view packet) { received(connection, packet); },
                                .closed = [this](RadsecConnection &connection,
                                                 std::string_view reason) { lost(connection, reason); }}));
}

void RadsecTransport::transmit(Exchange &exchange, RadsecConnection &connection) {
    const std::uint8_t id = *connection.ids.take(0);
    const std::uint32_t delay = Exchanges::delay_of(exchange);
    std::unique_ptr<Request> request = exchanges_.make_request(exchange, id, delay);
    if (request == nullptr) {
        connection.ids.release(id);
        return;
    }
    connection.slots[id] = {&exchange, request.get()};
    const std::string_view bytes = request->bytes();
    exchange.attempts.push_back({&connection, std::move(request), delay, 1});
    exchanges_.count_try(exchange);
    idle_.cancel();
    connection.send(bytes);  // last: it may lose the connection
}

void RadsecTransport::received(RadsecConnection &connection, std::string_view packet) {
    const Fault fault = exchanges_.receive(connection, packet);
    if (fault == Fault::kNone) {
        connection.note_answer();
        failures_ = 0;
        next_connect_ = 0;
    } else if (fault == Fault::kOtherRequest) {
        connection.take_abandoned(static_cast<std::uint8_t>(packet[1]));
        tidying_.set(exchanges_.loop.now());
    } else {
        // TLS delivers what the server has sent, so the server is broken (RFC 6613, 2.6.4).
        connection.close("the server has sent a damaged packet or one with a wrong authenticator");
    }
}

// The identifier of a request that was answered is free; for others the answer may come.
void RadsecTransport::forget(Exchange &exchange) {
    for (const Attempt &attempt : exchange.attempts) {
        auto &connection = static_cast<RadsecConnection &>(*attempt.channel);
        const std::uint8_t id = attempt.request->id();
        if (exchange.outcome.kind == Kind::kAnswer) {
            connection.slots[id] = {};
            connection.ids.release(id);
        } else {
            connection.abandon(id);
        }
    }
    if (exchange.attempts.empty()) {
        queue_.erase(std::remove(queue_.begin(), queue_.end(), &exchange), queue_.end());
    }
    tidying_.set(exchanges_.loop.now());
}

void RadsecTransport::lost(RadsecConnection &connection, std::string_view reason) {
    const bool failed = !connection.is_open() || (!connection.has_answered() && connection.in_flight() > 0);
    std::vector<Exchange *> in_flight;
    for (Channel::Slot &slot : connection.slots) {
        if (slot.exchange != nullptr) {
            in_flight.push_back(slot.exchange);
            slot.exchange->attempts.clear();
        }
        slot = {};
    }
    const auto found = std::find_if(connections_.begin(), connections_.end(),
                                    [&](const auto &owned) { return owned.get() == &connection; });
    lost_.push_back(std::move(*found));
    connections_.erase(found);
    if (failed) {
        count_failure(reason);
    }
    // The oldest questions first, before those that were never sent.
    std::sort(in_flight.begin(), in_flight.end(),
              [](const Exchange *one, const Exchange *other) { return one->ticket > other->ticket; });
    for (Exchange *exchange : in_flight) {
        if (exchange->tries >= exchanges_.settings.tries) {
            exchanges_.finish(*exchange, Kind::kRefused,
                              "the connection to " + exchanges_.name() + " was lost " +
                                  std::to_string(exchange->tries) +
                                  " times before the answer: " + std::string(reason));
        } else {
            queue_.push_front(exchange);
        }
    }
    if (connections_.empty() && failures_ >= exchanges_.settings.tries) {
        refuse_queue();
    }
    tidying_.set(exchanges_.loop.now());
}

// Waits before the next attempt: twice as long after each failure, with a tenth at random.
void RadsecTransport::count_failure(std::string_view reason) {
    ++exchanges_.counters.connection_failures;
    reason_ = reason;
    const ServerSettings &settings = exchanges_.settings;
    net::Time wait = settings.reconnect;
    for (int i = 0; i < failures_ && wait < settings.longest_reconnect; ++i) {
        wait *= 2;
    }
    ++failures_;
    wait = std::min(wait, settings.longest_reconnect);
    wait += static_cast<net::Time>(static_cast<double>(wait / 10) * random_fraction());
    next_connect_ = net::Loop::clock() + wait;
}

std::string RadsecTransport::unreachable() const {
    return "there is no connection to " + exchanges_.name() + (reason_.empty() ? "" : ": ") + reason_;
}

void RadsecTransport::refuse_queue() {
    while (!queue_.empty()) {
        exchanges_.finish(*queue_.front(), Kind::kRefused, unreachable());  // takes it from the queue
    }
}

void RadsecTransport::time_out(Exchange &exchange) {
    if (exchange.tries == 0) {
        expire_unsent(exchange);
    } else {
        exchanges_.finish(exchange, Kind::kSilent, exchanges_.silence(exchange));
    }
}

void RadsecTransport::expire_unsent(Exchange &exchange) {
    exchanges_.finish(exchange, Kind::kSilent,
                      connections_.empty() || is_connecting()
                          ? unreachable()
                          : std::to_string(exchanges_.size()) + " questions to " + exchanges_.name() +
                                " are under way; it answers too slowly or not at all");
}

void RadsecTransport::tidy() {
    lost_.clear();
    std::size_t in_flight = 0;
    for (std::size_t i = connections_.size(); i > 0; --i) {
        in_flight += connections_[i - 1]->in_flight();
        if (connections_[i - 1]->is_exhausted()) {
            connections_[i - 1]->close("the server has not answered 255 requests");
        }
    }
    pump();
    if (in_flight == 0 && queue_.empty() && !connections_.empty() && !idle_.is_set()) {
        idle_.set(net::Loop::clock() + exchanges_.settings.idle);
    }
}

}  // namespace radius
