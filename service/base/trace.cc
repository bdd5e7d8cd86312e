// SPDX-License-Identifier: Apache-2.0

#include "base/trace.hpp"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <ctime>
#include <utility>

#include "masks/masks.hpp"
#include "probes/probes.hpp"

namespace service {

namespace {

constexpr std::size_t kMostText = 1024;

std::int64_t wall_clock() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

// Each step is a probe too, so that tracers and the trace see the same.
void call_probe(const TraceEvent &event, const KnownNames &names) {
    switch (event.step) {
        case Step::kRequest:
            AAA_PROBE3(request_start, event.id, event.function, names.shown(event.user).data());
            break;
        case Step::kList:
            break;
        case Step::kMethod:
            AAA_PROBE2(method_start, event.id, event.subject.c_str());
            break;
        case Step::kServer:
            if (*event.outcome == '\0') {  // it is not passed over
                AAA_PROBE2(server_start, event.id, event.subject.c_str());
            }
            break;
        case Step::kReply:
            AAA_PROBE4(server_done, event.id, event.subject.c_str(), event.duration, event.outcome);
            break;
        case Step::kOutcome:
            AAA_PROBE4(method_done, event.id, event.subject.c_str(), event.duration, event.outcome);
            break;
        case Step::kAnswer:
            AAA_PROBE4(request_done, event.id, event.function, event.outcome, event.duration);
            break;
    }
}

// A server may send kilobytes of text with each refusal.
void cut_to(std::size_t most, std::string &text) {
    if (text.size() <= most) {
        return;
    }
    while (most > 0 && (static_cast<unsigned char>(text[most]) & 0xc0) == 0x80) {
        --most;  // not within a character
    }
    text.resize(most);
    text += "...";
}

}  // namespace

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
        case Step::kReply:
            return "reply";
        case Step::kOutcome:
            return "outcome";
        case Step::kAnswer:
            return "answer";
    }
    return "?";
}

std::string command_for_trace(const std::string &command) {
    constexpr std::size_t kMost = 256;
    constexpr std::string_view kBlanks = " \t\r\n\v\f";
    const std::string whole = CommandMask("***").shown(command);
    std::string shown;
    for (std::size_t at = 0; at < whole.size() && shown.size() <= kMost;) {
        const std::size_t begin = std::min(whole.find_first_not_of(kBlanks, at), whole.size());
        at = std::min(whole.find_first_of(kBlanks, begin), whole.size());
        shown += shown.empty() || begin == at ? "" : " ";
        shown.append(whole, begin, at - begin);
    }
    cut_to(kMost, shown);
    return shown;
}

std::string event_text(const TraceEvent &event) {
    std::string text = event.outcome;
    if (event.duration >= 0) {
        char time[40];
        std::snprintf(time, sizeof time, " after %.1f ms", static_cast<double>(event.duration) / 1e6);
        text += time;
    }
    if (event.tries > 0) {
        text += " in " + std::to_string(event.tries) + (event.tries == 1 ? " try" : " tries");
    }
    text += (text.empty() || event.detail.empty() ? "" : ": ") + event.detail;
    text += event.next.empty() ? "" : "; the next is " + event.next;
    return text;
}

Trace::Trace(std::size_t room) : room_(std::max<std::size_t>(room, 1)) {}

void Trace::add(TraceEvent event) {
    event.number = next_++;
    event.wall = wall_clock();
    cut_to(kMostText, event.detail);
    cut_to(kMostText, event.text);
    call_probe(event, names_);
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
    for (std::uint64_t number = std::max(from, oldest()); number < next_; ++number) {
        visit(at(number));
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
