// SPDX-License-Identifier: Apache-2.0
//
// Logins, commands and records through the running service: each row of what a method list
// may decide.

#include <gtest/gtest.h>

#include "service/aaad.hpp"

namespace {

using namespace aaad_test;

class AaadLogin : public testing::Test {
  protected:
    void login_list(std::vector<Method> methods) {
        aaad_.list("authentication/login/default", std::move(methods));
    }
    static Ask as(const std::string &user, const std::optional<std::string> &password) {
        Ask ask;
        ask.user = user;
        ask.password = password;
        return ask;
    }

    Aaad aaad_;
};

TEST_F(AaadLogin, LocalUsersLogIn) {
    login_list({AAA_METHOD_LOCAL});
    aaad_.start();
    for (const uint32_t session : {0u, 1u}) {
        Ask ask;
        ask.session = session;
        const Reply right = aaad_.login(ask);
        EXPECT_EQ(right.result, AAA_OK);
        EXPECT_EQ(right.status, uint32_t{AAA_STAT_PASS});
        EXPECT_EQ(right.privilege, 15u);
        EXPECT_EQ(right.method, uint32_t{AAA_METHOD_LOCAL});
        ask.password = "rabbit";
        const Reply wrong = aaad_.login(ask);
        EXPECT_EQ(wrong.status, uint32_t{AAA_STAT_FAIL});
        EXPECT_EQ(wrong.text, "Login incorrect");
        EXPECT_EQ(wrong.privilege, std::nullopt);
        EXPECT_EQ(wrong.method, std::nullopt);
        ask.user = "mallory";
        const Reply unknown = aaad_.login(ask);
        EXPECT_EQ(unknown.status, wrong.status);
        EXPECT_EQ(unknown.text, wrong.text) << "an unknown user is told the same";
        EXPECT_EQ(unknown.privilege, std::nullopt);
        EXPECT_EQ(unknown.method, std::nullopt);
    }
}

TEST_F(AaadLogin, ARefusalIsNotFollowedByTheNextMethod) {
    login_list({AAA_METHOD_LOCAL, AAA_METHOD_NONE});
    aaad_.start();
    EXPECT_EQ(aaad_.login(as("alice", "rabbit")).status, uint32_t{AAA_STAT_FAIL});
    EXPECT_EQ(aaad_.login(as("mallory", "rabbit")).status, uint32_t{AAA_STAT_FAIL});
    EXPECT_EQ(aaad_.login(as("alice", "")).status, uint32_t{AAA_STAT_FAIL}) << "no one has an empty password";
}

TEST_F(AaadLogin, AMethodThatCannotAnswerIsFollowedByTheNext) {
    login_list({"branch", AAA_METHOD_KERBEROS5, AAA_METHOD_LOCAL});
    aaad_.start();
    EXPECT_EQ(aaad_.login().status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(aaad_.login(as("alice", "rabbit")).status, uint32_t{AAA_STAT_FAIL});
    EXPECT_TRUE(aaad_.wait_for_log("group branch of the list authentication/login/default cannot answer"));
    EXPECT_TRUE(aaad_.wait_for_log("the next method is asked"));
}

TEST_F(AaadLogin, WithoutAMethodThatAnswersTheLoginIsAnError) {
    login_list({AAA_METHOD_LOCAL});
    aaad_.list("authentication/login/servers", {"branch"});
    aaad_.start();
    Ask ask;
    ask.list = "servers";
    const Reply reply = aaad_.login(ask);
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_ERROR});
    EXPECT_NE(reply.text.find("its log says why"), std::string::npos) << reply.text;
    ask.list = "no-such-list";
    EXPECT_EQ(aaad_.login(ask).status, uint32_t{AAA_STAT_ERROR});
    EXPECT_TRUE(aaad_.wait_for_log(
        "there is no list authentication/login/no-such-list; create it: aaactl mlist set"));
}

TEST_F(AaadLogin, NoneAsksNoOne) {
    login_list({AAA_METHOD_NONE});
    aaad_.start();
    const Reply reply = aaad_.login(as("anyone", std::nullopt));
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(reply.privilege, std::nullopt) << "and gives no privilege";
}

