// SPDX-License-Identifier: Apache-2.0
//
// What is taken for an answer, and what is said of the rest.

#include "radius/exchange.hpp"

#include <gtest/gtest.h>

#include <string>

#include "radius/udp_server.hpp"

namespace radius {
namespace {

using radius_test::login;
using radius_test::make_client;
using radius_test::message_authenticator;
using radius_test::Packet;
using radius_test::Result;
using radius_test::UdpServer;
using Kind = Outcome::Kind;

// A client that has sent one request, and gets what a test sends before the right answer.
class RadiusExchange : public testing::Test {
  protected:
    void ask(Question question, bool legacy = false) {
        ServerSettings settings = server.settings();
        settings.timeout = settings.longest_timeout = timeout;
        settings.tries = 1;
        settings.legacy = legacy;
        client = make_client(loop, settings);
        client->ask(std::move(question), result.done());
        request = server.next();
    }
    std::string valid(Code code = Code::kAccessAccept, std::string_view secret = radius_test::kSecret) const {
        return radius_test::answer(static_cast<int>(code), request.bytes, message_authenticator(), secret);
    }
    std::string unprotected(Code code = Code::kAccessAccept) const {
        return radius_test::answer(static_cast<int>(code), request.bytes, "", radius_test::kSecret);
    }
    // The bytes are dropped and counted as a fault; the right answer is still taken.
    void expect_dropped(std::string_view bytes, Fault fault) {
        const std::uint64_t before = dropped(fault);
        server.send(request, bytes);
        loop.run_once(INT64_MAX);
        EXPECT_FALSE(result.is_there());
        EXPECT_EQ(dropped(fault), before + 1);
    }
    void expect_right_answer() {
        server.send(request, valid());
        EXPECT_EQ(result.wait().kind, Kind::kAnswer);
    }
    std::uint64_t dropped(Fault fault) const {
        return client->counters().dropped[static_cast<std::size_t>(fault)];
    }
    // Asks with so short a wait that it ends in the round of the loop that reads what the
    // test sends next.
    void ask_shortly() {
        timeout = net::kMillisecond;
        ask(login());
    }
    std::string text_of_silence() {
        EXPECT_EQ(result.wait().kind, Kind::kSilent);
        return result.wait().text;
    }

