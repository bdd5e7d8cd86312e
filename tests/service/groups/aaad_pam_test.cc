// SPDX-License-Identifier: Apache-2.0
//
// The login module with aaad and a TACACS+ server: the way of a password from the user's
// terminal to the server.

#include <gtest/gtest.h>

#include "pam/host.hpp"
#include "service/groups/group_fixture.hpp"
#include "support/machine.hpp"
#include "tacacs/test_server.hpp"

namespace groups_test {
namespace {

using pam_test::Said;

constexpr char kUsers[] = R"({
    "alice": {"password": "secret", "message": "Hello"},
    "bob": {"password": "secret", "author": "FAIL", "message": "Not today."},
    "tia": {"password": "secret", "token": "4711"}
})";

class AaadPam : public GroupTest {
  protected:
    void SetUp() override {
        SKIP_WITHOUT_ROOT("the module refuses a service of another user");
        add_server("tacacs", "127.0.0.1," + std::to_string(server_.address().port()), "tac-secret");
        lists({"corp"});
        aaad_.start();
    }
    std::string options() const { return "socket=" + aaad_.socket() + " nodelay"; }

    tacacs_test::TestServer server_{loop_, tacacs_test::kMain, kUsers};
    TempDir dir_;
};

TEST_F(AaadPam, ChangesThePasswordOfTheUserAtTheServer) {
    pam_test::Login login(dir_, options());
    EXPECT_EQ(login.change({"secret", "fresh", "fresh"}), PAM_SUCCESS);
    EXPECT_EQ(login.heard(), (std::vector<Said>{{PAM_PROMPT_ECHO_OFF, "Old password: "},
                                                {PAM_PROMPT_ECHO_OFF, "New password: "},
                                                {PAM_PROMPT_ECHO_OFF, "Retype new password: "},
                                                {PAM_TEXT_INFO, "Hello"}}));
    EXPECT_EQ(pam_test::Login(dir_, options()).authenticate({"secret"}), PAM_AUTH_ERR);
    EXPECT_EQ(pam_test::Login(dir_, options()).authenticate({"fresh"}), PAM_SUCCESS);
    server_.wait_for("abort", 1);
    EXPECT_EQ(server_.seen("chpass"), 2u) << "the preliminary check leaves the change that it began";
}

TEST_F(AaadPam, LeavesThePasswordWhenTheOldOneIsWrong) {
    pam_test::Login login(dir_, options());
    EXPECT_EQ(login.change({"wrong", "fresh", "fresh"}), PAM_AUTHTOK_ERR);
    EXPECT_EQ(login.asked(), 1);
    EXPECT_EQ(pam_test::Login(dir_, options()).authenticate({"secret"}), PAM_SUCCESS);
}

// PAM_AUTHINFO_UNAVAIL would lead to the next module, which may take the password without the token.
TEST_F(AaadPam, EndsALoginWhoseUserWaitsUntilItIsForgotten) {
    aaad_.settings("idle-time 1\n");
    aaad_.reload();
    pam_test::Login login(dir_, options(), "tia");
    login.before_each_answer([&] {
        if (login.asked() > 1) {
            server_.wait_for("abort");
        }
    });
    EXPECT_EQ(login.authenticate({"secret", "4711"}), PAM_MAXTRIES);
    EXPECT_EQ(login.heard().back().text, "This login is no longer known; begin again");
}

// What a user types must not make the module say that there is no service.
TEST_F(AaadPam, AnswersThatNoServerTakesAreRefused) {
    for (const size_t length : {256, 1100, 4097, 9000, 33000, 70000, 200000}) {
        const std::string answer(length, 'x');
        EXPECT_EQ(pam_test::Login(dir_, options()).authenticate({answer}), PAM_AUTH_ERR) << length;
        EXPECT_EQ(pam_test::Login(dir_, options(), "tia").authenticate({"secret", answer}), PAM_AUTH_ERR)
            << length;
    }
    for (const char *const answer : {"", "\x01\x02", "\n", "\r\n", "\xff\xfe", "\x1b[2J"}) {
        EXPECT_EQ(pam_test::Login(dir_, options()).authenticate({answer}), PAM_AUTH_ERR) << answer;
        EXPECT_EQ(pam_test::Login(dir_, options(), "tia").authenticate({"secret", answer}), PAM_AUTH_ERR)
            << answer;
    }
}

// One search finds what the module says in the program's process and what the service says.
TEST_F(AaadPam, ALoginHasOneIdInTheLinesOfBothProcesses) {
    pam_test::Login login(dir_, options());
    EXPECT_EQ(login.authenticate({"secret"}), PAM_SUCCESS);
    EXPECT_EQ(login.account(), PAM_SUCCESS);
    login.open();
    login.close();
    const std::string id = login.variable("AAA_LOGIN_ID");
    for (const char *request : {"authentication", "authorization", "accounting", "accounting"}) {
        EXPECT_TRUE(aaad_.wait_for_log("[" + id + "] " + request + " of alice")) << request;
    }
    pam_test::Login bob(dir_, options() + " log_unknown_names", "bob");
    EXPECT_EQ(bob.authenticate({"wrong"}), PAM_AUTH_ERR);
    const std::string other = bob.variable("AAA_LOGIN_ID");
    EXPECT_NE(other, id);
    EXPECT_TRUE(pam_test::logged("[" + other + "] authentication failure: user=bob"));
    EXPECT_TRUE(aaad_.wait_for_log("[" + other + "] authentication of bob"));
}

TEST_F(AaadPam, AuthorizesTheSession) {
    pam_test::Login alice(dir_, options());
    EXPECT_EQ(alice.authenticate({"secret"}), PAM_SUCCESS);
    EXPECT_EQ(alice.account(), PAM_SUCCESS);
    pam_test::Login bob(dir_, options(), "bob");
    EXPECT_EQ(bob.authenticate({"secret"}), PAM_SUCCESS);
    EXPECT_EQ(bob.account(), PAM_PERM_DENIED);
}

}  // namespace
}  // namespace groups_test
