// SPDX-License-Identifier: Apache-2.0
//
// The steps of requests, in memory: which list a request used, which methods and servers
// were asked, what they said, and why the next one was asked. A ring of fixed size, which
// readers follow by the numbers of the events, and functions that see each event as it
// happens. For the thread of the loop.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace service {

// One id for each login: all requests of one connection until its login is decided, and
// what follows it, in all log lines and events.
using LoginId = std::uint64_t;

// "4f1c00a7": eight or more hexadecimal digits.
std::string id_text(LoginId id);

enum class Step : std::uint8_t {
    kRequest,  // a request came: detail says from whom and for what
    kList,     // the method list that applies
    kMethod,   // a method is asked
    kServer,   // a server is asked; written by the clients of protocols
    kOutcome,  // what a method answered, and why the next one is asked
    kAnswer    // the answer to the client
};
const char *step_name(Step step);

struct TraceEvent {
    std::uint64_t number = 0;  // counts all events of the process, from 1
    std::int64_t at = 0;       // nanoseconds of CLOCK_MONOTONIC
    LoginId id = 0;
    Step step = Step::kRequest;
    std::string user;
    std::string subject;  // the list, method or server
    std::string detail;   // for people; holds no secret
};

class Trace {
  public:
    using Follower = std::function<void(const TraceEvent &)>;

    explicit Trace(std::size_t room = 4096);
    Trace(const Trace &) = delete;
    Trace &operator=(const Trace &) = delete;

    // Numbers the event and keeps it in place of the oldest one.
    void add(TraceEvent event);
    // Calls `visit` with the kept events from a number on, oldest first. Returns the number
    // to go on with.
    std::uint64_t visit(std::uint64_t from, const Follower &visit) const;

    // Has a function called with each new event. It may add and remove followers.
    std::uint64_t follow(Follower follower);
    void unfollow(std::uint64_t handle);

  private:
    std::size_t room_;
    std::vector<TraceEvent> ring_;
    std::uint64_t next_ = 1;
    std::uint64_t last_follower_ = 0;
    std::map<std::uint64_t, Follower> followers_;
};

}  // namespace service
