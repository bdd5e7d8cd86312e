// SPDX-License-Identifier: Apache-2.0
//
// The way of a request through its list, with methods that the tests play: what decides, what
// is asked next, what an answer carries, and who waits how long.

#include "aaa/result_codes.h"
#include "service/decision_fixture.hpp"

namespace decision_test {
namespace {

struct Row {
    Kind kind;
    std::uint32_t status;
    bool next_is_asked;
};

TEST_F(DecisionTest, OnlyNoAnswerLeadsToTheNextMethod) {
    constexpr Row rows[] = {{Kind::kPass, AAA_STAT_PASS, false},
                            {Kind::kFail, AAA_STAT_FAIL, false},
                            {Kind::kChallenge, AAA_STAT_GETPASS, false},
                            {Kind::kUnavailable, AAA_STAT_PASS, true},
                            {Kind::kError, AAA_STAT_ERROR, false}};
    list({AAA_METHOD_LOCAL, AAA_METHOD_ENABLE});
    for (const Function function : {Function::kAuthentication, Function::kAuthorization}) {
        for (const Row &row : rows) {
            Outcome outcome;
            outcome.kind = row.kind;
            local_->outcomes = {outcome};
            second_->outcomes = {Outcome::pass("")};
            second_->asked.clear();
            lockout_.passed("alice", "192.0.2.1");
            EXPECT_EQ(decide(question(function)).status, row.status) << static_cast<int>(row.kind);
            EXPECT_EQ(second_->asked.size(), row.next_is_asked ? 1u : 0u);
        }
    }
}

TEST_F(DecisionTest, ARefusalCarriesItsTextAndNothingElse) {
    list({AAA_METHOD_SERVER_GROUP});
    Outcome outcome = Outcome::fail("Access-Reject");
    outcome.text = "Your account is closed";
    outcome.privilege = 15;
    outcome.attributes = {{AAA_METHOD_LOCAL, "value"}};
    servers_->outcomes = {outcome};
    Answer answer = decide(question());
    EXPECT_EQ(answer.status, std::uint32_t{AAA_STAT_FAIL});
    EXPECT_EQ(answer.text, "Your account is closed");
    EXPECT_EQ(answer.privilege, std::nullopt);
    EXPECT_TRUE(answer.attributes.empty());
    EXPECT_EQ(answer.method, 0u);
    outcome.kind = Kind::kPass;
    servers_->outcomes = {outcome};
    answer = decide(question());
    EXPECT_EQ(answer.privilege, 15u);
    EXPECT_EQ(answer.attributes.size(), 1u);
    EXPECT_EQ(answer.method, std::uint32_t{AAA_METHOD_SERVER_GROUP});
}

TEST_F(DecisionTest, ASilentServerLeavesTimeForTheNextMethod) {
    list({AAA_METHOD_SERVER_GROUP, AAA_METHOD_LOCAL});
    local_->outcomes = {Outcome::pass("")};
    const Answer answer = decide(question(Function::kAuthentication, 200 * net::kMillisecond));
    EXPECT_EQ(answer.status, std::uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(servers_->cancelled, 1);
    ASSERT_EQ(servers_->asked.size(), 1u);
    ASSERT_EQ(local_->asked.size(), 1u);
    EXPECT_LT(servers_->asked[0].deadline, local_->asked[0].deadline)
        << "each has its part of the client's time";
    EXPECT_NE(
        trace_text().find(
            "outcome group corp: no answer after a time: no answer within its part of the client's time"),
        std::string::npos);
}

TEST_F(DecisionTest, AMethodOfThisMachineThatIsTooSlowIsAnError) {
    list({AAA_METHOD_LOCAL, AAA_METHOD_ENABLE});
    second_->outcomes = {Outcome::pass("")};
    EXPECT_EQ(decide(question(Function::kAuthentication, 20 * net::kMillisecond)).status,
              std::uint32_t{AAA_STAT_ERROR})
        << "whoever overloads the service must not choose the method";
    EXPECT_EQ(local_->cancelled, 1);
    EXPECT_TRUE(second_->asked.empty());
}

TEST_F(DecisionTest, TheLastMethodHasTheWholeTime) {
    list({AAA_METHOD_SERVER_GROUP});
    const Question asked = question(Function::kAuthentication, 30 * net::kMillisecond);
    EXPECT_EQ(decide(asked).status, std::uint32_t{AAA_STAT_ERROR});
    ASSERT_EQ(servers_->asked.size(), 1u);
    EXPECT_EQ(servers_->asked[0].deadline, asked.deadline);
}

TEST_F(DecisionTest, ADestroyedDecisionCancelsAndIsSilent) {
    list({AAA_METHOD_SERVER_GROUP});
    {
        Decision decision(deciders_, question(), nullptr,
                          [](const Answer &) { ADD_FAILURE() << "it has gone"; });
        loop_.run_once(0);
        ASSERT_EQ(servers_->asked.size(), 1u);
    }
    EXPECT_EQ(servers_->cancelled, 1);
    {
        Decision decision(deciders_, question(), nullptr,
                          [](const Answer &) { ADD_FAILURE() << "it has gone"; });
    }
    loop_.run_once(0);
    EXPECT_EQ(servers_->asked.size(), 1u) << "it had not even begun";
}

TEST_F(DecisionTest, AChallengeIsContinuedWhereItWasAsked) {
    list({AAA_METHOD_LOCAL, AAA_METHOD_SERVER_GROUP, AAA_METHOD_ENABLE});
    local_->outcomes = {Outcome::unavailable("away")};
    const auto dialogue = std::make_shared<Dialogue>();
    servers_->outcomes = {Outcome::challenge(Prompt::kData, "Token: ", true, dialogue)};
    const Answer challenge = decide(question());
    EXPECT_EQ(challenge.status, std::uint32_t{AAA_STAT_GETDATA});
    EXPECT_EQ(challenge.text, "Token: ");
    EXPECT_TRUE(challenge.echo);
    ASSERT_NE(challenge.pending, nullptr);
    list({AAA_METHOD_ENABLE});  // what is configured meanwhile does not count
    servers_->outcomes = {Outcome::pass("")};
    Question answered = question();
    answered.snapshot = std::make_shared<Snapshot>();
    EXPECT_EQ(decide(answered, challenge.pending).status, std::uint32_t{AAA_STAT_PASS});
    ASSERT_EQ(servers_->dialogues.size(), 2u);
    EXPECT_EQ(servers_->dialogues[1], dialogue);
    EXPECT_EQ(servers_->asked[1].round, 1u);
    EXPECT_EQ(local_->asked.size(), 1u) << "the methods before are not asked again";
}

// A server may ask again for a wrong password: whoever tries passwords would never see a refusal.
TEST_F(DecisionTest, ABroadcastAsksAllAndIsKeptWhenOneKeepsIt) {
    list({AAA_METHOD_SERVER_GROUP, AAA_METHOD_LOCAL, AAA_METHOD_ENABLE}, true);
    const auto account = [&](Outcome a, Outcome b, Outcome c) {
        servers_->outcomes = {std::move(a)};
        local_->outcomes = {std::move(b)};
        second_->outcomes = {std::move(c)};
        return decide(question(Function::kAccounting));
    };
    EXPECT_EQ(account(Outcome::pass(""), Outcome::pass(""), Outcome::pass("")).status,
              std::uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(account(Outcome::unavailable(""), Outcome::fail(""), Outcome::pass("")).status,
              std::uint32_t{AAA_STAT_PASS});
    const Answer none = account(Outcome::unavailable(""), Outcome::fail(""), Outcome::error(""));
    EXPECT_EQ(none.error, AAA_ERR_ACCT_SERVICE);
    EXPECT_EQ(servers_->asked.size(), 3u);
    EXPECT_EQ(second_->asked.size(), 3u);
    servers_->outcomes = {Outcome::pass("")};
    EXPECT_EQ(decide(question()).status, std::uint32_t{AAA_STAT_PASS}) << "a login is never broadcast";
    EXPECT_EQ(second_->asked.size(), 3u);
}

TEST_F(DecisionTest, AnAccountingRecordThatIsRefusedIsAnError) {
    list({AAA_METHOD_LOCAL, AAA_METHOD_ENABLE});
    local_->outcomes = {Outcome::fail("")};
    EXPECT_EQ(decide(question(Function::kAccounting)).error, AAA_ERR_ACCT_SERVICE);
    EXPECT_TRUE(second_->asked.empty());
}

TEST_F(DecisionTest, TheTraceTellsWhyTheNextMethodWasAsked) {
    list({AAA_METHOD_SERVER_GROUP, AAA_METHOD_KERBEROS5, AAA_METHOD_LOCAL});
    servers_->outcomes = {Outcome::unavailable("192.0.2.1 is silent")};
    local_->outcomes = {Outcome::pass("the password is right")};
    std::vector<std::uint64_t> followed;
    const std::uint64_t handle =
        trace_.follow([&](const TraceEvent &event) { followed.push_back(event.number); });
    decide(question());
    trace_.unfollow(handle);
    EXPECT_EQ(trace_text(),
              "list authentication/login/default\n"
              "method group corp\n"
              "outcome group corp: no answer after a time: 192.0.2.1 is silent; the next is kerberos 5\n"
              "method kerberos 5\n"
              "outcome kerberos 5: no answer after a time: this service has no such method; the next is "
              "local\n"
              "method local\n"
              "outcome local: pass after a time: the password is right\n"
              "answer PASS: pass after a time: local: the password is right\n");
    EXPECT_EQ(followed, (std::vector<std::uint64_t>{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(Trace, KeepsTheNewestEventsAndNumbersAll) {
    Trace trace(3);
    for (int i = 1; i <= 5; ++i) {
        trace.add({0, i, 1, Step::kMethod, "alice", "local", ""});
    }
    std::vector<std::uint64_t> numbers;
    const auto note = [&](const TraceEvent &event) {
        numbers.push_back(event.number);
        EXPECT_EQ(event.at, static_cast<std::int64_t>(event.number));
    };
    EXPECT_EQ(trace.visit(0, note), 6u);
    EXPECT_EQ(trace.visit(5, note), 6u);
    EXPECT_EQ(trace.visit(6, note), 6u);
    EXPECT_EQ(numbers, (std::vector<std::uint64_t>{3, 4, 5, 5}));
}

TEST(Trace, KeepsOnlyTheBeginningOfLongTexts) {
    Trace trace(3);
    trace.add({0, 1, 1, Step::kMethod, "alice", "local", std::string(100000, 'x')});
    TraceEvent event{0, 2, 1, Step::kAnswer, "alice", "FAIL", std::string(1023, 'x') + "\u00e4"};
    event.text = std::string(1024, 'y');
    trace.add(event);
    EXPECT_EQ(trace.at(1).detail, std::string(1024, 'x') + "...");
    EXPECT_EQ(trace.at(2).detail, std::string(1023, 'x') + "...");
    EXPECT_EQ(trace.at(2).text, std::string(1024, 'y'));
}

TEST(Trace, ShowsCommandsWithoutTheirSecrets) {
    EXPECT_EQ(command_for_trace("show version"), "show version");
    EXPECT_EQ(command_for_trace("username ann password 7 0822"), "username ann password ***");
    EXPECT_EQ(command_for_trace("radius-server Key abc"), "radius-server Key ***");
    EXPECT_EQ(command_for_trace("set a-secret=abc"), "set a-secret=***");
    EXPECT_EQ(command_for_trace("show password"), "show password");
    EXPECT_EQ(command_for_trace("snmp-server user bob grp v3 auth sha abc priv aes 128 def"),
              "snmp-server user bob grp v3 auth ***");
    for (const std::string word : {"pwd", "PSK", "auth", "priv", "md5", "sha", "hash", "--pwd"}) {
        EXPECT_EQ(command_for_trace("set " + word + " abc"), "set " + word + " ***");
        EXPECT_EQ(command_for_trace("set " + word + "=abc"), "set " + word + "=***");
    }
    EXPECT_EQ(command_for_trace("show authorization private shape"), "show authorization private shape");
    EXPECT_EQ(command_for_trace("password\nabc"), "password ***");
    EXPECT_EQ(command_for_trace("set password:abc"), "set password:***");
    EXPECT_EQ(command_for_trace("copy ftp://ann:b@d@192.0.2.1/x y"), "copy ftp://***@192.0.2.1/x y");
    EXPECT_EQ(command_for_trace(std::string(300, 'x')), std::string(256, 'x') + "...");
    EXPECT_EQ(command_for_trace(std::string(255, 'x') + "\u00e4"), std::string(255, 'x') + "...");
    EXPECT_EQ(command_for_trace(""), "");
}

TEST(TimeFor, IsLessThanTheClientWaits) {
    Settings settings;
    settings.patience_ms = 5000;
    settings.longest_ms = 20000;
    EXPECT_EQ(time_for(0, settings), 4750 * net::kMillisecond);
    EXPECT_EQ(time_for(1000, settings), 900 * net::kMillisecond);
    EXPECT_EQ(time_for(1, settings), 900 * net::kMicrosecond);
    EXPECT_EQ(time_for(UINT32_MAX, settings), 19750 * net::kMillisecond);
}

}  // namespace
}  // namespace decision_test
