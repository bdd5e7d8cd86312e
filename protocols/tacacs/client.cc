// SPDX-License-Identifier: Apache-2.0
//
// The client: its functions, and which question uses which connection.

#include "tacacs/client.hpp"

#include <algorithm>

#include "tacacs/client_impl.hpp"

namespace tacacs {
namespace {

// Connections that are opened at the same time before it is known whether the server lets
// questions share them.
constexpr std::size_t kMaxUndecided = 8;

Protection protection_of(const ServerSettings &settings) {
    return settings.tls ? Protection::tls() : Protection::secret(settings.secret.view());
}

}  // namespace

std::unique_ptr<Client> Client::make(net::Loop &loop, const ServerSettings &settings, std::string &error) {
    net::TlsPeer peer;
    if (settings.tls) {
        net::TlsSettings tls = settings.tls->settings;
        tls.version_1_3_only = true;
        if (settings.tls->name.empty()) {
            error = "the name that the server's certificate must hold is missing";
            return nullptr;
        }
        peer = {net::TlsContext::make(tls, error), settings.tls->name};
        if (peer.context == nullptr) {
            return nullptr;
        }
    } else if (settings.secret.empty()) {
        error = "the shared secret is empty";
        return nullptr;
    }
    if (settings.timeout <= 0 || settings.max_connections == 0) {
        error = "the time-out and the number of connections must be above 0";
        return nullptr;
    }
    return std::unique_ptr<Client>(new Client(std::make_unique<Impl>(loop, settings, std::move(peer))));
}

Client::Client(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
Client::~Client() = default;

Client::Id Client::authenticate(const Start &start, net::Time deadline,
                                std::function<void(AuthenticationOutcome)> done) {
    SecretBytes packet = begin_packet(8 + 4 * kMaxField);
    std::string refusal = append_start(start, packet);
    return impl_->submit(std::make_unique<AuthenticationQuestion>(impl_->loop(), impl_->next_id(),
                                                                  minor_of(start.subject.type),
                                                                  std::move(packet), std::move(done)),
                         std::move(refusal), deadline);
}

Client::Id Client::authorize(const Subject &subject, std::span<const std::string> arguments,
                             net::Time deadline, std::function<void(AuthorizationOutcome)> done) {
    SecretBytes packet = begin_packet(512);
    std::string refusal = append_authorization(subject, arguments, packet);
    return impl_->submit(std::make_unique<AuthorizationQuestion>(impl_->loop(), impl_->next_id(),
                                                                 std::move(packet), std::move(done)),
                         std::move(refusal), deadline);
}

Client::Id Client::account(Record record, const Subject &subject, std::span<const std::string> arguments,
                           net::Time deadline, std::function<void(AccountingOutcome)> done) {
    SecretBytes packet = begin_packet(512);
    std::string refusal = append_accounting(record, subject, arguments, packet);
    return impl_->submit(std::make_unique<AccountingQuestion>(impl_->loop(), impl_->next_id(),
                                                              std::move(packet), std::move(done)),
                         std::move(refusal), deadline);
}

void Client::answer(Id login, std::string_view text, net::Time deadline,
                    std::function<void(AuthenticationOutcome)> done) {
    impl_->answer(login, text, deadline, std::move(done));
}

void Client::abort(Id login, std::string_view reason) {
    impl_->abort(login, reason);
}

void Client::cancel(Id question) {
    impl_->cancel(question);
}

Counters Client::counters() const {
    return impl_->counters();
}

// ---- connections --------------------------------------------------------------------------

Client::Impl::Impl(net::Loop &loop, const ServerSettings &settings, net::TlsPeer peer)
    : loop_(loop),
      settings_(settings),
      protection_(protection_of(settings)),
      peer_(std::move(peer)),
      name_(settings.address.text()),
      later_(loop, [this] { deliver(); }) {}

Counters Client::Impl::counters() const {
    Counters now = counters_;
    now.open_connections = connections_.size();
    now.waiting = waiting_.size();
    now.in_flight = questions_.size() - now.waiting - now.logins;
    return now;
}

void Client::Impl::dispatch(Question &question) {
    if (Connection *const connection = choose()) {
        return send(*connection, question);
    }
    if (waiting_.size() >= settings_.max_waiting) {
        return fail(question, Result::kError,
                    "too many questions wait for a connection to " + name_ + " already");
    }
    question.state = Question::State::kWaiting;
    waiting_.push_back(question.id);
}

void Client::Impl::pump() {
    while (!waiting_.empty()) {
        Connection *const connection = choose();
        if (connection == nullptr) {
            return;
        }
        const auto found = questions_.find(waiting_.front());
        waiting_.pop_front();
        send(*connection, *found->second);
    }
}

// A connection with room, or a new one if there may be more.
Connection *Client::Impl::choose() {
    std::size_t active = 0;
    std::size_t undecided = 0;
    for (const std::unique_ptr<Connection> &connection : connections_) {
        if (connection->has_room()) {
            return connection.get();
        }
        active += connection->is_parked() ? 0 : 1;
        undecided += connection->sharing() == Connection::Sharing::kUndecided ? 1 : 0;
    }
    if (active >= settings_.max_connections || (shares_ && undecided >= kMaxUndecided)) {
        return nullptr;
    }
    return &open();
}

Connection &Client::Impl::open() {
    ++counters_.connections;
    connections_.push_back(std::make_unique<Connection>(
        loop_, settings_, peer_, protection_,
        Connection::Calls{
            .answered = [this](Connection &connection, Question &question,
                               Fault fault) { on_answered(connection, question, fault); },
            .faulty = [this](Connection &connection, Fault fault) { end_all(connection, fault, nullptr); },
            .closed = [this](Connection &connection,
                             std::string_view reason) { on_closed(connection, reason); },
            .idle =
                [this](Connection &connection) {
                    close(connection);
                    pump();
                },
            .late = [this] { ++counters_.late; }}));
    return *connections_.back();
}

void Client::Impl::send(Connection &connection, Question &question) {
    if (!connection.send(question)) {
        fail(question, Result::kError,
             question.session && !question.session->usable()
                 ? "the system has no random numbers"
                 : "the request for " + name_ +
                       " could not be obfuscated, or too much waits to be sent to it");
    }
}

void Client::Impl::close(Connection &connection) {
    connection.close();
    const auto found = std::find_if(connections_.begin(), connections_.end(),
                                    [&](const auto &each) { return each.get() == &connection; });
    if (found != connections_.end()) {
        dead_connections_.push_back(std::move(*found));
        connections_.erase(found);
        later_.set(0);
    }
}

void Client::Impl::on_answered(Connection &connection, Question &question, Fault fault) {
    if (connection.sharing() != Connection::Sharing::kUndecided) {
        shares_ = connection.sharing() == Connection::Sharing::kShared;
    }
    Outcome &outcome = question.outcome();
    outcome.tries = question.tries;
    outcome.round_trip = net::Loop::clock() - question.sent_at;
    if (fault != Fault::kNone) {
        return end_all(connection, fault, &question);
    }
    counters_.round_trip += (outcome.round_trip - counters_.round_trip) / (counters_.answers == 0 ? 1 : 8);
    if (!question.goes_on()) {
        connection.release(question);
        finish(question);
    } else if (!question.session->can_go_on() || counters_.logins >= settings_.max_logins) {
        const bool is_full = question.session->can_go_on();
        tell_abort(question, "too many logins");
        fail(question, Result::kError,
             is_full ? "too many logins wait for their users already" : name_ + " asks too many questions");
    } else {
        question.state = Question::State::kUser;
        ++counters_.logins;
        complete(question);
        question.timer.set(loop_.now() + settings_.user_time);
    }
    pump();
}

std::string Client::Impl::text_of_fault(Fault fault) const {
    std::string text = "the answer of " + name_ + " is refused: " + text_of(fault);
    if (fault == Fault::kMalformed && !protection_.is_tls()) {
        text += "; most often the shared secret is not the server's";
    } else if (fault == Fault::kNotTacacs) {
        text += "; check the port";
    }
    return text;
}

// Ends a connection because of an answer: that of the culprit, or of no question in particular.
void Client::Impl::end_all(Connection &connection, Fault fault, Question *culprit) {
    ++counters_.faults[static_cast<std::size_t>(fault)];
    const std::string text = text_of_fault(fault);
    const auto sessions = std::exchange(connection.sessions(), {});
    close(connection);
    for (const auto &[id, question] : sessions) {
        if ((question == culprit || culprit == nullptr) && question->state == Question::State::kSent) {
            fail(*question, Result::kError, text, fault);
        } else {
            lose(*question, text);
        }
    }
    pump();
}

void Client::Impl::on_closed(Connection &connection, std::string_view reason) {
    const auto sessions = std::exchange(connection.sessions(), {});
    close(connection);
    const bool was_connected = connection.was_connected();
    std::string text = (was_connected ? "the connection to " + name_ + " has ended before the answer: "
                                      : "cannot connect to " + name_ + ": ");
    text += reason;
    if (was_connected && !connection.has_answered() && !protection_.is_tls()) {
        text += "; the server may not know this client, or have another shared secret";
    }
    for (const auto &[id, question] : sessions) {
        if (was_connected) {
            lose(*question, text);
        } else {
            fail(*question, Result::kRefused, text);
        }
    }
    // What waits would only be refused as well, one after the other.
    if (!was_connected && std::none_of(connections_.begin(), connections_.end(),
                                       [](const auto &each) { return each->was_connected(); })) {
        for (const Id id : std::exchange(waiting_, {})) {
            fail(*questions_.at(id), Result::kRefused, text);
        }
    }
    pump();
}

// The connection of a question has gone.
void Client::Impl::lose(Question &question, const std::string &text) {
    question.session.reset();
    question.connection = nullptr;
    if (question.state == Question::State::kUser) {
        question.lost = text;
    } else if (question.may_repeat() && question.tries < 2) {
        ++counters_.repeats;
        dispatch(question);
    } else {
        fail(question, Result::kLost, text);
    }
}

}  // namespace tacacs
