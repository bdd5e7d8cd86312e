// SPDX-License-Identifier: Apache-2.0
//
// Servers that misbehave, have another secret, or are not there.

#include <gmock/gmock.h>
#include <signal.h>

#include "tacacs/client.hpp"
#include "tacacs/test_server.hpp"

namespace tacacs {
namespace {

using tacacs_test::ascii;
using tacacs_test::Fixture;
using tacacs_test::pap;
using testing::AllOf;
using testing::HasSubstr;

// A user for each way to misbehave, who would pass otherwise.
std::string misbehaving(const std::string &mode) {
    return R"({"alice": {"password": "wonderland"}, "mallory": {"password": "x", "misbehave": ")" + mode +
           "\"}}";
}

// ---- answers that are none ----------------------------------------------------------------

struct Misbehaviour {
    const char *mode;
    Fault fault;
    const char *text;
};

class FaultyAnswer : public testing::TestWithParam<Misbehaviour> {};

TEST_P(FaultyAnswer, IsAnErrorAndTheNextQuestionIsAnswered) {
    Fixture fixture(misbehaving(GetParam().mode));
    const AuthenticationOutcome outcome = fixture.log_in(pap("mallory", "x"));
    EXPECT_EQ(outcome.result, Result::kError);
    EXPECT_EQ(outcome.fault, GetParam().fault);
    EXPECT_THAT(outcome.text, AllOf(HasSubstr(fixture.settings.address.text()), HasSubstr(GetParam().text)));
    // What the answer says does not count.
    EXPECT_EQ(outcome.status, AuthenticationStatus::kFail);
    EXPECT_EQ(fixture.server.seen("mallory start pap"), 1u);
    const AuthorizationOutcome authorization = fixture.authorize("mallory", {"cmd=show"});
    EXPECT_EQ(authorization.result, Result::kError);
    EXPECT_EQ(authorization.fault, GetParam().fault);
    EXPECT_EQ(authorization.status, AuthorizationStatus::kFail);
    EXPECT_EQ(fixture.account(Record::kStop, "mallory", {"task_id=1"}).fault, GetParam().fault);
    EXPECT_EQ(fixture.get().counters().faults[static_cast<std::size_t>(GetParam().fault)], 3u);
    EXPECT_EQ(fixture.log_in(pap("alice", "wonderland")).status, AuthenticationStatus::kPass);
}

INSTANTIATE_TEST_SUITE_P(
    Server, FaultyAnswer,
    testing::Values(Misbehaviour{"garbage", Fault::kNotTacacs, "check the port"},
                    Misbehaviour{"oversize", Fault::kTooLong, "longer than 65535"},
                    Misbehaviour{"wrong-sequence", Fault::kSequence, "sequence number"},
                    Misbehaviour{"wrong-session", Fault::kOtherSession, "session that does not wait"},
                    Misbehaviour{"wrong-type", Fault::kOtherType, "another type"},
                    Misbehaviour{"wrong-version", Fault::kVersion, "minor version"},
                    Misbehaviour{"wrong-secret", Fault::kMalformed, "shared secret is not the server's"},
                    Misbehaviour{"unencrypted", Fault::kUnencrypted, "not obfuscated"},
                    Misbehaviour{"trailing", Fault::kMalformed, "inconsistent"}),
    [](const auto &test) {
        std::string name = test.param.mode;
        std::erase(name, '-');
        return name;
    });

TEST(FaultyAnswer, ToOneQuestionDoesNotHarmTheOthersOnTheConnection) {
    Fixture fixture(R"({"alice": {}, "held": {"misbehave": "held"},
        "mallory": {"password": "x", "misbehave": "wrong-sequence"}})");
    fixture.authorize("alice", {"cmd=show"});  // the connection is shared now
    std::optional<AuthorizationOutcome> held;
    fixture.get().authorize({.user = "held"}, std::vector<std::string>{"cmd=show"}, INT64_MAX,
                            [&](AuthorizationOutcome outcome) { held = outcome; });
    fixture.server.wait_for("held 1 held");
    EXPECT_EQ(fixture.log_in(pap("mallory", "x")).fault, Fault::kSequence);
    fixture.server.wait_for("held 2 held");
    fixture.server.command("release");
    fixture.run_until([&] { return held.has_value(); });
    EXPECT_EQ(held->result, Result::kAnswer) << held->text;
    EXPECT_EQ(held->tries, 2u);
    EXPECT_EQ(fixture.get().counters().repeats, 1u);
}

TEST(Secret, ThatIsNotTheServersIsRecognised) {
    Fixture fixture(misbehaving("silent"));
    fixture.settings.secret = SecretBytes("not the server's");
    const AuthenticationOutcome outcome = fixture.log_in(pap("alice", "wonderland"));
    EXPECT_EQ(outcome.result, Result::kError);
    EXPECT_EQ(outcome.fault, Fault::kMalformed);
    EXPECT_THAT(outcome.text, HasSubstr("most often the shared secret is not the server's"));
    EXPECT_EQ(fixture.authorize("alice", {"cmd=show"}).fault, Fault::kMalformed);
    EXPECT_EQ(fixture.account(Record::kStop, "alice", {"task_id=7"}).fault, Fault::kMalformed);
}

