// SPDX-License-Identifier: Apache-2.0

#include "backends/password_check.hpp"

#include <atomic>
#include <utility>

namespace service {

namespace {

struct Checked {
    Outcome outcome;
    Backend::Done done;
    std::atomic<bool> cancelled = false;  // clients that leave must not keep the threads busy
};

class Check : public Attempt {
  public:
    explicit Check(std::shared_ptr<Checked> checked) : checked_(std::move(checked)) {}
    ~Check() override {
        checked_->cancelled = true;
        checked_->done = nullptr;
    }

  private:
    std::shared_ptr<Checked> checked_;
};

}  // namespace

std::unique_ptr<Attempt> check_on_a_thread(net::Loop &loop, Workers &workers, std::function<Outcome()> check,
                                           Backend::Done done) {
    auto checked = std::make_shared<Checked>();
    checked->done = done;
    const bool accepted = workers.run(
        [checked, check = std::move(check)] {
            if (!checked->cancelled) {
                checked->outcome = check();
            }
        },
        [checked] {
            if (const auto call = std::exchange(checked->done, nullptr)) {
                call(std::move(checked->outcome));
            }
        });
    if (!accepted) {
        return answer_soon(loop, Outcome::error("too many passwords wait to be checked"), std::move(done));
    }
    return std::make_unique<Check>(std::move(checked));
}

std::optional<Outcome> before_password(const Question &question, bool needs_user) {
    if (question.option >= AAA_AO_IB_CHAP_V1 && question.option != AAA_AO_NOTSET) {
        return Outcome::unavailable(
            "only a password can be checked against a hash, not the authentication option " +
            std::string(aaa_util_print_authen_option(question.option)));
    }
    if (needs_user && question.user.empty()) {
        return Outcome::challenge(Prompt::kUser, "Username: ", true);
    }
    if (!question.password) {
        return Outcome::challenge(Prompt::kPassword, "Password: ", false);
    }
    return std::nullopt;
}

}  // namespace service
