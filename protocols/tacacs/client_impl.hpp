// SPDX-License-Identifier: Apache-2.0
//
// Inside the client: its questions and connections. What ends is kept until the loop
// delivers, because the call that ended it may come from there.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "tacacs/connection.hpp"

namespace tacacs {

class Client::Impl {
  public:
    Impl(net::Loop &loop, const ServerSettings &settings, net::TlsPeer peer);

    Id next_id() { return ++last_id_; }
    net::Loop &loop() { return loop_; }
    // Takes over a question. With a refusal it is not sent, but fails with that text.
    Id submit(std::unique_ptr<Question> question, std::string refusal, net::Time deadline);
    void answer(Id login, std::string_view text, net::Time deadline, AuthenticationQuestion::Done done);
    void abort(Id login, std::string_view reason);
    void cancel(Id id);
    Counters counters() const;

  private:
    // questions.cc: from submission to outcome
    void set_deadline(Question &question, net::Time deadline);
    void on_deadline(Question &question);
    void fail(Question &question, Result result, std::string text, Fault fault = Fault::kNone);
    void complete(Question &question);
    void finish(Question &question);
    void bury(Question &question);
    void forget_outcome(Id id);
    void leave_user(Question &question);
    void tell_abort(Question &question, std::string_view reason);
    void drop(Question &question, bool is_overdue);
    void deliver();
    AuthenticationQuestion *find_login(Id id);

    // client.cc: connections
    void dispatch(Question &question);
    void pump();
    Connection *choose();
    Connection &open();
    void send(Connection &connection, Question &question);
    void close(Connection &connection);
    void on_answered(Connection &connection, Question &question, Fault fault);
    void on_closed(Connection &connection, std::string_view reason);
    void end_all(Connection &connection, Fault fault, Question *culprit);
    void lose(Question &question, const std::string &text);
    std::string text_of_fault(Fault fault) const;

    net::Loop &loop_;
    const ServerSettings settings_;
    const Protection protection_;
    const net::TlsPeer peer_;
    const std::string name_;  // of the server, for messages
    Id last_id_ = 0;
    std::unordered_map<Id, std::unique_ptr<Question>> questions_;
    std::deque<Id> waiting_;
    std::vector<std::unique_ptr<Connection>> connections_;
    bool shares_ = true;  // as far as is known
    Counters counters_;
    std::deque<std::pair<Id, std::function<void()>>> ready_;
    std::vector<std::unique_ptr<Question>> dead_questions_;
    std::vector<std::unique_ptr<Connection>> dead_connections_;
    net::Timer later_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace tacacs
