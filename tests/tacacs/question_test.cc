// SPDX-License-Identifier: Apache-2.0
//
// Questions of each kind and their outcomes.

#include "tacacs/client.hpp"

#include <gmock/gmock.h>

#include "support/memory_search.hpp"
#include "tacacs/test_server.hpp"

namespace tacacs {
namespace {

using tacacs_test::ascii;
using tacacs_test::Fixture;
using tacacs_test::pap;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kAlice[] = R"({"alice": {"password": "wonderland", "enable": "rabbit", "message": "Welcome",
    "commands": [["permit", "show .*"]], "arguments": ["priv-lvl=15", "idletime*10"]},
    "carol": {"password": "secret", "token": "123456"}})";

// ---- logins -------------------------------------------------------------------------------

TEST(Login, AsksForThePasswordAndPasses) {
    Fixture fixture(kAlice);
    AuthenticationOutcome outcome = fixture.log_in(ascii("alice"));
    ASSERT_EQ(outcome.result, Result::kAnswer) << outcome.text;
    EXPECT_TRUE(outcome.goes_on());
    EXPECT_EQ(outcome.status, AuthenticationStatus::kGetPassword);
    EXPECT_EQ(outcome.message, "Password: ");
    EXPECT_TRUE(outcome.hides_input);
    EXPECT_EQ(fixture.get().counters().logins, 1u);
    outcome = fixture.answer("wonderland");
    ASSERT_EQ(outcome.result, Result::kAnswer) << outcome.text;
    EXPECT_EQ(outcome.status, AuthenticationStatus::kPass);
    EXPECT_EQ(outcome.message, "Welcome");
    EXPECT_FALSE(outcome.goes_on());
    EXPECT_GT(outcome.round_trip, 0);
    EXPECT_EQ(outcome.tries, 2u);
    EXPECT_EQ(fixture.get().counters().logins, 0u);
}

TEST(Login, IsRefusedWithAnotherPassword) {
    Fixture fixture(kAlice);
    fixture.log_in(ascii("alice"));
    const AuthenticationOutcome outcome = fixture.answer("other");
    EXPECT_EQ(outcome.result, Result::kAnswer);
    EXPECT_EQ(outcome.status, AuthenticationStatus::kFail);
}

TEST(Login, GoesThroughAllRoundsTheServerWants) {
    Fixture fixture(kAlice);
    AuthenticationOutcome outcome = fixture.log_in(ascii(""));
    EXPECT_EQ(outcome.status, AuthenticationStatus::kGetUser);
    EXPECT_EQ(outcome.message, "Username: ");
    EXPECT_FALSE(outcome.hides_input);
    outcome = fixture.answer("carol");
    EXPECT_EQ(outcome.status, AuthenticationStatus::kGetPassword);
    outcome = fixture.answer("secret");
    EXPECT_EQ(outcome.status, AuthenticationStatus::kGetData);
    EXPECT_EQ(outcome.message, "Token: ");
    EXPECT_TRUE(outcome.goes_on());
    outcome = fixture.answer("123456");
    EXPECT_EQ(outcome.status, AuthenticationStatus::kPass);
}

TEST(Login, WithPapIsDecidedAtOnce) {
    Fixture fixture(kAlice);
    AuthenticationOutcome outcome = fixture.log_in(pap("alice", "wonderland"));
    ASSERT_EQ(outcome.result, Result::kAnswer) << outcome.text;
    EXPECT_EQ(outcome.status, AuthenticationStatus::kPass);
    outcome = fixture.log_in(pap("alice", "other"));
    EXPECT_EQ(outcome.status, AuthenticationStatus::kFail);
    outcome = fixture.log_in(pap("nobody", "wonderland"));
    EXPECT_EQ(outcome.status, AuthenticationStatus::kFail);
}

TEST(Login, WithChapIsDecidedAtOnce) {
    Fixture fixture(kAlice);
    // MD5 of 7, "wonderland", "challenge"
    std::string response = "\x83\xfa\xaf\xce\xba\x67\xc9\xa2\x0e\xc3\xf3\x20\xc0\xfc\x61\x59";
    SecretBytes data = data_of_chap(7, "challenge", response);
    Start start = {.subject = {.user = "alice", .type = AuthenticationType::kChap}, .data = data.view()};
    EXPECT_EQ(fixture.log_in(start).status, AuthenticationStatus::kPass);
    response[0] ^= 1;
    data = data_of_chap(7, "challenge", response);
    start.data = data.view();
    EXPECT_EQ(fixture.log_in(start).status, AuthenticationStatus::kFail);
}

TEST(Login, ForEnableAsksForTheEnablePassword) {
    Fixture fixture(kAlice);
    Start start = ascii("alice");
    start.subject.service = Service::kEnable;
    start.subject.privilege = 15;
    EXPECT_EQ(fixture.log_in(start).status, AuthenticationStatus::kGetPassword);
    EXPECT_EQ(fixture.answer("rabbit").status, AuthenticationStatus::kPass);
    fixture.server.wait_for("alice enable ascii");
}

