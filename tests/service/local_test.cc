// SPDX-License-Identifier: Apache-2.0
//
// The methods of this machine, and the threads that hash for them.

#include "backends/local.hpp"

#include <crypt.h>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <shadow.h>

#include <cerrno>
#include <condition_variable>
#include <mutex>

#include "backends/password.hpp"
#include "backends/system_accounts.hpp"

namespace {

using namespace service;
using Kind = Outcome::Kind;

// What the lookups below, which take the place of libc's, find instead of the host's entries.
std::optional<int> account_error, shadow_error;
std::string shadow_hash;

struct AccountReads {
    explicit AccountReads(int error) { account_error = error; }
    ~AccountReads() { account_error.reset(); }
};

// Without a hash there is no entry.
struct ShadowReads {
    explicit ShadowReads(int error, std::string hash = "") {
        shadow_error = error;
        shadow_hash = std::move(hash);
    }
    ~ShadowReads() { shadow_error.reset(); }
};

std::string hash_of(const std::string &password) {
    crypt_data data{};
    return crypt_r(password.c_str(), "$6$rounds=1000$localtest$", &data);
}

class LocalTest : public testing::Test {
  protected:
    LocalTest() {
        settings_->hash_threads = 2;
        users_->users["alice"] = {hash_of("wonderland"), 15, {}};
        users_->users["locked"] = {"!" + hash_of("wonderland"), 15, {}};
        users_->setting = hash_of("any");
        add_local_backends(backends_, loop_, workers_);
    }

    Question question(const std::string &user, std::optional<std::string> password) {
        auto snapshot = std::make_shared<Snapshot>();
        snapshot->settings = settings_;
        snapshot->users = users_;
        Question made;
        made.user = user;
        if (password) {
            made.password = Secret(*password);
        }
        made.snapshot = snapshot;
        made.method.number = AAA_METHOD_LOCAL;
        return made;
    }

    Outcome authenticate(const Question &asked) {
        std::optional<Outcome> outcome;
        Backend *backend = backends_.find(asked.method);
        const auto attempt =
            backend->authenticate(asked, nullptr, [&](Outcome given) { outcome = std::move(given); });
        EXPECT_FALSE(outcome) << "before the function returned";
        while (!outcome) {
            loop_.run_once(INT64_MAX);
        }
        return *outcome;
    }

    Outcome authorize(const Question &asked) {
        std::optional<Outcome> outcome;
        const auto attempt = backends_.find(asked.method)->authorize(asked, [&](Outcome given) {
            outcome = std::move(given);
        });
        while (!outcome) {
            loop_.run_once(INT64_MAX);
        }
        return *outcome;
    }

    net::Loop loop_;
    Workers workers_{loop_, 2, 4};
    Backends backends_;
    std::shared_ptr<Settings> settings_ = std::make_shared<Settings>();
    std::shared_ptr<Users> users_ = std::make_shared<Users>();
};

TEST_F(LocalTest, ChecksPasswords) {
    EXPECT_EQ(authenticate(question("alice", "wonderland")).kind, Kind::kPass);
    EXPECT_EQ(authenticate(question("alice", "wonderland")).privilege, 15u);
    EXPECT_EQ(authenticate(question("alice", "Wonderland")).kind, Kind::kFail);
    EXPECT_EQ(authenticate(question("alice", "")).kind, Kind::kFail);
    EXPECT_EQ(authenticate(question("mallory", "wonderland")).kind, Kind::kFail);
    EXPECT_EQ(authenticate(question("locked", "wonderland")).kind, Kind::kFail);
    EXPECT_EQ(authenticate(question("alice", std::nullopt)).kind, Kind::kChallenge);
    EXPECT_EQ(authenticate(question("", "wonderland")).prompt, Prompt::kUser);
}

TEST_F(LocalTest, AnEmptyPasswordFitsNoHash) {
    EXPECT_FALSE(password_fits(Secret(""), hash_of("")));
    EXPECT_TRUE(password_fits(Secret("x"), hash_of("x")));
    EXPECT_FALSE(password_fits(Secret("x"), "*"));
    EXPECT_FALSE(password_fits(Secret("x"), ""));
    EXPECT_FALSE(password_fits(Secret("x"), "x"));
    EXPECT_FALSE(password_fits(Secret(std::string(10000, 'x')), hash_of("x"))) << "too long for libcrypt";
    spend_a_check(Secret("x"), "");
}

TEST_F(LocalTest, WithoutAFileLocalCannotAnswer) {
    users_.reset();
    EXPECT_EQ(authenticate(question("alice", "wonderland")).kind, Kind::kUnavailable);
}

// What a method that overloads this machine answers must not be "ask the next one".
TEST_F(LocalTest, TooManyLoginsAreAnErrorAndNotTheNextMethod) {
    std::mutex mutex;
    std::condition_variable changed;
    bool go = false;
    int blocked = 0;
    const auto block = [&] {
        std::unique_lock lock(mutex);
        ++blocked;
        changed.notify_all();
        changed.wait(lock, [&] { return go; });
        --blocked;
        changed.notify_all();
    };
    EXPECT_TRUE(workers_.run(block, [] {}));
    EXPECT_TRUE(workers_.run(block, [] {}));
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return blocked == 2; });
    }
    int waiting = 0;
    while (workers_.run([] {}, [] {})) {
        ++waiting;
    }
    EXPECT_EQ(waiting, 4);
    EXPECT_EQ(authenticate(question("alice", "wonderland")).kind, Kind::kError);
    std::unique_lock lock(mutex);
    go = true;
    changed.notify_all();
    changed.wait(lock, [&] { return blocked == 0; });
}

