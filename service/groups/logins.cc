// SPDX-License-Identifier: Apache-2.0

#include "groups/logins.hpp"

#include <algorithm>
#include <utility>

namespace service {

void Logins::passed(Login login) {
    std::erase_if(logins_, [&](const Login &other) { return other.number == login.number; });
    if (logins_.size() >= room_) {
        logins_.pop_front();
    }
    logins_.push_back(std::move(login));
}

const Login *Logins::find(std::uint64_t number, const std::string &user) const {
    const auto found = std::find_if(logins_.rbegin(), logins_.rend(), [&](const Login &login) {
        return login.number == number && login.user == user;
    });
    return found != logins_.rend() ? &*found : nullptr;
}

Login *Logins::login_of(const Question &question) {
    Login *oldest = nullptr;
    for (Login &login : logins_) {
        if (login.user != question.user) {
            continue;
        }
        if (login.number == question.login) {
            return &login;
        }
        if (oldest == nullptr && login.terminal == question.terminal && login.remote == question.remote) {
            oldest = &login;
        }
    }
    return oldest;
}

Session *Logins::find_session(std::uint32_t number, const std::string &user) {
    const auto found = std::find_if(sessions_.begin(), sessions_.end(), [&](const Session &session) {
        return session.number == number && session.user == user;
    });
    return found != sessions_.end() ? &*found : nullptr;
}

void Logins::make_room() {
    if (sessions_.size() >= room_) {
        const auto ended = std::find_if(sessions_.begin(), sessions_.end(),
                                        [](const Session &session) { return session.ended; });
        sessions_.erase(ended != sessions_.end() ? ended : sessions_.begin());
    }
}

const Session &Logins::open(const Question &question, net::Time now, std::time_t wall) {
    const Session *known = find_session(question.session, question.user);
    if (known != nullptr && !known->ended && known->login == question.login) {
        return *known;
    }
    std::erase_if(sessions_, [&](const Session &session) {
        return session.number == question.session && session.user == question.user;
    });
    Session session;
    session.number = question.session;
    session.user = question.user;
    session.start = wall;
    session.started = now;
    session.login = question.login;
    if (Login *login = login_of(question)) {
        // Taken out, so that another session of the user does not get it; the rights stay.
        session.classes = std::exchange(login->classes, {});
    }
    make_room();
    return sessions_.emplace_back(std::move(session));
}

const Session *Logins::session(std::uint32_t number, const std::string &user) const {
    return const_cast<Logins *>(this)->find_session(number, user);
}

void Logins::end(std::uint32_t number, const std::string &user) {
    if (Session *session = find_session(number, user)) {
        session->ended = true;
    }
}

}  // namespace service
