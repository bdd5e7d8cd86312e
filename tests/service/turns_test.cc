// SPDX-License-Identifier: Apache-2.0
//
// Which logins are worked on, which wait, and which are turned away.

#include "decision/turns.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace service;

class TurnsTest : public testing::Test {
  protected:
    TurnsTest() {
        settings_->lockout.failures = 5;
        settings_->lockout.source_failures = 50;
        settings_->logins_at_once = 8;
        settings_->clients_max = 512;
    }

    struct Login {
        std::unique_ptr<Turn> turn;
        bool came = false;
        bool refused = false;
    };

    // Logins that live until the test ends or destroys them. The source is an address, or a terminal here.
    Login &login(const std::string &user, const std::string &source = "192.0.2.1") {
        Question question;
        question.user = user;
        question.source = source;
        question.remote = source.starts_with("tty") ? "" : source;
        auto snapshot = std::make_shared<Snapshot>();
        snapshot->settings = settings_;
        question.snapshot = snapshot;
        logins_.push_back(std::make_unique<Login>());
        Login &made = *logins_.back();
        made.turn = turns_.take(question, [&made](bool has_come) {
            EXPECT_FALSE(made.came || made.refused) << "told twice";
            (has_come ? made.came : made.refused) = true;
        });
        EXPECT_FALSE(made.came || made.refused) << "told before take() has returned";
        return made;
    }
    std::vector<Login *> logins(int count, const std::string &user, const std::string &source = "192.0.2.1") {
        std::vector<Login *> made;
        for (int i = 0; i < count; ++i) {
            made.push_back(&login(user, source));
        }
        return made;
    }
    std::size_t came() {
        loop_.run_once(0);
        std::size_t count = 0;
        for (const auto &login : logins_) {
            count += login->came ? 1 : 0;
        }
        return count;
    }
    void fail(const std::string &user, int times = 1, const std::string &source = "192.0.2.1") {
        for (int i = 0; i < times; ++i) {
            lockout_.failed(user, source, loop_.now(), settings_->lockout);
        }
    }

    net::Loop loop_;
    Lockout lockout_;
    Turns turns_{loop_, lockout_};
    std::shared_ptr<Settings> settings_ = std::make_shared<Settings>();
    std::vector<std::unique_ptr<Login>> logins_;
};

TEST_F(TurnsTest, AsManyAsFailuresAreLeft) {
    logins(20, "alice");
    EXPECT_EQ(came(), 5u);
    EXPECT_EQ(turns_.waiting(), 15u);
    EXPECT_EQ(turns_.delayed(), 15u);
    fail("alice");
    logins_[0]->turn.reset();
    EXPECT_EQ(came(), 5u) << "one has failed: four may be under way";
    lockout_.passed("alice", "192.0.2.1");
    logins_[1]->turn.reset();
    EXPECT_EQ(came(), 7u);
    fail("bob", 4);
    logins(2, "bob");
    EXPECT_EQ(came(), 8u) << "of another user, the last one before the lock-out";
}

TEST_F(TurnsTest, AllMayGoOnWhenTheUserIsLockedOut) {
    logins(20, "alice");
    came();
    fail("alice", 5);
    logins_[0]->turn.reset();
    EXPECT_EQ(came(), 20u) << "each is refused without a method";
    EXPECT_EQ(turns_.waiting(), 0u);
}

TEST_F(TurnsTest, NoMoreThanTheSettingsAllow) {
    settings_->lockout.failures = 0;
    logins(20, "alice", "a");
    EXPECT_EQ(came(), 8u);
    for (const char *source : {"b", "c", "d", "e", "f"}) {
        logins(8, "alice", source);
    }
    EXPECT_EQ(came(), 32u) << "four times as many of one user";
    settings_->logins_at_once = 0;
    logins(8, "bob", "a");
    EXPECT_EQ(came(), 20u + 40u + 8u) << "no limit: those who wait may go on, too";
}

TEST_F(TurnsTest, AFewUsersOfAnAddressLeavePlacesForOthers) {
    settings_->lockout.source_failures = 0;
    for (int i = 0; i < 30; ++i) {
        logins(4, "user" + std::to_string(i));
    }
    EXPECT_EQ(came(), 64u) << "eight times as many from one address";
    login("alice", "192.0.2.2");
    EXPECT_EQ(came(), 65u);
}

TEST_F(TurnsTest, FailuresThatAreLeftForTheAddressCountToo) {
    settings_->lockout.source_failures = 6;
    for (const char *user : {"ann", "ben", "cat"}) {
        logins(3, user);
    }
    EXPECT_EQ(came(), 6u);
}

