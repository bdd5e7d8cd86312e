// SPDX-License-Identifier: Apache-2.0
//
// Which question uses which connection, and limits.

#include <gmock/gmock.h>

#include "tacacs/client.hpp"
#include "tacacs/test_server.hpp"

namespace tacacs {
namespace {

using tacacs_test::ascii;
using tacacs_test::Crowd;
using tacacs_test::Fixture;
using tacacs_test::kShow;
using tacacs_test::pap;
using testing::HasSubstr;

constexpr char kUsers[] = R"({"alice": {"password": "wonderland"}, "held": {"misbehave": "held"}})";
constexpr char kEach[] = R"({"main": {"single_connection": false}})";
// ---- sharing ------------------------------------------------------------------------------

TEST(Connection, IsSharedByQuestionsOneAfterTheOther) {
    Fixture fixture(kUsers);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(fixture.authorize("alice", kShow).result, Result::kAnswer);
        EXPECT_EQ(fixture.log_in(pap("alice", "wonderland")).status, AuthenticationStatus::kPass);
    }
    EXPECT_EQ(fixture.get().counters().connections, 1u);
    EXPECT_EQ(fixture.get().counters().answers, 20u);
    EXPECT_GT(fixture.get().counters().round_trip, 0);
}

TEST(Connection, IsSharedByManyQuestionsAtOnce) {
    Fixture fixture(kUsers);
    fixture.authorize("alice", kShow);
    Crowd crowd(fixture, 200, "alice");
    EXPECT_EQ(fixture.get().counters().in_flight, 200u);
    crowd.run();
    EXPECT_EQ(crowd.answers, 200);
    EXPECT_EQ(fixture.get().counters().connections, 1u);
    EXPECT_EQ(fixture.get().counters().in_flight, 0u);
}

TEST(Connection, OfWhichNothingIsKnownIsNotSharedYet) {
    Fixture fixture(kUsers);
    Crowd crowd(fixture, 100, "alice");
    EXPECT_GT(fixture.get().counters().waiting, 0u);
    crowd.run();
    EXPECT_EQ(crowd.answers, 100);
    EXPECT_LE(fixture.get().counters().connections, 8u);
}

TEST(Connection, DoesNotLetAQuestionWaitForAnother) {
    Fixture fixture(kUsers);
    Crowd first(fixture, 1, "held");
    fixture.server.wait_for("held 1 held");
    EXPECT_EQ(fixture.authorize("alice", kShow).result, Result::kAnswer);
    Crowd second(fixture, 1, "held");
    EXPECT_EQ(fixture.log_in(pap("alice", "wonderland")).status, AuthenticationStatus::kPass);
    EXPECT_EQ(first.outcomes + second.outcomes, 0);
    fixture.server.command("release");
    first.run();
    second.run();
    EXPECT_EQ(first.answers + second.answers, 2);
}

TEST(Connection, IsNotSharedWhereTheServerDoesNotAgree) {
    Fixture fixture(kUsers, kEach);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(fixture.authorize("alice", kShow).result, Result::kAnswer);
    }
    fixture.log_in(ascii("alice"));
    EXPECT_EQ(fixture.answer("wonderland").status, AuthenticationStatus::kPass);
    EXPECT_EQ(fixture.get().counters().connections, 4u);
    fixture.run_until([&] { return fixture.get().counters().open_connections == 0; });
    Crowd crowd(fixture, 100, "alice");
    EXPECT_EQ(fixture.get().counters().open_connections, 32u);
    EXPECT_EQ(fixture.get().counters().waiting, 68u);
    crowd.run();
    EXPECT_EQ(crowd.answers, 100);
}

TEST(Connection, IsNotSharedWhereThisSideDoesNotOfferIt) {
    Fixture fixture(kUsers);
    fixture.settings.single_connection = false;
    Crowd crowd(fixture, 40, "alice");
    EXPECT_EQ(fixture.get().counters().open_connections, 32u);
    crowd.run();
    EXPECT_EQ(crowd.answers, 40);
    EXPECT_EQ(fixture.get().counters().connections, 40u);
}

