// SPDX-License-Identifier: Apache-2.0
//
// A login of several rounds in which the user has answered, and about which nothing is decided.
// When it goes without a decision, that counts as a failed login: a server may ask again for a
// wrong password, and whoever tries passwords would leave each time before the refusal.
#pragma once

#include <string>

#include "backends/backend.hpp"
#include "backends/lockout.hpp"
#include "base/log.hpp"

namespace service {

class OpenLogin {
  public:
    // `shown` is the user's name in log lines.
    OpenLogin(Lockout &lockout, const Question &question, std::string shown, std::string method);
    ~OpenLogin();
    OpenLogin(const OpenLogin &) = delete;
    OpenLogin &operator=(const OpenLogin &) = delete;

    // A method has passed or refused it, and that was counted.
    void decided() { is_decided_ = true; }

  private:
    Lockout &lockout_;
    const LoginId id_;
    const std::string user_;
    const std::string shown_;
    const std::string source_;
    const std::string method_;
    const SnapshotPtr snapshot_;
    bool is_decided_ = false;
};

// Counts a failure of a user, and logs it when it locks him out, under the name of the context.
void count_failure(Lockout &lockout, const LockoutSettings &settings, const LogContext &context,
                   const std::string &user, const std::string &source);

}  // namespace service
