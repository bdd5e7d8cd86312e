// SPDX-License-Identifier: Apache-2.0

#include "backends/local.hpp"

#include <memory>
#include <utility>

#include "backends/password.hpp"
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

Outcome check_user(const std::string &name, const Secret &password, const Known &known) {
    if (known.user) {
        return check_hash(password, known.user->hash, known.decoy, known.user->privilege);
    }
    if (known.ask_system) {
        if (const auto account = find_system_account(name)) {
            Outcome outcome = check_hash(password, account->hash, known.decoy, account->privilege);
            const bool refused = outcome.kind == Outcome::Kind::kPass && !account->refusal.empty();
            return refused ? Outcome::fail(account->refusal) : outcome;
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
        if (question.snapshot->users == nullptr && !question.snapshot->settings->system_accounts) {
            return answer_soon(loop_, Outcome::unavailable(kNoUsers), std::move(done));
        }
        if (auto outcome = before_password(question, true)) {
            return answer_soon(loop_, *std::move(outcome), std::move(done));
        }
        return check_on_a_thread(
            loop_, workers_,
            [name = question.user, password = *question.password, known = known_user(question)] {
                return check_user(name, password, known);
            },
            std::move(done));
    }

    std::unique_ptr<Attempt> authorize(const Question &question, Done done) override {
        const Known known = known_user(question);
        if (known.ask_system) {
            const auto look_up = [name = question.user, has_command = question.command.has_value()] {
                const auto account = find_system_account(name);
                if (!account) {
                    return Outcome::fail("the user is not known");
                }
                return !has_command || account->privilege == kHighestPrivilege
                           ? Outcome::pass("an account of this host", account->privilege)
                           : Outcome::fail("accounts of this host other than root may run no command");
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