TEST_F(LocalTest, ACancelledCheckCallsNoOne) {
    for (int i = 0; i < 3; ++i) {
        auto attempt = backends_.find(question("", {}).method)
                           ->authenticate(question("alice", "wonderland"), nullptr,
                                          [](const Outcome &) { ADD_FAILURE() << "it was cancelled"; });
        attempt.reset();
    }
    EXPECT_EQ(authenticate(question("alice", "wonderland")).kind, Kind::kPass) << "which comes after them";
}

TEST_F(LocalTest, TheDatesOfAnAccountAreReadAsItsHostReadsThem) {
    constexpr long kToday = 20000;
    const struct {
        AccountDates dates;
        AccountState state;
    } rows[] = {
        {{}, AccountState::kValid},
        {{.changed = kToday, .most = 99999}, AccountState::kValid},
        {{.changed = 0}, AccountState::kPasswordExpired},
        {{.changed = kToday - 90, .most = 90}, AccountState::kValid},
        {{.changed = kToday - 91, .most = 90}, AccountState::kPasswordExpired},
        {{.changed = kToday - 97, .most = 90, .inactive = 7}, AccountState::kPasswordExpired},
        {{.changed = kToday - 98, .most = 90, .inactive = 7}, AccountState::kAccountExpired},
        {{.changed = kToday + 5, .most = 0}, AccountState::kValid},  // the clock was wrong once
        {{.expires = kToday + 1}, AccountState::kValid},
        {{.expires = kToday}, AccountState::kAccountExpired},
        {{.changed = 0, .expires = kToday}, AccountState::kAccountExpired},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(state_on(kToday, row.dates), row.state) << row.dates.changed << ' ' << row.dates.most << ' '
                                                          << row.dates.inactive << ' ' << row.dates.expires;
    }
}

TEST_F(LocalTest, TheHostsAccountsCountOnlyWhenTheSettingsSaySo) {
    EXPECT_EQ(authenticate(question("root", "wonderland")).reason, "the user is not known");
    settings_->system_accounts = true;
    EXPECT_NE(authenticate(question("root", "wonderland")).reason, "the user is not known");
    EXPECT_EQ(authenticate(question("no-such-user-here", "wonderland")).reason, "the user is not known");
    EXPECT_EQ(authenticate(question("alice", "wonderland")).kind, Kind::kPass) << "the file comes first";
    EXPECT_FALSE(find_system_account("no-such-user-here").account);
    EXPECT_EQ(find_system_account("no-such-user-here").fault, "");
    EXPECT_FALSE(find_system_account("ro\not").account);
}

// A refusal would end the request: a server that is asked next could answer it.
TEST_F(LocalTest, AnAccountWhoseShadowEntryCannotBeReadIsLeftToTheNextMethod) {
    settings_->system_accounts = true;
    for (const int error : {EACCES, EIO, 0}) {
        const ShadowReads reads(error);
        Question asked = question("root", "wonderland");
        EXPECT_EQ(authenticate(asked).kind, Kind::kUnavailable) << error;
        EXPECT_THAT(authenticate(asked).reason,
                    testing::HasSubstr("shadow entry of the account cannot be read"));
        EXPECT_EQ(authorize(asked).kind, Kind::kUnavailable) << error;
        EXPECT_EQ(authenticate(question("no-such-user-here", "wonderland")).kind, Kind::kFail);
        EXPECT_EQ(authenticate(question("alice", "wonderland")).kind, Kind::kPass);
    }
}

TEST_F(LocalTest, AnAccountOfTheHostHasItsShadowEntrysPassword) {
    settings_->system_accounts = true;
    const ShadowReads reads(0, hash_of("toor"));
    EXPECT_EQ(find_system_account("root").account->privilege, 15u);
    EXPECT_EQ(authenticate(question("root", "toor")).kind, Kind::kPass);
    EXPECT_EQ(authenticate(question("root", "wonderland")).kind, Kind::kFail);
    EXPECT_EQ(authorize(question("root", std::nullopt)).kind, Kind::kPass);
}

TEST_F(LocalTest, NameServicesThatFailAreNoRefusal) {
    settings_->system_accounts = true;
    const AccountReads reads(EIO);
    EXPECT_EQ(authenticate(question("root", "wonderland")).kind, Kind::kUnavailable);
    EXPECT_EQ(authorize(question("root", std::nullopt)).kind, Kind::kUnavailable);
    account_error = ESRCH;
    EXPECT_EQ(authenticate(question("root", "wonderland")).reason, "the user is not known");
}

}  // namespace

int getpwnam_r(const char *name, passwd *entry, char *room, size_t size, passwd **found) {
    if (account_error) {
        *found = nullptr;
        return *account_error;
    }
    static const auto real = reinterpret_cast<decltype(&getpwnam_r)>(dlsym(RTLD_NEXT, "getpwnam_r"));
    return real(name, entry, room, size, found);
}

int getspnam_r(const char *name, spwd *entry, char *room, size_t size, spwd **found) {
    if (shadow_error) {
        *entry = {};
        entry->sp_pwdp = shadow_hash.data();
        entry->sp_lstchg = entry->sp_max = entry->sp_inact = entry->sp_expire = -1;
        *found = shadow_hash.empty() ? nullptr : entry;
        return *shadow_error;
    }
    static const auto real = reinterpret_cast<decltype(&getspnam_r)>(dlsym(RTLD_NEXT, "getspnam_r"));
    return real(name, entry, room, size, found);
}
