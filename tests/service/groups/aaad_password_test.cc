// SPDX-License-Identifier: Apache-2.0
//
// Changes of a password through aaad.

#include <gtest/gtest.h>

#include "service/groups/group_fixture.hpp"
#include "tacacs/test_server.hpp"

namespace groups_test {
namespace {

using tacacs_test::TestServer;

constexpr char kUsers[] = R"({
    "ann": {"password": "secret"},
    "lax": {"password": "secret", "change": "unasked"},
    "shy": {"password": "secret", "change": "reason"}
})";

class AaadPassword : public GroupTest {
  protected:
    std::string add_tacacs() {
        const std::string entry = "127.0.0.1," + std::to_string(server_.address().port());
        add_server("tacacs", entry, "tac-secret");
        return entry;
    }
    void start(std::vector<Method> methods) {
        lists(std::move(methods));
        aaad_.start({"--debug"});
    }
    static Ask change_of(const std::string &user) {
        Ask ask = ask_as(user, std::nullopt);
        ask.type = AAA_MT_ASCII_CHPASS;
        return ask;
    }
    // Answers the questions in turn.
    static Reply answer(Client &client, Ask ask, Reply reply, const std::vector<const char *> &typed) {
        for (const char *const text : typed) {
            ask.state = reply.state;
            ask.password = text;
            reply = client.authenticate(ask);
        }
        return reply;
    }

    TestServer server_{loop_, tacacs_test::kMain, kUsers};
};

TEST_F(AaadPassword, ATacacsServerAsksForTheOldAndTheNewOne) {
    add_tacacs();
    start({"corp", AAA_METHOD_LOCAL});
    Client client = aaad_.client();
    Ask ask = change_of("ann");
    Reply reply = client.authenticate(ask);
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_GETPASS}) << "the old one, though the server asks for data";
    EXPECT_EQ(reply.prompt, "Old password: ");
    EXPECT_EQ(reply.echo, 0u);
    for (const char *const prompt : {"New password: ", "Again: "}) {
        reply = answer(client, ask, reply, {prompt[0] == 'N' ? "secret" : "fresh"});
        EXPECT_EQ(reply.status, uint32_t{AAA_STAT_GETDATA}) << prompt;
        EXPECT_EQ(reply.prompt, prompt);
        EXPECT_EQ(reply.echo, 0u);
    }
    reply = answer(client, ask, reply, {"fresh"});
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(reply.type, uint32_t{AAA_MT_ASCII_CHPASS});
    EXPECT_EQ(aaad_.login(ask_as("ann", "fresh")).status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(aaad_.login(ask_as("ann", "fresh")).type, std::nullopt);
    EXPECT_EQ(aaad_.login(ask_as("ann", "secret")).status, uint32_t{AAA_STAT_FAIL});
    EXPECT_EQ(aaad_.log().find("fresh"), std::string::npos) << "no password is logged";
}

TEST_F(AaadPassword, AWrongOldOneChangesNothing) {
    add_tacacs();
    start({"corp", AAA_METHOD_NONE});
    Client client = aaad_.client();
    const Reply reply = answer(client, change_of("ann"), client.authenticate(change_of("ann")), {"wrong"});
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_FAIL});
    EXPECT_EQ(reply.type, std::nullopt);
    EXPECT_EQ(aaad_.login(ask_as("ann", "secret")).status, uint32_t{AAA_STAT_PASS});
}

// Otherwise the old password could be searched for where failed logins are counted.
TEST_F(AaadPassword, WrongOldOnesLockOutAsFailedLoginsDo) {
    aaad_.settings("lockout-failures 2\n");
    add_tacacs();
    start({"corp"});
    for (int i = 0; i < 2; ++i) {
        Client client = aaad_.client();
        answer(client, change_of("ann"), client.authenticate(change_of("ann")), {"wrong"});
    }
    EXPECT_TRUE(aaad_.wait_for_log("LOCKED_OUT"));
    Client client = aaad_.client();
    const Reply reply = answer(client, change_of("ann"), client.authenticate(change_of("ann")), {"secret"});
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_FAIL});
}

