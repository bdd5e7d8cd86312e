// SPDX-License-Identifier: Apache-2.0
//
// The way through the servers of a group, with servers that answer what the test says.

#include "groups/walk.hpp"

#include <gtest/gtest.h>

#include "groups/probes.hpp"

namespace service {
namespace {

using Kind = ServerResult::Kind;

TEST(ShareOf, IsAllTriesWhereTheOthersFitToo) {
    EXPECT_EQ(share_of(0, {4, 4}, 10), 4);
    EXPECT_EQ(share_of(0, {4, 4}, 8), 4);
    EXPECT_EQ(share_of(0, {4, 4}, 6), 3) << "an equal share";
    EXPECT_EQ(share_of(0, {8, 2}, 9), 7) << "what a quick one leaves";
    EXPECT_EQ(share_of(1, {8, 2}, 1), 1);
    EXPECT_EQ(share_of(2, {9, 9, 5}, 20), 5);
}

// What is asked of a server, until the test answers.
struct Asked {
    std::string server;
    net::Time until;
    std::function<void(ServerResult)> take;
};

class WalkTest : public testing::Test {
  protected:
    WalkTest() {
        auto snapshot = std::make_shared<Snapshot>();
        snapshot->settings = std::make_shared<const Settings>();
        question_.snapshot = snapshot;
        question_.deadline = net::Loop::clock() + 3600 * net::kSecond;
        question_.is_last_method = false;
        for (const char *host : {"127.0.0.1", "127.0.0.2", "127.0.0.3"}) {
            Server server;
            server.entry = server.host = host;
            server.port = server.accounting_port = 1812;
            server.key = Secret("key");
            server.timeout_ms = 60000;
            server.tries = 1;
            server.dead_time_s = 3600;
            server.probe_user.clear();
            group_.servers.push_back(server);
        }
        Snapshot configured;
        configured.groups = {std::make_shared<const Group>(group_)};
        clients_.use(configured);
    }

    void begin(Walk::Options options = {}, std::vector<ServerClientPtr> servers = {}) {
        outcome_.reset();
        walk_ = std::make_unique<Walk>(
            context_, question_, servers.empty() ? clients_.find(group_) : servers, std::move(options),
            [this](const ServerClientPtr &server, net::Time until, std::function<void(ServerResult)> take) {
                asked_.push_back({server->server().host, until, std::move(take)});
                return std::unique_ptr<Attempt>();
            },
            [this](Outcome outcome) {
                EXPECT_FALSE(outcome_) << "called twice";
                outcome_ = std::move(outcome);
            });
        EXPECT_FALSE(outcome_) << "called from the constructor";
    }
    // Answers for the server that was asked last.
    void answer(Kind kind, Outcome outcome = Outcome::pass("yes")) {
        const auto take = asked_.back().take;
        take({kind, std::move(outcome), "why"});
    }
    const Outcome &wait() {
        while (!outcome_) {
            loop_.run_once(INT64_MAX);
        }
        return *outcome_;
    }
    std::string servers() const {
        std::string all;
        for (const Asked &asked : asked_) {
            all += asked.server.back();
        }
        return all;
    }
    std::string steps() const {
        std::string all;
        trace_.visit(0,
                     [&](const TraceEvent &event) { all += event.subject + " " + event_text(event) + "\n"; });
        return all;
    }

