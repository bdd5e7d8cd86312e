// SPDX-License-Identifier: Apache-2.0

#include "groups/radius_backend.hpp"

#include <ctime>
#include <utility>

#include "backends/password_check.hpp"
#include "groups/radius_forms.hpp"
#include "groups/request_kind.hpp"
#include "groups/server_text.hpp"

namespace service {

namespace {

// A login between two rounds.
struct RadiusDialogue : Dialogue {
    ServerClientPtr server;    // that has asked; null: the login has begun again
    radius::Answer challenge;  // whose State the next request carries
};

// A question to one server. Ends with it.
class RadiusAsk : public Attempt {
  public:
    using Read = std::function<Outcome(const radius::Answer &)>;

    RadiusAsk(ServerClientPtr server, Use use, radius::Question question, net::Time until, Read read,
              std::function<void(ServerResult)> done)
        : server_(std::move(server)), use_(use), read_(std::move(read)), done_(std::move(done)) {
        ticket_ = server_->radius(use_).ask(
            std::move(question), [this](const radius::Outcome &outcome) { take(outcome); }, until);
    }
    ~RadiusAsk() override { server_->radius(use_).cancel(ticket_); }
    RadiusAsk(const RadiusAsk &) = delete;
    RadiusAsk &operator=(const RadiusAsk &) = delete;

  private:
    void take(const radius::Outcome &outcome) {
        ServerResult result;
        result.text = outcome.text;
        result.tries = static_cast<unsigned>(outcome.tries);
        result.time = outcome.time;
        switch (outcome.kind) {
            case radius::Outcome::Kind::kAnswer:
                result.kind = ServerResult::Kind::kAnswer;
                result.outcome = read_(outcome.answer);
                break;
            case radius::Outcome::Kind::kSilent:
                result.kind = ServerResult::Kind::kSilent;
                break;
            case radius::Outcome::Kind::kRefused:
                result.kind = ServerResult::Kind::kRefused;
                break;
            case radius::Outcome::Kind::kError:
                result.kind =
                    outcome.is_overload ? ServerResult::Kind::kOverload : ServerResult::Kind::kBroken;
                break;
        }
        const auto done = std::move(done_);
        done(std::move(result));  // destroys this
    }

    ServerClientPtr server_;
    Use use_;
    Read read_;
    std::function<void(ServerResult)> done_;
    radius::Client::Ticket ticket_ = 0;
};

class RadiusBackend : public Backend {
  public:
    RadiusBackend(GroupContext context, Logins &logins) : context_(context), logins_(logins) {}

    std::unique_ptr<Attempt> authenticate(const Question &question, std::shared_ptr<Dialogue> dialogue,
                                          Done done) override;
    std::unique_ptr<Attempt> authorize(const Question &question, Done done) override {
        return answer_soon(context_.loop, rights_of(question), std::move(done));
    }
    std::unique_ptr<Attempt> account(const Question &question, Done done) override;
    bool is_remote() const override { return true; }

  private:
    Outcome read_login(const Question &question, const ServerClientPtr &server, const radius::Answer &answer);
    Outcome accept(const Question &question, const ServerClientPtr &server, const radius::Answer &answer);
    Outcome rights_of(const Question &question) const;