TEST_F(AaadLogin, LineAndEnableHaveSecretsInsteadOfUsers) {
    aaad_.users("alice:" + hash_of("wonderland") + ":1\n$line:" + hash_of("console") +
                ":1\n$enable:" + hash_of("fifteen") + ":15\n$enable:" + hash_of("seven") + ":7\n");
    login_list({AAA_METHOD_LOCAL});
    aaad_.list("authentication/login/line", {AAA_METHOD_LINE});
    aaad_.list("authentication/login/enable", {AAA_METHOD_ENABLE});
    aaad_.start();
    Ask ask = as("", "console");
    ask.list = "line";
    EXPECT_EQ(aaad_.login(ask).status, uint32_t{AAA_STAT_PASS});
    ask.password = "wonderland";
    EXPECT_EQ(aaad_.login(ask).status, uint32_t{AAA_STAT_FAIL});
    ask.list = "enable";
    ask.password = "fifteen";
    EXPECT_EQ(aaad_.login(ask).privilege, 15u);
    ask.privilege = 7;
    EXPECT_EQ(aaad_.login(ask).status, uint32_t{AAA_STAT_FAIL});
    ask.password = "seven";
    EXPECT_EQ(aaad_.login(ask).privilege, 7u);
    ask.privilege = 3;
    EXPECT_EQ(aaad_.login(ask).status, uint32_t{AAA_STAT_ERROR}) << "there is no secret for this level";
    ask.user = "$line";
    ask.list = "default";
    ask.password = "console";
    EXPECT_EQ(aaad_.login(ask).status, uint32_t{AAA_STAT_FAIL}) << "$line is not a user";
}

TEST_F(AaadLogin, AsksForWhatIsMissing) {
    login_list({AAA_METHOD_LOCAL});
    aaad_.start();
    for (const uint32_t session : {0u, 1u}) {
        Client client = aaad_.client();
        Ask ask = as("", std::nullopt);
        ask.session = session;
        Reply reply = client.authenticate(ask);
        EXPECT_EQ(reply.status, uint32_t{AAA_STAT_GETUSER});
        EXPECT_EQ(reply.prompt, "Username: ");
        EXPECT_EQ(reply.echo, 1u);
        EXPECT_EQ(reply.state.size(), 32u);
        ask.user = "alice";
        ask.state = reply.state;
        reply = client.authenticate(ask);
        EXPECT_EQ(reply.status, uint32_t{AAA_STAT_GETPASS});
        EXPECT_EQ(reply.prompt, "Password: ");
        EXPECT_EQ(reply.echo, 0u);
        EXPECT_NE(reply.state, ask.state);
        ask.state = reply.state;
        ask.password = "wonderland";
        EXPECT_EQ(client.authenticate(ask).status, uint32_t{AAA_STAT_PASS});
    }
}

TEST_F(AaadLogin, AChallengeBelongsToItsConnectionAndUser) {
    login_list({AAA_METHOD_LOCAL});
    aaad_.start();
    Client client = aaad_.client();
    Ask ask = as("alice", std::nullopt);
    const std::string state = client.authenticate(ask).state;
    ask.state = state;
    ask.password = "wonderland";
    EXPECT_EQ(aaad_.login(ask).status, uint32_t{AAA_STAT_ABORT}) << "another connection";
    Ask other = ask;
    other.user = "bob";
    EXPECT_EQ(client.authenticate(other).status, uint32_t{AAA_STAT_ABORT}) << "another user";
    EXPECT_EQ(client.authenticate(ask).status, uint32_t{AAA_STAT_ABORT}) << "a token is good for one answer";
    ask.state.clear();
    EXPECT_EQ(client.authenticate(ask).status, uint32_t{AAA_STAT_PASS}) << "a new login";
}

TEST_F(AaadLogin, AChallengeThatIsNeverAnsweredEnds) {
    login_list({AAA_METHOD_LOCAL});
    aaad_.start();
    Client client = aaad_.client();
    Ask ask = as("alice", std::nullopt);
    uint32_t status = AAA_STAT_GETPASS;
    int rounds = 0;
    for (; status == AAA_STAT_GETPASS && rounds < 100; ++rounds) {
        const Reply reply = client.authenticate(ask);
        status = reply.status;
        ask.state = reply.state;
    }
    EXPECT_EQ(status, uint32_t{AAA_STAT_ABORT});
    EXPECT_EQ(rounds, 18);
}

TEST_F(AaadLogin, OptionsThatNeedAClearTextPasswordAreNotCheckedLocally) {
    login_list({AAA_METHOD_LOCAL});
    aaad_.list("authentication/ppp/default", {AAA_METHOD_LOCAL});
    aaad_.start();
    Ask ask;
    ask.service = AAA_SVC_PPP;
    ask.option = AAA_AO_IB_PAP_V1;
    EXPECT_EQ(aaad_.login(ask).status, uint32_t{AAA_STAT_PASS});
    ask.option = AAA_AO_IB_CHAP_V1;
    EXPECT_EQ(aaad_.login(ask).status, uint32_t{AAA_STAT_ERROR});
}

