// SPDX-License-Identifier: Apache-2.0
//
// How answers become outcomes.

#include "tacacs/question.hpp"

namespace tacacs {
namespace {

// A text of a server for the log: on one line, not endless, and without control characters,
// which could forge lines or change the terminal of who reads them.
std::string for_log(std::string_view text) {
    constexpr std::size_t kMost = 300;
    std::string safe(text.substr(0, kMost));
    for (char &byte : safe) {
        if (static_cast<unsigned char>(byte) < ' ' || byte == 0x7f) {
            byte = ' ';
        }
    }
    return text.size() > kMost ? safe + "..." : safe;
}

void set_error(Outcome &outcome, std::string_view what, std::string_view message, std::string_view data) {
    outcome.result = Result::kError;
    outcome.text = what;
    for (const std::string_view part : {message, data}) {
        if (!part.empty()) {
            outcome.text.append(": ").append(for_log(part));
        }
    }
}

constexpr std::string_view kAnsweredError = "the server has answered with an error";
constexpr std::string_view kFollow =
    "the server refers to another server, which is never followed; configure that server instead";

template <typename OutcomeType>
std::function<void()> delivery(OutcomeType &outcome, std::function<void(OutcomeType)> &done) {
    return [outcome = std::exchange(outcome, {}), done = std::exchange(done, nullptr)]() mutable {
        if (done) {
            done(std::move(outcome));
        }
    };
}

}  // namespace

Fault AuthenticationQuestion::read(std::string_view body) {
    AuthenticationReply reply;
    const Fault fault = AuthenticationReply::read(body, reply);
    if (fault != Fault::kNone) {
        return fault;
    }
    switch (reply.status) {
        case AuthenticationStatus::kError:
            set_error(outcome_, kAnsweredError, reply.message, reply.data);
            return Fault::kNone;
        case AuthenticationStatus::kRestart:
            set_error(outcome_, "the server asks for another type of login", reply.message, {});
            return Fault::kNone;
        case AuthenticationStatus::kFollow:
            // RFC 8907, 10.5.5: a refusal. As an error it would make the next method decide.
            outcome_.status = AuthenticationStatus::kFail;
            outcome_.text = kFollow;
            break;
        default:
            outcome_.status = reply.status;
    }
    outcome_.result = Result::kAnswer;
    outcome_.hides_input = reply.hides_input;
    outcome_.message = reply.message;
    outcome_.data = reply.data;
    return Fault::kNone;
}

std::function<void()> AuthenticationQuestion::take_delivery() {
    return delivery(outcome_, done_);
}

void AuthenticationQuestion::go_on(SecretBytes unsealed, Done done) {
    packet = std::move(unsealed);
    done_ = std::move(done);
    outcome_ = {};
}

Fault AuthorizationQuestion::read(std::string_view body) {
    AuthorizationReply reply;
    const Fault fault = AuthorizationReply::read(body, reply);
    if (fault != Fault::kNone) {
        return fault;
    }
    if (reply.status == AuthorizationStatus::kError) {
        set_error(outcome_, kAnsweredError, reply.message, reply.data);
    } else if (reply.status == AuthorizationStatus::kFollow) {
        set_error(outcome_, kFollow, {}, {});
    } else {
        outcome_.result = Result::kAnswer;
        outcome_.status = reply.status;
        // What accompanies a refusal must not be taken for a permission.
        if (reply.status != AuthorizationStatus::kFail) {
            outcome_.arguments.assign(reply.arguments.begin(), reply.arguments.end());
        }
        outcome_.message = reply.message;
        outcome_.data = reply.data;
    }
    return Fault::kNone;
}

std::function<void()> AuthorizationQuestion::take_delivery() {
    return delivery(outcome_, done_);
}

Fault AccountingQuestion::read(std::string_view body) {
    AccountingReply reply;
    const Fault fault = AccountingReply::read(body, reply);
    if (fault != Fault::kNone) {
        return fault;
    }
    if (reply.status == AccountingStatus::kSuccess) {
        outcome_.result = Result::kAnswer;
        outcome_.message = reply.message;
        outcome_.data = reply.data;
    } else if (reply.status == AccountingStatus::kFollow) {
        set_error(outcome_, kFollow, {}, {});
    } else {
        set_error(outcome_, kAnsweredError, reply.message, reply.data);
    }
    return Fault::kNone;
}

std::function<void()> AccountingQuestion::take_delivery() {
    return delivery(outcome_, done_);
}

}  // namespace tacacs
