// SPDX-License-Identifier: Apache-2.0

#include "backends/backend.hpp"

#include "backends/password_change.hpp"

#include <utility>

namespace service {

namespace {

// The function is held by the attempt: it goes with it.
class Soon : public Attempt {
  public:
    Soon(Outcome outcome, Backend::Done done)
        : call_(std::make_shared<std::pair<Outcome, Backend::Done>>(std::move(outcome), std::move(done))) {}
    std::weak_ptr<std::pair<Outcome, Backend::Done>> call() const { return call_; }

  private:
    std::shared_ptr<std::pair<Outcome, Backend::Done>> call_;
};

}  // namespace

const char *function_word(Function function) {
    return aaa_function_to_string(function_number(function));
}

std::uint32_t function_number(Function function) {
    switch (function) {
        case Function::kAuthentication:
            return AAA_FUNC_AUTHEN;
        case Function::kAuthorization:
            return AAA_FUNC_AUTHOR;
        case Function::kAccounting:
            return AAA_FUNC_ACCT;
    }
    return AAA_FUNC_AUTHEN;
}

Outcome Outcome::pass(std::string reason, std::optional<std::uint32_t> privilege) {
    Outcome outcome;
    outcome.kind = Kind::kPass;
    outcome.reason = std::move(reason);
    outcome.privilege = privilege;
    return outcome;
}

Outcome Outcome::fail(std::string reason) {
    Outcome outcome;
    outcome.kind = Kind::kFail;
    outcome.reason = std::move(reason);
    return outcome;
}

Outcome Outcome::unavailable(std::string reason) {
    Outcome outcome;
    outcome.reason = std::move(reason);
    return outcome;
}

Outcome Outcome::error(std::string reason) {
    Outcome outcome;
    outcome.kind = Kind::kError;
    outcome.reason = std::move(reason);
    return outcome;
}

Outcome Outcome::challenge(Prompt prompt, std::string text, bool echo, std::shared_ptr<Dialogue> dialogue) {
    Outcome outcome;
    outcome.kind = Kind::kChallenge;
    outcome.prompt = prompt;
    outcome.text = std::move(text);
    outcome.echo = echo;
    outcome.dialogue = std::move(dialogue);
    return outcome;
}

Outcome refuse_change(std::string text) {
    Outcome outcome = Outcome::fail("this method changes no passwords");
    outcome.text = std::move(text);
    return outcome;
}

std::unique_ptr<Attempt> answer_soon(net::Loop &loop, Outcome outcome, Backend::Done done) {
    auto attempt = std::make_unique<Soon>(std::move(outcome), std::move(done));
    loop.post([call = attempt->call()] {
        if (const auto held = call.lock()) {
            held->second(std::move(held->first));
        }
    });
    return attempt;
}

void Backends::add(std::uint32_t method, std::shared_ptr<Backend> backend) {
    by_method_[method] = std::move(backend);
}

void Backends::add(Protocol protocol, std::shared_ptr<Backend> backend) {
    by_protocol_[protocol] = std::move(backend);
}

std::shared_ptr<Backend> Backends::find(Protocol protocol) const {
    const auto found = by_protocol_.find(protocol);
    return found != by_protocol_.end() ? found->second : nullptr;
}

Backend *Backends::find(const Method &method) const {
    if (method.group != nullptr) {
        const auto found = by_protocol_.find(method.group->protocol);
        return found != by_protocol_.end() ? found->second.get() : nullptr;
    }
    const auto found = by_method_.find(method.number);
    return found != by_method_.end() ? found->second.get() : nullptr;
}

}  // namespace service
