// SPDX-License-Identifier: Apache-2.0
//
// Questions that are given up, settings, and the delivery of outcomes.

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
// ---- questions that are given up ----------------------------------------------------------

TEST(Cancel, EndsAQuestionThatWasSent) {
    for (const bool is_shared : {true, false}) {
        Fixture fixture(kUsers, is_shared ? tacacs_test::kMain : kEach);
        fixture.authorize("alice", kShow);
        bool called = false;
        const Client::Id id = fixture.get().authorize({.user = "held"}, kShow, INT64_MAX,
                                                      [&](const AuthorizationOutcome &) { called = true; });
        fixture.server.wait_for(is_shared ? "held 1 held" : "held 2 held");
        fixture.get().cancel(id);
        fixture.get().cancel(id);
        EXPECT_EQ(fixture.get().counters().in_flight, 0u);
        fixture.server.command("release");
        EXPECT_EQ(fixture.authorize("alice", kShow).result, Result::kAnswer);
        EXPECT_FALSE(called);
    }
}

// The late answer must not be taken for that to another question, nor end the connection.
TEST(Cancel, LetsALateAnswerPass) {
    Fixture fixture(kUsers);
    fixture.authorize("alice", kShow);
    Crowd waits(fixture, 1, "held");
    const Client::Id id =
        fixture.get().authorize({.user = "held"}, kShow, INT64_MAX, [](const AuthorizationOutcome &) {});
    fixture.server.wait_for("held 1 held", 2);
    fixture.get().cancel(id);
    fixture.server.command("release");
    fixture.run_until([&] { return fixture.get().counters().late == 1; });
    waits.run();
    EXPECT_EQ(waits.answers, 1);
    EXPECT_EQ(fixture.authorize("alice", kShow).result, Result::kAnswer);
    EXPECT_EQ(fixture.get().counters().connections, 1u);
}

TEST(Cancel, EndsAQuestionThatWaitsForAConnection) {
    Fixture fixture(kUsers, kEach);
    fixture.settings.max_connections = 1;
    Crowd held(fixture, 1, "held");
    bool called = false;
    const Client::Id id = fixture.get().authorize({.user = "alice"}, kShow, INT64_MAX,
                                                  [&](const AuthorizationOutcome &) { called = true; });
    EXPECT_EQ(fixture.get().counters().waiting, 1u);
    fixture.get().cancel(id);
    EXPECT_EQ(fixture.get().counters().waiting, 0u);
    fixture.server.wait_for("held 1 held");
    fixture.server.command("release");
    held.run();
    EXPECT_FALSE(called);
    EXPECT_EQ(fixture.server.seen("alice"), 0u);
}

TEST(Cancel, EndsALoginWhoseUserIsTyping) {
    Fixture fixture(kUsers);
    fixture.log_in(ascii("alice"));
    fixture.get().cancel(fixture.login);
    fixture.server.wait_for("alice abort the login was cancelled");
    EXPECT_EQ(fixture.get().counters().logins, 0u);
}

TEST(Cancel, EndsAQuestionWhoseOutcomeIsAboutToBeDelivered) {
    Fixture fixture(kUsers);
    bool called = false;
    const Client::Id id =
        fixture.get().authorize({.user = "alice"}, std::vector<std::string>{"without separator"}, INT64_MAX,
                                [&](const AuthorizationOutcome &) { called = true; });
    fixture.get().cancel(id);
    EXPECT_EQ(fixture.authorize("alice", kShow).result, Result::kAnswer);
    EXPECT_FALSE(called);
}

TEST(Outcome, MayAskCancelAndDestroyTheClient) {
    Fixture fixture(kUsers);
    const std::vector<std::string> faulty = {"without separator"};
    std::vector<int> calls;
    Client::Id other = 0;
    fixture.get().authorize({.user = "alice"}, faulty, INT64_MAX, [&](const AuthorizationOutcome &) {
        calls.push_back(1);
        fixture.get().cancel(other);
        fixture.get().authorize(
            {.user = "alice"}, kShow, INT64_MAX, [&](const AuthorizationOutcome &outcome) {
                EXPECT_EQ(outcome.result, Result::kAnswer);
                calls.push_back(3);
                const std::string text = "captured by a function that destroys what holds it";
                fixture.client.reset();
                EXPECT_EQ(text.size(), 50u);
            });
    });
    other = fixture.get().authorize({.user = "alice"}, faulty, INT64_MAX,
                                    [&](const AuthorizationOutcome &) { calls.push_back(2); });
    fixture.run_until([&] { return calls.size() == 2; });
    EXPECT_THAT(calls, testing::ElementsAre(1, 3));
    EXPECT_EQ(fixture.client, nullptr);
    EXPECT_EQ(fixture.authorize("alice", kShow).result, Result::kAnswer);
}

TEST(Client, NeedsASecretAndATimeOut) {
    net::Loop loop;
    ServerSettings settings;
    settings.address = *net::Address::parse("127.0.0.1", kPort);
    std::string error;
    EXPECT_EQ(Client::make(loop, settings, error), nullptr);
    EXPECT_EQ(error, "the shared secret is empty");
    settings.secret = SecretBytes("x");
    settings.timeout = 0;
    EXPECT_EQ(Client::make(loop, settings, error), nullptr);
    EXPECT_THAT(error, HasSubstr("time-out"));
    settings.timeout = 1;
    EXPECT_NE(Client::make(loop, settings, error), nullptr);
}

TEST(Client, DeliversNothingOnceItIsDestroyed) {
    Fixture fixture(kUsers);
    auto alive = std::make_shared<int>(0);
    bool called = false;
    for (const char *user : {"alice", "held"}) {
        fixture.get().authorize({.user = user}, kShow, INT64_MAX,
                                [&called, alive](const AuthorizationOutcome &) { called = true; });
    }
    fixture.server.wait_for("held 2 held");
    fixture.client.reset();
    EXPECT_EQ(alive.use_count(), 1);
    called = false;
    fixture.server.wait_for("close", 2);
    EXPECT_FALSE(called);
}

}  // namespace
}  // namespace tacacs
