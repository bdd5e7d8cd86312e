// SPDX-License-Identifier: Apache-2.0
//
// The way of a request through its method list. A method that passes or refuses decides; one
// that cannot answer is followed by the next. Refusals never lead to the next method: a user
// whom a server refuses must not be let in by another method. On the thread of the loop.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "backends/backend.hpp"
#include "backends/lockout.hpp"
#include "backends/workers.hpp"
#include "base/log.hpp"
#include "base/trace.hpp"
#include "decision/answer.hpp"
#include "decision/list_choice.hpp"
#include "decision/turns.hpp"
#include "net/loop.hpp"

namespace service {

// What all requests share.
struct Deciders {
    net::Loop &loop;
    Workers &workers;
    const Backends &backends;
    Lockout &lockout;
    Trace &trace;
    Turns &turns;
    // Told of each answer, and what working on it took; may be empty.
    std::function<void(const Question &, const Answer &, net::Time took)> observe = {};
};

// One request. Destroying it cancels what is under way: `done` is then not called.
class Decision {
  public:
    using Done = std::function<void(Answer)>;

    // `pending` is set for the answer to a challenge. `done` is called once, never from within
    // the constructor; it may destroy the decision.
    Decision(const Deciders &deciders, Question question, std::shared_ptr<PendingLogin> pending, Done done);
    ~Decision();
    Decision(const Decision &) = delete;
    Decision &operator=(const Decision &) = delete;

    const Question &question() const { return question_; }

    // The client has gone. Whether a password is on its way to a server, so that the decision has to go
    // on: the server's refusal is counted as if the client had waited for it. Otherwise an
    // attacker would leave whenever a server takes longer than for the right password. `over` is
    // called in place of `done`; it may destroy the decision.
    bool goes_on_without_client(std::function<void()> over);
    // The same client, where the decision cannot be kept: a password that is at a server counts as refused.
    void count_as_refused();

  private:
    // A method that is being asked. Accounting with broadcast asks several at once.
    struct Asked {
        std::size_t place = 0;
        std::size_t methods = 1;  // that the answer is for
        net::Time asked_at = 0;
        bool is_remote = false;
        std::unique_ptr<Attempt> attempt;
        std::unique_ptr<net::Timer> timer;
        bool is_over = false;
    };

    void begin(std::shared_ptr<PendingLogin> pending);
    void wait_for_turn(std::size_t place, const std::shared_ptr<Dialogue> &dialogue);
    void take_turn(bool has_come, std::size_t place, std::shared_ptr<Dialogue> dialogue);
    bool is_locked_out() const;
    bool has_password_at_server() const;
    void ask_all();
    bool is_askable(std::size_t place) const;
    std::vector<std::size_t> asked_together(std::size_t place);
    void ask(std::size_t place, std::shared_ptr<Dialogue> dialogue);
    std::unique_ptr<Attempt> call(Backend &backend, std::shared_ptr<Dialogue> dialogue, Backend::Done done);
    net::Time deadline_for(std::size_t place, bool is_remote) const;
    std::size_t following(std::size_t place) const;
    void take(Asked &asked, Outcome outcome);
    void take_one_of_all(const Asked &asked, const Outcome &outcome);
    void next_or_end(std::size_t place, const Outcome &outcome);
    void decide(std::size_t place, const Outcome &outcome);
    void challenge(std::size_t place, Outcome outcome);
    bool was_locked_out(const Outcome &outcome) const;
    void count(const Outcome &outcome, const std::string &method);
    void pretend_to_check();
    void fail_without_method(const std::string &why, cerrno error, bool ends_login = false);
    void finish(Answer answer);
    void soon(std::function<void()> work);
    void trace(Step step, std::string subject, std::string detail);
    void trace_outcome(const Asked &asked, const Outcome &outcome);
    void trace_lockout();
    void trace_answer(const Answer &answer);
    std::string next_method(std::size_t place, const Outcome &outcome) const;
    std::string shown_user() const;
    LogContext context(const char *step, std::string_view subject = {}) const;
    void log_answer(const Answer &answer) const;

    const Deciders &deciders_;
    Question question_;
    Done done_;
    std::string path_;  // of the list
    MethodList list_;   // a copy: the snapshot may be the last holder's
    net::Time begun_ = net::Loop::clock();
    net::Time deadline_;  // by which the answer is sent
    std::vector<std::unique_ptr<Asked>> asked_;
    std::size_t open_ = 0;              // of a broadcast: methods that have not answered
    std::size_t kept_ = 0;              // of a broadcast: methods that keep the record
    std::unique_ptr<Turn> turn_;        // of a login, until it is counted
    std::unique_ptr<net::Timer> wait_;  // for the turn
    std::unique_ptr<Attempt> pretence_;
    std::unique_ptr<OpenLogin> open_login_;  // of an earlier round
    std::shared_ptr<int> alive_ = std::make_shared<int>();
};

// Milliseconds in which a request has to be answered: what its client says, or the default,
// less what sending the answer takes.
net::Time time_for(std::uint32_t said_ms, const Settings &settings);

}  // namespace service