TEST_F(AaadLogin, TheListOfAServiceIsFoundAsTheLibraryFindsIt) {
    login_list({AAA_METHOD_LOCAL});
    aaad_.start();
    Ask ask;
    ask.service = AAA_SVC_PPP;
    EXPECT_EQ(aaad_.login(ask).status, uint32_t{AAA_STAT_PASS}) << "the library supplies this list";
    ask.service = AAA_SVC_PLEXA;
    EXPECT_EQ(aaad_.login(ask).status, uint32_t{AAA_STAT_ERROR});
    ask.service = AAA_SVC_HTTP;
    EXPECT_EQ(aaad_.login(ask).status, uint32_t{AAA_STAT_PASS}) << "uses the login lists";
}

TEST_F(AaadLogin, CommandsAreAuthorized) {
    login_list({AAA_METHOD_LOCAL});
    aaad_.list("authorization/commands/default", {AAA_METHOD_LOCAL});
    aaad_.list("authorization/exec/default", {AAA_METHOD_LOCAL});
    aaad_.list("authorization/commands/strict", {"branch", AAA_METHOD_LOCAL, AAA_METHOD_NONE});
    aaad_.start();
    for (const std::string list : {"default", "strict"}) {
        for (const uint32_t session : {0u, 1u}) {
            Client client = aaad_.client();
            Ask ask;
            ask.list = list;
            ask.session = session;
            ask.command = "show version";
            Reply reply = client.authorize(ask);
            EXPECT_EQ(reply.status, uint32_t{AAA_STAT_PASS});
            EXPECT_EQ(reply.privilege, 15u);
            ask.command = "reload";
            reply = client.authorize(ask);
            EXPECT_EQ(reply.status, uint32_t{AAA_STAT_FAIL});
            EXPECT_EQ(reply.text, "Not authorized");
            EXPECT_EQ(reply.privilege, std::nullopt) << "a refusal carries no privilege";
            ask.user = "bob";
            ask.command = "show version";
            EXPECT_EQ(client.authorize(ask).status, uint32_t{AAA_STAT_FAIL})
                << "privilege 1 without a list of commands";
            ask.user = "mallory";
            EXPECT_EQ(client.authorize(ask).status, uint32_t{AAA_STAT_FAIL});
        }
    }
    Ask exec;
    exec.user = "bob";
    const Reply reply = aaad_.client().authorize(exec);
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(reply.privilege, 1u);
}

