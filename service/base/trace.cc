// SPDX-License-Identifier: Apache-2.0

#include "base/trace.hpp"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <utility>

namespace service {

std::string id_text(LoginId id) {
    char text[20];
    std::snprintf(text, sizeof text, "%08" PRIx64, id);
    return text;
}

const char *step_name(Step step) {
    switch (step) {
        case Step::kRequest:
            return "request";
        case Step::kList:
            return "list";
        case Step::kMethod:
            return "method";
        case Step::kServer:
            return "server";
        case Step::kOutcome:
            return "outcome";
        case Step::kAnswer:
            return "answer";
    }
    return "?";
}

Trace::Trace(std::size_t room) : room_(std::max<std::size_t>(room, 1)) {}

void Trace::add(TraceEvent event) {
    event.number = next_++;
    const std::size_t place = (event.number - 1) % room_;
    if (place == ring_.size()) {
        ring_.push_back(event);
    } else {
        ring_[place] = event;
    }
    std::vector<std::uint64_t> handles;
    for (const auto &[handle, follower] : followers_) {
        handles.push_back(handle);
    }
    for (const std::uint64_t handle : handles) {
        if (const auto found = followers_.find(handle); found != followers_.end()) {
            const Follower call = found->second;  // it may remove itself
            call(event);
        }
    }
}

std::uint64_t Trace::visit(std::uint64_t from, const Follower &visit) const {
    const std::uint64_t oldest = next_ - ring_.size();
    for (std::uint64_t number = std::max(from, oldest); number < next_; ++number) {
        visit(ring_[(number - 1) % room_]);
    }
    return next_;
}

std::uint64_t Trace::follow(Follower follower) {
    followers_.emplace(++last_follower_, std::move(follower));
    return last_follower_;
}

void Trace::unfollow(std::uint64_t handle) {
    followers_.erase(handle);
}

}  // namespace service
