// SPDX-License-Identifier: Apache-2.0

#include "groups/walk.hpp"

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <utility>

#include "base/log.hpp"
#include "groups/probes.hpp"
#include "groups/server_text.hpp"

namespace service {

namespace {

std::string milliseconds(net::Time time) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f ms", static_cast<double>(time) / net::kMillisecond);
    return text;
}

const char *reply_word(const ServerResult &result) {
    switch (result.kind) {
        case ServerResult::Kind::kSilent:
            return "silent";
        case ServerResult::Kind::kRefused:
            return "not reachable";
        case ServerResult::Kind::kBroken:
            return "no decision";
        case ServerResult::Kind::kOverload:
            return "not asked";
        case ServerResult::Kind::kAnswer:
            break;
    }
    return result.outcome.kind == Outcome::Kind::kPass   ? "passes"
           : result.outcome.kind == Outcome::Kind::kFail ? "refuses"
                                                         : "asks the user";
}

net::Time end_of(const Question &question, net::Time now) {
    const net::Time left = std::max<net::Time>(question.deadline - now, 0);
    return question.deadline - std::min(left / 10, 50 * net::kMillisecond);
}

// Clients say how long they wait. One that waits for a moment only must not be able to mark a
// server that would have answered, so a mark needs half of the time that a usual client gives
// each server, unless all its tries were made.
net::Time enough_for_a_mark(const Question &question, std::size_t servers) {
    return question.snapshot->settings->patience_ms * net::kMillisecond / 2 /
           static_cast<net::Time>(std::max<std::size_t>(servers, 1));
}

}  // namespace

net::Time share_of(std::size_t place, const std::vector<net::Time> &waits, net::Time left) {
    const net::Time others =
        std::accumulate(waits.begin() + static_cast<std::ptrdiff_t>(place) + 1, waits.end(), net::Time{0});
    const auto remaining = static_cast<net::Time>(waits.size() - place);
    return std::min(waits[place], std::max(left / remaining, left - others));
}

Outcome begin_again(const std::string &why, std::shared_ptr<Dialogue> dialogue) {
    Outcome outcome = Outcome::challenge(Prompt::kPassword,
                                         "The server that asked does not answer any more.\nPassword: ", false,
                                         std::move(dialogue));
    outcome.reason = "the login begins again with the password: " + why;
    return outcome;
}

Walk::Walk(const GroupContext &context, const Question &question, std::vector<ServerClientPtr> servers,
           Options options, Ask ask, Backend::Done done)
    : context_(context),
      id_(question.id),
      user_(question.user),
      function_(function_word(question.function)),
      is_last_method_(question.is_last_method),
      until_(end_of(question, context.loop.now())),
      enough_(enough_for_a_mark(question, servers.size())),
      servers_(std::move(servers)),
      options_(std::move(options)),
      ask_(std::move(ask)),
      done_(std::move(done)) {
    if (!options_.only_the_first) {
        order();
    }
    for (const ServerClientPtr &server : servers_) {
        waits_.push_back(server->longest_wait());
    }
    ask_next();
}

Walk::~Walk() = default;

const std::string &Walk::health_of(std::size_t place) const {
    return servers_[place]->health(options_.use);
}

// Silent servers are last. Where another method follows they are not asked at all: it answers
// at once, and they are probed when their time is over.
void Walk::order() {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < servers_.size(); ++i) {
        names.push_back(health_of(i));
    }
    const net::Time now = context_.loop.now();
    std::vector<ServerClientPtr> ordered;
    for (const std::size_t i : context_.health.order(names, now)) {
        if (context_.health.state(names[i], now) != ServerHealth::State::kDead) {
            ordered.push_back(servers_[i]);
        } else if (is_last_method_) {
            trace(servers_[i]->name(), "it was silent", "asked after the others");
            ordered.push_back(servers_[i]);
        } else {
            trace(servers_[i]->name(), "it was silent and is not asked again yet", "passed over");
            reasons_ += (reasons_.empty() ? "" : "; ") + servers_[i]->name() +
                        " was silent and is not asked again yet";
        }
    }
    servers_ = std::move(ordered);
}

void Walk::ask_next() {
    const net::Time now = net::Loop::clock();
    if (place_ >= servers_.size() || now >= until_) {
        std::string why = std::exchange(reasons_, {});
        if (place_ < servers_.size()) {
            why += (why.empty() ? "" : "; ") + std::string("the time is over before ") +
                   servers_[place_]->name() + " is asked";
        } else if (why.empty()) {
            why = "it has no usable server";
        }
        // A walk without a server ends in the loop's next round, not in its constructor.
        auto outcome =
            std::make_shared<Outcome>(options_.at_end ? options_.at_end(why) : Outcome::unavailable(why));
        attempt_ = answer_soon(context_.loop, {}, [this, outcome](Outcome) { end(std::move(*outcome)); });
        return;
    }
    const ServerClientPtr &server = servers_[place_];
    asked_at_ = now;
    if (!server->fault().empty()) {
        const auto take_fault = [this, fault = server->fault()](Outcome) {
            take({ServerResult::Kind::kBroken, {}, fault});
        };
        attempt_ = answer_soon(context_.loop, {}, take_fault);
        return;
    }
    const net::Time share = share_of(place_, waits_, until_ - now);
    context_.health.asking(health_of(place_), context_.loop.now(), server->longest_wait());
    ++server->figures(options_.use).asked;
    trace(server->name(), "is asked, for " + milliseconds(share) + " at most");
    attempt_ = ask_(server, now + share, [this](ServerResult result) { take(std::move(result)); });
    watch_silence(std::min(share, server->longest_wait()) / 4);
}

