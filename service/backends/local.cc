// SPDX-License-Identifier: Apache-2.0

#include "backends/local.hpp"

#include <memory>
#include <utility>

#include "backends/password.hpp"
#include "backends/password_change.hpp"
#include "backends/password_check.hpp"
#include "backends/system_accounts.hpp"

namespace service {

namespace {

constexpr char kNoUsers[] = "there is no usable file of local users";

// What a password is checked against, taken from the snapshot before a thread works with it.
struct Known {
    std::optional<LocalUser> user;
    std::string decoy;
    bool ask_system = false;
};

Known known_user(const Question &question) {
    Known known;
    const Snapshot &snapshot = *question.snapshot;
    if (snapshot.users != nullptr) {
        known.decoy = snapshot.users->setting;
        if (const LocalUser *user = snapshot.users->find(question.user)) {
            known.user = *user;
        }
    }
    known.ask_system = snapshot.settings->system_accounts && !known.user;
    return known;
}

bool is_locked_hash(const std::string &hash) {
    return hash.empty() || hash.front() == '!' || hash.front() == '*';
}

// Checks one password; every way takes the time of one hash.
Outcome check_hash(const Secret &password, const std::string &hash, const std::string &decoy,
                   std::uint32_t privilege) {
    if (is_locked_hash(hash)) {
        spend_a_check(password, decoy);
        return Outcome::fail("the password is locked");
    }
    return password_fits(password, hash) ? Outcome::pass("the password is right", privilege)
                                         : Outcome::fail("the password is wrong");
}

// What the dates of an account of the host allow a user who may log in otherwise. A program that
// logs users in has the password changed before the session; nothing else can be done meanwhile.
Outcome by_state(AccountState state, bool is_login, Outcome outcome) {
    if (outcome.kind != Outcome::Kind::kPass || state == AccountState::kValid) {
        return outcome;
    }
    if (state == AccountState::kAccountExpired) {
        Outcome refusal = Outcome::fail("the account has expired");
        refusal.note = Note::kAccountExpired;
        refusal.text = "Your account has expired. Ask the administrator.";
        return refusal;
    }
    if (!is_login) {
        Outcome refusal = Outcome::fail("the password has expired");
        refusal.text = "Your password has expired. Change it with passwd.";
        return refusal;
    }
    outcome.reason += ", but the password has expired";
    outcome.note = Note::kPasswordExpired;
    outcome.text = "Your password has expired. You have to change it now.";
    return outcome;
}

Outcome check_user(const std::string &name, const Secret &password, const Known &known, bool is_login) {
    if (known.user) {
        return check_hash(password, known.user->hash, known.decoy, known.user->privilege);
    }
    if (known.ask_system) {
        const auto [account, fault] = find_system_account(name);
        if (account) {
            return by_state(account->state, is_login,
                            check_hash(password, account->hash, known.decoy, account->privilege));
        }
        if (!fault.empty()) {
            spend_a_check(password, known.decoy);
            return Outcome::unavailable(fault);
        }
    }
    spend_a_check(password, known.decoy);
    return Outcome::fail("the user is not known");
}

// ---- local

class LocalBackend : public Backend {
  public:
    LocalBackend(net::Loop &loop, Workers &workers) : loop_(loop), workers_(workers) {}

    std::unique_ptr<Attempt> authenticate(const Question &question, std::shared_ptr<Dialogue>,
                                          Done done) override {
        if (is_password_change(question)) {
            return answer_soon(loop_, change_password(question), std::move(done));
        }
        if (question.snapshot->users == nullptr && !question.snapshot->settings->system_accounts) {
            return answer_soon(loop_, Outcome::unavailable(kNoUsers), std::move(done));
        }
        if (auto outcome = before_password(question, true)) {
            return answer_soon(loop_, *std::move(outcome), std::move(done));
        }
        return check_on_a_thread(
            loop_, workers_,
            [name = question.user, password = *question.password, known = known_user(question),
             is_login = question.service == AAA_SVC_LOGIN] {
                return check_user(name, password, known, is_login);
            },
            std::move(done));
    }

    std::unique_ptr<Attempt> authorize(const Question &question, Done done) override {
        const Known known = known_user(question);
        if (known.ask_system) {
            const auto look_up = [name = question.user, has_command = question.command.has_value()] {
                const auto [account, fault] = find_system_account(name);
                if (!fault.empty()) {
                    return Outcome::unavailable(fault);  // the account may have expired
                }
                if (!account) {
                    return Outcome::fail("the user is not known");
                }
                const bool may = !has_command || account->privilege == kHighestPrivilege;
                return by_state(
                    account->state, !has_command,
                    may ? Outcome::pass("an account of this host", account->privilege)
                        : Outcome::fail("accounts of this host other than root may run no command"));
            };
            return check_on_a_thread(loop_, workers_, look_up, std::move(done));
        }
        return answer_soon(loop_, authorize_now(question, known), std::move(done));
    }