TEST(Connection, ThatIsIdleIsClosed) {
    Fixture fixture(kUsers);
    fixture.settings.idle_time = 0;
    EXPECT_EQ(fixture.authorize("alice", kShow).result, Result::kAnswer);
    fixture.server.wait_for("close 1");
    EXPECT_EQ(fixture.get().counters().open_connections, 0u);
    EXPECT_EQ(fixture.authorize("alice", kShow).result, Result::kAnswer);
    EXPECT_EQ(fixture.get().counters().connections, 2u);
}

TEST(Connection, WhoseUserIsTypingIsNotIdle) {
    Fixture fixture(kUsers);
    fixture.settings.idle_time = 0;
    fixture.log_in(ascii("alice"));
    EXPECT_EQ(fixture.authorize("alice", kShow).result, Result::kAnswer);
    EXPECT_EQ(fixture.answer("wonderland").status, AuthenticationStatus::kPass);
    EXPECT_EQ(fixture.get().counters().connections, 1u);
}

TEST(Connection, ThatTheServerClosedWhileIdleIsReplaced) {
    Fixture fixture(kUsers);
    fixture.authorize("alice", kShow);
    fixture.server.command("drop");
    fixture.run_until([&] { return fixture.get().counters().open_connections == 0; });
    EXPECT_EQ(fixture.log_in(pap("alice", "wonderland")).status, AuthenticationStatus::kPass);
}

// ---- limits -------------------------------------------------------------------------------

// Otherwise those who open terminals and type nothing would keep all others out.
TEST(Limit, OfConnectionsDoesNotCountThoseWhoseUserIsTyping) {
    Fixture fixture(kUsers, kEach);
    fixture.settings.max_connections = 1;
    std::vector<Client::Id> logins;
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(fixture.log_in(ascii("alice")).status, AuthenticationStatus::kGetPassword);
        logins.push_back(fixture.login);
    }
    EXPECT_EQ(fixture.get().counters().open_connections, 5u);
    EXPECT_EQ(fixture.authorize("alice", kShow).result, Result::kAnswer);
    for (const Client::Id login : logins) {
        fixture.login = login;
        EXPECT_EQ(fixture.answer("wonderland").status, AuthenticationStatus::kPass);
    }
}

TEST(Limit, OfLoginsIsKept) {
    for (const char *listeners : {tacacs_test::kMain, kEach}) {
        Fixture fixture(kUsers, listeners);
        fixture.settings.max_logins = 2;
        fixture.log_in(ascii("alice"));
        const Client::Id first = fixture.login;
        fixture.log_in(ascii("alice"));
        const AuthenticationOutcome outcome = fixture.log_in(ascii("alice"));
        EXPECT_EQ(outcome.result, Result::kError);
        EXPECT_THAT(outcome.text, HasSubstr("too many logins wait for their users"));
        fixture.server.wait_for("alice abort too many logins");
        fixture.get().abort(first, "gone");
        EXPECT_EQ(fixture.log_in(ascii("alice")).status, AuthenticationStatus::kGetPassword);
    }
}

TEST(Limit, OfQuestionsThatWaitIsKept) {
    Fixture fixture(kUsers, kEach);
    fixture.settings.max_connections = 1;
    fixture.settings.max_waiting = 10;
    Crowd crowd(fixture, 20, "alice");
    crowd.run();
    EXPECT_EQ(crowd.answers, 11);
    EXPECT_THAT(crowd.texts, testing::Contains(HasSubstr("too many questions wait")).Times(9));
    EXPECT_EQ(fixture.get().counters().errors, 9u);
}

TEST(Limit, OfConnectionsLetsAQuestionWaitUntilItsDeadline) {
    Fixture fixture(kUsers, kEach);
    fixture.settings.max_connections = 1;
    Crowd held(fixture, 1, "held");
    std::optional<AuthorizationOutcome> waiting;
    fixture.get().authorize({.user = "alice"}, kShow, net::Loop::clock() + net::kMillisecond,
                            [&](AuthorizationOutcome outcome) { waiting = outcome; });
    fixture.run_until([&] { return waiting.has_value(); });
    EXPECT_EQ(waiting->result, Result::kSilent);
    EXPECT_THAT(waiting->text, HasSubstr("no connection to"));
    EXPECT_EQ(waiting->tries, 0u);
    EXPECT_EQ(fixture.get().counters().waiting, 0u);
    fixture.server.wait_for("held 1 held");
    fixture.server.command("release");
    held.run();
    EXPECT_EQ(held.answers, 1);
}

}  // namespace
}  // namespace tacacs
