// SPDX-License-Identifier: Apache-2.0
//
// The client against a server of others. Without it the client would be tested only against
// what this tree believes of the protocol.

#include "radius/freeradius.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "radius/udp_server.hpp"
#include "radius/vendor_map.hpp"

namespace radius {
namespace {

using radius_test::FreeRadius;
using radius_test::login;
using radius_test::make_client;
using radius_test::Result;
using Kind = Outcome::Kind;

class RadiusWithFreeRadius : public testing::Test {
  protected:
    // One server for all tests: it takes a second to start.
    static void SetUpTestSuite() {
        if (FreeRadius::is_installed()) {
            server_ = std::make_unique<FreeRadius>();
        }
    }
    static void TearDownTestSuite() { server_.reset(); }
    void SetUp() override {
        if (server_ == nullptr) {
            GTEST_SKIP() << FreeRadius::kMissing;
        }
        ASSERT_TRUE(server_->usable());
    }

    Outcome ask(const ServerSettings &settings, Question question) {
        client = make_client(loop, settings);
        Result result(loop);
        client->ask(std::move(question), result.done());
        const Outcome outcome = result.wait();
        EXPECT_TRUE(outcome.kind == Kind::kAnswer || quiet) << outcome.text << "\n" << server_->log();
        return outcome;
    }
    static void expect_rights_of_alice(const Answer &answer) {
        EXPECT_EQ(answer.code(), Code::kAccessAccept);
        EXPECT_EQ(answer.text(), "Hello, Alice");
        EXPECT_EQ(answer.service_type(), 6U);
        EXPECT_EQ(answer.session_timeout(), 3600U);
        EXPECT_EQ(answer.classes(), (std::vector<std::string>{"one", "two"}));
    }

