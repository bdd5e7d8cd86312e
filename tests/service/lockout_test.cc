// SPDX-License-Identifier: Apache-2.0
//
// Failed logins, with times that the tests choose.

#include "backends/lockout.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

using service::Lockout;
using service::LockoutSettings;
using service::SipHash;
using service::source_of_address;
using service::source_of_terminal;

constexpr Lockout::Time kSecond = 1'000'000'000;

LockoutSettings settings() {
    LockoutSettings made;
    made.failures = 3;
    made.source_failures = 20;
    made.window_s = 60;
    made.time_s = 100;
    return made;
}

class LockoutTest : public testing::Test {
  protected:
    bool fail(const std::string &user, const std::string &source, Lockout::Time at = 0) {
        return table_.failed(user, source, at, settings_);
    }
    bool locked(const std::string &user, const std::string &source, Lockout::Time at = 0) const {
        return table_.is_locked(user, source, at, settings_);
    }
    void lock(const std::string &user, const std::string &source) {
        for (unsigned i = 0; i < settings_.failures; ++i) {
            fail(user, source);
        }
        ASSERT_TRUE(locked(user, source));
    }

    LockoutSettings settings_ = settings();
    Lockout table_{SipHash(SipHash::Key{1, 2})};
};

TEST_F(LockoutTest, LocksAfterRepeatedFailures) {
    EXPECT_FALSE(fail("alice", "192.0.2.1"));
    EXPECT_FALSE(fail("alice", "192.0.2.1"));
    EXPECT_FALSE(locked("alice", "192.0.2.1"));
    EXPECT_TRUE(fail("alice", "192.0.2.1")) << "the failure that locks is told";
    EXPECT_TRUE(locked("alice", "192.0.2.1"));
    EXPECT_FALSE(fail("alice", "192.0.2.1")) << "once";
    EXPECT_TRUE(locked("alice", "192.0.2.1", 100 * kSecond - 1));
    EXPECT_FALSE(locked("alice", "192.0.2.1", 100 * kSecond)) << "no one is locked out for good";
    EXPECT_FALSE(fail("alice", "192.0.2.1", 100 * kSecond)) << "and the count begins again";
}

TEST_F(LockoutTest, LocksOnlyThisUserFromThisSource) {
    lock("alice", "192.0.2.1");
    EXPECT_FALSE(locked("alice", "192.0.2.2")) << "an attacker elsewhere locks no one out";
    EXPECT_FALSE(locked("bob", "192.0.2.1"));
    EXPECT_FALSE(locked("alic", "e192.0.2.1")) << "the two texts are not joined";
}

TEST_F(LockoutTest, ForgetsAfterTheWindowAndAfterAPass) {
    fail("alice", "192.0.2.1", 0);
    fail("alice", "192.0.2.1", 0);
    EXPECT_FALSE(fail("alice", "192.0.2.1", 60 * kSecond)) << "the first in a new window";
    fail("alice", "192.0.2.1", 60 * kSecond);
    table_.passed("alice", "192.0.2.1");
    EXPECT_FALSE(fail("alice", "192.0.2.1", 61 * kSecond));
    EXPECT_FALSE(locked("alice", "192.0.2.1", 61 * kSecond));
}

TEST_F(LockoutTest, CountsLockOuts) {
    lock("alice", "192.0.2.1");
    lock("bob", "192.0.2.2");
    EXPECT_EQ(table_.begun(), 2U);
    EXPECT_EQ(table_.locked(0), 2U);
    EXPECT_EQ(table_.locked(200 * kSecond), 0U) << "their time is over";
    EXPECT_EQ(table_.begun(), 2U);
}

TEST_F(LockoutTest, LocksASourceThatTriesManyUsers) {
    for (int i = 0; i < 19; ++i) {
        EXPECT_FALSE(fail("user" + std::to_string(i), "192.0.2.1"));
    }
    EXPECT_FALSE(locked("alice", "192.0.2.1"));
    EXPECT_TRUE(fail("user19", "192.0.2.1"));
    EXPECT_TRUE(locked("alice", "192.0.2.1"));
    EXPECT_FALSE(locked("alice", "192.0.2.2"));
    // An account of one's own does not help.
    table_.passed("mallory", "192.0.2.1");
    EXPECT_TRUE(locked("alice", "192.0.2.1"));
}