// Some servers close the connection instead of answering.
TEST(Secret, ThatIsNotTheServersIsNamedWhenItCloses) {
    Fixture fixture(misbehaving("silent"), R"({"main": {"bad_secret": "close"}})");
    fixture.settings.secret = SecretBytes("not the server's");
    const AuthenticationOutcome outcome = fixture.log_in(pap("alice", "wonderland"));
    EXPECT_EQ(outcome.result, Result::kLost);
    EXPECT_THAT(outcome.text, HasSubstr("have another shared secret"));
}

TEST(Answer, ThatComesByteByByteIsTaken) {
    Fixture fixture(misbehaving("bytewise"));
    EXPECT_EQ(fixture.log_in(pap("mallory", "x")).status, AuthenticationStatus::kPass);
    fixture.log_in(ascii("mallory"));
    EXPECT_EQ(fixture.answer("x").status, AuthenticationStatus::kPass);
}

// ---- connections that end -----------------------------------------------------------------

class LostConnection : public testing::TestWithParam<const char *> {};

// The caller decides whether a password is sent again.
TEST_P(LostConnection, DoesNotSendALoginTwice) {
    Fixture fixture(misbehaving(GetParam()));
    AuthenticationOutcome outcome = fixture.log_in(pap("mallory", "x"));
    EXPECT_EQ(outcome.result, Result::kLost);
    EXPECT_EQ(outcome.tries, 1u);
    EXPECT_THAT(outcome.text, HasSubstr("has ended before the answer"));
    outcome = fixture.log_in(ascii("mallory"));
    EXPECT_EQ(outcome.result, Result::kLost);
    EXPECT_EQ(fixture.get().counters().repeats, 0u);
    EXPECT_EQ(fixture.server.seen("mallory start"), 2u);
}

TEST_P(LostConnection, SendsAuthorizationAndAccountingTwiceAtMost) {
    Fixture fixture(misbehaving(GetParam()));
    const AuthorizationOutcome authorization = fixture.authorize("mallory", {"cmd=show"});
    EXPECT_EQ(authorization.result, Result::kLost);
    EXPECT_EQ(authorization.tries, 2u);
    const AccountingOutcome accounting = fixture.account(Record::kStop, "mallory", {"task_id=7"});
    EXPECT_EQ(accounting.result, Result::kLost);
    EXPECT_EQ(accounting.tries, 2u);
    EXPECT_EQ(fixture.get().counters().repeats, 2u);
    EXPECT_EQ(fixture.get().counters().lost, 2u);
    EXPECT_EQ(fixture.server.seen("mallory stop"), 2u);
}

INSTANTIATE_TEST_SUITE_P(Server, LostConnection, testing::Values("close", "close-in-middle"),
                         [](const auto &test) {
                             std::string name = test.param;
                             std::erase(name, '-');
                             return name;
                         });

TEST(LostConnection, IsSurvivedByAuthorizationAndAccounting) {
    Fixture fixture(R"({"mallory": {"misbehave": "close-once"}, "eve": {"misbehave": "close-once"}})");
    const AuthorizationOutcome authorization = fixture.authorize("mallory", {"cmd=show"});
    EXPECT_EQ(authorization.result, Result::kAnswer) << authorization.text;
    EXPECT_EQ(authorization.status, AuthorizationStatus::kPassAdd);
    EXPECT_EQ(authorization.tries, 2u);
    const AccountingOutcome accounting = fixture.account(Record::kStop, "eve", {"task_id=7"});
    EXPECT_EQ(accounting.result, Result::kAnswer) << accounting.text;
}

TEST(LostConnection, WhileTheUserTypesIsReportedWithTheNextRound) {
    Fixture fixture(misbehaving("silent"));
    fixture.log_in(ascii("alice"));
    fixture.server.command("drop");
    fixture.server.wait_for("close 1");
    fixture.run_until([&] { return fixture.get().counters().open_connections == 0; });
    const AuthenticationOutcome outcome = fixture.answer("wonderland");
    EXPECT_EQ(outcome.result, Result::kLost);
    EXPECT_EQ(fixture.server.seen("continue"), 0u);
    EXPECT_EQ(fixture.get().counters().logins, 0u);
    fixture.log_in(ascii("alice"));
    EXPECT_EQ(fixture.answer("wonderland").status, AuthenticationStatus::kPass);
}