    std::unique_ptr<Attempt> account(const Question &, Done done) override {
        return answer_soon(loop_, Outcome::unavailable("local users keep no accounting records; use syslog"),
                           std::move(done));
    }

    bool is_remote() const override { return false; }

  private:
    // The file of local users is the administrator's, with his comments and his order: the service
    // reads it, and may not be able to write it.
    static Outcome change_password(const Question &question) {
        if (known_user(question).ask_system) {
            Outcome outcome = Outcome::fail("accounts of this host change their passwords with passwd");
            outcome.note = Note::kChangedElsewhere;
            outcome.text = "The password of an account of this host is changed with passwd.";
            return outcome;
        }
        return refuse_change(
            "Passwords of local users are changed by the administrator: \"openssl passwd -6\" makes a hash "
            "for " +
            question.snapshot->settings->users + ".");
    }

    static Outcome authorize_now(const Question &question, const Known &known) {
        if (question.snapshot->users == nullptr) {
            return Outcome::unavailable(kNoUsers);
        }
        if (!known.user) {
            return Outcome::fail("the user is not known");
        }
        if (question.command && !known.user->may_run(*question.command)) {
            return Outcome::fail("no command pattern of the user fits");
        }
        return Outcome::pass(question.command ? "a command pattern of the user fits" : "the user is known",
                             known.user->privilege);
    }

    net::Loop &loop_;
    Workers &workers_;
};

// ---- line and enable

class SecretBackend : public Backend {
  public:
    using Choose = std::function<const LocalUser *(const Question &)>;

    SecretBackend(net::Loop &loop, Workers &workers, const char *name, Choose choose)
        : loop_(loop), workers_(workers), name_(name), choose_(std::move(choose)) {}

    std::unique_ptr<Attempt> authenticate(const Question &question, std::shared_ptr<Dialogue>,
                                          Done done) override {
        if (is_password_change(question)) {
            return answer_soon(loop_,
                               refuse_change("The " + name_ + " is changed by the administrator, in " +
                                             question.snapshot->settings->users + "."),
                               std::move(done));
        }
        const Users *users = question.snapshot->users.get();
        const LocalUser *secret = users != nullptr ? choose_(question) : nullptr;
        if (secret == nullptr) {
            return answer_soon(loop_, Outcome::unavailable("the file of local users has no such " + name_),
                               std::move(done));
        }
        if (auto outcome = before_password(question, false)) {
            return answer_soon(loop_, *std::move(outcome), std::move(done));
        }
        return check_on_a_thread(
            loop_, workers_,
            [password = *question.password, secret = *secret, decoy = users->setting] {
                return check_hash(password, secret.hash, decoy, secret.privilege);
            },
            std::move(done));
    }

    std::unique_ptr<Attempt> authorize(const Question &, Done done) override {
        return answer_soon(loop_, Outcome::unavailable(name_ + " authorizes nothing"), std::move(done));
    }

    std::unique_ptr<Attempt> account(const Question &, Done done) override {
        return answer_soon(loop_, Outcome::unavailable(name_ + " keeps no accounting records"),
                           std::move(done));
    }

    bool is_remote() const override { return false; }

  private:
    net::Loop &loop_;
    Workers &workers_;
    std::string name_;
    Choose choose_;
};

const LocalUser *line_secret(const Question &question) {
    const auto &line = question.snapshot->users->line;
    return line ? &*line : nullptr;
}

const LocalUser *enable_secret(const Question &question) {
    const auto &secrets = question.snapshot->users->enable;
    const auto found = secrets.find(question.privilege.value_or(kHighestPrivilege));
    return found != secrets.end() ? &found->second : nullptr;
}

}  // namespace

std::shared_ptr<Backend> make_local_backend(net::Loop &loop, Workers &workers) {
    return std::make_shared<LocalBackend>(loop, workers);
}

std::shared_ptr<Backend> make_line_backend(net::Loop &loop, Workers &workers) {
    return std::make_shared<SecretBackend>(loop, workers, "secret for $line", line_secret);
}

std::shared_ptr<Backend> make_enable_backend(net::Loop &loop, Workers &workers) {
    return std::make_shared<SecretBackend>(loop, workers, "secret for $enable", enable_secret);
}

void add_local_backends(Backends &backends, net::Loop &loop, Workers &workers) {
    backends.add(AAA_METHOD_LOCAL, make_local_backend(loop, workers));
    backends.add(AAA_METHOD_LINE, make_line_backend(loop, workers));
    backends.add(AAA_METHOD_ENABLE, make_enable_backend(loop, workers));
    backends.add(AAA_METHOD_NONE, make_none_backend(loop));
    backends.add(AAA_METHOD_IF_AUTHEN, make_if_authenticated_backend(loop));
    backends.add(AAA_METHOD_SYSLOG, make_syslog_backend(loop));
}

}  // namespace service