    net::Loop loop_;
    Trace trace_;
    ServerHealth health_;
    ServerClients clients_{loop_};
    Probes probes_{loop_, health_};
    GroupContext context_{loop_, trace_, health_, clients_, probes_};
    Group group_;
    Question question_;
    std::vector<Asked> asked_;
    std::unique_ptr<Walk> walk_;
    std::optional<Outcome> outcome_;
};

TEST_F(WalkTest, ADecisionIsTheEnd) {
    for (const Outcome &decision :
         {Outcome::pass("yes"), Outcome::fail("no"), Outcome::challenge(Prompt::kData, "?", true)}) {
        asked_.clear();
        begin();
        answer(Kind::kAnswer, decision);
        EXPECT_EQ(wait().kind, decision.kind);
        EXPECT_EQ(servers(), "1");
    }
}

TEST_F(WalkTest, TheNextIsAskedWithoutADecision) {
    for (const Kind kind : {Kind::kSilent, Kind::kRefused, Kind::kBroken}) {
        asked_.clear();
        health_ = ServerHealth();
        begin();
        answer(kind);
        answer(kind);
        answer(Kind::kAnswer);
        EXPECT_EQ(wait().kind, Outcome::Kind::kPass);
        EXPECT_EQ(servers(), "123");
    }
    EXPECT_NE(steps().find("radius/127.0.0.1 no decision after "), std::string::npos) << steps();
    EXPECT_NE(steps().find(": why; the next is radius/127.0.0.2\n"), std::string::npos) << steps();
}

TEST_F(WalkTest, WithoutAnyDecisionTheReasonsOfAllAreTold) {
    begin();
    for (int i = 0; i < 3; ++i) {
        answer(Kind::kBroken);
    }
    EXPECT_EQ(wait().kind, Outcome::Kind::kUnavailable);
    EXPECT_EQ(wait().reason, "radius/127.0.0.1: why; radius/127.0.0.2: why; radius/127.0.0.3: why");
}

TEST_F(WalkTest, OverloadIsAnErrorAndNoReasonToAskAnother) {
    begin();
    answer(Kind::kOverload);
    EXPECT_EQ(wait().kind, Outcome::Kind::kError);
    EXPECT_EQ(servers(), "1");
}

TEST_F(WalkTest, WhatCannotBeReachedIsNotAskedAgainWhereAnotherMethodFollows) {
    begin();
    answer(Kind::kRefused);
    answer(Kind::kAnswer);
    wait();
    asked_.clear();
    begin();
    answer(Kind::kBroken);
    answer(Kind::kBroken);
    EXPECT_EQ(servers(), "23");
    EXPECT_NE(wait().reason.find("radius/127.0.0.1 was silent and is not asked again yet"),
              std::string::npos);
    asked_.clear();
    question_.is_last_method = true;
    begin();
    answer(Kind::kBroken);
    answer(Kind::kBroken);
    answer(Kind::kAnswer);
    EXPECT_EQ(servers(), "231");
    question_.is_last_method = false;
    asked_.clear();
    begin();
    EXPECT_EQ(servers(), "1") << "it has answered";
}

// A client that says that it waits for a moment only must not be able to shut servers off.
TEST_F(WalkTest, AnImpatientClientMarksNoServer) {
    question_.deadline = net::Loop::clock() + net::kSecond;
    begin();
    EXPECT_LE(asked_[0].until, question_.deadline);
    answer(Kind::kSilent);
    answer(Kind::kSilent);
    answer(Kind::kSilent);
    wait();
    asked_.clear();
    question_.deadline = net::Loop::clock() + 3600 * net::kSecond;
    begin();
    EXPECT_EQ(servers(), "1");
}

TEST_F(WalkTest, AllServersMarkedEndsAtOnce) {
    for (const ServerClientPtr &server : clients_.find(group_)) {
        probes_.unreachable(server, Use::kRights, "test");
    }
    begin();
    EXPECT_EQ(wait().kind, Outcome::Kind::kUnavailable);
    EXPECT_EQ(servers(), "");
    Walk::Options accounting;
    accounting.use = Use::kAccounting;
    begin(accounting);
    EXPECT_EQ(servers(), "1") << "another port";
}

TEST_F(WalkTest, TheServerOfADialogueIsAskedAlone) {
    Walk::Options options;
    options.only_the_first = true;
    options.at_end = [](const std::string &why) { return begin_again(why, nullptr); };
    probes_.unreachable(clients_.find(group_.servers[1]), Use::kRights, "test");
    begin(options, {clients_.find(group_.servers[1])});
    EXPECT_EQ(servers(), "2") << "also when it is marked";
    answer(Kind::kSilent);
    EXPECT_EQ(wait().kind, Outcome::Kind::kChallenge);
    EXPECT_EQ(servers(), "2");
}

TEST_F(WalkTest, AServerThatCannotBeAskedIsPassedOver) {
    group_.servers[0].source = "nowhere";
    begin();
    while (asked_.empty()) {
        loop_.run_once(INT64_MAX);
    }
    EXPECT_EQ(servers(), "2");
    EXPECT_NE(steps().find("\"nowhere\", which is not an address"), std::string::npos) << steps();
}

TEST_F(WalkTest, ADestroyedWalkCallsNoOne) {
    question_.deadline = 0;
    begin();
    walk_.reset();
    loop_.post([this] { loop_.stop(); });
    loop_.run();
    EXPECT_FALSE(outcome_);
}

}  // namespace
}  // namespace service
