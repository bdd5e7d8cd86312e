// SPDX-License-Identifier: Apache-2.0
//
// Questions under way.

#include "radius/exchange.hpp"

#include <algorithm>
#include <utility>

namespace radius {
namespace {

std::string packets(std::uint64_t count, std::string_view noun = "answer") {
    return std::to_string(count) + " " + std::string(noun) + (count == 1 ? " was" : "s were") + " dropped";
}

}  // namespace

Exchange::Exchange(net::Loop &loop, Ticket its_ticket, Question its_question, Done its_done,
                   net::Time its_deadline, std::function<void()> timed_out)
    : ticket(its_ticket),
      question(std::move(its_question)),
      done(std::move(its_done)),
      deadline(its_deadline),
      timer(loop, std::move(timed_out)) {}

Exchanges::Exchanges(net::Loop &its_loop, ServerSettings its_settings)
    : loop(its_loop), settings(std::move(its_settings)), delivery_(its_loop, [this] { deliver(); }) {}

Exchange::Ticket Exchanges::add(Question question, Exchange::Done done, net::Time deadline) {
    const Exchange::Ticket ticket = ++last_ticket_;
    ++counters.questions;
    auto owned = std::make_unique<Exchange>(loop, ticket, std::move(question), std::move(done), deadline,
                                            [this, ticket] { timed_out(ticket); });
    Exchange &exchange = *owned;
    all_.emplace(ticket, std::move(owned));
    if (!settings.nas_identifier.empty() && !exchange.question.attributes().find(Type::kNasIdentifier)) {
        static_cast<void>(exchange.question.add(Type::kNasIdentifier, settings.nas_identifier));
    }
    if (exchange.deadline <= exchange.asked) {
        finish(exchange, Outcome::Kind::kError, "the deadline had passed when the question was asked");
        return ticket;
    }
    set_timer(exchange, INT64_MAX);
    transport_->start(exchange);
    return ticket;
}

void Exchanges::cancel(Exchange::Ticket ticket) {
    const auto found = all_.find(ticket);
    if (found == all_.end()) {
        return;
    }
    if (!found->second->is_finished) {
        end(*found->second);
        ++counters.cancelled;
    }
    // What the function captured may call back, so the table is in order before it goes.
    const auto gone = std::move(found->second);
    all_.erase(found);
}

std::unique_ptr<Request> Exchanges::make_request(Exchange &exchange, std::uint8_t id, std::uint32_t delay) {
    std::string error;
    auto request = radius::make_request(exchange.question, id, settings.secret.view(), delay, error);
    if (request == nullptr) {
        finish(exchange, Outcome::Kind::kError, std::move(error));
    }
    return request;
}

std::uint32_t Exchanges::delay_of(const Exchange &exchange) {
    return static_cast<std::uint32_t>(
        std::clamp<net::Time>((net::Loop::clock() - exchange.asked) / net::kSecond, 0, UINT32_MAX));
}

void Exchanges::count_try(Exchange &exchange) {
    ++(exchange.tries == 0 ? counters.requests : counters.retransmissions);
    ++exchange.tries;
    exchange.last_sent = net::Loop::clock();
    if (exchange.first_sent == 0) {
        exchange.first_sent = exchange.last_sent;
    }
}

void Exchanges::set_timer(Exchange &exchange, net::Time at) {
    exchange.timer.set(std::min(at, exchange.deadline));
}

void Exchanges::timed_out(Exchange::Ticket ticket) {
    Exchange &exchange = *all_.at(ticket);
    if (net::Loop::clock() < exchange.deadline) {
        transport_->time_out(exchange);
    } else if (exchange.tries == 0) {
        transport_->expire_unsent(exchange);
    } else {
        finish(exchange, Outcome::Kind::kSilent, silence(exchange));
    }
}

MessageAuthenticator Exchanges::required(const Request &request) const {
    // The secret of RadSec is known to everybody: TLS protects the answers. And servers send
    // none in answers to accounting requests, where a forged one gives nobody
    // a right, and where the digest that forging relies on covers no bytes of the attacker.
    return settings.legacy || settings.tls.context != nullptr || request.code() == Code::kAccountingRequest
               ? MessageAuthenticator::kOptional
               : MessageAuthenticator::kRequired;
}

Fault Exchanges::receive(Channel &channel, std::string_view bytes) {
    const Channel::Slot slot =
        bytes.size() < 2 ? Channel::Slot{} : channel.slots[static_cast<unsigned char>(bytes[1])];
    if (slot.exchange == nullptr) {
        ++counters.unexpected;
        return Fault::kOtherRequest;
    }
    Reply reply;
    const Fault fault =
        Reply::read(bytes, *slot.request, settings.secret.view(), required(*slot.request), reply);
    if (fault != Fault::kNone) {
        ++counters.dropped[static_cast<std::size_t>(fault)];
        ++slot.exchange->dropped[static_cast<std::size_t>(fault)];
        return fault;
    }
    answered(*slot.exchange, reply);
    return Fault::kNone;
}

void Exchanges::count(const Exchange &exchange, Code code) {
    if (exchange.question.code() == Code::kStatusServer) {
        ++counters.status_answers;
    } else if (code == Code::kAccessAccept) {
        ++counters.accepts;
    } else if (code == Code::kAccessReject) {
        ++counters.rejects;
    } else if (code == Code::kAccessChallenge) {
        ++counters.challenges;
    } else {
        ++counters.accounting_responses;
    }
}

void Exchanges::answered(Exchange &exchange, const Reply &reply) {
    count(exchange, reply.code());
    if (exchange.tries == 1) {  // otherwise it is unknown which of the packets was answered
        constexpr net::Time kWeight = 8;
        const net::Time time = net::Loop::clock() - exchange.last_sent;
        counters.round_trip =
            counters.round_trip == 0 ? time : counters.round_trip + (time - counters.round_trip) / kWeight;
    }
    exchange.outcome.answer = Answer(reply);
    finish(exchange, Outcome::Kind::kAnswer, {});
}

// The function is called later: it may ask again, cancel, or destroy the client, and the
// callers of this one still use the exchange and the transport.
void Exchanges::finish(Exchange &exchange, Outcome::Kind kind, std::string text) {
    if (exchange.is_finished) {
        return;
    }
    exchange.is_finished = true;
    exchange.outcome.kind = kind;
    end(exchange);
    counters.silent += kind == Outcome::Kind::kSilent;
    counters.refused += kind == Outcome::Kind::kRefused;
    counters.errors += kind == Outcome::Kind::kError;
    exchange.outcome.text = std::move(text);
    exchange.outcome.tries = exchange.tries;
    exchange.outcome.time = exchange.first_sent == 0 ? 0 : net::Loop::clock() - exchange.first_sent;
    finished_.push_back(exchange.ticket);
    delivery_.set(loop.now());
}

void Exchanges::end(Exchange &exchange) {
    exchange.timer.cancel();
    transport_->forget(exchange);
    exchange.attempts.clear();
}

void Exchanges::deliver() {
    const std::weak_ptr<bool> alive = alive_;
    for (std::size_t count = finished_.size(); count > 0; --count) {
        const auto found = all_.find(finished_.front());
        finished_.pop_front();
        if (found == all_.end()) {
            continue;  // cancelled since
        }
        const auto exchange = std::move(found->second);
        all_.erase(found);
        if (exchange->done) {
            exchange->done(exchange->outcome);
        }
        exchange->done = nullptr;  // which may destroy the client, too
        if (alive.expired()) {
            return;
        }
    }
    if (!finished_.empty()) {
        delivery_.set(loop.now());
    }
}

std::string Exchanges::silence(const Exchange &exchange) const {
    const auto dropped = [&exchange](Fault fault) {
        return exchange.dropped[static_cast<std::size_t>(fault)];
    };
    std::string text = name() + " has not answered" +
                       (exchange.tries == 1 ? "" : " any of " + std::to_string(exchange.tries) + " requests");
    const std::string start = text;
    if (const std::uint64_t count = dropped(Fault::kForged)) {
        text += "; " + packets(count) +
                " because the authenticator is wrong: compare the shared secret with the server's";
    }
    if (const std::uint64_t count = dropped(Fault::kUnprotected)) {
        text += "; " + packets(count) +
                " without Message-Authenticator: have the server send it, or mark the server as legacy";
    }
    if (const std::uint64_t count = dropped(Fault::kNoDigest)) {
        text += "; " + packets(count) + " because the system's cryptography refuses MD5";
    }
    if (const std::uint64_t count = dropped(Fault::kMalformed) + dropped(Fault::kOtherRequest)) {
        text += "; " + packets(count, "packet") + " that is damaged or answers something else";
    }
    if (text == start) {
        text += "; it may be down, not reachable, or not know this client or its secret";
    }
    return text;
}

}  // namespace radius
