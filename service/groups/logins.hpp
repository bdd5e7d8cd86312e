// SPDX-License-Identifier: Apache-2.0
//
// What servers said of the users who have logged in, for the requests that follow a login: the
// rights that an Access-Accept gave, and its Class, which each accounting record of the
// session repeats. Of fixed size: the oldest entries go first.
#pragma once

#include <cstdint>
#include <ctime>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "backends/backend.hpp"

namespace service {

struct Login {
    std::uint64_t number = 0;  // Question::login
    std::string user, terminal, remote;
    std::optional<std::uint32_t> privilege;
    std::vector<Attribute> attributes;
    std::vector<std::string> classes;
};

struct Session {
    std::uint32_t number = 0;
    std::string user;
    std::time_t start = 0;  // wall clock, for records
    net::Time started = 0;  // monotonic, for durations
    std::vector<std::string> classes;
    std::uint64_t login = 0;  // of the request that opened it
    bool ended = false;       // it goes first when the table is full
};

class Logins {
  public:
    explicit Logins(std::size_t room = 1024) : room_(room) {}

    void passed(Login login);
    // The login of a request's connection, for the same user; null if there is none.
    const Login *find(std::uint64_t number, const std::string &user) const;

    // A session begins: with what its login brought. That is the login of the same connection, else
    // the oldest one of the same user at the same place that has no session yet. A record for
    // several groups opens its session once.
    const Session &open(const Question &question, net::Time now, std::time_t wall);
    // Null when it is not known, as after a restart.
    const Session *session(std::uint32_t number, const std::string &user) const;
    // Kept for a while: a record may be for several groups.
    void end(std::uint32_t number, const std::string &user);

    std::size_t sessions() const { return sessions_.size(); }

  private:
    Login *login_of(const Question &question);
    Session *find_session(std::uint32_t number, const std::string &user);
    void make_room();

    std::size_t room_;
    std::deque<Login> logins_;  // oldest first
    std::deque<Session> sessions_;
};

}  // namespace service
