// SPDX-License-Identifier: Apache-2.0

#include <sys/wait.h>

#include "pam/host.hpp"

using namespace pam_test;

namespace {

class Session : public PamTest {
  protected:
    // The records that the service has, as "start ID" and "stop ID".
    std::vector<std::pair<uint32_t, uint32_t>> records() {
        std::vector<std::pair<uint32_t, uint32_t>> found;
        for (const Request &request : service_.requests()) {
            EXPECT_EQ(request.type, static_cast<uint32_t>(AAA_REQ_ACCT));
            found.emplace_back(request.message_type, request.session);
        }
        return found;
    }
};

TEST_F(Session, RecordsStartAndStopWithOneNumber) {
    Login login(dir_, options());
    login.item(PAM_TTY, "/dev/tty1").item(PAM_RHOST, "192.0.2.9");
    EXPECT_EQ(login.open(), PAM_SUCCESS);
    EXPECT_EQ(login.close(), PAM_SUCCESS);
    const auto found = records();
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].first, static_cast<uint32_t>(AAA_MT_ACCT_START));
    EXPECT_EQ(found[1].first, static_cast<uint32_t>(AAA_MT_ACCT_STOP));
    EXPECT_NE(found[0].second, 0u);
    EXPECT_EQ(found[0].second, found[1].second);
    EXPECT_EQ(login.variable("AAA_SESSION_ID"), std::to_string(found[0].second));
    const Request start = service_.requests().at(0);
    EXPECT_EQ(start.user, "alice");
    EXPECT_EQ(start.terminal, "tty1");
    EXPECT_EQ(start.address, "192.0.2.9");
    EXPECT_EQ(start.service, static_cast<uint32_t>(AAA_SVC_EXEC));
}

TEST_F(Session, HasANumberOfItsOwn) {
    Login one(dir_, options());
    Login two(dir_, options());
    EXPECT_EQ(one.open(), PAM_SUCCESS);
    EXPECT_EQ(two.open(), PAM_SUCCESS);
    EXPECT_NE(records().at(0).second, records().at(1).second);
}

TEST_F(Session, EndsInAForkedProcess) {
    Login login(dir_, options());
    EXPECT_EQ(login.open(), PAM_SUCCESS);
    const pid_t child = fork();
    if (child == 0) {
        _exit(login.close() == PAM_SUCCESS ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(records().at(0).second, records().at(1).second);
}

// A program that ends the session with another handle brings the PAM environment along.
TEST_F(Session, EndsWithAnotherHandleThatHasThePamEnvironment) {
    Login first(dir_, options());
    EXPECT_EQ(first.open(), PAM_SUCCESS);
    Login second(dir_, options());
    EXPECT_EQ(pam_putenv(second.handle(), ("AAA_SESSION_ID=" + first.variable("AAA_SESSION_ID")).c_str()),
              PAM_SUCCESS);
    EXPECT_EQ(second.close(), PAM_SUCCESS);
    EXPECT_EQ(records().at(0).second, records().at(1).second);
}

TEST_F(Session, RecordsNoEndWithoutAKnownStart) {
    for (const char *value : {"", "AAA_SESSION_ID=", "AAA_SESSION_ID=x", "AAA_SESSION_ID=-1",
                              "AAA_SESSION_ID=0", "AAA_SESSION_ID=4294967296", "AAA_SESSION_ID=7x"}) {
        Login login(dir_, options());
        if (*value != '\0') {
            EXPECT_EQ(pam_putenv(login.handle(), value), PAM_SUCCESS);
        }
        EXPECT_EQ(login.close(), PAM_SESSION_ERR) << value;
    }
    EXPECT_EQ(records().size(), 0u);
    EXPECT_TRUE(logged("its start is not known here"));
}

// The environment of the process is that of whoever started it.
TEST_F(Session, DoesNotBelieveTheEnvironmentOfTheProcess) {
    const ScopedEnv variable("AAA_SESSION_ID", "4711");
    EXPECT_EQ(Login(dir_, options()).close(), PAM_SESSION_ERR);
    EXPECT_EQ(records().size(), 0u);
}

TEST_F(Session, BelongsToTheCallerOfSudo) {
    const auto user_of = [&](const std::string &service, const std::string &more, const char *caller) {
        Login login(dir_, options(more), "root", service);
        if (caller != nullptr) {
            login.item(PAM_RUSER, caller);
        }
        EXPECT_EQ(login.open(), PAM_SUCCESS);
        return service_.requests().back().user;
    };
    EXPECT_EQ(user_of("sudo", "", "alice"), "alice");
    EXPECT_EQ(user_of("sudo-i", "", "alice"), "alice");
    EXPECT_EQ(user_of("sudo", "", nullptr), "root");
    EXPECT_EQ(user_of("su", "", "alice"), "root");
    EXPECT_EQ(user_of("su", "ruser", "alice"), "alice");
    EXPECT_EQ(user_of("rlogin", "", "mallory"), "root");  // said by the other machine
}

TEST_F(Session, FailsWhenTheRecordIsNotTaken) {
    service_.set([](const Request &) { return answer([](avlist *) {}, AAA_ERR_ACCT_SERVICE); });
    Login login(dir_, options());
    EXPECT_EQ(login.open(), PAM_SESSION_ERR);
    service_.set(agree);
    login.close();  // the start may have been written nevertheless
    ASSERT_EQ(records().size(), 2u);
    EXPECT_EQ(records().at(1).first, static_cast<uint32_t>(AAA_MT_ACCT_STOP));
    EXPECT_EQ(records().at(0).second, records().at(1).second);
}

}  // namespace
