// SPDX-License-Identifier: Apache-2.0

#include "control/follower.hpp"

#include <algorithm>
#include <utility>

#include "control/json.hpp"
#include "control/replies.hpp"

namespace service {

namespace {

constexpr std::size_t kMostOwn = 64;

// The first event that the request asks for.
std::uint64_t first_event(const Trace &trace, const ControlRequest &request, std::int64_t now) {
    if (request.after) {
        // 0 asks for all that is kept, and what is no longer is not missed.
        const std::uint64_t from = *request.after == 0 ? trace.oldest() : *request.after + 1;
        return std::min(from, trace.next());
    }
    if (!request.seconds) {
        return request.live ? trace.next() : trace.oldest();
    }
    constexpr std::uint64_t kMost = 1000000000;
    const std::int64_t from =
        now - static_cast<std::int64_t>(std::min(*request.seconds, kMost)) * net::kSecond;
    std::uint64_t number = trace.next();
    while (number > trace.oldest() && trace.at(number - 1).at >= from) {
        --number;
    }
    return number;
}

// Servers repeat the name in what they say.
TraceEvent without_name(const TraceEvent &event, const KnownNames &names) {
    TraceEvent shown = event;
    for (std::string *text : {&shown.detail, &shown.text}) {
        *text = names.shown_text(*text, event.user);
    }
    if (event.request != nullptr) {
        auto request = std::make_shared<TraceRequest>(*event.request);
        request->command = names.shown_text(request->command, event.user);
        shown.request = std::move(request);
    }
    return shown;
}

}  // namespace

TraceFollower::TraceFollower(const Trace &trace, ControlRequest request, std::int32_t client_pid,
                             std::int64_t now)
    : trace_(trace),
      request_(std::move(request)),
      client_pid_(client_pid),
      next_(first_event(trace, request_, now)),
      end_(trace.next()) {}

bool TraceFollower::matches(const TraceEvent &event) {
    const bool is_own =
        client_pid_ != 0 && event.request != nullptr && event.request->client_pid == client_pid_;
    const auto known = std::find(mine_.begin(), mine_.end(), event.id);
    if (request_.mine && is_own && known == mine_.end()) {
        mine_.push_back(event.id);
        if (mine_.size() > kMostOwn) {
            mine_.pop_front();
        }
    } else if (request_.mine && known == mine_.end()) {
        return false;
    }
    return (!request_.user || as_utf8(event.user) == *request_.user) &&
           (!request_.id || event.id == *request_.id);
}

void TraceFollower::append_to(std::string &out, std::size_t most) {
    while (!has_ended_ && out.size() < most) {
        if (next_ < trace_.oldest()) {
            lost_ += trace_.oldest() - next_;
            next_ = trace_.oldest();
        }
        const bool is_over = next_ >= (request_.live ? trace_.next() : std::min(end_, trace_.next()));
        const bool is_next = !is_over && matches(trace_.at(next_));
        if (lost_ > 0 && (is_next || is_over)) {
            out += lost_line(std::exchange(lost_, 0));
        }
        if (is_over) {
            has_ended_ = !request_.live;
            out += has_ended_ ? end_line() : "";
            return;
        }
        if (is_next) {
            // Who asks for a name knows it, and so does the program whose own requests these are.
            const TraceEvent &event = trace_.at(next_);
            const bool is_masked = !request_.user && !request_.mine && !trace_.names().knows(event.user);
            out += is_masked
                       ? event_line(without_name(event, trace_.names()), trace_.names().shown(event.user))
                       : event_line(event, event.user);
        }
        ++next_;
    }
}

}  // namespace service
