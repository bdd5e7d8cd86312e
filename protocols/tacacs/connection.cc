// SPDX-License-Identifier: Apache-2.0
//
// A connection and the sessions on it.

#include "tacacs/connection.hpp"

#include <algorithm>

namespace tacacs {

Connection::Connection(net::Loop &loop, const ServerSettings &settings, const net::TlsPeer &peer,
                       const Protection &protection, Calls calls)
    : loop_(loop),
      settings_(settings),
      protection_(protection),
      calls_(std::move(calls)),
      idle_(loop, [this] { calls_.idle(*this); }) {
    if (!settings.single_connection) {
        sharing_ = Sharing::kSingle;
    }
    stream_ = std::make_unique<net::Stream>(
        loop, settings.address, peer,
        net::Stream::Calls{.connected = [this] { was_connected_ = true; },
                           .received = [this](std::string_view bytes) { on_received(bytes); },
                           .closed = [this](std::string_view reason) { calls_.closed(*this, reason); }},
        settings.local, settings.device);
}

bool Connection::has_room() const {
    if (!is_open() || is_retired_) {
        return false;
    }
    return sharing_ == Sharing::kShared ? sessions_.size() < kMaxSessions
                                        : sessions_.empty() && !has_answered_;
}

bool Connection::is_parked() const {
    return sharing_ == Sharing::kSingle && sessions_.size() == 1 &&
           sessions_.begin()->second->state == Question::State::kUser;
}

bool Connection::send(Question &question) {
    const bool is_first = sessions_.empty() && !has_answered_;
    if (!question.session) {
        do {
            question.session.emplace(question.type, question.minor, protection_);
            // An id that is in use, or whose answer may still come, would mix two sessions up.
        } while (question.session->usable() &&
                 (sessions_.contains(question.session->id()) || has_ended(question.session->id())));
    }
    SecretBytes packet;
    if (question.may_repeat()) {
        packet = question.packet;
    } else {
        packet = std::move(question.packet);
        question.packet.clear();
    }
    if (!question.session->seal(packet, is_first && settings_.single_connection) ||
        !stream_->send(packet.view())) {
        return false;
    }
    sessions_[question.session->id()] = &question;
    question.connection = this;
    question.state = Question::State::kSent;
    question.sent_at = net::Loop::clock();
    ++question.tries;
    idle_.cancel();
    return true;
}

void Connection::end(Question &question, SecretBytes packet) {
    if (question.session->seal(packet, false)) {
        // Without room for it the server finds out by itself that the user has left.
        static_cast<void>(stream_->send(packet.view()));
    }
    remember_ended(question.session->id());  // some servers answer nevertheless
    release(question);
}

void Connection::release(Question &question) {
    sessions_.erase(question.session->id());
    question.session.reset();
    question.connection = nullptr;
    after_session();
}

void Connection::abandon(Question &question, bool is_overdue) {
    const bool is_silent = is_overdue && received_at_ < question.sent_at;
    remember_ended(question.session->id());
    // A connection that has become mute, such as one that a firewall has forgotten, must not
    // take further questions. Others on it may still be answered.
    is_retired_ = is_retired_ || is_silent;
    release(question);
}

bool Connection::has_ended(std::uint32_t id) const {
    return std::find(ended_.begin(), ended_.end(), id) != ended_.end();
}

void Connection::remember_ended(std::uint32_t id) {
    ended_.push_back(id);
    if (ended_.size() > kMaxEnded) {
        ended_.pop_front();
    }
}

void Connection::after_session() {
    if (!is_open() || !sessions_.empty()) {
        return;
    }
    if (sharing_ != Sharing::kShared || is_retired_) {
        // The client removes it in its own time: this may be called by the stream.
        idle_.set(0);
    } else {
        idle_.set(loop_.now() + settings_.idle_time);
    }
}

void Connection::close() {
    idle_.cancel();
    stream_.reset();
}

void Connection::on_received(std::string_view bytes) {
    received_at_ = net::Loop::clock();
    reader_.add(bytes);
    std::string packet;
    while (is_open()) {
        const Fault fault = reader_.next(packet);
        if (fault != Fault::kNone) {
            return calls_.faulty(*this, fault);
        }
        if (packet.empty()) {
            return;
        }
        on_packet(packet);
    }
}

void Connection::on_packet(std::string &packet) {
    Head head;
    static_cast<void>(read_head(packet, head));  // the reader has checked it
    const auto found = sessions_.find(head.session);
    if (found == sessions_.end() && has_ended(head.session)) {
        return calls_.late();
    }
    if (found == sessions_.end() || found->second->state != Question::State::kSent) {
        return calls_.faulty(*this, Fault::kOtherSession);
    }
    Question &question = *found->second;
    Fault fault = question.session->open(packet, head);
    if (fault == Fault::kNone) {
        fault = question.read(std::string_view(packet).substr(kHeadSize));
    }
    // A server that does not know the request's minor version says so with an error of its own.
    if (fault == Fault::kNone && head.minor != question.minor &&
        question.outcome().result == Result::kAnswer) {
        fault = Fault::kVersion;
    }
    if (!has_answered_ && fault == Fault::kNone) {
        has_answered_ = true;
        if (sharing_ == Sharing::kUndecided) {
            sharing_ = (head.flags & kFlagSingleConnection) != 0 ? Sharing::kShared : Sharing::kSingle;
        }
    }
    calls_.answered(*this, question, fault);
}

}  // namespace tacacs
