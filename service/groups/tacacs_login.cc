// SPDX-License-Identifier: Apache-2.0

#include "groups/tacacs_login.hpp"

#include <utility>

#include "groups/request_kind.hpp"
#include "groups/server_text.hpp"
#include "groups/tacacs_forms.hpp"

namespace service {

namespace {

bool sends_password_at_once(const Question &question, const Server &server) {
    const bool asks_for_pap = question.option >= AAA_AO_IB_PAP_V1 && question.option <= AAA_AO_OB_PAP_V0;
    return question.password && !is_enable(question) && !is_password_change(question) &&
           (server.pap || asks_for_pap);
}

tacacs::Start start_of(const Question &question, bool with_password) {
    tacacs::Start start;
    start.subject = tacacs_subject(question);
    if (is_password_change(question)) {
        start.action = tacacs::Action::kChangePassword;
        start.subject.service = tacacs::Service::kLogin;
    }
    if (with_password) {
        start.subject.type = tacacs::AuthenticationType::kPap;
        start.data = question.password->text();
    }
    return start;
}

const char *prompt_for(tacacs::AuthenticationStatus status) {
    return status == tacacs::AuthenticationStatus::kGetUser       ? "Username: "
           : status == tacacs::AuthenticationStatus::kGetPassword ? "Password: "
                                                                  : "Response: ";
}

}  // namespace

std::string tacacs_login_misfit(const Question &question) {
    if (question.password && question.password->text().size() > tacacs::kMaxField) {
        return "the password is longer than the " + std::to_string(tacacs::kMaxField) + " bytes of TACACS+";
    }
    tacacs::SecretBytes scratch;
    return tacacs::append_start(start_of(question, false), scratch);
}

ServerResult tacacs_failure(const tacacs::Outcome &outcome) {
    ServerResult result;
    result.text = text_for_log(outcome.text);
    result.tries = outcome.tries;
    result.time = outcome.round_trip;
    switch (outcome.result) {
        case tacacs::Result::kSilent:
            result.kind = ServerResult::Kind::kSilent;
            break;
        case tacacs::Result::kRefused:
            result.kind = ServerResult::Kind::kRefused;
            break;
        default:
            result.kind = ServerResult::Kind::kBroken;
            break;
    }
    // What does not fit was refused before, so what was never sent was too much.
    const bool was_sent = outcome.tries > 0 || outcome.fault != tacacs::Fault::kNone;
    if (!was_sent && outcome.result != tacacs::Result::kRefused && outcome.result != tacacs::Result::kLost) {
        result.kind = ServerResult::Kind::kOverload;
    }
    return result;
}

TacacsDialogue::~TacacsDialogue() {
    if (server != nullptr && login != 0) {
        server->tacacs().abort(login, "the user has left");
    }
}

TacacsLogin::TacacsLogin(ServerClientPtr server, const Question &question, net::Time until, Done done)
    : server_(std::move(server)), question_(question), until_(until), done_(std::move(done)) {
    password_is_given_ = sends_password_at_once(question_, server_->server());
    user_is_given_ = !question_.user.empty();
    login_ = server_->tacacs().authenticate(
        start_of(question_, password_is_given_), until_,
        [this](const tacacs::AuthenticationOutcome &outcome) { take(outcome); });
}

TacacsLogin::TacacsLogin(std::shared_ptr<TacacsDialogue> dialogue, const Question &question, net::Time until,
                         Done done)
    : server_(dialogue->server), question_(question), until_(until), done_(std::move(done)) {
    login_ = std::exchange(dialogue->login, 0);
    user_is_given_ = true;
    password_is_given_ = dialogue->prompt != Prompt::kUser;
    new_password_is_given_ = dialogue->new_password_is_given;
    answer(dialogue->prompt == Prompt::kUser ? question_.user : question_.password->text());
}

TacacsLogin::~TacacsLogin() {
    if (login_ != 0) {
        server_->tacacs().cancel(login_);
    }
}

void TacacsLogin::answer(const std::string &text) {
    server_->tacacs().answer(login_, text, until_,
                             [this](const tacacs::AuthenticationOutcome &outcome) { take(outcome); });
}

void TacacsLogin::take(const tacacs::AuthenticationOutcome &outcome) {
    using Status = tacacs::AuthenticationStatus;
    if (outcome.result != tacacs::Result::kAnswer) {
        login_ = 0;
        ServerResult failure = tacacs_failure(outcome);
        failure.tries = outcome.tries > 0 ? 1 : 0;
        end(std::move(failure));
        return;
    }
    if (outcome.goes_on()) {
        if (outcome.status == Status::kGetPassword && question_.password && !is_password_change(question_) &&
            !std::exchange(password_is_given_, true)) {
            answer(question_.password->text());
        } else {
            ask_user(outcome);
        }
        return;
    }
    login_ = 0;
    ServerResult result;
    result.kind = ServerResult::Kind::kAnswer;
    result.tries = 1;  // a login is never sent twice: the client counts its rounds
    result.time = outcome.round_trip;
    if (outcome.status == Status::kPass) {
        pass(result.outcome);
    } else {
        const std::string &why = outcome.text.empty() ? outcome.message : outcome.text;
        result.outcome = Outcome::fail(why.empty() ? "refused" : "refused: " + text_for_log(why));
    }
    result.outcome.text = text_for_user(outcome.message);
    end(std::move(result));
}

void TacacsLogin::pass(Outcome &outcome) const {
    if (!is_password_change(question_)) {
        outcome = Outcome::pass(
            "passed", is_enable(question_) ? std::optional(wanted_privilege(question_)) : std::nullopt);
    } else if (new_password_is_given_) {
        outcome = Outcome::pass("the password is changed");
        outcome.note = Note::kPasswordChanged;
    } else {
        outcome = Outcome::fail("the server passes the change without having asked for a new password");
    }
}

// A user who has given his name cannot give another one in the middle of a login: whatever
// the server does with it, this side would speak of the first.
// In a change of password a server asks for the old one as data that is not shown, and for
// the new one as a password (RFC 8907, 5.4.2.6).
Prompt TacacsLogin::prompt_of(const tacacs::AuthenticationOutcome &outcome) const {
    using Status = tacacs::AuthenticationStatus;
    const bool changes = is_password_change(question_);
    if (outcome.status == Status::kGetUser) {
        return user_is_given_ ? Prompt::kData : Prompt::kUser;
    }
    const bool is_password =
        changes ? outcome.status == Status::kGetData && outcome.hides_input && !new_password_is_given_
                : outcome.status == Status::kGetPassword;
    return is_password ? Prompt::kPassword : Prompt::kData;
}

void TacacsLogin::ask_user(const tacacs::AuthenticationOutcome &outcome) {
    using Status = tacacs::AuthenticationStatus;
    auto dialogue = std::make_shared<TacacsDialogue>();
    dialogue->server = server_;
    dialogue->login = std::exchange(login_, 0);
    dialogue->changes_password = is_password_change(question_);
    dialogue->new_password_is_given =
        new_password_is_given_ || (dialogue->changes_password && outcome.status == Status::kGetPassword);
    dialogue->prompt = prompt_of(outcome);
    std::string text = text_for_user(outcome.message);
    ServerResult result;
    result.kind = ServerResult::Kind::kAnswer;
    result.tries = 1;
    result.time = outcome.round_trip;
    result.outcome =
        Outcome::challenge(dialogue->prompt, text.empty() ? prompt_for(outcome.status) : std::move(text),
                           dialogue->prompt != Prompt::kPassword && !outcome.hides_input &&
                               outcome.status != Status::kGetPassword);
    dialogue->asked = result.outcome;
    result.outcome.dialogue = std::move(dialogue);
    end(std::move(result));
}

void TacacsLogin::end(ServerResult result) {
    const Done done = std::move(done_);
    done(std::move(result));  // destroys this
}

}  // namespace service
