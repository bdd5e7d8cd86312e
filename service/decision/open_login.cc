// SPDX-License-Identifier: Apache-2.0
#include "decision/open_login.hpp"

#include <utility>

namespace service {

OpenLogin::OpenLogin(Lockout &lockout, const Question &question, std::string shown, std::string method)
    : lockout_(lockout),
      id_(question.id),
      user_(question.user),
      shown_(std::move(shown)),
      source_(question.source),
      method_(std::move(method)),
      snapshot_(question.snapshot) {}

OpenLogin::~OpenLogin() {
    if (!is_decided_) {
        count_failure(lockout_, snapshot_->settings->lockout, {id_, shown_, "answer", method_}, user_,
                      source_);
    }
}

void count_failure(Lockout &lockout, const LockoutSettings &settings, const LogContext &context,
                   const std::string &user, const std::string &source) {
    if (lockout.failed(user, source, net::Loop::clock(), settings)) {
        log(Level::kWarning, "LOCKED_OUT", context,
            "logins of %s from %s are refused for %u s after failures at %s",
            std::string(context.user).c_str(), source.empty() ? "the console" : source.c_str(),
            settings.time_s, std::string(context.subject).c_str());
    }
}

}  // namespace service
