// SPDX-License-Identifier: Apache-2.0
//
// Questions over UDP.

#include "radius/udp.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

#include "radius/retransmission.hpp"

namespace radius {

using Kind = Outcome::Kind;

namespace {

bool is_unused(const std::unique_ptr<UdpSocket> &socket) {
    return socket->ids.taken() == 0;
}

}  // namespace

UdpTransport::UdpTransport(Exchanges &exchanges)
    : exchanges_(exchanges), tidying_(exchanges.loop, [this] { tidy(); }) {}

std::unique_ptr<UdpSocket> UdpTransport::open_socket() {
    return UdpSocket::open(
        exchanges_.loop, exchanges_.settings,
        {.received = [this](UdpSocket &socket,
                            std::string_view bytes) { static_cast<void>(exchanges_.receive(socket, bytes)); },
         .failed = [this](UdpSocket &socket, int error) { refuse_sent(socket, error); }},
        open_error_, open_unreachable_);
}

UdpTransport::Place UdpTransport::take_place_of(bool worn) {
    const net::Time now = net::Loop::clock();
    for (const std::unique_ptr<UdpSocket> &socket : sockets_) {
        if (socket->is_worn == worn) {
            if (const std::optional<std::uint8_t> id = socket->ids.take(now)) {
                return {socket.get(), *id};
            }
        }
    }
    return {};
}

// An identifier is taken from a socket that has one, then from a new port in the place of a
// socket that nobody waits for, then from a further socket. The last resort are sockets
// whose requests were not answered: a socket keeps the address of this system with which
// it was opened, also when that is gone, so those are replaced when they can be.
UdpTransport::Place UdpTransport::take_place() {
    const Place place = take_place_of(false);
    if (place.socket != nullptr) {
        return place;
    }
    const auto idle = std::find_if(sockets_.begin(), sockets_.end(), is_unused);
    if (idle == sockets_.end() && sockets_.size() >= exchanges_.settings.max_sockets) {
        return take_place_of(true);
    }
    std::unique_ptr<UdpSocket> opened = open_socket();
    if (opened == nullptr) {
        return take_place_of(true);
    }
    UdpSocket *const socket = opened.get();
    if (idle != sockets_.end()) {
        *idle = std::move(opened);
    } else {
        sockets_.push_back(std::move(opened));
    }
    return {socket, *socket->ids.take(net::Loop::clock())};
}

void UdpTransport::start(Exchange &exchange) {
    const Place place = queue_.empty() ? take_place() : Place{};
    if (place.socket != nullptr) {
        if (add_attempt(exchange, place, 0)) {
            transmit(exchange, 0);
        }
    } else if (sockets_.empty()) {
        exchanges_.finish(exchange, open_unreachable_ ? Kind::kRefused : Kind::kError, open_error_);
    } else if (queue_.size() >= exchanges_.settings.max_queued) {
        exchange.outcome.is_overload = true;
        exchanges_.finish(exchange, Kind::kError,
                          std::to_string(queue_.size()) + " questions to " + exchanges_.name() +
                              " wait already; it answers too slowly or not at all");
    } else {
        queue_.push_back(&exchange);
        exchanges_.set_timer(exchange, exchange.asked + longest_wait(exchanges_.settings));
        tidying_.set(sockets_.front()->ids.next_free());
    }
}

// False, and the exchange is finished, when its packet cannot be made.
bool UdpTransport::add_attempt(Exchange &exchange, Place place, std::uint32_t delay) {
    std::unique_ptr<Request> request = exchanges_.make_request(exchange, place.id, delay);
    if (request == nullptr) {
        place.socket->ids.release(place.id);
        return false;
    }
    place.socket->slots[place.id] = {&exchange, request.get()};
    exchange.attempts.push_back({place.socket, std::move(request), delay});
    return true;
}

void UdpTransport::transmit(Exchange &exchange, std::size_t number) {
    Attempt &attempt = exchange.attempts[number];
    UdpSocket &socket = static_cast<UdpSocket &>(*attempt.channel);
    int error = socket.send(attempt.request->bytes());
    if (UdpSocket::is_of_network(error)) {
        // It may be about a packet that was sent before, and then this one was not sent.
        refuse_sent(socket, error);
        if (exchange.is_finished) {
            return;
        }
        error = socket.send(attempt.request->bytes());
    }
    if (error != 0) {
        exchanges_.finish(exchange, UdpSocket::is_of_network(error) ? Kind::kRefused : Kind::kError,
                          refusal(error));
        return;
    }
    ++attempt.sent;
    exchanges_.count_try(exchange);
    exchange.wait = wait_after_try(exchanges_.settings, exchange.wait, random_fraction());
    exchanges_.set_timer(exchange, exchange.last_sent + exchange.wait);
}

std::string UdpTransport::refusal(int error) const {
    return "requests to " + exchanges_.name() + " are refused: " + std::strerror(error);
}

void UdpTransport::refuse_sent(UdpSocket &socket, int error) {
    for (Channel::Slot &slot : socket.slots) {
        if (slot.exchange != nullptr && slot.exchange->tries > 0) {
            exchanges_.finish(*slot.exchange, Kind::kRefused, refusal(error));
        }
    }
}

// A record has to say for how long it has been on its way. As that changes the packet, it
// is another one, with an identifier of its own (RFC 2866, 5.2).
bool UdpTransport::needs_new_packet(const Exchange &exchange) const {
    return exchange.question.code() == Code::kAccountingRequest &&
           exchange.attempts.back().delay != Exchanges::delay_of(exchange);
}

void UdpTransport::time_out(Exchange &exchange) {
    if (exchange.tries == 0) {
        expire_unsent(exchange);
        return;
    }
    if (exchange.tries >= exchanges_.settings.tries) {
        exchanges_.finish(exchange, Kind::kSilent, exchanges_.silence(exchange));
        return;
    }
    if (needs_new_packet(exchange)) {
        const Place place = take_place();
        if (place.socket != nullptr && !add_attempt(exchange, place, Exchanges::delay_of(exchange))) {
            return;
        }
    }
    transmit(exchange, exchange.attempts.size() - 1);
}

void UdpTransport::expire_unsent(Exchange &exchange) {
    exchange.outcome.is_overload = true;
    exchanges_.finish(exchange, Kind::kError,
                      "the question could not be sent to " + exchanges_.name() +
                          " in time: " + std::to_string(exchanges_.size()) + " questions are under way");
}

// An identifier whose request was answered at once is free. Others rest: answers may still
// come, and would count as forged ones to the next request.
void UdpTransport::forget(Exchange &exchange) {
    const bool answered = exchange.outcome.kind == Kind::kAnswer && exchange.tries == 1;
    const bool unanswered = exchange.outcome.kind == Kind::kSilent || exchange.outcome.kind == Kind::kRefused;
    for (const Attempt &attempt : exchange.attempts) {
        const std::uint8_t id = attempt.request->id();
        attempt.channel->slots[id] = {};
        static_cast<UdpSocket *>(attempt.channel)->is_worn |= unanswered;
        if (attempt.sent == 0 || answered) {
            attempt.channel->ids.release(id);
        } else {
            attempt.channel->ids.release_at(id, net::Loop::clock() + exchanges_.settings.rest);
        }
    }
    if (exchange.attempts.empty()) {
        queue_.erase(std::remove(queue_.begin(), queue_.end(), &exchange), queue_.end());
    }
    if (!queue_.empty() || sockets_.size() > 1) {
        tidying_.set(exchanges_.loop.now());
    }
}

void UdpTransport::tidy() {
    while (!queue_.empty()) {
        const Place place = take_place();
        if (place.socket == nullptr) {
            break;
        }
        Exchange &exchange = *queue_.front();
        queue_.pop_front();
        if (add_attempt(exchange, place, Exchanges::delay_of(exchange))) {
            transmit(exchange, 0);
        }
    }
    if (queue_.empty() && !sockets_.empty()) {
        sockets_.erase(std::remove_if(sockets_.begin() + 1, sockets_.end(), is_unused), sockets_.end());
        return;
    }
    net::Time next = INT64_MAX;
    for (const std::unique_ptr<UdpSocket> &socket : sockets_) {
        next = std::min(next, socket->ids.next_free());
    }
    tidying_.set(next);
}

}  // namespace radius
