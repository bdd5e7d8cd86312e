// SPDX-License-Identifier: Apache-2.0
//
// The client's questions: from their submission to the delivery of their outcomes.

#include <algorithm>

#include "tacacs/client_impl.hpp"

namespace tacacs {

Client::Id Client::Impl::submit(std::unique_ptr<Question> question, std::string refusal, net::Time deadline) {
    Question &asked = *question;
    const Id id = asked.id;
    questions_[id] = std::move(question);
    ++counters_.questions;
    if (!refusal.empty()) {
        fail(asked, Result::kError, std::move(refusal));
        return id;
    }
    set_deadline(asked, deadline);
    dispatch(asked);
    return id;
}

void Client::Impl::set_deadline(Question &question, net::Time deadline) {
    question.on_time = [this, &question] { on_deadline(question); };
    question.timer.set(std::min(deadline, net::Loop::clock() + settings_.timeout));
}

void Client::Impl::on_deadline(Question &question) {
    switch (question.state) {
        case Question::State::kUser:
            return abort(question.id, "the user has taken too long");
        case Question::State::kWaiting:
            std::erase(waiting_, question.id);
            return fail(question, Result::kSilent, "no connection to " + name_ + " has become free in time");
        case Question::State::kSent:
            break;
    }
    const bool was_connected = question.connection->was_connected();
    drop(question, true);
    fail(question, Result::kSilent,
         was_connected ? name_ + " has not answered in time" : name_ + " cannot be connected to in time");
    pump();
}

void Client::Impl::fail(Question &question, Result result, std::string text, Fault fault) {
    Outcome &outcome = question.outcome();
    const net::Time round_trip = outcome.round_trip;
    question.clear_outcome();  // an answer that was refused may say that the user passes
    outcome.result = result;
    outcome.text = std::move(text);
    outcome.round_trip = round_trip;
    outcome.fault = fault;
    outcome.tries = question.tries;
    finish(question);
}

// Has the outcome delivered.
void Client::Impl::complete(Question &question) {
    question.timer.cancel();
    switch (question.outcome().result) {
        case Result::kAnswer:
            ++counters_.answers;
            break;
        case Result::kSilent:
            ++counters_.silent;
            break;
        case Result::kRefused:
            ++counters_.refused;
            break;
        case Result::kLost:
            ++counters_.lost;
            break;
        case Result::kError:
            ++counters_.errors;
            break;
    }
    ready_.emplace_back(question.id, question.take_delivery());
    later_.set(0);
}

void Client::Impl::finish(Question &question) {
    complete(question);
    bury(question);
}

void Client::Impl::bury(Question &question) {
    question.timer.cancel();
    const auto found = questions_.find(question.id);
    dead_questions_.push_back(std::move(found->second));
    questions_.erase(found);
    later_.set(0);
}

void Client::Impl::forget_outcome(Id id) {
    std::erase_if(ready_, [id](const auto &entry) { return entry.first == id; });
}

void Client::Impl::leave_user(Question &question) {
    question.state = Question::State::kSent;
    question.timer.cancel();
    --counters_.logins;
}

// Tells the server that a login ends, where there still is a connection.
void Client::Impl::tell_abort(Question &question, std::string_view reason) {
    if (question.connection != nullptr) {
        SecretBytes packet = begin_packet(kMaxField);
        append_abort(reason, packet);
        question.connection->end(question, std::move(packet));
    }
}

// Takes a question that waits for its answer from its connection.
void Client::Impl::drop(Question &question, bool is_overdue) {
    Connection &connection = *question.connection;
    if (connection.sharing() == Connection::Sharing::kShared) {
        connection.abandon(question, is_overdue);
    } else {
        connection.release(question);
        close(connection);
    }
}

AuthenticationQuestion *Client::Impl::find_login(Id id) {
    const auto found = questions_.find(id);
    return found != questions_.end() && found->second->state == Question::State::kUser
               ? static_cast<AuthenticationQuestion *>(found->second.get())
               : nullptr;
}

void Client::Impl::answer(Id login, std::string_view text, net::Time deadline,
                          AuthenticationQuestion::Done done) {
    ++counters_.questions;
    AuthenticationQuestion *const question = find_login(login);
    if (question == nullptr) {
        AuthenticationQuestion none(loop_, login, 0, {}, std::move(done));
        none.outcome().text = "there is no such login: its user has taken too long, or it has ended before";
        complete(none);
        return;
    }
    leave_user(*question);
    SecretBytes packet = begin_packet(5 + text.size());
    std::string refusal = append_continue(text, packet);
    question->go_on(std::move(packet), std::move(done));
    if (question->connection == nullptr) {
        return fail(*question, Result::kLost, std::move(question->lost));
    }
    if (!refusal.empty()) {
        tell_abort(*question, "the input was too long");
        return fail(*question, Result::kError, std::move(refusal));
    }
    set_deadline(*question, deadline);
    Connection &connection = *question->connection;
    if (!connection.send(*question)) {
        connection.release(*question);
        fail(*question, Result::kError, "the input could not be sent to " + name_);
    }
}

void Client::Impl::abort(Id login, std::string_view reason) {
    AuthenticationQuestion *const question = find_login(login);
    if (question == nullptr) {
        return cancel(login);
    }
    forget_outcome(login);
    leave_user(*question);
    tell_abort(*question, reason);
    bury(*question);
    pump();
}

void Client::Impl::cancel(Id id) {
    const auto found = questions_.find(id);
    if (found == questions_.end()) {
        return forget_outcome(id);
    }
    Question &question = *found->second;
    switch (question.state) {
        case Question::State::kUser:
            return abort(id, "the login was cancelled");
        case Question::State::kWaiting:
            std::erase(waiting_, id);
            break;
        case Question::State::kSent:
            drop(question, false);
            break;
    }
    bury(question);
    pump();
}

void Client::Impl::deliver() {
    dead_questions_.clear();
    dead_connections_.clear();
    const std::weak_ptr<bool> alive = alive_;
    // What is asked from here on has its turn after the loop's other work.
    for (std::size_t count = ready_.size(); count > 0 && !ready_.empty(); --count) {
        const std::function<void()> call = std::move(ready_.front().second);
        ready_.pop_front();
        call();
        if (alive.expired()) {
            return;
        }
    }
    if (!ready_.empty()) {
        later_.set(0);
    }
}

}  // namespace tacacs
