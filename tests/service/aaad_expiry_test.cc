// SPDX-License-Identifier: Apache-2.0
//
// Accounts of the host whose password or account has expired, through aaad. It sees files of
// accounts that the test has put over the host's.

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ctime>

#include "service/aaad.hpp"
#include "support/machine.hpp"

namespace {

using namespace aaad_test;

// In a mount namespace of the calling process.
bool mount_over(const std::string &from, const char *to) {
    return mount(from.c_str(), to, nullptr, MS_BIND, nullptr) == 0;
}

bool own_mounts() {
    return unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

bool may_mount() {
    const pid_t child = fork();
    if (child == 0) {
        _exit(own_mounts() && mount_over("/etc/passwd", "/etc/passwd") ? 0 : 1);
    }
    int status = 0;
    return waitpid(child, &status, 0) == child && status == 0;
}

class AaadExpiry : public testing::Test {
  protected:
    void SetUp() override {
        SKIP_WITHOUT_ROOT("only root can put files over those of the host");
        SKIP_WITHOUT("mounts", may_mount(), "the machine allows no mounts");
        const std::string today = std::to_string(time(nullptr) / 86400);
        const std::string hash = hash_of("wonderland");
        const std::string passwd = aaad_.dir().write(
            "passwd",
            "root:x:0:0::/root:/bin/sh\nfine:x:2001:2001::/:/bin/sh\nstale:x:2002:2002::/:/bin/sh\n"
            "gone:x:2003:2003::/:/bin/sh\nforced:x:2004:2004::/:/bin/sh\n",
            0644);
        const std::string shadow = aaad_.dir().write(
            "shadow", "root:" + hash + ":0:0:99999:7:::\nfine:" + hash + ":" + today +
                          ":0:90:7:::\nstale:" + hash + ":1000:0:90:7:::\ngone:" + hash + ":" + today +
                          ":0:90:7::1000:\nforced:" + hash + ":0:0:90:7:::\n");
        aaad_.before_exec([passwd, shadow] {
            if (!own_mounts() || !mount_over(passwd, "/etc/passwd") || !mount_over(shadow, "/etc/shadow")) {
                _exit(126);
            }
        });
        aaad_.settings("system-accounts yes\n");
        aaad_.users("");
        for (const char *list : {"authentication/login/default", "authentication/netconf/default",
                                 "authorization/exec/default", "authorization/commands/default"}) {
            aaad_.list(list, {AAA_METHOD_LOCAL});
        }
        aaad_.start();
    }

    static Ask as(const std::string &user) {
        Ask ask;
        ask.user = user;
        return ask;
    }

    Aaad aaad_;
};

TEST_F(AaadExpiry, AnExpiredPasswordLogsInAndHasToBeChanged) {
    EXPECT_EQ(aaad_.login(as("fine")).status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(aaad_.login(as("fine")).type, std::nullopt);
    for (const char *user : {"stale", "forced"}) {
        const Reply reply = aaad_.login(as(user));
        EXPECT_EQ(reply.status, uint32_t{AAA_STAT_PASS}) << user;
        EXPECT_EQ(reply.type, uint32_t{AAA_MT_ASCII_CHPASS}) << user;
        EXPECT_EQ(reply.text, "Your password has expired. You have to change it now.");
        Ask wrong = as(user);
        wrong.password = "wrong";
        const Reply refusal = aaad_.login(wrong);
        EXPECT_EQ(refusal.status, uint32_t{AAA_STAT_FAIL}) << user;
        EXPECT_EQ(refusal.type, std::nullopt) << "who does not know the password learns nothing";
        EXPECT_EQ(refusal.text, "Login incorrect");
    }
}

// A program for a service that is no login has no way to change a password.
TEST_F(AaadExpiry, AnExpiredPasswordIsGoodForLoginsOnly) {
    Ask ask = as("stale");
    ask.service = AAA_SVC_NETCONF;
    const Reply reply = aaad_.login(ask);
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_FAIL});
    EXPECT_EQ(reply.text, "Your password has expired. Change it with passwd.");
    Ask root = as("root");
    root.command = "show version";
    EXPECT_EQ(aaad_.client().authorize(root).status, uint32_t{AAA_STAT_FAIL}) << "nor for commands";
}

TEST_F(AaadExpiry, AnExpiredAccountIsRefusedWithASessionOfNoTime) {
    const Reply reply = aaad_.login(as("gone"));
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_FAIL});
    EXPECT_EQ(reply.timeout, 0u);
    EXPECT_EQ(reply.text, "Your account has expired. Ask the administrator.");
    Ask wrong = as("gone");
    wrong.password = "wrong";
    EXPECT_EQ(aaad_.login(wrong).timeout, std::nullopt);
}

// The owner of a key of sshd has not been authenticated here.
TEST_F(AaadExpiry, ASessionWithoutALoginHereIsAuthorizedByTheDatesToo) {
    EXPECT_EQ(aaad_.client().authorize(as("fine")).status, uint32_t{AAA_STAT_PASS});
    const Reply stale = aaad_.client().authorize(as("stale"));
    EXPECT_EQ(stale.status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(stale.type, uint32_t{AAA_MT_ASCII_CHPASS});
    const Reply gone = aaad_.client().authorize(as("gone"));
    EXPECT_EQ(gone.status, uint32_t{AAA_STAT_FAIL});
    EXPECT_EQ(gone.timeout, 0u);
}

TEST_F(AaadExpiry, ThePasswordOfAnAccountOfTheHostIsChangedByTheHost) {
    Ask ask = as("stale");
    ask.password = std::nullopt;
    ask.type = AAA_MT_ASCII_CHPASS;
    EXPECT_EQ(aaad_.login(ask).status, uint32_t{AAA_STAT_NOT_REQUIRED});
}

}  // namespace
