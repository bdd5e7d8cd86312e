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
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/known_names.hpp"

namespace service {

// One id for each login, in all log lines and events. The lower half is the number that the client
// gives, for all its connections of one login, and writes into its own log lines too; a client
// that gives none gets one for each login of a connection. The upper half is the client's user,
// as the kernel reports it: no user can make the id of another user's login.
using LoginId = std::uint64_t;

constexpr LoginId login_id(std::uint32_t user, std::uint32_t number) {
    return static_cast<LoginId>(user) << 32 | number;
}

// "4f1c00a7", or "3e84f1c00a7" for a client of user 1000: eight or more hexadecimal digits.
std::string id_text(LoginId id);

enum class Step : std::uint8_t {
    kRequest,  // a request came: from whom and for what
    kList,     // the method list that applies
    kMethod,   // a method is asked
    kServer,   // a server is asked, or passed over
    kReply,    // what a server answered, and why the next one is asked
    kOutcome,  // what a method answered, and why the next one is asked
    kAnswer    // the answer to the client
};
const char *step_name(Step step);

// Who asks for what: of the step kRequest.
struct TraceRequest {
    std::string service;  // "login"
    std::string list;     // as the request names it
    std::string remote;   // address that the user comes from
    std::string terminal;
    std::string command;  // without what looks like a password in it
    std::int32_t client_pid = 0;
    std::uint32_t client_uid = 0;
};

// What no event may hold: passwords, keys, answers to challenges.
struct TraceEvent {
    std::uint64_t number = 0;  // counts all events of the process, from 1; set by the trace
    std::int64_t at = 0;       // nanoseconds of CLOCK_MONOTONIC
    LoginId id = 0;
    Step step = Step::kRequest;
    std::string user;     // as the request has it: for others, KnownNames::shown()
    std::string subject;  // the function, list, method, server or status
    std::string detail;   // for people

    const char *function = "";   // "authentication"
    const char *outcome = "";    // a word: what came of it
    std::string text = {};       // what the user is told, of kAnswer
    std::string next = {};       // the method or server that is asked next
    std::int64_t duration = -1;  // nanoseconds since the question to the server, to the method or the request
    unsigned tries = 0;          // how often a server was asked
    std::int64_t wall = 0;       // nanoseconds since 1970; set by the trace
    std::shared_ptr<const TraceRequest> request = {};
};

// A command as the trace shows it: cut, with single blanks, and without what looks like a password.
std::string command_for_trace(const std::string &command);

// "no answer after 2001.3 ms in 2 tries: no reply; the next is local": all that an event tells
// besides its subject.
std::string event_text(const TraceEvent &event);

class Trace {
  public:
    using Follower = std::function<void(const TraceEvent &)>;

    explicit Trace(std::size_t room = 4096);
    Trace(const Trace &) = delete;
    Trace &operator=(const Trace &) = delete;

    // The names that may be shown.
    KnownNames &names() { return names_; }
    const KnownNames &names() const { return names_; }

    // Numbers the event, keeps it in place of the oldest one, and calls the probes.
    void add(TraceEvent event);
    // Calls `visit` with the kept events from a number on, oldest first. Returns the number
    // to go on with.
    std::uint64_t visit(std::uint64_t from, const Follower &visit) const;

    // The kept events have the numbers from oldest() to next() - 1.
    std::uint64_t oldest() const { return next_ - ring_.size(); }
    std::uint64_t next() const { return next_; }
    const TraceEvent &at(std::uint64_t number) const { return ring_[(number - 1) % room_]; }

    // Has a function called with each new event. It may add and remove followers.
    std::uint64_t follow(Follower follower);
    void unfollow(std::uint64_t handle);

  private:
    std::size_t room_;
    KnownNames names_;
    std::vector<TraceEvent> ring_;
    std::uint64_t next_ = 1;
    std::uint64_t last_follower_ = 0;
    std::map<std::uint64_t, Follower> followers_;
};

}  // namespace service