TEST(Login, ChangesAPassword) {
    Fixture fixture(kAlice);
    Start start = ascii("alice");
    start.action = Action::kChangePassword;
    EXPECT_EQ(fixture.log_in(start).message, "Old password: ");
    EXPECT_EQ(fixture.answer("wonderland").message, "New password: ");
    EXPECT_EQ(fixture.answer("looking-glass").message, "Again: ");
    EXPECT_EQ(fixture.answer("looking-glass").status, AuthenticationStatus::kPass);
    EXPECT_EQ(fixture.log_in(pap("alice", "looking-glass")).status, AuthenticationStatus::kPass);
    EXPECT_EQ(fixture.log_in(pap("alice", "wonderland")).status, AuthenticationStatus::kFail);
}

TEST(Login, ThatTheUserLeavesIsEndedAtTheServer) {
    for (const char *listener : {"main", "each"}) {
        Fixture fixture(kAlice, R"({"main": {}, "each": {"single_connection": false}})");
        fixture.settings.address = fixture.server.address(listener);
        fixture.log_in(ascii("alice"));
        fixture.get().abort(fixture.login, "the user has pressed Control-C");
        EXPECT_EQ(fixture.get().counters().logins, 0u);
        fixture.server.wait_for("alice abort the user has pressed Control-C");
        const AuthenticationOutcome outcome = fixture.answer("wonderland");
        EXPECT_EQ(outcome.result, Result::kError);
        EXPECT_THAT(outcome.text, HasSubstr("there is no such login"));
        EXPECT_EQ(fixture.log_in(pap("alice", "wonderland")).status, AuthenticationStatus::kPass);
    }
}

TEST(Login, WhoseUserTakesTooLongIsEndedAtTheServer) {
    Fixture fixture(kAlice);
    fixture.settings.user_time = net::kMillisecond;
    fixture.log_in(ascii("alice"));
    fixture.server.wait_for("alice abort the user has taken too long");
    EXPECT_EQ(fixture.answer("wonderland").result, Result::kError);
    EXPECT_EQ(fixture.get().counters().logins, 0u);
}

TEST(Login, WithErrorOrRestartIsAnError) {
    Fixture fixture(
        R"({"error": {"status": "ERROR", "message": "no database"}, "restart": {"status": "RESTART"}})");
    AuthenticationOutcome outcome = fixture.log_in(pap("error", "x"));
    EXPECT_EQ(outcome.result, Result::kError);
    EXPECT_EQ(outcome.text, "the server has answered with an error: no database");
    outcome = fixture.log_in(pap("restart", "x"));
    EXPECT_EQ(outcome.result, Result::kError);
    EXPECT_THAT(outcome.text, HasSubstr("another type of login"));
}