    net::Loop loop;
    UdpServer server{loop};
    std::unique_ptr<Client> client;
    Result result{loop};
    Packet request;
    net::Time timeout = 3600 * net::kSecond;
};

TEST_F(RadiusExchange, DropsAnswersWithAnotherSecret) {
    ask(login());
    expect_dropped(valid(Code::kAccessAccept, "another"), Fault::kForged);
    expect_dropped(valid(Code::kAccessReject, ""), Fault::kForged);
    expect_right_answer();
}

TEST_F(RadiusExchange, DropsAnswersThatWereChanged) {
    ask(login());
    for (std::size_t at = 4; at < valid().size(); ++at) {
        std::string changed = valid();
        changed[at] = static_cast<char>(changed[at] ^ 1);
        server.send(request, changed);
        loop.run_once(INT64_MAX);
        EXPECT_FALSE(result.is_there()) << at;
    }
    std::string another_code = valid(Code::kAccessReject);
    another_code[0] = 2;
    expect_dropped(another_code, Fault::kForged);
    expect_right_answer();
}

TEST_F(RadiusExchange, DropsGarbageOfEveryLength) {
    ask(login());
    const std::uint64_t unexpected = client->counters().unexpected;
    const std::string whole = valid();
    for (std::size_t length = 0; length < whole.size(); ++length) {
        server.send(request, whole.substr(0, length));
        loop.run_once(INT64_MAX);
        EXPECT_FALSE(result.is_there()) << length;
    }
    EXPECT_EQ(client->counters().unexpected, unexpected + 2);  // without identifier
    EXPECT_EQ(dropped(Fault::kMalformed), whole.size() - 2);
    expect_dropped(std::string(4096, request.bytes[1]), Fault::kMalformed);
    expect_dropped(std::string(60000, request.bytes[1]), Fault::kMalformed);
    expect_right_answer();
}

TEST_F(RadiusExchange, DropsOtherIdentifiersAndCodes) {
    ask(login());
    std::string other_id = valid();
    other_id[1] = static_cast<char>(request.id() + 1);
    server.send(request, other_id);
    loop.run_once(INT64_MAX);
    EXPECT_EQ(client->counters().unexpected, 1U);
    expect_dropped(valid(Code::kAccountingResponse), Fault::kOtherRequest);
    expect_dropped(request.bytes, Fault::kOtherRequest);  // reflected
    expect_right_answer();
}

// An answer to another request that had the same identifier.
TEST_F(RadiusExchange, DropsTheAnswerToAnEarlierRequest) {
    ask(login());
    std::string earlier = request.bytes;
    earlier.replace(4, 16, 16, 'x');
    expect_dropped(radius_test::answer(2, earlier, message_authenticator(), radius_test::kSecret),
                   Fault::kForged);
    expect_right_answer();
}

TEST_F(RadiusExchange, DemandsAMessageAuthenticator) {
    ask(login());
    expect_dropped(unprotected(), Fault::kUnprotected);
    expect_dropped(unprotected(Code::kAccessReject), Fault::kUnprotected);
    expect_right_answer();
}

TEST_F(RadiusExchange, DemandsItOfTheAnswerToAStatusRequest) {
    ask(Question::status());
    expect_dropped(unprotected(), Fault::kUnprotected);
    expect_right_answer();
}

TEST_F(RadiusExchange, DoesWithoutItForALegacyServer) {
    ask(login(), true);
    server.send(request, unprotected());
    EXPECT_EQ(result.wait().kind, Kind::kAnswer);
}

TEST_F(RadiusExchange, ChecksTheOneOfALegacyServer) {
    ask(login(), true);
    const std::string wrong =
        radius_test::attribute(Type::kMessageAuthenticator, std::string(16, 'x'));  // is not filled in
    expect_dropped(radius_test::answer(2, request.bytes, wrong, radius_test::kSecret), Fault::kForged);
    expect_right_answer();
}

TEST_F(RadiusExchange, TakesAccountingAnswersWithoutIt) {
    ask(Question::accounting({.session_id = "s1"}));
    server.send(request, unprotected(Code::kAccountingResponse));
    EXPECT_EQ(result.wait().kind, Kind::kAnswer);
}

TEST_F(RadiusExchange, SaysWhyAServerSeemsSilent) {
    ask_shortly();
    EXPECT_EQ(text_of_silence(),
              server.address().text() +
                  " has not answered; it may be down, not reachable, or not know this client or its secret");
}

TEST_F(RadiusExchange, SaysThatMessageAuthenticatorIsMissing) {
    ask_shortly();
    server.send(request, unprotected());
    EXPECT_EQ(text_of_silence(),
              server.address().text() +
                  " has not answered; 1 answer was dropped without Message-Authenticator: have the server "
                  "send it, or mark the server as legacy");
}

TEST_F(RadiusExchange, SaysThatTheSecretMayBeWrong) {
    ask_shortly();
    server.send(request, valid(Code::kAccessAccept, "another"));
    server.send(request, valid(Code::kAccessReject, "another"));
    server.send(request, valid(Code::kAccountingResponse));
    EXPECT_EQ(
        text_of_silence(),
        server.address().text() +
            " has not answered; 2 answers were dropped because the authenticator is wrong: compare the "
            "shared secret with the server's; 1 packet was dropped that is damaged or answers something "
            "else");
}

TEST_F(RadiusExchange, SmoothsTheRoundTrip) {
    ask(login());
    expect_right_answer();
    const net::Time first = client->counters().round_trip;
    EXPECT_EQ(first, result.wait().time >= first ? first : -1);
    Result second(loop);
    client->ask(login(), second.done());
    request = server.next();
    server.send(request, valid());
    const net::Time time = second.wait().time;
    const net::Time smoothed = client->counters().round_trip;
    EXPECT_LE(smoothed, std::max(first, time));
    EXPECT_GE(smoothed, std::min(first, time) - time / 8);
}

}  // namespace
}  // namespace radius