// Whether a server answers others is known before this request gives it up, also of a server that takes
// its time for a refusal.
void Walk::watch_silence(net::Time time) {
    early_look_ = std::make_unique<net::Timer>(context_.loop, [this] {
        if (!context_.health.has_answered_since(health_of(place_), asked_at_)) {
            context_.probes.suspect(servers_[place_], options_.use);
        }
    });
    early_look_->set(asked_at_ + time);
}

void Walk::take(ServerResult result) {
    const auto attempt = std::move(attempt_);  // until here: it may be the caller
    early_look_.reset();
    const std::string name = servers_[place_]->name();
    const net::Time waited = net::Loop::clock() - asked_at_;
    count(result);
    if (context_.observer != nullptr && *context_.observer) {
        (*context_.observer)(*servers_[place_], options_.use, result.kind, waited);
    }
    mark(result);
    const bool goes_on =
        result.kind != ServerResult::Kind::kAnswer && result.kind != ServerResult::Kind::kOverload;
    trace_reply(result, waited, goes_on);
    ++place_;
    if (result.kind == ServerResult::Kind::kAnswer) {
        result.outcome.reason = name + (result.outcome.reason.empty() ? "" : ": " + result.outcome.reason);
        end(std::move(result.outcome));
    } else if (result.kind == ServerResult::Kind::kOverload) {
        end(Outcome::error(name + ": " + result.text));
    } else {
        reasons_ += (reasons_.empty() ? "" : "; ") + name + ": " + result.text;
        ask_next();
    }
}

void Walk::trace_reply(const ServerResult &result, net::Time waited, bool goes_on) {
    const std::string &reason =
        result.kind == ServerResult::Kind::kAnswer ? result.outcome.reason : result.text;
    TraceEvent event{
        0,         net::Loop::clock(), id_, Step::kReply, user_, servers_[place_]->name(), reason,
        function_, reply_word(result)};
    event.duration = waited;
    event.tries = result.tries;
    const bool has_next = place_ + 1 < servers_.size();
    if (goes_on && has_next && net::Loop::clock() < until_) {
        event.next = servers_[place_ + 1]->name();
    } else if (goes_on) {
        event.detail +=
            (reason.empty() ? "" : "; ") +
            std::string(has_next ? "there is no time for another server" : "there is no other server");
    }
    const KnownNames &names = context_.trace.names();
    log(Level::kDebug, "SERVER", {id_, names.shown(user_), "reply", event.subject}, "%s %s",
        event.subject.c_str(), names.shown_text(event_text(event), user_).c_str());
    context_.trace.add(std::move(event));
}

void Walk::count(const ServerResult &result) {
    ServerFigures &figures = servers_[place_]->figures(options_.use);
    figures.tries += result.tries;
    if (result.kind != ServerResult::Kind::kAnswer && result.kind != ServerResult::Kind::kOverload) {
        figures.failure = context_.trace.names().shown_text(result.text, user_);
    }
    switch (result.kind) {
        case ServerResult::Kind::kAnswer:
            figures.answered(result.time, result.tries);
            break;
        case ServerResult::Kind::kSilent:
            ++figures.silent;
            break;
        case ServerResult::Kind::kRefused:
            ++figures.unreachable;
            break;
        case ServerResult::Kind::kBroken:
            ++figures.errors;
            break;
        case ServerResult::Kind::kOverload:
            ++figures.overloads;
            break;
    }
}

void Walk::mark(const ServerResult &result) {
    const ServerClientPtr &server = servers_[place_];
    if (result.kind == ServerResult::Kind::kAnswer) {
        if (context_.health.answered(health_of(place_), context_.loop.now())) {
            server->figures(options_.use).became_alive();
            log(Level::kNotice, "SERVER_ANSWERS", "the server %s answers again", server->name().c_str());
        }
        return;
    }
    // The waits of RADIUS are shorter or longer by a tenth at random.
    const net::Time all_tries = server->longest_wait() / 10 * 9;
    const net::Time waited = net::Loop::clock() - asked_at_;
    const bool is_silent =
        result.kind == ServerResult::Kind::kSilent && waited >= std::min(all_tries, enough_);
    if (is_silent) {
        context_.probes.silent(server, options_.use, asked_at_, result.text);
    } else if (result.kind == ServerResult::Kind::kRefused) {
        context_.probes.unreachable(server, options_.use, result.text);
    }
}

void Walk::trace(const std::string &subject, std::string detail, const char *outcome) {
    context_.trace.add(
        {0, net::Loop::clock(), id_, Step::kServer, user_, subject, std::move(detail), function_, outcome});
}

// The last thing that the walk does: its owner may destroy it.
void Walk::end(Outcome outcome) {
    const auto attempt = std::move(attempt_);
    const Backend::Done done = std::exchange(done_, nullptr);
    done(std::move(outcome));
}

}  // namespace service
