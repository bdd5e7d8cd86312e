// SPDX-License-Identifier: Apache-2.0

#include "groups/tacacs_backend.hpp"

#include <ctime>
#include <utility>

#include "backends/password_check.hpp"
#include "groups/request_kind.hpp"
#include "groups/server_text.hpp"
#include "groups/tacacs_forms.hpp"
#include "groups/tacacs_login.hpp"

namespace service {

namespace {

// A question that is not a login. Ends with it.
class TacacsAsk : public Attempt {
  public:
    TacacsAsk(ServerClientPtr server, std::function<void(ServerResult)> done)
        : server_(std::move(server)), done_(std::move(done)) {}
    ~TacacsAsk() override { server_->tacacs().cancel(id_); }
    TacacsAsk(const TacacsAsk &) = delete;
    TacacsAsk &operator=(const TacacsAsk &) = delete;

    void authorize(const Question &question, const std::vector<std::string> &arguments, net::Time until) {
        id_ = server_->tacacs().authorize(tacacs_subject(question), arguments, until,
                                          [this, arguments](const tacacs::AuthorizationOutcome &outcome) {
                                              take(outcome, [&] {
                                                  Outcome rights = tacacs_rights(outcome, arguments);
                                                  rights.text = text_for_user(outcome.message);
                                                  return rights;
                                              });
                                          });
    }

    void account(const AccountingRecord &record, net::Time until) {
        using Kind = AccountingRecord::Kind;
        const tacacs::Record kind = record.kind == Kind::kStart  ? tacacs::Record::kStart
                                    : record.kind == Kind::kStop ? tacacs::Record::kStop
                                                                 : tacacs::Record::kWatchdog;
        id_ = server_->tacacs().account(kind, tacacs_subject(record), tacacs_record(record), until,
                                        [this](const tacacs::AccountingOutcome &outcome) {
                                            take(outcome, [] { return Outcome::pass("recorded"); });
                                        });
    }

  private:
    template <typename Read>
    void take(const tacacs::Outcome &outcome, Read read) {
        ServerResult result;
        if (outcome.result == tacacs::Result::kAnswer) {
            result.kind = ServerResult::Kind::kAnswer;
            result.outcome = read();
            result.tries = outcome.tries;
            result.time = outcome.round_trip;
        } else {
            result = tacacs_failure(outcome);
        }
        const auto done = std::move(done_);
        done(std::move(result));  // destroys this
    }

    ServerClientPtr server_;
    std::function<void(ServerResult)> done_;
    tacacs::Client::Id id_ = 0;
};

class TacacsBackend : public Backend {
  public:
    TacacsBackend(GroupContext context, Logins &logins) : context_(context), logins_(logins) {}

    std::unique_ptr<Attempt> authenticate(const Question &question, std::shared_ptr<Dialogue> dialogue,
                                          Done done) override;
    std::unique_ptr<Attempt> authorize(const Question &question, Done done) override;
    std::unique_ptr<Attempt> account(const Question &question, Done done) override;
    bool is_remote() const override { return true; }

  private:
    std::unique_ptr<Attempt> go_on(const Question &question, const std::shared_ptr<TacacsDialogue> &dialogue,
                                   Done done);

    const GroupContext context_;
    Logins &logins_;
};

std::unique_ptr<Attempt> TacacsBackend::authenticate(const Question &question,
                                                     std::shared_ptr<Dialogue> dialogue, Done done) {
    if (!has_plain_password(question)) {
        return answer_soon(context_.loop, *before_password(question, true), std::move(done));
    }
    if (const std::string misfit = tacacs_login_misfit(question); !misfit.empty()) {
        return answer_soon(context_.loop, Outcome::fail(misfit), std::move(done));
    }
    const auto state = std::static_pointer_cast<TacacsDialogue>(dialogue);
    if (state != nullptr && state->server != nullptr) {
        return go_on(question, state, std::move(done));
    }
    return std::make_unique<Walk>(
        context_, question, context_.clients.find(*question.method.group), Walk::Options{},
        [question](const ServerClientPtr &server, net::Time until, std::function<void(ServerResult)> take) {
            return std::make_unique<TacacsLogin>(server, question, until, std::move(take));
        },
        std::move(done));
}

std::unique_ptr<Attempt> TacacsBackend::go_on(const Question &question,
                                              const std::shared_ptr<TacacsDialogue> &dialogue, Done done) {
    const bool is_empty = dialogue->prompt == Prompt::kUser ? question.user.empty() : !question.password;
    if (is_empty) {
        Outcome again = dialogue->asked;
        again.dialogue = dialogue;
        return answer_soon(context_.loop, std::move(again), std::move(done));
    }
    Walk::Options options;
    options.only_the_first = true;
    options.at_end = [changes = dialogue->changes_password](const std::string &why) {
        return changes ? Outcome::error(why) : begin_again(why, std::make_shared<TacacsDialogue>());
    };
    return std::make_unique<Walk>(
        context_, question, std::vector<ServerClientPtr>{dialogue->server}, std::move(options),
        [dialogue, question](const ServerClientPtr &, net::Time until,
                             std::function<void(ServerResult)> take) {
            return std::make_unique<TacacsLogin>(dialogue, question, until, std::move(take));
        },
        std::move(done));
}

std::unique_ptr<Attempt> TacacsBackend::authorize(const Question &question, Done done) {
    std::vector<std::string> arguments = tacacs_rights_asked(question);
    if (const std::string misfit = tacacs_misfit(tacacs_subject(question), arguments); !misfit.empty()) {
        Outcome refusal = Outcome::fail(misfit);
        refusal.text = "Too long for the server: " + misfit;
        return answer_soon(context_.loop, std::move(refusal), std::move(done));
    }
    return std::make_unique<Walk>(
        context_, question, context_.clients.find(*question.method.group), Walk::Options{},
        [question, arguments = std::move(arguments)](const ServerClientPtr &server, net::Time until,
                                                     std::function<void(ServerResult)> take) {
            auto ask = std::make_unique<TacacsAsk>(server, std::move(take));
            ask->authorize(question, arguments, until);
            return ask;
        },
        std::move(done));
}

std::unique_ptr<Attempt> TacacsBackend::account(const Question &question, Done done) {
    const auto record = record_of(question, logins_, context_.loop.now(), std::time(nullptr));
    if (!record) {
        return answer_soon(context_.loop, Outcome::fail("a record of this kind is not known"),
                           std::move(done));
    }
    return send_tacacs_record(context_, question, *question.method.group, *record, std::move(done));
}

}  // namespace

std::shared_ptr<Backend> make_tacacs_backend(GroupContext context, Logins &logins) {
    return std::make_shared<TacacsBackend>(context, logins);
}

std::unique_ptr<Attempt> send_tacacs_record(const GroupContext &context, const Question &question,
                                            const Group &group, const AccountingRecord &record,
                                            Backend::Done done) {
    if (const std::string misfit = tacacs_misfit(tacacs_subject(record), tacacs_record(record));
        !misfit.empty()) {
        return answer_soon(context.loop, Outcome::fail(misfit), std::move(done));
    }
    Walk::Options options;
    options.use = Use::kAccounting;
    return std::make_unique<Walk>(
        context, question, context.clients.find(group), std::move(options),
        [record](const ServerClientPtr &server, net::Time until, std::function<void(ServerResult)> take) {
            auto ask = std::make_unique<TacacsAsk>(server, std::move(take));
            ask->account(record, until);
            return ask;
        },
        std::move(done));
}

}  // namespace service
