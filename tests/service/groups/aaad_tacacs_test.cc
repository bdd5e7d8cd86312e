// SPDX-License-Identifier: Apache-2.0
//
// Logins, commands and records through aaad at TACACS+ servers.

#include <gtest/gtest.h>
#include <signal.h>

#include "service/groups/group_fixture.hpp"
#include "tacacs/test_server.hpp"

namespace groups_test {
namespace {

using tacacs_test::TestServer;

constexpr char kUsers[] = R"({
    "ann": {"password": "secret", "enable": "raise", "message": "Hello",
            "commands": [["deny", "show secrets.*"], ["permit", "show .*"]], "arguments": ["priv-lvl=7"]},
    "tia": {"password": "secret", "token": "4711", "rounds": 2},
    "max": {"password": "secret", "arguments": ["priv-lvl=15", "idletime*10", "color*blue"]},
    "eva": {"password": "secret", "arguments": ["vault=open"]},
    "leo": {"password": "secret", "author": "PASS_REPL", "arguments": ["service=shell", "cmd=reload"]},
    "ivy": {"password": "secret", "author": "PASS_REPL", "arguments": ["priv-lvl=3"]},
    "bad": {"password": "secret", "author": "FAIL", "arguments": ["priv-lvl=15"], "message": "no\u001b[2J"},
    "err": {"status": "ERROR", "author": "ERROR", "acct": "ERROR"},
    "alice": {"misbehave": "close"},
    "mute": {"misbehave": "silent"},
    "held": {"password": "secret", "misbehave": "held"}
})";

class AaadTacacs : public GroupTest {
  protected:
    static std::string entry_of(const TestServer &server) {
        return "127.0.0.1," + std::to_string(server.address().port());
    }
    std::string add(const TestServer &server, uint32_t timeout = 60000) {
        add_server("tacacs", entry_of(server), "tac-secret", timeout);
        return entry_of(server);
    }
    void start(std::vector<Method> methods) {
        lists(std::move(methods));
        aaad_.start({"--debug"});
    }
    Reply command(const std::string &user, const std::string &text) {
        Ask ask = ask_as(user, std::nullopt);
        ask.command = text;
        return aaad_.client().authorize(ask);
    }
    Reply shell(const std::string &user) { return aaad_.client().authorize(ask_as(user, std::nullopt)); }

    TestServer server_{loop_, tacacs_test::kMain, kUsers};
};

TEST_F(AaadTacacs, APasswordOfTheRequestAnswersTheServersQuestion) {
    add(server_);
    start({"corp", AAA_METHOD_LOCAL});
    const Reply reply = aaad_.login(ask_as("ann", "secret"));
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(reply.text, "Hello");
    EXPECT_EQ(aaad_.login(ask_as("ann", "wrong")).status, uint32_t{AAA_STAT_FAIL});
    server_.wait_for("ascii", 2);
    EXPECT_EQ(server_.seen("pap"), 0u);
}

TEST_F(AaadTacacs, TheSettingPapSendsThePasswordAtOnce) {
    set_number("tacacs", "", "pap", 1);
    add(server_);
    start({"corp"});
    EXPECT_EQ(aaad_.login(ask_as("ann", "secret")).status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(aaad_.login(ask_as("ann", "wrong")).status, uint32_t{AAA_STAT_FAIL});
    server_.wait_for("pap", 2);
}

TEST_F(AaadTacacs, TheServerAsksForNamePasswordAndTokens) {
    add(server_);
    start({"corp"});
    Client client = aaad_.client();
    Ask ask = ask_as("", std::nullopt);
    Reply reply = client.authenticate(ask);
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_GETUSER});
    EXPECT_EQ(reply.prompt, "Username: ");
    EXPECT_EQ(reply.echo, 1u);
    ask.user = "tia";
    ask.state = reply.state;
    reply = client.authenticate(ask);
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_GETPASS});
    EXPECT_EQ(reply.prompt, "Password: ");
    EXPECT_EQ(reply.echo, 0u);
    ask.password = "secret";
    for (int round = 0; round < 2; ++round) {
        ask.state = reply.state;
        reply = client.authenticate(ask);
        EXPECT_EQ(reply.status, uint32_t{AAA_STAT_GETDATA});
        EXPECT_EQ(reply.prompt, "Token: ");
        EXPECT_EQ(reply.echo, 1u);
        ask.password = "4711";
    }
    ask.state = reply.state;
    EXPECT_EQ(client.authenticate(ask).status, uint32_t{AAA_STAT_PASS});
}