TEST_F(TurnsTest, AUserFromElsewhereIsNotLast) {
    settings_->lockout.failures = 0;
    for (const char *source : {"a", "b", "c", "d"}) {
        logins(8, "alice", source);
    }
    logins(20, "alice", "a");
    EXPECT_EQ(came(), 32u);
    Login &honest = login("alice", "z");
    EXPECT_EQ(came(), 32u);
    EXPECT_FALSE(honest.came);
    logins_[0]->turn.reset();
    came();
    EXPECT_TRUE(honest.came) << "before the twenty that came earlier";
}

TEST_F(TurnsTest, ALoginThatIsGoneLeavesTheQueue) {
    const std::vector<Login *> made = logins(8, "alice");
    came();
    made[5]->turn.reset();
    made[6]->turn.reset();
    EXPECT_EQ(turns_.waiting(), 1u);
    made[0]->turn.reset();
    came();
    EXPECT_FALSE(made[5]->came || made[5]->refused);
    EXPECT_TRUE(made[7]->came);
    // Its turn has come, and it goes before it is told.
    Login &last = login("bob");
    last.turn.reset();
    came();
    EXPECT_FALSE(last.came || last.refused);
}

TEST_F(TurnsTest, ALoginThatWaitsForItsUserMayStillFail) {
    const std::vector<Login *> made = logins(5, "alice");
    came();
    for (Login *login : made) {
        login->turn->pause();
    }
    Login &next = login("alice");
    came();
    EXPECT_FALSE(next.came) << "five open logins may be five failures";
    made[0]->turn->resume();
    made[0]->turn.reset();
    came();
    EXPECT_TRUE(next.came);
}

TEST_F(TurnsTest, TerminalsHereDoNotWaitForAddresses) {
    settings_->lockout.failures = 0;
    for (int i = 0; i < 128; ++i) {
        login("alice", "192.0.2." + std::to_string(i));
    }
    came();
    Login &console = login("alice", "tty1");
    came();
    EXPECT_TRUE(console.came);
    // Nor the others for them.
    for (int i = 0; i < 200; ++i) {
        login("bob", "tty" + std::to_string(i));
    }
    Login &remote = login("bob");
    came();
    EXPECT_TRUE(remote.came);
}

TEST_F(TurnsTest, UsersAtAQuestionDoNotHoldUpTheirAddress) {
    settings_->lockout.source_failures = 6;
    for (const char *user : {"ann", "ben", "cat"}) {
        for (Login *made : logins(2, user)) {
            came();
            made->turn->pause();
        }
    }
    Login &other = login("alice");
    came();
    EXPECT_TRUE(other.came);
}

TEST_F(TurnsTest, ThoseWhoseClientHasGoneAreFailuresAndHoldNoPlace) {
    for (const char *source : {"a", "b", "c", "d", "e", "f", "g"}) {
        logins(5, "alice", source);
    }
    EXPECT_EQ(came(), 32u);
    for (const auto &made : logins_) {
        if (made->came) {
            made->turn->leave();
        }
    }
    Login &elsewhere = login("alice", "z");
    Login &again = login("alice", "a");
    came();
    EXPECT_TRUE(elsewhere.came);
    EXPECT_FALSE(again.came) << "five of the address may be failures";
}

TEST_F(TurnsTest, ALimitThatWasLoweredStillHolds) {
    fail("alice", 4);
    settings_->lockout.failures = 2;
    logins(10, "alice");
    EXPECT_EQ(came(), 1u);
}

TEST_F(TurnsTest, TheLongestQueueIsCutWhenTooManyWait) {
    logins(300, "alice", "a");
    came();
    std::size_t refused = 0;
    for (const auto &login : logins_) {
        refused += login->refused ? 1 : 0;
    }
    EXPECT_EQ(refused, 300u - 512 / 4);
    Login &honest = login("alice", "z");
    EXPECT_TRUE(honest.turn != nullptr);
    came();
    EXPECT_TRUE(honest.came) << "another one makes room";
    EXPECT_TRUE(logins_[127]->refused) << "the youngest of the longest queue";
    EXPECT_FALSE(logins_[126]->refused);
}

TEST_F(TurnsTest, NothingIsKeptOfLoginsThatAreOver) {
    for (int round = 0; round < 3; ++round) {
        logins(20, "alice");
        came();
        for (const auto &login : logins_) {
            login->turn.reset();
        }
        logins_.clear();
        EXPECT_EQ(turns_.waiting(), 0u);
    }
    logins(5, "alice");
    EXPECT_EQ(came(), 5u);
}

}  // namespace