    static std::unique_ptr<FreeRadius> server_;
    net::Loop loop;
    std::unique_ptr<Client> client;
    bool quiet = false;  // no answer is expected
};

std::unique_ptr<FreeRadius> RadiusWithFreeRadius::server_;

TEST_F(RadiusWithFreeRadius, AcceptsAPassword) {
    expect_rights_of_alice(ask(server_->authentication(), login()).answer);
}

TEST_F(RadiusWithFreeRadius, SendsAttributesOfAVendor) {
    std::string error;
    const auto map = VendorMap::parse("32473 1 text group\n32473 2 number privilege\n", "map", error);
    ASSERT_TRUE(map) << error;
    const Outcome outcome = ask(server_->authentication(), login());
    const VendorMap::Values values = map->read(outcome.answer.attributes());
    ASSERT_EQ(values.values.size(), 2U);
    EXPECT_TRUE(values.faults.empty());
    EXPECT_EQ(values.values[0].name + "=" + values.values[0].text, "group=admins");
    EXPECT_EQ(values.values[1].name + "=" + values.values[1].text, "privilege=15");
}

TEST_F(RadiusWithFreeRadius, RejectsAWrongPassword) {
    const Outcome outcome = ask(server_->authentication(), login("alice", "wrong"));
    EXPECT_EQ(outcome.answer.code(), Code::kAccessReject);
}

TEST_F(RadiusWithFreeRadius, RejectsWithText) {
    const Outcome outcome = ask(server_->authentication(), login("bob", "any"));
    EXPECT_EQ(outcome.answer.code(), Code::kAccessReject);
    EXPECT_EQ(outcome.answer.text(), "Account locked");
}

// Each length of a password that fills another number of blocks.
TEST_F(RadiusWithFreeRadius, UnderstandsLongPasswords) {
    for (const std::size_t length : {1, 16, 17, 128}) {
        const Outcome outcome = ask(server_->authentication(), login("alice", std::string(length, 'p')));
        EXPECT_EQ(outcome.answer.code(), Code::kAccessReject);
    }
}

TEST_F(RadiusWithFreeRadius, AcceptsChap) {
    const std::string challenge = "sixteen byte one";
    Digest digest;
    ASSERT_TRUE(md5({std::string_view("\7", 1), "wonderland", challenge}, digest));
    for (const bool right : {true, false}) {
        Question question = Question::access();
        ASSERT_TRUE(question.add(Type::kUserName, "alice"));
        digest[0] = static_cast<std::uint8_t>(digest[0] ^ (right ? 0 : 1));
        question.set_chap({.id = 7, .response = std::string(view_of(digest)), .challenge = challenge});
        const Outcome outcome = ask(server_->authentication(), std::move(question));
        EXPECT_EQ(outcome.answer.code(), right ? Code::kAccessAccept : Code::kAccessReject);
    }
}

TEST_F(RadiusWithFreeRadius, AnswersAChallenge) {
    for (const bool right : {true, false}) {
        const Outcome first = ask(server_->authentication(), login("carol", "any"));
        ASSERT_EQ(first.answer.code(), Code::kAccessChallenge);
        EXPECT_EQ(first.answer.text(), "Code: ");
        Question second = login("carol", right ? "123456" : "654321");
        second.set_challenge(first.answer);
        EXPECT_EQ(ask(server_->authentication(), std::move(second)).answer.code(),
                  right ? Code::kAccessAccept : Code::kAccessReject);
    }
}

TEST_F(RadiusWithFreeRadius, RecordsASession) {
    const Outcome accept = ask(server_->authentication(), login());
    Accounting event = {.session_id = "session-77", .event_time = 1700000000, .delay = 3};
    event.classes = accept.answer.classes();
    for (const AccountingStatus status :
         {AccountingStatus::kStart, AccountingStatus::kInterim, AccountingStatus::kStop}) {
        event.status = status;
        if (status != AccountingStatus::kStart) {
            event.session_time = 60;
        }
        if (status == AccountingStatus::kStop) {
            event.terminate_cause = 1;
        }
        Question question = Question::accounting(event);
        ASSERT_TRUE(question.add(Type::kUserName, "alice"));
        EXPECT_EQ(ask(server_->accounting(), std::move(question)).answer.code(), Code::kAccountingResponse);
    }
    const std::string detail = server_->detail();
    for (const char *line :
         {"Acct-Status-Type = Start", "Acct-Status-Type = Interim-Update", "Acct-Status-Type = Stop",
          "Acct-Session-Id = \"session-77\"", "User-Name = \"alice\"", "Acct-Delay-Time = 3",
          "Class = 0x6f6e65", "Class = 0x74776f", "Acct-Session-Time = 60",
          "Acct-Terminate-Cause = User-Request", "NAS-Identifier = \"router-1\"",
          "Event-Timestamp = \"Nov 14 2023"}) {
        EXPECT_NE(detail.find(line), std::string::npos) << line << " is not in\n" << detail;
    }
}

TEST_F(RadiusWithFreeRadius, SaysThatItIsThere) {
    for (const ServerSettings &settings : {server_->authentication(), server_->accounting()}) {
        client = make_client(loop, settings);
        Result result(loop);
        client->ask_status(result.done());
        EXPECT_EQ(result.wait().kind, Kind::kAnswer) << result.wait().text;
        EXPECT_EQ(client->counters().status_answers, 1U);
    }
}

TEST_F(RadiusWithFreeRadius, IsSilentWithAnotherSecret) {
    ServerSettings settings = server_->authentication();
    settings.secret = Secret("another");
    settings.timeout = settings.longest_timeout = 50 * net::kMillisecond;
    quiet = true;
    const Outcome outcome = ask(settings, login());
    EXPECT_EQ(outcome.kind, Kind::kSilent);
    EXPECT_NE(outcome.text.find("secret"), std::string::npos);
}

TEST_F(RadiusWithFreeRadius, IsSilentWhenItIsStopped) {
    server_->pause();
    ServerSettings settings = server_->authentication();
    settings.timeout = settings.longest_timeout = 50 * net::kMillisecond;
    quiet = true;
    EXPECT_EQ(ask(settings, login()).kind, Kind::kSilent);
    server_->resume();
    quiet = false;
    EXPECT_EQ(ask(server_->authentication(), login()).kind, Kind::kAnswer);
}

// It recognises the repeated packets, and answers once.
TEST_F(RadiusWithFreeRadius, AnswersAfterRetransmissions) {
    ServerSettings settings = server_->authentication();
    settings.timeout = settings.longest_timeout = net::kSecond / 5;
    settings.tries = 100;
    const Outcome outcome = ask(settings, login("sleepy", "any"));
    EXPECT_EQ(outcome.answer.code(), Code::kAccessAccept);
    EXPECT_GT(outcome.tries, 1);
    EXPECT_EQ(client->counters().accepts, 1U);
}

TEST_F(RadiusWithFreeRadius, AnswersManyAtOnce) {
    client = make_client(loop, server_->authentication());
    constexpr int kQuestions = 400;
    int answers = 0;
    for (int i = 0; i < kQuestions; ++i) {
        client->ask(login(), [&](const Outcome &outcome) { answers += outcome.kind == Kind::kAnswer; });
    }
    while (client->under_way() > 0) {
        loop.run_once(INT64_MAX);
    }
    EXPECT_EQ(answers, kQuestions);
}

TEST_F(RadiusWithFreeRadius, WorksOverTls) {
    const auto tls = make_client(loop, server_->tls());
    Result accept(loop), reject(loop), accounting(loop), status(loop);
    tls->ask(login(), accept.done());
    tls->ask(login("bob", "any"), reject.done());
    tls->ask(Question::accounting({.session_id = "session-over-tls"}), accounting.done());
    tls->ask_status(status.done());
    ASSERT_EQ(accept.wait().kind, Kind::kAnswer) << accept.wait().text << server_->log();
    expect_rights_of_alice(accept.wait().answer);
    EXPECT_EQ(reject.wait().answer.text(), "Account locked");
    EXPECT_EQ(accounting.wait().answer.code(), Code::kAccountingResponse);
    EXPECT_EQ(status.wait().kind, Kind::kAnswer);
    EXPECT_EQ(tls->counters().connections, 1U);
    EXPECT_NE(server_->detail().find("session-over-tls"), std::string::npos);
}

TEST_F(RadiusWithFreeRadius, AnswersManyAtOnceOverTls) {
    const auto tls = make_client(loop, server_->tls());
    constexpr int kQuestions = 200;
    int answers = 0;
    for (int i = 0; i < kQuestions; ++i) {
        tls->ask(login(), [&](const Outcome &outcome) { answers += outcome.kind == Kind::kAnswer; });
    }
    while (tls->under_way() > 0) {
        loop.run_once(INT64_MAX);
    }
    EXPECT_EQ(answers, kQuestions);
}

TEST_F(RadiusWithFreeRadius, IsRefusedUnderAnotherName) {
    ServerSettings settings = server_->tls();
    settings.tries = 1;
    settings.tls.name = "another.test";
    quiet = true;
    const Outcome outcome = ask(settings, login());
    EXPECT_EQ(outcome.kind, Kind::kRefused);
    EXPECT_EQ(outcome.tries, 0);
    EXPECT_NE(outcome.text.find("the server's certificate is refused"), std::string::npos) << outcome.text;
}

TEST_F(RadiusWithFreeRadius, RefusesThisSideWithoutACertificate) {
    ServerSettings settings = server_->tls(false);
    settings.tries = 2;
    settings.reconnect = settings.longest_reconnect = net::kMillisecond;
    quiet = true;
    EXPECT_EQ(ask(settings, login()).kind, Kind::kRefused);
    EXPECT_EQ(client->counters().connection_failures, 2U);
}

// ---- servers of their own

TEST(RadiusWithOwnFreeRadius, IsRefusedAtOnceWhenItHasEnded) {
    if (!FreeRadius::is_installed()) {
        GTEST_SKIP() << FreeRadius::kMissing;
    }
    FreeRadius server;
    server.stop();
    net::Loop loop;
    const auto client = make_client(loop, server.authentication());
    Result result(loop);
    client->ask(login(), result.done());
    EXPECT_EQ(result.wait().kind, Kind::kRefused);
    EXPECT_EQ(result.wait().tries, 1);
}

// As this server is by default.
TEST(RadiusWithOwnFreeRadius, NeedsTheLegacySettingWithoutMessageAuthenticator) {
    if (!FreeRadius::is_installed()) {
        GTEST_SKIP() << FreeRadius::kMissing;
    }
    FreeRadius server(false);
    net::Loop loop;
    ServerSettings settings = server.authentication();
    settings.timeout = settings.longest_timeout = net::kSecond;
    settings.tries = 2;
    const auto strict = make_client(loop, settings);
    Result refused(loop);
    strict->ask(login(), refused.done());
    EXPECT_EQ(refused.wait().kind, Kind::kSilent);
    EXPECT_NE(refused.wait().text.find("without Message-Authenticator"), std::string::npos)
        << refused.wait().text;
    ServerSettings legacy = server.authentication();
    legacy.legacy = true;
    const auto client = make_client(loop, legacy);
    Result accepted(loop);
    client->ask(login(), accepted.done());
    EXPECT_EQ(accepted.wait().kind, Kind::kAnswer);
}

}  // namespace
}  // namespace radius
