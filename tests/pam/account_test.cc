// SPDX-License-Identifier: Apache-2.0

#include "pam/host.hpp"

using namespace pam_test;

namespace {

class Account : public PamTest {};

Action pass_with(const std::vector<std::pair<uint32_t, uint32_t>> &numbers, uint32_t value = AAA_STAT_PASS) {
    return answer([&](avlist *list) {
        replies::status(value)(list);
        for (const auto &[type, number] : numbers) {
            EXPECT_EQ(aaa_util_avpair_add_attr(list, type, &number, sizeof number, 0), AAA_OK);
        }
    });
}

TEST_F(Account, AsksForTheSession) {
    Login login(dir_, options());
    login.item(PAM_TTY, "ssh").item(PAM_RHOST, "2001:db8::1");
    EXPECT_EQ(login.account(), PAM_SUCCESS);
    const auto requests = service_.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].type, static_cast<uint32_t>(AAA_REQ_AUTHOR));
    EXPECT_EQ(requests[0].service, static_cast<uint32_t>(AAA_SVC_EXEC));
    EXPECT_EQ(requests[0].message_type, static_cast<uint32_t>(AAA_MT_AUTHOR_SHELL));
    EXPECT_EQ(requests[0].user, "alice");
    EXPECT_EQ(requests[0].terminal, "ssh");
    EXPECT_EQ(requests[0].address, "2001:db8::1");
    EXPECT_EQ(login.asked(), 0);
}

struct Outcome {
    uint32_t status;
    int result;
};

TEST_F(Account, GivesTheResultThatFitsTheStatus) {
    for (const Outcome &o : std::vector<Outcome>{{AAA_STAT_PASS, PAM_SUCCESS},
                                                 {AAA_STAT_NOT_REQUIRED, PAM_SUCCESS},
                                                 {AAA_STAT_BYPASS, PAM_SUCCESS},
                                                 {AAA_STAT_FAIL, PAM_PERM_DENIED},
                                                 {AAA_STAT_ABORT, PAM_PERM_DENIED},
                                                 {AAA_STAT_GETUSER, PAM_PERM_DENIED},
                                                 {AAA_STAT_GETDATA, PAM_PERM_DENIED},
                                                 {AAA_STAT_ERROR, PAM_AUTHINFO_UNAVAIL},
                                                 {77, PAM_AUTHINFO_UNAVAIL}}) {
        service_.set([&](const Request &) { return status(o.status); });
        EXPECT_EQ(Login(dir_, options()).account(), o.result) << "status " << o.status;
    }
}

TEST_F(Account, TellsExpiryAndThatANewPasswordIsNeeded) {
    service_.set([](const Request &) { return pass_with({{AAA_TIMEOUT_ATTR, 0}}, AAA_STAT_FAIL); });
    EXPECT_EQ(Login(dir_, options()).account(), PAM_ACCT_EXPIRED);
    service_.set([](const Request &) { return pass_with({{AAA_TIMEOUT_ATTR, 60}}, AAA_STAT_FAIL); });
    EXPECT_EQ(Login(dir_, options()).account(), PAM_PERM_DENIED);
    service_.set([](const Request &) { return pass_with({{AAA_TYPE_ATTR, AAA_MT_ASCII_CHPASS}}); });
    EXPECT_EQ(Login(dir_, options()).account(), PAM_NEW_AUTHTOK_REQD);
}

// The method that authorizes sessions may be another one, which knows nothing of passwords.
TEST_F(Account, RemembersThatTheLoginSaidThePasswordHasExpired) {
    service_.set([](const Request &request) {
        return request.type == AAA_REQ_AUTHEN ? pass_with({{AAA_TYPE_ATTR, AAA_MT_ASCII_CHPASS}})
                                              : status(AAA_STAT_PASS);
    });
    Login login(dir_, options());
    EXPECT_EQ(login.authenticate({"wonderland"}), PAM_SUCCESS);
    EXPECT_EQ(login.account(), PAM_NEW_AUTHTOK_REQD);
    service_.set([](const Request &) { return status(AAA_STAT_FAIL); });
    EXPECT_EQ(login.account(), PAM_PERM_DENIED) << "a refusal counts more";
    EXPECT_EQ(Login(dir_, options()).account(), PAM_PERM_DENIED);
    service_.set([](const Request &) { return pass_with({{AAA_TIMEOUT_ATTR, 0}}, AAA_STAT_FAIL); });
    EXPECT_EQ(Login(dir_, options()).authenticate({"wonderland"}), PAM_ACCT_EXPIRED);
}

TEST_F(Account, ShowsTheReasonOfARefusal) {
    service_.set([](const Request &) { return say(AAA_STAT_FAIL, "Not at night."); });
    Login login(dir_, options());
    EXPECT_EQ(login.account(), PAM_PERM_DENIED);
    EXPECT_EQ(login.heard(), (std::vector<Said>{{PAM_ERROR_MSG, "Not at night."}}));
    EXPECT_TRUE(logged("not authorized: user=alice"));
}

TEST_F(Account, PutsThePrivilegeLevelIntoThePamEnvironmentWhenAsked) {
    service_.set([](const Request &) { return pass_with({{AAA_PRIV_LVL_ATTR, 15}}); });
    Login with(dir_, options("privilege_level"));
    EXPECT_EQ(with.account(), PAM_SUCCESS);
    EXPECT_EQ(with.variable("AAA_PRIVILEGE"), "15");
    Login without(dir_, options());
    EXPECT_EQ(without.account(), PAM_SUCCESS);
    EXPECT_EQ(without.variable("AAA_PRIVILEGE"), "");
    service_.set([](const Request &) { return pass_with({{AAA_PRIV_LVL_ATTR, 15}}, AAA_STAT_FAIL); });
    Login refused(dir_, options("privilege_level"));
    EXPECT_EQ(refused.account(), PAM_PERM_DENIED);
    EXPECT_EQ(refused.variable("AAA_PRIVILEGE"), "");
}

}  // namespace