TEST_F(AaadTacacs, ALoginThatTheUserLeavesIsAbortedAtTheServer) {
    add(server_);
    start({"corp"});
    {
        Client client = aaad_.client();
        EXPECT_EQ(client.authenticate(ask_as("tia", "secret")).status, uint32_t{AAA_STAT_GETDATA});
    }
    server_.wait_for("abort");
    EXPECT_EQ(server_.seen("the user has left"), 1u);
}

TEST_F(AaadTacacs, AServerThatDiesBetweenRoundsIsNotFollowedWithATypedToken) {
    add(server_);
    aaad_.users("tia:" + aaad_test::hash_of("at home") + ":1\n");
    start({"corp", AAA_METHOD_LOCAL});
    Client client = aaad_.client();
    Ask ask = ask_as("tia", "secret");
    Reply reply = client.authenticate(ask);
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_GETDATA});
    server_.kill();
    ask.state = reply.state;
    ask.password = "4711";
    reply = client.authenticate(ask);
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_GETPASS});
    ask.state = reply.state;
    ask.password = "at home";
    reply = client.authenticate(ask);
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(reply.method, uint32_t{AAA_METHOD_LOCAL});
    server_.restart();
}

TEST_F(AaadTacacs, ARaisedPrivilegeIsAskedForAtTheServer) {
    add(server_);
    start({"corp"});
    Ask ask = ask_as("ann", "raise");
    ask.privilege = 15;
    const Reply reply = aaad_.login(ask);
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(reply.privilege, 15u);
    server_.wait_for("enable");
    ask.password = "secret";
    EXPECT_EQ(aaad_.login(ask).privilege, std::nullopt);
}

TEST_F(AaadTacacs, CommandsAreAuthorizedWithTheirArguments) {
    add(server_);
    start({"corp", AAA_METHOD_NONE});
    Reply reply = command("ann", "show  interface eth0 ");
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(reply.privilege, 7u);
    server_.wait_for("show interface eth0");
    EXPECT_EQ(command("ann", "show secrets all").status, uint32_t{AAA_STAT_FAIL});
    EXPECT_EQ(command("ann", "reload").status, uint32_t{AAA_STAT_FAIL}) << "and the method none is not asked";
}

TEST_F(AaadTacacs, LongArgumentsAreRefusedAndNotCut) {
    add(server_);
    start({"corp", AAA_METHOD_NONE});
    EXPECT_EQ(command("ann", "show " + std::string(247, 'x')).status, uint32_t{AAA_STAT_PASS});
    const Reply reply = command("ann", "show " + std::string(248, 'x'));
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_FAIL});
    EXPECT_NE(reply.text.find("255"), std::string::npos) << reply.text;
    std::string many = "show";
    for (int i = 0; i < 254; ++i) {
        many += " x";
    }
    EXPECT_EQ(command("ann", many).status, uint32_t{AAA_STAT_FAIL});
}

TEST_F(AaadTacacs, ArgumentsOfAPermissionAreAppliedOrRefused) {
    add(server_);
    start({"corp"});
    Reply reply = shell("max");
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(reply.privilege, 15u) << "what is optional and not known is ignored";
    EXPECT_EQ(shell("eva").status, uint32_t{AAA_STAT_FAIL}) << "what is demanded and not known refuses";
    EXPECT_TRUE(aaad_.wait_for_log("the server demands \"vault=open\""));
    EXPECT_EQ(shell("ivy").privilege, 3u);
    EXPECT_EQ(command("leo", "show version").status, uint32_t{AAA_STAT_FAIL}) << "another command is not run";
    EXPECT_EQ(command("leo", "reload").status, uint32_t{AAA_STAT_PASS});
}