TEST_F(AaadPassword, APassWithoutANewOneIsNotTakenForAChange) {
    add_tacacs();
    start({"corp"});
    Client client = aaad_.client();
    const Reply reply = answer(client, change_of("lax"), client.authenticate(change_of("lax")), {"secret"});
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_FAIL});
    EXPECT_TRUE(aaad_.wait_for_log("without having asked for a new password"));
}

TEST_F(AaadPassword, OtherQuestionsOfTheServerAreShown) {
    add_tacacs();
    start({"corp"});
    Client client = aaad_.client();
    const Reply reply = client.authenticate(change_of("shy"));
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_GETDATA});
    EXPECT_EQ(reply.prompt, "Reason: ");
    EXPECT_EQ(reply.echo, 1u);
    EXPECT_EQ(answer(client, change_of("shy"), reply, {"lost", "secret", "fresh", "fresh"}).type,
              uint32_t{AAA_MT_ASCII_CHPASS});
}

// The next method holds another password, which would be changed instead.
TEST_F(AaadPassword, NoOtherMethodIsAskedWhenTheServerIsGone) {
    add_tacacs();
    start({"corp", AAA_METHOD_LOCAL});
    server_.kill();
    EXPECT_EQ(aaad_.login(change_of("alice")).status, uint32_t{AAA_STAT_ERROR});
    EXPECT_EQ(aaad_.login().method, uint32_t{AAA_METHOD_LOCAL}) << "as it is for a login";
    server_.restart();
    Client client = aaad_.client();
    Reply reply = client.authenticate(change_of("ann"));
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_GETPASS});
    server_.kill();
    reply = answer(client, change_of("ann"), reply, {"secret"});
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_ERROR}) << "the change does not begin again elsewhere";
    server_.restart();
}

TEST_F(AaadPassword, MethodsThatChangeNoneSayWhatToDo) {
    radius_test::UdpServer radius(loop_);
    add_radius(radius);
    const std::string local = "openssl passwd -6";
    const struct {
        Method method;
        std::string text;
    } rows[] = {
        {"corp", "RADIUS servers change no passwords"},
        {AAA_METHOD_LOCAL, local},
        {AAA_METHOD_LINE, "changed by the administrator"},
        {AAA_METHOD_ENABLE, "changed by the administrator"},
        {AAA_METHOD_NONE, "there is none to change"},
    };
    lists({AAA_METHOD_LOCAL});
    aaad_.start();
    for (const auto &row : rows) {
        aaad_.list("authentication/login/default", {row.method, AAA_METHOD_NONE});
        aaad_.reload();
        const Reply reply = aaad_.login(change_of("alice"));
        EXPECT_EQ(reply.status, uint32_t{AAA_STAT_FAIL}) << row.text;
        EXPECT_NE(reply.text.find(row.text), std::string::npos) << reply.text;
        EXPECT_EQ(reply.type, std::nullopt);
    }
    EXPECT_FALSE(radius.has_one());
}

// The state of a login must not become that of a change, and the other way round.
TEST_F(AaadPassword, AChangeIsNotALogin) {
    add_tacacs();
    start({"corp"});
    {
        Client client = aaad_.client();
        const Reply reply = client.authenticate(change_of("ann"));
        EXPECT_EQ(answer(client, ask_as("ann", std::nullopt), reply, {"secret"}).status,
                  uint32_t{AAA_STAT_ABORT});
    }
    {
        Client client = aaad_.client();
        const Reply reply = client.authenticate(ask_as("ann", std::nullopt));
        EXPECT_EQ(answer(client, change_of("ann"), reply, {"secret"}).status, uint32_t{AAA_STAT_ABORT});
    }
    aaad_.list("authorization/exec/default", {AAA_METHOD_IF_AUTHEN});
    aaad_.reload();
    Client client = aaad_.client();
    Ask ask = change_of("ann");
    ask.authen_method = AAA_METHOD_NOTSET;
    EXPECT_EQ(answer(client, ask, client.authenticate(ask), {"secret", "fresh", "fresh"}).status,
              uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(client.authorize(ask).status, uint32_t{AAA_STAT_FAIL}) << "a change has logged no one in";
}

}  // namespace
}  // namespace groups_test