TEST(LostConnection, OfAServerThatRestartsIsReplaced) {
    Fixture fixture(misbehaving("held"));
    fixture.log_in(pap("alice", "wonderland"));
    std::optional<AccountingOutcome> record;
    fixture.get().account(Record::kStop, {.user = "mallory"}, std::vector<std::string>{"task_id=7"},
                          INT64_MAX, [&](AccountingOutcome outcome) { record = outcome; });
    fixture.server.wait_for("held 1 mallory");
    fixture.server.kill();
    fixture.server.restart();
    fixture.server.wait_for("held 1 mallory", 2);  // the record was sent again
    fixture.server.command("release");
    fixture.run_until([&] { return record.has_value(); });
    EXPECT_EQ(record->result, Result::kAnswer) << record->text;
    EXPECT_EQ(fixture.log_in(pap("alice", "wonderland")).status, AuthenticationStatus::kPass);
}

// ---- servers that are not there, or silent ------------------------------------------------

TEST(Server, ThatDoesNotListenRefuses) {
    Fixture fixture(misbehaving("silent"));
    fixture.server.kill();
    const AuthenticationOutcome outcome = fixture.log_in(pap("alice", "wonderland"));
    EXPECT_EQ(outcome.result, Result::kRefused);
    EXPECT_EQ(outcome.text, "cannot connect to " + fixture.settings.address.text() + ": Connection refused");
    EXPECT_EQ(fixture.authorize("alice", {"cmd=show"}).result, Result::kRefused);
    EXPECT_EQ(fixture.get().counters().refused, 2u);
    fixture.server.restart();
    EXPECT_EQ(fixture.log_in(pap("alice", "wonderland")).status, AuthenticationStatus::kPass);
}

TEST(Server, ThatDoesNotListenRefusesWhatWaitsAtOnce) {
    Fixture fixture(misbehaving("silent"));
    fixture.server.kill();
    int refused = 0;
    for (int i = 0; i < 200; ++i) {
        fixture.get().authenticate(pap("alice", "wonderland"), INT64_MAX,
                                   [&](const AuthenticationOutcome &outcome) {
                                       refused += outcome.result == Result::kRefused ? 1 : 0;
                                   });
    }
    fixture.run_until([&] { return refused == 200; });
    EXPECT_LE(fixture.get().counters().connections, 16u);
}

TEST(Server, ThatIsSilentIsGivenUpAtTheDeadline) {
    Fixture fixture(misbehaving("silent"));
    fixture.settings.timeout = 50 * net::kMillisecond;
    const AuthenticationOutcome outcome = fixture.log_in(pap("mallory", "x"));
    EXPECT_EQ(outcome.result, Result::kSilent);
    EXPECT_THAT(outcome.text, HasSubstr(fixture.settings.address.text()));
    fixture.settings.timeout = 3600 * net::kSecond;
    fixture.client.reset();
    std::optional<AuthorizationOutcome> authorization;
    fixture.get().authorize({.user = "mallory"}, std::vector<std::string>{"cmd=show"},
                            net::Loop::clock() + net::kMillisecond,
                            [&](AuthorizationOutcome result) { authorization = result; });
    fixture.run_until([&] { return authorization.has_value(); });
    EXPECT_EQ(authorization->result, Result::kSilent);
    EXPECT_EQ(fixture.get().counters().silent, 1u);
}

TEST(Server, ThatIsStoppedIsGivenUpAtTheDeadline) {
    Fixture fixture(misbehaving("silent"));
    fixture.log_in(pap("alice", "wonderland"));
    fixture.server.signal(SIGSTOP);
    std::optional<AccountingOutcome> record;
    fixture.get().account(Record::kStop, {.user = "alice"}, std::vector<std::string>{"task_id=7"},
                          net::Loop::clock() + net::kMillisecond,
                          [&](AccountingOutcome outcome) { record = outcome; });
    fixture.run_until([&] { return record.has_value(); });
    EXPECT_EQ(record->result, Result::kSilent);
    EXPECT_THAT(record->text, HasSubstr("has not answered in time"));
    fixture.server.signal(SIGCONT);
    EXPECT_EQ(fixture.log_in(pap("alice", "wonderland")).status, AuthenticationStatus::kPass);
}

// A firewall that has forgotten a connection drops everything on it.
TEST(Server, ThatIsSilentOnAConnectionIsAskedOnAnotherOne) {
    Fixture fixture(misbehaving("silent"));
    fixture.log_in(pap("alice", "wonderland"));
    for (int connection = 1; connection <= 2; ++connection) {
        std::optional<AccountingOutcome> record;
        fixture.get().account(Record::kStop, {.user = "mallory"}, std::vector<std::string>{"task_id=7"},
                              net::Loop::clock() + net::kMillisecond,
                              [&](AccountingOutcome outcome) { record = outcome; });
        fixture.server.wait_for("mallory stop", static_cast<std::size_t>(connection));
        fixture.run_until([&] { return record.has_value(); });
        EXPECT_EQ(record->result, Result::kSilent);
        EXPECT_EQ(fixture.log_in(pap("alice", "wonderland")).status, AuthenticationStatus::kPass);
        EXPECT_EQ(fixture.get().counters().connections, static_cast<std::size_t>(connection) + 1);
    }
}

}  // namespace
}  // namespace tacacs
