// SPDX-License-Identifier: Apache-2.0
//
// Passwords that are tried at once, at a server that passes at once and delays its refusals, as
// RADIUS servers do.

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "service/groups/group_fixture.hpp"

namespace groups_test {
namespace {

using radius::Code;
using radius::Type;
using radius_test::Packet;
using radius_test::UdpServer;

class AaadGuesses : public GroupTest {
  protected:
    void SetUp() override {
        add_radius(server_);
        lists({"corp", AAA_METHOD_LOCAL});
    }
    // Clients that each send a login at once.
    std::vector<std::unique_ptr<Client>> guess(int count, const std::string &user,
                                               const std::string &remote = "192.0.2.10") {
        std::vector<std::unique_ptr<Client>> clients;
        for (int i = 0; i < count; ++i) {
            clients.push_back(std::make_unique<Client>(aaad_.socket()));
            Ask ask = ask_as(user, "guess");
            ask.remote = remote;
            clients.back()->send_authentication(ask);
        }
        return clients;
    }
    std::vector<Packet> requests(int count) {
        std::vector<Packet> taken;
        for (int i = 0; i < count; ++i) {
            taken.push_back(server_.next());
        }
        return taken;
    }
    // A login of someone else, which is answered: whatever came before it is at the server by then.
    void expect_others_are_served() {
        Ask ask = ask_as("zoe", "secret");
        ask.remote = "192.0.2.99";
        Login login(aaad_, ask);
        const Packet request = server_.next();
        EXPECT_EQ(request.text(Type::kUserName), "zoe");
        server_.answer(request);
        EXPECT_EQ(login.wait().status, uint32_t{AAA_STAT_PASS});
    }
    UdpServer server_{loop_};
};

TEST_F(AaadGuesses, NoMoreAreTriedThanTheLockOutAllows) {
    constexpr int kGuesses = 60;
    aaad_.settings("lockout-failures 5\nlockout-exempt none\n");
    aaad_.start();
    const auto clients = guess(kGuesses, "alice");
    const std::vector<Packet> tried = requests(5);
    expect_others_are_served();
    EXPECT_FALSE(server_.has_one()) << "the others wait";
    for (const Packet &request : tried) {
        server_.answer(request, Code::kAccessReject);
    }
    for (const auto &client : clients) {
        const Reply reply = client->receive(AAA_REQ_AUTHEN);
        EXPECT_EQ(reply.status, uint32_t{AAA_STAT_FAIL});
        EXPECT_EQ(reply.text, "Login incorrect");
    }
    EXPECT_FALSE(server_.has_one()) << "the user is locked out: no other password was tried";
    EXPECT_TRUE(aaad_.wait_for_log("LOGINS_WAIT"));
    EXPECT_TRUE(aaad_.wait_for_log("LOCKED_OUT"));
    expect_others_are_served();
}

// The right password is passed at once, so an attacker without an answer need not wait for the refusal.
TEST_F(AaadGuesses, ThoseWhoseClientLeavesCount) {
    aaad_.settings("lockout-failures 3\nlockout-exempt none\n");
    aaad_.start({"--debug"});
    for (int i = 0; i < 3; ++i) {
        auto clients = guess(1, "alice");
        const Packet request = server_.next();
        clients.clear();
        EXPECT_TRUE(aaad_.wait_for_log("left before its answer"));
        server_.answer(request, Code::kAccessReject);
        // The service has taken the refusal when it answers what was sent later.
        expect_others_are_served();
    }
    EXPECT_TRUE(aaad_.wait_for_log("LOCKED_OUT"));
    EXPECT_EQ(aaad_.login(ask_as("alice", "wonderland")).status, uint32_t{AAA_STAT_FAIL});
    EXPECT_FALSE(server_.has_one());
}

// Otherwise logins at a server that is silent to them would make every further try free.
TEST_F(AaadGuesses, ThoseWhoLeaveCountAlsoWhereTooManyHaveLeft) {
    aaad_.settings("clients 16\nlockout-failures 3\nlockout-exempt none\n");
    aaad_.start({"--debug"});
    const auto leave_at_server = [this](const std::string &user, const std::string &remote) {
        auto clients = guess(1, user, remote);
        const Packet request = server_.next();
        clients.clear();
        EXPECT_TRUE(aaad_.wait_for_log("left before its answer"));
        return request;
    };
    for (int i = 0; i < 16; ++i) {
        leave_at_server("user" + std::to_string(i), "198.51.100." + std::to_string(i));
    }
    for (int i = 0; i < 3; ++i) {
        leave_at_server("alice", "192.0.2.10");
    }
    EXPECT_TRUE(aaad_.wait_for_log("LOCKED_OUT"));
    Ask ask = ask_as("alice", "wonderland");
    ask.remote = "192.0.2.10";
    EXPECT_EQ(aaad_.login(ask).status, uint32_t{AAA_STAT_FAIL});
    EXPECT_FALSE(server_.has_one());
}

TEST_F(AaadGuesses, WhatALoginWithoutAClientBroughtIsForNoOne) {
    aaad_.start({"--debug"});
    auto abandoned = guess(1, "alice");
    const Packet first = server_.next();
    abandoned.clear();
    EXPECT_TRUE(aaad_.wait_for_log("left before its answer"));
    server_.answer(first, Code::kAccessAccept, attribute(static_cast<int>(Type::kClass), "abandoned"));
    const auto real = guess(1, "alice");
    server_.answer(server_.next(), Code::kAccessAccept, attribute(static_cast<int>(Type::kClass), "real"));
    EXPECT_EQ(real[0]->receive(AAA_REQ_AUTHEN).status, uint32_t{AAA_STAT_PASS});
    Ask record = ask_as("alice", std::nullopt);
    record.remote = "192.0.2.10";
    std::thread client([&] { EXPECT_EQ(Client(aaad_.socket()).account(record).result, AAA_OK); });
    const Packet packet = server_.next();
    EXPECT_EQ(packet.text(Type::kClass), "real");
    server_.answer(packet, Code::kAccountingResponse);
    client.join();
}

TEST_F(AaadGuesses, ANameThatNoOneHereHasIsNotShownWhileItWaits) {
    aaad_.settings("logins-at-once 1\nlog-unknown-names no\n");
    aaad_.start();
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < 8; ++i) {
        clients.push_back(std::move(guess(1, "user" + std::to_string(i))[0]));
    }
    requests(8);
    const auto mistyped = guess(1, "Hunter2Secret!");
    EXPECT_TRUE(aaad_.wait_for_log("many logins of (unknown name) or from 192.0.2.10"));
    EXPECT_EQ(aaad_.log().find("Hunter2Secret!"), std::string::npos);
}

TEST_F(AaadGuesses, ClientsThatLeaveGiveTheirPlaceInTheQueue) {
    aaad_.settings("lockout-failures 2\nlockout-exempt none\n");
    aaad_.start();
    auto clients = guess(2, "alice");
    const std::vector<Packet> tried = requests(2);
    auto waiting = guess(20, "alice");
    auto honest = guess(1, "alice");
    expect_others_are_served();
    waiting.clear();
    expect_others_are_served();
    for (const Packet &request : tried) {
        server_.answer(request);
    }
    const Packet last = server_.next();
    server_.answer(last);
    for (const auto *several : {&clients, &honest}) {
        for (const auto &client : *several) {
            EXPECT_EQ(client->receive(AAA_REQ_AUTHEN).status, uint32_t{AAA_STAT_PASS});
        }
    }
    EXPECT_FALSE(server_.has_one()) << "no one asks for those who have left";
}

TEST_F(AaadGuesses, SessionsOfAnHonestUserAllBegin) {
    constexpr int kSessions = 100;
    aaad_.start();
    const auto clients = guess(kSessions, "alice");
    for (int i = 0; i < kSessions; ++i) {
        server_.answer(server_.next());
    }
    for (const auto &client : clients) {
        EXPECT_EQ(client->receive(AAA_REQ_AUTHEN).status, uint32_t{AAA_STAT_PASS});
    }
}

TEST_F(AaadGuesses, OneUserLeavesPlacesForOthers) {
    aaad_.settings("clients 64\nlogins-at-once 4\n");
    aaad_.start();
    auto clients = guess(40, "alice");
    // A quarter of the places: four at the server, and the others in the queue.
    const std::vector<Packet> tried = requests(4);
    for (int i = 16; i < 40; ++i) {
        EXPECT_EQ(clients[static_cast<size_t>(i)]->receive(AAA_REQ_AUTHEN).status, uint32_t{AAA_STAT_ABORT});
    }
    // The user from elsewhere, at once.
    auto elsewhere = guess(1, "alice", "198.51.100.7");
    const Packet request = server_.next();
    EXPECT_EQ(request.text(Type::kCallingStationId), "198.51.100.7");
    server_.answer(request);
    EXPECT_EQ(elsewhere[0]->receive(AAA_REQ_AUTHEN).status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(clients[15]->receive(AAA_REQ_AUTHEN).status, uint32_t{AAA_STAT_ABORT}) << "it made room";
    for (const Packet &one : tried) {
        server_.answer(one, Code::kAccessReject);
    }
    server_.answer(server_.next(), Code::kAccessReject);  // one more failure is left
    for (int i = 0; i < 15; ++i) {
        EXPECT_EQ(clients[static_cast<size_t>(i)]->receive(AAA_REQ_AUTHEN).status, uint32_t{AAA_STAT_FAIL});
    }
}

// A login that finds no place is answered by the next module of the login's program.
TEST_F(AaadGuesses, LoginsThatWaitMakeRoomForOthersWhereAllPlacesAreTaken) {
    aaad_.settings("clients 16\nlogins-at-once 1\n");
    aaad_.start();
    auto some = guess(8, "alice");
    auto others = guess(8, "bob", "198.51.100.7");
    requests(2);
    for (int i = 0; i < 6; ++i) {
        expect_others_are_served();
    }
    EXPECT_TRUE(aaad_.wait_for_log("makes room"));
}

TEST_F(AaadGuesses, AQueueEndsWithTheTimeOfItsClients) {
    aaad_.settings("patience 1000\nlockout-failures 1\nlockout-exempt none\n");
    aaad_.start();
    const auto clients = guess(3, "alice");
    server_.next();  // not answered
    for (int i = 0; i < 3; ++i) {
        const Reply reply = clients[static_cast<size_t>(i)]->receive(AAA_REQ_AUTHEN);
        EXPECT_NE(reply.status, uint32_t{AAA_STAT_PASS}) << i;
        EXPECT_EQ(reply.result, AAA_OK);
    }
}

}  // namespace
}  // namespace groups_test