TEST_F(LockoutTest, AFloodOfUserNamesDisplacesNoOneElsesEntries) {
    const std::string sources[] = {"192.0.2.1", "192.0.2.2", "198.51.100.7", "2001:db8::/64"};
    for (const std::string &source : sources) {
        lock("alice", source);
    }
    for (int i = 0; i < 20000; ++i) {
        fail("user" + std::to_string(i), "203.0.113.9");
    }
    for (const std::string &source : sources) {
        EXPECT_TRUE(locked("alice", source)) << source;
    }
    EXPECT_TRUE(locked("anyone", "203.0.113.9"));
    EXPECT_FALSE(locked("anyone", "203.0.113.10"));
}

// One network of attackers cannot make the table forget either: it would have to fill the set of
// a source whose place it does not know.
TEST_F(LockoutTest, ManySourcesDoNotUnlockTheLocked) {
    settings_.source_failures = 0;
    lock("alice", "192.0.2.1");
    for (int i = 0; i < 50000; ++i) {
        fail("user", "10." + std::to_string(i / 65536) + "." + std::to_string(i / 256 % 256) + "." +
                         std::to_string(i % 256));
    }
    EXPECT_TRUE(locked("alice", "192.0.2.1"));
}

TEST_F(LockoutTest, TheLockedSourceIsItsOwnVictim) {
    settings_.source_failures = 0;
    for (int i = 0; i < 8; ++i) {
        lock("user" + std::to_string(i), "192.0.2.1");
    }
    lock("ninth", "192.0.2.1");
    int still = 0;
    for (int i = 0; i < 8; ++i) {
        still += locked("user" + std::to_string(i), "192.0.2.1") ? 1 : 0;
    }
    EXPECT_EQ(still, 7) << "a ninth user displaces one entry of the same source";
}

TEST_F(LockoutTest, ExemptUsersAndTheConsoleAreNeverLocked) {
    settings_.exempt = {"root"};
    for (int i = 0; i < 10; ++i) {
        EXPECT_FALSE(fail("root", "192.0.2.1"));
        EXPECT_FALSE(fail("alice", ""));
    }
    EXPECT_FALSE(locked("root", "192.0.2.1"));
    EXPECT_FALSE(locked("alice", ""));
    settings_.console_exempt = false;
    lock("alice", "");
    settings_.failures = 0;
    EXPECT_FALSE(locked("alice", "")) << "switched off";
}

TEST(LockoutSource, ATerminalThatEveryUserCanHaveIsOne) {
    for (const char *own : {"console", "con0", "tty1", "/dev/tty1", "ttyS0", "hvc0", ":0"}) {
        EXPECT_EQ(source_of_terminal(own), "") << own;
    }
    EXPECT_EQ(source_of_terminal("pts/3"), "terminal pts/3");
    EXPECT_EQ(source_of_terminal("/dev/pts/3"), "terminal pts/3");
    EXPECT_EQ(source_of_terminal("ssh"), "terminal ssh");
    EXPECT_EQ(source_of_terminal("vty0"), "terminal vty0");
    EXPECT_EQ(source_of_terminal("conference"), "terminal conference");
    EXPECT_EQ(source_of_terminal(""), "no terminal");
}

TEST(LockoutSource, AnIPv6AddressIsItsNetwork) {
    EXPECT_EQ(source_of_address("2001:db8:1:2:3:4:5:6"), "2001:db8:1:2::/64");
    EXPECT_EQ(source_of_address("2001:db8:1:2::"), "2001:db8:1:2::/64");
    EXPECT_EQ(source_of_address("fe80::1%eth0"), "fe80::/64");
    EXPECT_EQ(source_of_address("::ffff:192.0.2.1"), "192.0.2.1");
    EXPECT_EQ(source_of_address("192.0.2.1"), "192.0.2.1");
    EXPECT_EQ(source_of_address("host.example"), "host.example");
    EXPECT_EQ(source_of_address(""), "");
}

// The test vectors of the authors of SipHash-2-4.
TEST(SipHash, GivesThePublishedValues) {
    const SipHash hash({0x0706050403020100, 0x0f0e0d0c0b0a0908});
    std::string text;
    const std::uint64_t expected[] = {0x726fdb47dd0e0e31, 0x74f839c593dc67fd, 0x0d6c8009d9a94f5a,
                                      0x85676696d7fb7e2d, 0xcf2794e0277187b7, 0x18765564cd99a68d,
                                      0xcbc9466e58fee3ce, 0xab0200f58b01d137, 0x93f5f5799a932462};
    for (std::size_t i = 0; i < std::size(expected); ++i) {
        EXPECT_EQ(hash(text), expected[i]) << i;
        text += static_cast<char>(i);
    }
    EXPECT_NE(SipHash()("text"), SipHash()("text")) << "keys are random";
}

}  // namespace
