// SPDX-License-Identifier: Apache-2.0

#include "decision/decision.hpp"

#include <algorithm>
#include <utility>

#include "aaa/result_codes.h"
#include "backends/password.hpp"
#include "backends/password_change.hpp"
#include "backends/password_check.hpp"
#include "base/log.hpp"

namespace service {

namespace {

constexpr unsigned kMostRounds = 16;
constexpr char kRefused[] = "Login incorrect";
// Whether a pass says that there is a user of this name: the others take any.
bool checks_names(const Method &method) {
    return method.number != AAA_METHOD_NONE && method.number != AAA_METHOD_LINE &&
           method.number != AAA_METHOD_ENABLE && method.number != AAA_METHOD_IF_AUTHEN &&
           method.number != AAA_METHOD_SYSLOG;
}

constexpr char kNotAuthorized[] = "Not authorized";

std::uint32_t status_of(Prompt prompt) {
    switch (prompt) {
        case Prompt::kUser:
            return AAA_STAT_GETUSER;
        case Prompt::kPassword:
            return AAA_STAT_GETPASS;
        case Prompt::kData:
            return AAA_STAT_GETDATA;
    }
    return AAA_STAT_ERROR;
}

}  // namespace

net::Time time_for(std::uint32_t said_ms, const Settings &settings) {
    const net::Time patience =
        std::min(said_ms != 0 ? said_ms : settings.patience_ms, settings.longest_ms) * net::kMillisecond;
    return patience - std::min(patience / 10, 250 * net::kMillisecond);
}

Decision::Decision(const Deciders &deciders, Question question, std::shared_ptr<PendingLogin> pending,
                   Done done)
    : deciders_(deciders),
      question_(std::move(question)),
      done_(std::move(done)),
      deadline_(question_.deadline) {
    begin(std::move(pending));
}

Decision::~Decision() = default;

// Has work done in the next round of the loop, unless the decision has gone by then.
void Decision::soon(std::function<void()> work) {
    deciders_.loop.post([alive = std::weak_ptr<int>(alive_), work = std::move(work)] {
        if (const auto held = alive.lock()) {
            work();
        }
    });
}

void Decision::begin(std::shared_ptr<PendingLogin> pending) {
    std::size_t place = 0;
    std::shared_ptr<Dialogue> dialogue;
    if (pending != nullptr) {
        question_.snapshot = pending->snapshot;
        question_.round = pending->rounds;
        path_ = pending->list;
        place = pending->place;
        dialogue = pending->dialogue;
        open_login_ = std::move(pending->open);
        turn_ = std::move(pending->turn);
        if (question_.round > kMostRounds) {
            soon([this] {
                fail_without_method("the login has taken too many rounds", AAA_ERR_INVALID_CLIENT_DATA, true);
            });
            return;
        }
        list_ = question_.snapshot->lists.at(path_);
    } else {
        const ListChoice choice = choose_list(*question_.snapshot, question_);
        if (choice.list == nullptr) {
            const cerrno error = question_.function == Function::kAccounting ? AAA_ERR_ACCT_NOT_DEFINED
                                                                             : AAA_ERR_NO_METHODS_SPECIFIED;
            soon([this, why = choice.why, error] { fail_without_method(why, error); });
            return;
        }
        path_ = choice.path;
        list_ = *choice.list;
        trace(Step::kList, path_, question_.snapshot->is_fallback ? "the fallback of aaad.conf" : "");
    }
    if (is_locked_out()) {
        pretend_to_check();
        return;
    }
    if (turn_ != nullptr) {
        turn_->resume();
    } else if (question_.function == Function::kAuthentication && !question_.user.empty()) {
        wait_for_turn(place, dialogue);
        return;
    }
    if (list_.broadcast && question_.function == Function::kAccounting) {
        soon([this] { ask_all(); });
    } else {
        soon([this, place, dialogue] { ask(place, dialogue); });
    }
}

bool Decision::is_locked_out() const {
    return question_.function == Function::kAuthentication && question_.password &&
           deciders_.lockout.is_locked(question_.user, question_.source, deciders_.loop.now(),
                                       question_.snapshot->settings->lockout);
}

void Decision::wait_for_turn(std::size_t place, const std::shared_ptr<Dialogue> &dialogue) {
    turn_ = deciders_.turns.take(
        question_, [this, place, dialogue](bool has_come) { take_turn(has_come, place, dialogue); });
    if (Turns::is_waiting(*turn_)) {
        trace(Step::kList, path_, "waits until other logins of the user or from there are answered");
        static kel_msg_limit_t limit = {60, {}};
        log_limited(limit, Level::kNotice, "LOGINS_WAIT", context("list", path_),
                    "many logins of %s or from %s are under way: further ones wait for them, see "
                    "\"logins-at-once\" in aaad.conf",
                    shown_user().c_str(),
                    question_.source.empty() ? "the console" : question_.source.c_str());
        wait_ = std::make_unique<net::Timer>(deciders_.loop, [this] {
            turn_.reset();
            fail_without_method("other logins of the user, or from there, were under way the whole time",
                                AAA_ERR_NO_METHODS_AVAILABLE, true);
        });
        wait_->set(deadline_);
    }
}

void Decision::take_turn(bool has_come, std::size_t place, std::shared_ptr<Dialogue> dialogue) {
    wait_.reset();
    if (!has_come) {
        fail_without_method("too many logins of the user, or from there, are under way",
                            AAA_ERR_NO_METHODS_AVAILABLE, true);
    } else if (is_locked_out()) {
        turn_.reset();
        pretend_to_check();
    } else {
        ask(place, std::move(dialogue));
    }
}

bool Decision::has_password_at_server() const {
    return question_.function == Function::kAuthentication && question_.password && !asked_.empty() &&
           asked_.back()->is_remote && !asked_.back()->is_over;
}

bool Decision::goes_on_without_client(std::function<void()> over) {
    if (!has_password_at_server()) {
        return false;
    }
    *question_.client_has_gone = true;
    if (turn_ != nullptr) {
        turn_->leave();
    }
    done_ = [over = std::move(over)](const Answer &) { over(); };
    return true;
}

void Decision::count_as_refused() {
    if (has_password_at_server()) {
        count_failure(deciders_.lockout, question_.snapshot->settings->lockout, context("outcome", path_),
                      question_.user, question_.source);
    }
}

// A locked login gets the answer of a wrong password, after the time that one takes.
void Decision::pretend_to_check() {
    trace_lockout();
    const auto users = question_.snapshot->users;
    const auto check = [password = *question_.password, setting = users != nullptr ? users->setting : ""] {
        spend_a_check(password, setting);
        return Outcome::fail("locked out");
    };
    pretence_ = check_on_a_thread(deciders_.loop, deciders_.workers, check, [this](const Outcome &outcome) {
        Answer answer;
        answer.status = AAA_STAT_FAIL;
        answer.text = kRefused;
        answer.reason = outcome.reason;
        log_answer(answer);
        finish(std::move(answer));
    });
}

// How many methods can be asked after one. A change of password ends with the first.
std::size_t Decision::following(std::size_t place) const {
    return is_password_change(question_) ? 0 : list_.methods.size() - place - 1;
}

// A remote method that is not the last leaves time for those that follow. One that works on
// this machine has the whole time: when it is over, no other is asked.
net::Time Decision::deadline_for(std::size_t place, bool is_remote) const {
    const std::size_t others = following(place);
    const net::Time now = deciders_.loop.now();
    if (!is_remote || others == 0) {
        return deadline_;
    }
    const net::Time left = std::max<net::Time>(deadline_ - now, 0);
    const net::Time kept = std::min(left / 4, 3 * net::kSecond) * static_cast<net::Time>(others);
    return now + left - std::min(kept, left * 3 / 4);
}

std::unique_ptr<Attempt> Decision::call(Backend &backend, std::shared_ptr<Dialogue> dialogue,
                                        Backend::Done done) {
    switch (question_.function) {
        case Function::kAuthentication:
            return backend.authenticate(question_, std::move(dialogue), std::move(done));
        case Function::kAuthorization:
            return backend.authorize(question_, std::move(done));
        case Function::kAccounting:
            return backend.account(question_, std::move(done));
    }
    return nullptr;
}

void Decision::ask(std::size_t place, std::shared_ptr<Dialogue> dialogue) {
    const Method &method = list_.methods[place];
    Backend *backend = deciders_.backends.find(method);
    asked_.push_back(std::make_unique<Asked>());
    Asked &asked = *asked_.back();
    asked.place = place;
    asked.asked_at = net::Loop::clock();
    trace(Step::kMethod, method.text(), "");
    const char *missing =
        method.number == AAA_METHOD_SERVER_GROUP && method.group == nullptr ? "the group is not configured"
        : method.group != nullptr && method.group->servers.empty()          ? "it has no usable server"
        : backend == nullptr ? "this service has no such method"
                             : nullptr;
    if (missing != nullptr) {
        soon([this, &asked, missing] { take(asked, Outcome::unavailable(missing)); });
        return;
    }
    asked.is_remote = backend->is_remote();
    asked.methods += question_.also.size();
    question_.method = method;
    question_.deadline = deadline_for(place, asked.is_remote);
    question_.is_last_method = following(place) == 0;
    asked.attempt = call(*backend, std::move(dialogue),
                         [this, &asked](Outcome outcome) { take(asked, std::move(outcome)); });
    asked.timer = std::make_unique<net::Timer>(deciders_.loop, [this, &asked] {
        const char *late = "no answer within its part of the client's time";
        take(asked, asked.is_remote ? Outcome::unavailable(late) : Outcome::error(late));
    });
    asked.timer->set(question_.deadline);
}

void Decision::take(Asked &asked, Outcome outcome) {
    if (std::exchange(asked.is_over, true)) {
        return;
    }
    asked.timer.reset();
    const std::string method = list_.methods[asked.place].text();
    trace_outcome(asked, outcome);
    const std::size_t place = asked.place;
    const auto attempt = std::move(asked.attempt);  // until here: it may be the caller
    if (list_.broadcast && question_.function == Function::kAccounting) {
        take_one_of_all(asked, outcome);
        return;
    }
    switch (outcome.kind) {
        case Outcome::Kind::kPass:
        case Outcome::Kind::kFail:
            decide(place, was_locked_out(outcome) ? Outcome::fail("locked out meanwhile") : outcome);
            break;
        case Outcome::Kind::kChallenge:
            challenge(place, std::move(outcome));
            break;
        case Outcome::Kind::kUnavailable:
            next_or_end(place, outcome);
            break;
        case Outcome::Kind::kError:
            // A password may have been changed before the error, so a change is not said to be refused.
            fail_without_method(method + ": " + outcome.reason, AAA_ERR_NO_METHODS_AVAILABLE,
                                !is_password_change(question_));
            break;
    }
}

void Decision::next_or_end(std::size_t place, const Outcome &outcome) {
    const std::string method = list_.methods[place].text();
    const bool has_next = !next_method(place, outcome).empty();
    log(Level::kWarning, "NO_ANSWER", context("outcome", method), "%s of the list %s cannot answer (%s); %s",
        method.c_str(), path_.c_str(),
        deciders_.trace.names().shown_text(outcome.reason, question_.user).c_str(),
        has_next ? "the next method is asked" : "there is no other method");
    if (has_next) {
        ask(place + 1, nullptr);
        return;
    }
    fail_without_method(method + ": " + outcome.reason, question_.function == Function::kAccounting
                                                            ? AAA_ERR_ACCT_SERVICE
                                                            : AAA_ERR_NO_METHODS_AVAILABLE);
}

// Whether other logins that were under way have locked out the user: of a hundred passwords that are
// tried at once, only those before the lock-out count.
bool Decision::was_locked_out(const Outcome &outcome) const {
    return outcome.kind == Outcome::Kind::kPass && !is_password_change(question_) && is_locked_out();
}

// Failed and successful logins are counted for the lock-out.
void Decision::count(const Outcome &outcome, const std::string &method) {
    if (open_login_ != nullptr) {
        open_login_->decided();
    }
    if (question_.function != Function::kAuthentication || !question_.password) {
        return;
    }
    if (outcome.kind == Outcome::Kind::kPass) {
        deciders_.lockout.passed(question_.user, question_.source);
    } else {
        count_failure(deciders_.lockout, question_.snapshot->settings->lockout, context("outcome", method),
                      question_.user, question_.source);
    }
}

void Decision::decide(std::size_t place, const Outcome &outcome) {
    const Method &method = list_.methods[place];
    count(outcome, method.text());
    Answer answer;
    answer.text = outcome.text;
    if (outcome.kind == Outcome::Kind::kPass) {
        if (checks_names(method)) {
            deciders_.trace.names().learn(question_.user);
        }
        answer.method = method.number;
        answer.status = AAA_STAT_PASS;
        answer.privilege = outcome.privilege;
        answer.attributes = outcome.attributes;
        answer.note = outcome.note;
    } else if (outcome.note == Note::kChangedElsewhere) {
        answer.status = AAA_STAT_NOT_REQUIRED;
        answer.note = outcome.note;
    } else {
        // What a refusing server says besides its text is dropped: a client might take a
        // privilege level without looking at the status.
        answer.status = AAA_STAT_FAIL;
        answer.error = AAA_ERR_ACCT_SERVICE;
        answer.note = outcome.note;
        if (answer.text.empty()) {
            answer.text = question_.function == Function::kAuthentication ? kRefused : kNotAuthorized;
        }
    }
    answer.reason = method.text() + (outcome.reason.empty() ? "" : ": " + outcome.reason);
    log_answer(answer);
    finish(std::move(answer));
}

void Decision::challenge(std::size_t place, Outcome outcome) {
    Answer answer;
    answer.status = status_of(outcome.prompt);
    answer.text = outcome.text;
    answer.echo = outcome.echo;
    answer.reason = outcome.reason;
    answer.pending = std::make_shared<PendingLogin>();
    *answer.pending = {question_.snapshot,
                       path_,
                       place,
                       question_.user,
                       question_.service,
                       std::move(outcome.dialogue),
                       question_.round + 1,
                       is_password_change(question_),
                       nullptr,
                       std::move(open_login_)};
    if (question_.password && answer.pending->open == nullptr) {
        answer.pending->open = std::make_unique<OpenLogin>(deciders_.lockout, question_, shown_user(),
                                                           list_.methods[place].text());
    }
    if (answer.pending->open != nullptr && turn_ != nullptr) {
        turn_->pause();
        answer.pending->turn = std::move(turn_);
    }
    finish(std::move(answer));
}

void Decision::fail_without_method(const std::string &why, cerrno error, bool ends_login) {
    Answer answer;
    answer.ends_login = ends_login;
    answer.status = AAA_STAT_ERROR;
    answer.error = error;
    answer.text = "The AAA service cannot answer; its log says why, under " + id_text(question_.id);
    answer.reason = why;
    log_answer(answer);
    finish(std::move(answer));
}

// The answer is the last thing that the decision does: its owner may destroy it.
void Decision::finish(Answer answer) {
    open_login_.reset();
    turn_.reset();  // what came of it is counted now
    trace_answer(answer);
    if (deciders_.observe) {
        deciders_.observe(question_, answer, net::Loop::clock() - begun_);
    }
    const Done done = std::exchange(done_, nullptr);
    done(std::move(answer));
}

}  // namespace service