    const GroupContext context_;
    Logins &logins_;
};

// The next request of a login belongs to the server that has asked.
Outcome challenge(const ServerClientPtr &server, const radius::Answer &answer) {
    auto dialogue = std::make_shared<RadiusDialogue>();
    dialogue->server = server;
    dialogue->challenge = answer;
    const bool echo = answer.may_echo();
    std::string text = text_for_user(answer.text());
    // A client that does not know whether it may show what the user types shows no password.
    Outcome outcome =
        Outcome::challenge(echo ? Prompt::kData : Prompt::kPassword,
                           text.empty() ? "Response: " : std::move(text), echo, std::move(dialogue));
    outcome.reason = "Access-Challenge";
    return outcome;
}

Outcome RadiusBackend::accept(const Question &question, const ServerClientPtr &server,
                              const radius::Answer &answer) {
    RadiusRights rights = radius_rights(answer, server->vendor_map(), question.service);
    if (rights.refusal.empty() && is_enable(question) &&
        rights.privilege.value_or(0) < wanted_privilege(question)) {
        rights.refusal = "the server gives the privilege level " +
                         std::to_string(rights.privilege.value_or(0)) + ", and " +
                         std::to_string(wanted_privilege(question)) + " was asked for";
    }
    if (!rights.refusal.empty()) {
        return Outcome::fail("Access-Accept, taken for a reject: " + rights.refusal);
    }
    if (*question.client_has_gone) {
        return Outcome::pass("Access-Accept", rights.privilege);
    }
    logins_.passed({question.login, question.user, question.terminal, question.remote, rights.privilege,
                    rights.attributes, answer.classes()});
    Outcome outcome = Outcome::pass("Access-Accept", rights.privilege);
    outcome.attributes = std::move(rights.attributes);
    return outcome;
}

Outcome RadiusBackend::read_login(const Question &question, const ServerClientPtr &server,
                                  const radius::Answer &answer) {
    Outcome outcome;
    switch (answer.code()) {
        case radius::Code::kAccessAccept:
            outcome = accept(question, server, answer);
            break;
        case radius::Code::kAccessChallenge:
            return challenge(server, answer);
        default:
            outcome = Outcome::fail("Access-Reject");
            break;
    }
    outcome.text = text_for_user(answer.text());
    if (outcome.kind == Outcome::Kind::kFail && !outcome.text.empty()) {
        outcome.reason += ": " + text_for_log(answer.text());
    }
    return outcome;
}

std::unique_ptr<Attempt> RadiusBackend::authenticate(const Question &question,
                                                     std::shared_ptr<Dialogue> dialogue, Done done) {
    const auto soon = [&](Outcome outcome) {
        return answer_soon(context_.loop, std::move(outcome), std::move(done));
    };
    if (is_password_change(question)) {
        return soon(refuse_change(
            "RADIUS servers change no passwords. Change it where your organization keeps your account."));
    }
    if (auto outcome = before_password(question, true)) {
        // A challenge whose answer is missing is asked again with the same state.
        outcome->dialogue = std::move(dialogue);
        return soon(*std::move(outcome));
    }
    std::string error;
    auto request = radius_login(question, error);
    if (!request) {
        return soon(Outcome::fail(error));
    }
    const auto state = std::static_pointer_cast<RadiusDialogue>(dialogue);
    const bool goes_on = state != nullptr && state->server != nullptr;
    std::vector<ServerClientPtr> servers;
    Walk::Options options;
    if (goes_on) {
        request->set_challenge(state->challenge);
        servers = {state->server};
        options.only_the_first = true;
        options.at_end = [](const std::string &why) {
            return begin_again(why, std::make_shared<RadiusDialogue>());
        };
    } else {
        servers = context_.clients.find(*question.method.group);
    }
    const auto read = [this, question](const ServerClientPtr &server, const radius::Answer &answer) {
        return read_login(question, server, answer);
    };
    return std::make_unique<Walk>(
        context_, question, std::move(servers), std::move(options),
        [request = *std::move(request), read](const ServerClientPtr &server, net::Time until,
                                              std::function<void(ServerResult)> take) {
            return std::make_unique<RadiusAsk>(
                server, Use::kRights, request, until,
                [server, read](const radius::Answer &answer) { return read(server, answer); },
                std::move(take));
        },
        std::move(done));
}

// What the accept of the login on this connection gave. RADIUS has no authorization of its own.
Outcome RadiusBackend::rights_of(const Question &question) const {
    if (question.command) {
        return Outcome::unavailable("RADIUS cannot authorize commands; name TACACS+ or local for them");
    }
    const Login *login = question.authenticated_here ? logins_.find(question.login, question.user) : nullptr;
    if (login == nullptr) {
        return Outcome::unavailable(
            "RADIUS gives rights with the login only, and no RADIUS server has authenticated the user on "
            "this "
            "connection");
    }
    Outcome outcome = Outcome::pass("what the Access-Accept gave", login->privilege);
    outcome.attributes = login->attributes;
    return outcome;
}

std::unique_ptr<Attempt> RadiusBackend::account(const Question &question, Done done) {
    const auto record = record_of(question, logins_, context_.loop.now(), std::time(nullptr));
    if (!record) {
        return answer_soon(context_.loop, Outcome::fail("a record of this kind is not known"),
                           std::move(done));
    }
    return send_radius_record(context_, question, *question.method.group, *record, 0, std::move(done));
}

}  // namespace

std::shared_ptr<Backend> make_radius_backend(GroupContext context, Logins &logins) {
    return std::make_shared<RadiusBackend>(context, logins);
}

std::unique_ptr<Attempt> send_radius_record(const GroupContext &context, const Question &question,
                                            const Group &group, const AccountingRecord &record,
                                            std::uint32_t delay, Backend::Done done) {
    std::string error;
    auto request = radius_record(record, delay, error);
    if (!request) {
        return answer_soon(context.loop, Outcome::fail(error), std::move(done));
    }
    Walk::Options options;
    options.use = Use::kAccounting;
    const auto read = [](const radius::Answer &) { return Outcome::pass("Accounting-Response"); };
    return std::make_unique<Walk>(
        context, question, context.clients.find(group), std::move(options),
        [request = *std::move(request), read](const ServerClientPtr &server, net::Time until,
                                              std::function<void(ServerResult)> take) {
            return std::make_unique<RadiusAsk>(server, Use::kAccounting, request, until, read,
                                               std::move(take));
        },
        std::move(done));
}

}  // namespace service