TEST_F(AaadTacacs, ARefusalGivesNoRights) {
    add(server_);
    start({"corp", AAA_METHOD_NONE});
    const Reply reply = shell("bad");
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_FAIL});
    EXPECT_EQ(reply.privilege, std::nullopt);
    EXPECT_EQ(reply.text, "no?[2J");
}

TEST_F(AaadTacacs, AnErrorOfTheServerIsFollowedByTheNext) {
    TestServer second(loop_, tacacs_test::kMain, R"({"err": {"password": "secret"}})");
    add(server_);
    add(second);
    start({"corp"});
    EXPECT_EQ(aaad_.login(ask_as("err", "secret")).status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(shell("err").status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(aaad_.client().account(ask_as("err", std::nullopt)).result, AAA_OK);
    second.wait_for("task_id=4711", 1);
}

TEST_F(AaadTacacs, ALostConnectionIsFollowedByTheNextMethod) {
    add(server_);
    start({"corp", AAA_METHOD_LOCAL});
    const Reply reply = aaad_.login();  // the server closes when it should answer alice
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(reply.method, uint32_t{AAA_METHOD_LOCAL});
}

TEST_F(AaadTacacs, ASilentServerIsAskedOnce) {
    add(server_, 100);
    aaad_.users("mute:" + aaad_test::hash_of("loud") + ":1\n");
    start({"corp", AAA_METHOD_LOCAL});
    aaad_.reload();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(aaad_.login(ask_as("mute", "loud")).method, uint32_t{AAA_METHOD_LOCAL});
    }
    server_.wait_for("start");
    EXPECT_EQ(server_.seen("start"), 1u);
}

// Otherwise anyone who knows such a name could have the next method decide for all.
TEST_F(AaadTacacs, AServerThatIsSilentToOneUserOnlyIsNotPassedOver) {
    set_text("tacacs", add(server_, 3000), "probe-user", "nobody");
    start({"corp", AAA_METHOD_LOCAL});
    aaad_.login(ask_as("mute", "secret"));
    server_.wait_for("nobody start pap");
    EXPECT_EQ(aaad_.login(ask_as("ann", "secret")).text, "Hello");
    EXPECT_EQ(aaad_.log().find("SERVER_SILENT"), std::string::npos);
}

TEST_F(AaadTacacs, AWrongKeyIsNamed) {
    add_server("tacacs", entry_of(server_), "another");
    start({"corp", AAA_METHOD_LOCAL});
    EXPECT_EQ(aaad_.login().method, uint32_t{AAA_METHOD_LOCAL});
    EXPECT_TRUE(aaad_.wait_for_log("shared secret"));
}

TEST_F(AaadTacacs, RecordsHaveTaskTimeAndCommand) {
    add(server_);
    start({"corp"});
    Client client = aaad_.client();
    Ask ask = ask_as("ann", std::nullopt);
    EXPECT_EQ(client.account(ask).result, AAA_OK);
    ask.record = AAA_ACCT_STOP_OPT;
    EXPECT_EQ(client.account(ask).result, AAA_OK);
    server_.wait_for("task_id=4711", 2);
    EXPECT_EQ(server_.seen("start_time="), 2u);
    EXPECT_EQ(server_.seen("elapsed_time="), 1u);
    EXPECT_EQ(server_.seen("service=shell"), 2u);
}

TEST_F(AaadTacacs, ALoginKeepsItsServerWhenTheConfigurationChanges) {
    const std::string entry = add(server_);
    start({"corp", AAA_METHOD_LOCAL});
    Client client = aaad_.client();
    Ask ask = ask_as("tia", "secret");
    Reply reply = client.authenticate(ask);
    aaad_.remove("group-server/tacacs/corp/server/0/" + entry);
    aaad_.reload();
    for (int round = 0; round < 2; ++round) {
        ask.state = reply.state;
        ask.password = "4711";
        reply = client.authenticate(ask);
    }
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_PASS});
}

}  // namespace
}  // namespace groups_test
