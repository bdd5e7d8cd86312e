// SPDX-License-Identifier: Apache-2.0
//
// What of a request counts as a failed login, and what a lock-out refuses.

#include "aaa/aaautil.h"
#include "aaa/result_codes.h"
#include "service/decision_fixture.hpp"

namespace decision_test {
namespace {

using DecisionLockout = DecisionTest;

TEST_F(DecisionLockout, ALoginThatIsLeftAfterAnAnswerCountsAsAFailure) {
    list({AAA_METHOD_SERVER_GROUP});
    const Outcome again = Outcome::challenge(Prompt::kPassword, "Password: ", false);
    const auto is_locked = [this] {
        return lockout_.is_locked("alice", "192.0.2.1", net::Loop::clock(), snapshot_->settings->lockout);
    };
    servers_->outcomes = {again, again};
    Answer first = decide(question());
    Answer second = decide(question(), std::exchange(first.pending, nullptr));
    second.pending = nullptr;
    EXPECT_FALSE(is_locked()) << "one login, one failure";
    servers_->outcomes = {again};
    first = decide(question());
    {
        Decision left(deciders_, question(), std::exchange(first.pending, nullptr),
                      [](const Answer &) { ADD_FAILURE() << "it has gone"; });
        loop_.run_once(0);
    }
    EXPECT_TRUE(is_locked()) << "the client left while it was asked";
}

// Otherwise a hundred passwords that are tried at once would all be compared.
TEST_F(DecisionLockout, ALoginThatWasUnderWayWhenItsUserWasLockedOutIsRefused) {
    list({AAA_METHOD_LOCAL});
    for (const std::uint32_t type : {std::uint32_t{AAA_MT_NONE}, std::uint32_t{AAA_MT_ASCII_CHPASS}}) {
        local_->outcomes = {Outcome::pass("the password is right", 15)};
        lockout_.passed("alice", "192.0.2.1");
        Question asked = question();
        avlist *attributes = nullptr;
        ASSERT_EQ(aaa_avpair_create_list("test", &attributes), AAA_OK);
        asked.attributes.reset(attributes, aaa_avpair_free_list);
        ASSERT_EQ(aaa_util_avlist_msgtype_add(type, attributes), AAA_OK);
        std::optional<Answer> answer;
        Decision decision(deciders_, std::move(asked), nullptr, [&](const Answer &given) { answer = given; });
        const std::size_t asked_before = local_->asked.size();
        while (local_->asked.size() == asked_before) {
            loop_.run_once(INT64_MAX);
        }
        for (int i = 0; i < 2; ++i) {
            lockout_.failed("alice", "192.0.2.1", net::Loop::clock(), snapshot_->settings->lockout);
        }
        while (!answer) {
            loop_.run_once(INT64_MAX);
        }
        if (type == AAA_MT_ASCII_CHPASS) {
            EXPECT_EQ(answer->status, std::uint32_t{AAA_STAT_PASS}) << "the password is changed already";
            continue;
        }
        EXPECT_EQ(answer->status, std::uint32_t{AAA_STAT_FAIL});
        EXPECT_EQ(answer->text, "Login incorrect");
        EXPECT_EQ(answer->privilege, std::nullopt);
        EXPECT_TRUE(
            lockout_.is_locked("alice", "192.0.2.1", net::Loop::clock(), snapshot_->settings->lockout));
    }
}

// Several logins at once, each with its answer.
class Parallel {
  public:
    Parallel(const Deciders &deciders, const std::vector<Question> &questions) : answers(questions.size()) {
        for (std::size_t i = 0; i < questions.size(); ++i) {
            decisions.push_back(
                std::make_unique<Decision>(deciders, questions[i], nullptr, [this, i](Answer given) {
                    EXPECT_FALSE(answers[i].has_value()) << "a second answer";
                    answers[i] = std::move(given);
                    ++answered;
                }));
        }
    }
    std::vector<std::unique_ptr<Decision>> decisions;
    std::vector<std::optional<Answer>> answers;
    std::size_t answered = 0;
};

// The server passes at once and refuses late: without a limit all passwords were compared before
// the first refusal.
TEST_F(DecisionLockout, NoMorePasswordsAreTriedAtOnceThanFailuresAreLeft) {
    list({AAA_METHOD_SERVER_GROUP});
    const std::vector<Question> questions(40, question());
    Parallel logins(deciders_, questions);
    loop_.run_once(0);
    loop_.run_once(0);
    EXPECT_EQ(servers_->asked.size(), 2u);
    EXPECT_NE(trace_text().find("waits until other logins of the user or from there are answered"),
              std::string::npos);
    // Two are refused, which locks the user out: no other password reaches the server.
    servers_->refuse_all();
    while (logins.answered < questions.size()) {
        loop_.run_once(INT64_MAX);
    }
    EXPECT_EQ(servers_->asked.size(), 2u);
    for (const auto &answer : logins.answers) {
        EXPECT_EQ(answer->status, std::uint32_t{AAA_STAT_FAIL});
        EXPECT_EQ(answer->text, "Login incorrect");
    }
}

TEST_F(DecisionLockout, ALoginThatWaitsToTheEndOfItsTimeIsNoOneElses) {
    list({AAA_METHOD_SERVER_GROUP, AAA_METHOD_LOCAL});
    Parallel others(deciders_, {question(), question()});
    Question late = question();
    late.deadline = net::Loop::clock();
    const Answer answer = decide(late);
    EXPECT_EQ(answer.status, std::uint32_t{AAA_STAT_ERROR});
    EXPECT_TRUE(answer.ends_login) << "an attacker must not make the login program ask another module";
    EXPECT_TRUE(local_->asked.empty());
    EXPECT_EQ(turns_.waiting(), 0u);
}

TEST_F(DecisionLockout, ALoginWhoseClientLeavesDuringAServersAnswerIsCounted) {
    list({AAA_METHOD_SERVER_GROUP});
    Parallel logins(deciders_, {question(), question()});
    loop_.run_once(0);
    loop_.run_once(0);
    ASSERT_EQ(servers_->asked.size(), 2u);
    int over = 0;
    for (const auto &decision : logins.decisions) {
        EXPECT_TRUE(decision->goes_on_without_client([&over] { ++over; }));
    }
    servers_->refuse_all();
    while (over < 2) {
        loop_.run_once(INT64_MAX);
    }
    EXPECT_EQ(logins.answered, 0u);
    EXPECT_TRUE(lockout_.is_locked("alice", "192.0.2.1", net::Loop::clock(), snapshot_->settings->lockout));
    // A method of this machine takes as long to pass as to refuse, so leaving tells nothing.
    list({AAA_METHOD_LOCAL});
    lockout_.passed("alice", "192.0.2.1");
    Parallel local(deciders_, {question()});
    loop_.run_once(0);
    loop_.run_once(0);
    ASSERT_EQ(local_->asked.size(), 1u);
    EXPECT_FALSE(local.decisions[0]->goes_on_without_client([] { ADD_FAILURE(); }));
}

TEST_F(DecisionLockout, ALoginOfSeveralRoundsIsCountedOnce) {
    list({AAA_METHOD_SERVER_GROUP});
    const Outcome token = Outcome::challenge(Prompt::kData, "Token: ", true);
    const auto is_locked = [this] {
        return lockout_.is_locked("alice", "192.0.2.1", net::Loop::clock(), snapshot_->settings->lockout);
    };
    for (int i = 0; i < 3; ++i) {
        servers_->outcomes = {token, Outcome::pass("")};
        Answer challenge = decide(question());
        EXPECT_EQ(decide(question(), std::exchange(challenge.pending, nullptr)).status,
                  std::uint32_t{AAA_STAT_PASS});
    }
    servers_->outcomes = {token, Outcome::fail("")};
    Answer challenge = decide(question());
    EXPECT_EQ(decide(question(), std::exchange(challenge.pending, nullptr)).status,
              std::uint32_t{AAA_STAT_FAIL});
    EXPECT_FALSE(is_locked());
    Question without = question();
    without.password = std::nullopt;
    for (int i = 0; i < 3; ++i) {
        servers_->outcomes = {token};
        decide(without);
    }
    EXPECT_FALSE(is_locked()) << "who has answered nothing has tried nothing";
}

TEST_F(DecisionLockout, ALockedOutUserIsNotAskedAbout) {
    list({AAA_METHOD_SERVER_GROUP});
    for (int i = 0; i < 2; ++i) {
        servers_->outcomes = {Outcome::fail("")};
        EXPECT_EQ(decide(question()).status, std::uint32_t{AAA_STAT_FAIL});
    }
    const Answer locked = decide(question());
    EXPECT_EQ(locked.status, std::uint32_t{AAA_STAT_FAIL});
    EXPECT_EQ(locked.text, "Login incorrect");
    EXPECT_EQ(servers_->asked.size(), 2u) << "no server is asked";
    servers_->outcomes = {Outcome::pass("")};
    EXPECT_EQ(decide(question(Function::kAuthorization)).status, std::uint32_t{AAA_STAT_PASS})
        << "commands still may run";
}

TEST_F(DecisionLockout, FailuresToAnswerAreNotCountedAsWrongPasswords) {
    list({AAA_METHOD_LOCAL});
    for (int i = 0; i < 10; ++i) {
        local_->outcomes = {i % 2 == 0 ? Outcome::error("") : Outcome::unavailable("")};
        EXPECT_EQ(decide(question()).status, std::uint32_t{AAA_STAT_ERROR});
    }
    local_->outcomes = {Outcome::pass("")};
    EXPECT_EQ(decide(question()).status, std::uint32_t{AAA_STAT_PASS});
}

}  // namespace
}  // namespace decision_test
