// SPDX-License-Identifier: Apache-2.0
//
// What a decision tells the trace and the log.

#include <utility>

#include "decision/decision.hpp"

namespace service {

namespace {

const char *outcome_word(Outcome::Kind kind) {
    switch (kind) {
        case Outcome::Kind::kPass:
            return "pass";
        case Outcome::Kind::kFail:
            return "refused";
        case Outcome::Kind::kChallenge:
            return "asks the user";
        case Outcome::Kind::kUnavailable:
            return "no answer";
        case Outcome::Kind::kError:
            return "error";
    }
    return "?";
}

const char *answer_word(const Answer &answer) {
    return answer.status == AAA_STAT_PASS    ? "pass"
           : answer.status == AAA_STAT_FAIL  ? "refused"
           : answer.status == AAA_STAT_ERROR ? "error"
                                             : "asks the user";
}

}  // namespace

void Decision::trace(Step step, std::string subject, std::string detail) {
    deciders_.trace.add({0, net::Loop::clock(), question_.id, step, question_.user, std::move(subject),
                         std::move(detail), function_word(question_.function)});
}

// The method that is asked after an outcome; empty when none is.
std::string Decision::next_method(std::size_t place, const Outcome &outcome) const {
    const bool is_broadcast = list_.broadcast && question_.function == Function::kAccounting;
    const bool goes_on = outcome.kind == Outcome::Kind::kUnavailable && !is_broadcast &&
                         following(place) > 0 && deciders_.loop.now() < deadline_;
    return goes_on ? list_.methods[place + 1].text() : "";
}

void Decision::trace_outcome(const Asked &asked, const Outcome &outcome) {
    const net::Time now = net::Loop::clock();
    TraceEvent event{0,
                     now,
                     question_.id,
                     Step::kOutcome,
                     question_.user,
                     list_.methods[asked.place].text(),
                     outcome.reason,
                     function_word(question_.function),
                     outcome_word(outcome.kind)};
    event.duration = now - asked.asked_at;
    event.next = next_method(asked.place, outcome);
    log(Level::kDebug, "METHOD", context("outcome", event.subject), "%s: %s", event.subject.c_str(),
        deciders_.trace.names().shown_text(event_text(event), question_.user).c_str());
    deciders_.trace.add(std::move(event));
}

std::string Decision::shown_user() const {
    return std::string(deciders_.trace.names().shown(question_.user));
}

LogContext Decision::context(const char *step, std::string_view subject) const {
    return {question_.id, deciders_.trace.names().shown(question_.user), step, subject, question_.client_pid};
}

void Decision::trace_lockout() {
    TraceEvent event{0,
                     net::Loop::clock(),
                     question_.id,
                     Step::kOutcome,
                     question_.user,
                     "lockout",
                     "logins of this user from this source are refused for some time, after failures",
                     function_word(question_.function),
                     outcome_word(Outcome::Kind::kFail)};
    deciders_.trace.add(std::move(event));
}

void Decision::trace_answer(const Answer &answer) {
    const net::Time now = net::Loop::clock();
    TraceEvent event{0,
                     now,
                     question_.id,
                     Step::kAnswer,
                     question_.user,
                     aaa_print_status(answer.status),
                     answer.reason,
                     function_word(question_.function),
                     answer_word(answer),
                     answer.text};
    event.duration = now - begun_;
    deciders_.trace.add(std::move(event));
}

void Decision::log_answer(const Answer &answer) const {
    static kel_msg_limit_t limit = {1, {}};  // clients that ask for themselves cannot fill the log
    const Level level = answer.status == AAA_STAT_ERROR  ? Level::kError
                        : answer.status == AAA_STAT_FAIL ? Level::kNotice
                                                         : Level::kInfo;
    const std::string text = std::string(function_word(question_.function)) + " of " +
                             (question_.user.empty() ? "no user" : shown_user()) +
                             (question_.remote.empty() ? "" : " from " + question_.remote) +
                             (question_.terminal.empty() ? "" : " on " + question_.terminal) +
                             " for client " + std::to_string(question_.client_pid) + " of user " +
                             std::to_string(question_.client_uid) + ": " + aaa_print_status(answer.status) +
                             " (" + deciders_.trace.names().shown_text(answer.reason, question_.user) + ")";
    if (question_.for_others) {
        log(level, "ANSWER", context("answer"), "%s", text.c_str());
    } else {
        log_limited(limit, level, "ANSWER", context("answer"), "%s", text.c_str());
    }
}

}  // namespace service