TEST_F(AaadLogin, IfAuthenticatedAcceptsThoseWhoAre) {
    login_list({AAA_METHOD_LOCAL});
    aaad_.list("authorization/exec/default", {AAA_METHOD_IF_AUTHEN});
    aaad_.list("authentication/login/odd", {AAA_METHOD_IF_AUTHEN});
    aaad_.start();
    Client client = aaad_.client();
    Ask ask;
    ask.authen_method = AAA_METHOD_NOTSET;
    EXPECT_EQ(client.authorize(ask).status, uint32_t{AAA_STAT_FAIL});
    EXPECT_EQ(client.authenticate(ask).status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(client.authorize(ask).status, uint32_t{AAA_STAT_PASS}) << "authenticated on this connection";
    Ask other = ask;
    other.user = "bob";
    EXPECT_EQ(client.authorize(other).status, uint32_t{AAA_STAT_FAIL}) << "but not another user";
    EXPECT_EQ(client.authenticate(as("alice", "rabbit")).status, uint32_t{AAA_STAT_FAIL});
    EXPECT_EQ(client.authorize(ask).status, uint32_t{AAA_STAT_FAIL}) << "the failed login ends it";
    ask.authen_method = AAA_METHOD_LOCAL;
    EXPECT_EQ(client.authorize(ask).status, uint32_t{AAA_STAT_PASS}) << "root's word is taken";
    ask.list = "odd";
    EXPECT_EQ(client.authenticate(ask).status, uint32_t{AAA_STAT_ERROR}) << "it authenticates no one";
}

TEST_F(AaadLogin, RecordsAreKeptOrAnsweredWithAnError) {
    login_list({AAA_METHOD_LOCAL});
    aaad_.list("accounting/exec/default", {AAA_METHOD_SYSLOG}, {0, 0, 0});
    aaad_.list("accounting/exec/nowhere", {"branch", AAA_METHOD_LOCAL}, {0, 0, 0});
    aaad_.list("accounting/exec/everywhere", {"branch", AAA_METHOD_SYSLOG, AAA_METHOD_NONE}, {0, 0, 1});
    aaad_.start();
    for (const uint32_t session : {0u, 1u}) {
        Client client = aaad_.client();
        Ask ask;
        ask.session = session;
        EXPECT_EQ(client.account(ask).result, AAA_OK);
        EXPECT_TRUE(
            aaad_.wait_for_log("start user=alice terminal=vty0 from=192.0.2.10 session=4711 service="));
        ask.list = "nowhere";
        EXPECT_EQ(client.account(ask).result, AAA_ERR_ACCT_SERVICE);
        ask.list = "everywhere";
        ask.record = AAA_ACCT_STOP_OPT;
        EXPECT_EQ(client.account(ask).result, AAA_OK);
        EXPECT_TRUE(aaad_.wait_for_log("stop user=alice"));
        EXPECT_TRUE(aaad_.wait_for_log("PASS (2 of 3 methods)"));
        ask.list = "no-such-list";
        EXPECT_EQ(client.account(ask).result, AAA_ERR_ACCT_NOT_DEFINED);
    }
}

TEST_F(AaadLogin, OneIdFollowsALoginThroughTheLog) {
    login_list({AAA_METHOD_LOCAL});
    aaad_.list("authorization/exec/default", {AAA_METHOD_LOCAL});
    aaad_.start();
    Client client = aaad_.client();
    Ask ask;
    ask.password = std::nullopt;
    ask.state = client.authenticate(ask).state;
    ask.password = "wonderland";
    EXPECT_EQ(client.authenticate(ask).status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(client.authorize(ask).status, uint32_t{AAA_STAT_PASS});
    ASSERT_TRUE(aaad_.wait_for_log("authorization of alice"));
    const std::string log = aaad_.log();
    const size_t first = log.find("authentication of alice");
    ASSERT_GT(first, 12u);
    const std::string id = log.substr(log.rfind('[', first), 9);
    EXPECT_NE(log.find(id + "] authorization of alice"), std::string::npos) << log;
    EXPECT_EQ(log.find("wonderland"), std::string::npos);
    EXPECT_EQ(aaad_.login().status, uint32_t{AAA_STAT_PASS});
    ASSERT_TRUE(aaad_.wait_for_log("authentication of alice"));
    EXPECT_EQ(aaad_.log().find(id + "] authentication", first + 9), std::string::npos)
        << "the next login has another id";
}

TEST_F(AaadLogin, RepeatedFailuresLockOutAUserFromASource) {
    aaad_.settings("lockout-failures 3\n");
    login_list({AAA_METHOD_LOCAL});
    aaad_.start();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(aaad_.login(as("alice", "rabbit")).status, uint32_t{AAA_STAT_FAIL});
    }
    EXPECT_TRUE(aaad_.wait_for_log("logins of alice from 192.0.2.10 are refused for 300 s"));
    const Reply locked = aaad_.login();
    EXPECT_EQ(locked.status, uint32_t{AAA_STAT_FAIL});
    EXPECT_EQ(locked.text, "Login incorrect") << "the answer of a wrong password";
    EXPECT_EQ(locked.method, std::nullopt);
    Ask ask;
    ask.remote = "192.0.2.11";
    EXPECT_EQ(aaad_.login(ask).status, uint32_t{AAA_STAT_PASS}) << "from elsewhere";
    EXPECT_EQ(aaad_.login(as("bob", "looking-glass")).status, uint32_t{AAA_STAT_PASS}) << "another user";
    EXPECT_EQ(aaad_.login(as("alice", std::nullopt)).status, uint32_t{AAA_STAT_GETPASS})
        << "is asked as always";
}

// su and sudo have no remote address.
TEST_F(AaadLogin, GuessesAtATerminalThatAnyUserCanHaveLockTheUserOutThere) {
    aaad_.settings("lockout-failures 3\n");
    login_list({AAA_METHOD_LOCAL});
    aaad_.start();
    Ask ask = as("alice", "rabbit");
    ask.remote = "";
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(aaad_.login(ask).status, uint32_t{AAA_STAT_FAIL});
    }
    EXPECT_TRUE(aaad_.wait_for_log("logins of alice from terminal vty0 are refused for 300 s"));
    ask.password = "wonderland";
    EXPECT_EQ(aaad_.login(ask).status, uint32_t{AAA_STAT_FAIL});
    EXPECT_EQ(aaad_.login().status, uint32_t{AAA_STAT_PASS}) << "from an address";
}

}  // namespace