TEST(Login, WithAnErrorPutsNothingIntoTheLogButAShortLine) {
    Fixture fixture(R"({"error": {"status": "ERROR", "message": "one\nroot logged in\u001b[2J"},
        "long": {"status": "ERROR", "message": ")" +
                    std::string(1000, 'x') + "\"}}");
    EXPECT_EQ(fixture.log_in(pap("error", "x")).text,
              "the server has answered with an error: one root logged in [2J");
    EXPECT_EQ(fixture.log_in(pap("long", "x")).text,
              "the server has answered with an error: " + std::string(300, 'x') + "...");
}

// As an error it would make the next method decide.
TEST(Login, ThatIsReferredToAnotherServerIsRefused) {
    Fixture fixture(R"({"follow": {"status": "FOLLOW", "message": "192.0.2.99"}})");
    const AuthenticationOutcome outcome = fixture.log_in(pap("follow", "x"));
    EXPECT_EQ(outcome.result, Result::kAnswer);
    EXPECT_EQ(outcome.status, AuthenticationStatus::kFail);
    EXPECT_THAT(outcome.text, HasSubstr("never followed"));
}

TEST(Login, OfMoreRoundsThanSequenceNumbersIsAnError) {
    Fixture fixture(R"({"carol": {"password": "secret", "token": "123456", "rounds": 300}})");
    AuthenticationOutcome outcome = fixture.log_in(ascii("carol"));
    int rounds = 0;
    for (; outcome.goes_on(); ++rounds) {
        outcome = fixture.answer("secret");
    }
    EXPECT_EQ(outcome.result, Result::kError);
    EXPECT_THAT(outcome.text, HasSubstr("asks too many questions"));
    EXPECT_EQ(rounds, 126);
}

TEST(Login, WithWhatDoesNotFitIsNotSent) {
    Fixture fixture(kAlice);
    AuthenticationOutcome outcome = fixture.log_in(pap("alice", std::string(256, 'x')));
    EXPECT_EQ(outcome.result, Result::kError);
    EXPECT_THAT(outcome.text, HasSubstr("the password has 256 bytes"));
    EXPECT_EQ(outcome.tries, 0u);
    fixture.log_in(ascii("alice"));
    outcome = fixture.answer(std::string(70000, 'x'));
    EXPECT_EQ(outcome.result, Result::kError);
    EXPECT_THAT(outcome.text, HasSubstr("the input has 70000 bytes"));
    fixture.server.wait_for("alice abort the input was too long");
}

constexpr Inverted kPassword("a password that is found only here");

TEST(Login, LeavesNoPasswordInMemory) {
    Fixture fixture(kAlice);
    std::string room;
    room.reserve(64);
    const auto password = [&] {
        room.clear();
        for (const char byte : kPassword.bytes) {
            room += static_cast<char>(~byte);
        }
        return std::string_view(room);
    };
    fixture.log_in(pap("alice", password()));
    fixture.log_in(ascii("alice"));
    fixture.answer(password());
    wipe(room.data(), room.capacity());
    EXPECT_EQ(copies_in_memory(kPassword), 0u);
}

// ---- authorization ------------------------------------------------------------------------

TEST(Authorization, PassesWithArguments) {
    Fixture fixture(kAlice);
    const AuthorizationOutcome outcome =
        fixture.authorize("alice", {"service=shell", "cmd=show", "cmd-arg=version", "cmd-arg=<cr>"});
    ASSERT_EQ(outcome.result, Result::kAnswer) << outcome.text;
    EXPECT_EQ(outcome.status, AuthorizationStatus::kPassAdd);
    EXPECT_THAT(outcome.arguments, ElementsAre("priv-lvl=15", "idletime*10"));
    EXPECT_EQ(outcome.message, "Welcome");
    fixture.server.wait_for("author 1 alice show version");
}

// Some servers send the arguments of a permission with a refusal.
TEST(Authorization, ThatIsRefusedHasNoArguments) {
    Fixture fixture(kAlice);
    const AuthorizationOutcome outcome = fixture.authorize("alice", {"service=shell", "cmd=reload"});
    EXPECT_EQ(outcome.result, Result::kAnswer);
    EXPECT_EQ(outcome.status, AuthorizationStatus::kFail);
    EXPECT_THAT(outcome.arguments, IsEmpty());
}

TEST(Authorization, MayReplaceTheArguments) {
    Fixture fixture(R"({"alice": {"author": "PASS_REPL", "arguments": ["cmd=show"]}})");
    const AuthorizationOutcome outcome = fixture.authorize("alice", {"cmd=reload"});
    EXPECT_EQ(outcome.status, AuthorizationStatus::kPassReplace);
    EXPECT_THAT(outcome.arguments, ElementsAre("cmd=show"));
}

TEST(Authorization, WithErrorOrFollowIsAnError) {
    Fixture fixture(R"({"error": {"author": "ERROR", "message": "no database", "arguments": ["priv-lvl=15"]},
        "follow": {"author": "FOLLOW"}})");
    AuthorizationOutcome outcome = fixture.authorize("error", {"cmd=show"});
    EXPECT_EQ(outcome.result, Result::kError);
    EXPECT_EQ(outcome.text, "the server has answered with an error: no database");
    EXPECT_EQ(outcome.status, AuthorizationStatus::kFail);
    EXPECT_THAT(outcome.arguments, IsEmpty());
    outcome = fixture.authorize("follow", {"cmd=show"});
    EXPECT_EQ(outcome.result, Result::kError);
    EXPECT_THAT(outcome.text, HasSubstr("never followed"));
}

TEST(Authorization, OfACommandThatDoesNotFitIsNotSent) {
    Fixture fixture(R"({"alice": {}})");
    const AuthorizationOutcome outcome = fixture.authorize("alice", {"cmd=" + std::string(252, 'x')});
    EXPECT_EQ(outcome.result, Result::kError);
    EXPECT_THAT(outcome.text, HasSubstr("argument 1 has 256 bytes"));
    EXPECT_EQ(outcome.status, AuthorizationStatus::kFail);
    EXPECT_EQ(fixture.get().counters().connections, 0u);
}

// ---- accounting ---------------------------------------------------------------------------

TEST(Accounting, RecordsStartWatchdogAndStop) {
    Fixture fixture(kAlice);
    EXPECT_EQ(fixture.account(Record::kStart, "alice", {"task_id=7"}).result, Result::kAnswer);
    EXPECT_EQ(fixture.account(Record::kWatchdog, "alice", {"task_id=7"}).result, Result::kAnswer);
    EXPECT_EQ(fixture.account(Record::kStop, "alice", {"task_id=7", "elapsed_time=3"}).result,
              Result::kAnswer);
    fixture.server.wait_for("acct 1 alice stop task_id=7 elapsed_time=3");
    fixture.server.wait_for("acct 1 alice start task_id=7");
    fixture.server.wait_for("acct 1 alice watchdog task_id=7");
}

TEST(Accounting, WithErrorOrFollowIsAnError) {
    Fixture fixture(R"({"error": {"acct": "ERROR", "message": "disk full"}, "follow": {"acct": "FOLLOW"}})");
    const AccountingOutcome outcome = fixture.account(Record::kStop, "error", {"task_id=7"});
    EXPECT_EQ(outcome.result, Result::kError);
    EXPECT_EQ(outcome.text, "the server has answered with an error: disk full");
    EXPECT_EQ(fixture.account(Record::kStop, "follow", {"task_id=7"}).result, Result::kError);
}

}  // namespace
}  // namespace tacacs
