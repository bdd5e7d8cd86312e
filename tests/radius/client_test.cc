// SPDX-License-Identifier: Apache-2.0

#include "radius/client.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "radius/udp_server.hpp"

namespace radius {
namespace {

using radius_test::attribute;
using radius_test::login;
using radius_test::make_client;
using radius_test::message_authenticator;
using radius_test::Packet;
using radius_test::Result;
using radius_test::UdpServer;
using Kind = Outcome::Kind;

TEST(RadiusClient, RefusesSettingsThatCannotWork) {
    net::Loop loop;
    std::string error;
    EXPECT_EQ(Client::make(loop, ServerSettings{}, error), nullptr);
    EXPECT_EQ(error, "the server has no address or no port");
}

TEST(RadiusClient, GetsAnAnswer) {
    net::Loop loop;
    UdpServer server(loop);
    const auto client = make_client(loop, server.patient_settings());
    Result result(loop);
    EXPECT_NE(client->ask(login(), result.done()), 0U);
    EXPECT_EQ(client->under_way(), 1U);
    const Packet request = server.next();
    EXPECT_EQ(request.code(), 1);
    EXPECT_EQ(request.text(Type::kUserName), "alice");
    EXPECT_EQ(request.text(Type::kUserPassword).size(), 16U);
    EXPECT_EQ(request.text(Type::kMessageAuthenticator).size(), 16U);
    EXPECT_EQ(request.bytes.find("wonderland"), std::string::npos);
    server.answer(request, Code::kAccessAccept,
                  attribute(Type::kReplyMessage, "Hello, ") + attribute(Type::kReplyMessage, "Alice") +
                      attribute(Type::kClass, "one") + attribute(Type::kClass, "two"));
    const Outcome &outcome = result.wait();
    EXPECT_EQ(outcome.kind, Kind::kAnswer);
    EXPECT_EQ(outcome.answer.code(), Code::kAccessAccept);
    EXPECT_EQ(outcome.answer.text(), "Hello, Alice");
    EXPECT_EQ(outcome.answer.classes(), (std::vector<std::string>{"one", "two"}));
    EXPECT_EQ(outcome.tries, 1);
    EXPECT_GT(outcome.time, 0);
    EXPECT_EQ(client->under_way(), 0U);
    EXPECT_EQ(client->counters().questions, 1U);
    EXPECT_EQ(client->counters().requests, 1U);
    EXPECT_EQ(client->counters().accepts, 1U);
    EXPECT_GT(client->counters().round_trip, 0);
}

TEST(RadiusClient, CountsAnswersByCode) {
    net::Loop loop;
    UdpServer server(loop);
    const auto client = make_client(loop, server.patient_settings());
    for (const Code code : {Code::kAccessReject, Code::kAccessChallenge}) {
        Result result(loop);
        client->ask(login(), result.done());
        server.answer(server.next(), code);
        EXPECT_EQ(result.wait().answer.code(), code);
    }
    Result accounted(loop);
    client->ask(Question::accounting({.session_id = "s1"}), accounted.done());
    server.answer(server.next(), Code::kAccountingResponse);
    EXPECT_EQ(accounted.wait().answer.code(), Code::kAccountingResponse);
    Result status(loop);
    client->ask_status(status.done());
    server.answer(server.next(), Code::kAccountingResponse);
    EXPECT_EQ(status.wait().kind, Kind::kAnswer);
    const Counters &counters = client->counters();
    EXPECT_EQ(counters.accepts, 0U);
    EXPECT_EQ(counters.rejects, 1U);
    EXPECT_EQ(counters.challenges, 1U);
    EXPECT_EQ(counters.accounting_responses, 1U);
    EXPECT_EQ(counters.status_answers, 1U);
}

TEST(RadiusClient, AsksWhetherTheServerIsThere) {
    net::Loop loop;
    UdpServer server(loop);
    ServerSettings settings = server.patient_settings();
    settings.nas_identifier = "router-1";
    const auto client = make_client(loop, settings);
    Result result(loop);
    client->ask_status(result.done());
    const Packet request = server.next();
    EXPECT_EQ(request.code(), 12);
    EXPECT_EQ(request.text(Type::kMessageAuthenticator).size(), 16U);
    EXPECT_EQ(request.text(Type::kNasIdentifier), "router-1");
    server.answer(request, Code::kAccessAccept);
    EXPECT_EQ(result.wait().kind, Kind::kAnswer);
}

TEST(RadiusClient, NamesThisSystemUnlessTheQuestionDoes) {
    net::Loop loop;
    UdpServer server(loop);
    ServerSettings settings = server.patient_settings();
    settings.nas_identifier = "router-1";
    const auto client = make_client(loop, settings);
    Question question = login();
    ASSERT_TRUE(question.add(Type::kNasIdentifier, "line-card-7"));
    client->ask(std::move(question), [](const Outcome &) {});
    EXPECT_EQ(server.next().text(Type::kNasIdentifier), "line-card-7");
    client->ask(login(), [](const Outcome &) {});
    EXPECT_EQ(server.next().text(Type::kNasIdentifier), "router-1");
}

TEST(RadiusClient, CarriesTheStateOfAChallenge) {
    net::Loop loop;
    UdpServer server(loop);
    const auto client = make_client(loop, server.patient_settings());
    Result first(loop);
    client->ask(login(), first.done());
    server.answer(server.next(), Code::kAccessChallenge,
                  attribute(Type::kReplyMessage, "Code: ") + attribute(Type::kState, "state-1"));
    const Answer &challenge = first.wait().answer;
    EXPECT_EQ(challenge.text(), "Code: ");
    EXPECT_FALSE(challenge.may_echo());
    Question question = login("alice", "123456");
    question.set_challenge(challenge);
    Result second(loop);
    client->ask(std::move(question), second.done());
    const Packet request = server.next();
    EXPECT_EQ(request.text(Type::kState), "state-1");
    server.answer(request);
    EXPECT_EQ(second.wait().answer.code(), Code::kAccessAccept);
}

// A server was seen to send the rights of the user that it refuses.
TEST(RadiusClient, DropsTheRightsInAReject) {
    net::Loop loop;
    UdpServer server(loop);
    const auto client = make_client(loop, server.patient_settings());
    Result result(loop);
    client->ask(login(), result.done());
    server.answer(server.next(), Code::kAccessReject,
                  attribute(Type::kServiceType, std::string("\0\0\0\6", 4)) +
                      attribute(Type::kReplyMessage, "Account locked") +
                      attribute(Type::kVendorSpecific, std::string("\0\0\x7e\xd9\1\3x", 7)));
    const Answer &answer = result.wait().answer;
    EXPECT_EQ(answer.text(), "Account locked");
    EXPECT_EQ(answer.service_type(), std::nullopt);
    EXPECT_EQ(answer.attributes().find(Type::kVendorSpecific), std::nullopt);
}

TEST(RadiusClient, AnswersInAnyOrder) {
    net::Loop loop;
    UdpServer server(loop);
    const auto client = make_client(loop, server.patient_settings());
    constexpr int kQuestions = 40;
    std::vector<Result> results;
    std::vector<Packet> requests;
    for (int i = 0; i < kQuestions; ++i) {
        results.emplace_back(loop);
        client->ask(login("user" + std::to_string(i)), results.back().done());
        requests.push_back(server.next());
    }
    for (int i = kQuestions - 1; i >= 0; --i) {
        const std::string name = requests[i].text(Type::kUserName);
        server.answer(requests[i], Code::kAccessAccept, attribute(Type::kReplyMessage, name));
        EXPECT_EQ(results[i].wait().answer.text(), "user" + std::to_string(i));
    }
}

// ---- ends before an answer

TEST(RadiusClient, CallsNothingForACancelledQuestion) {
    net::Loop loop;
    UdpServer server(loop);
    const auto client = make_client(loop, server.patient_settings());
    Result cancelled(loop), kept(loop);
    const Client::Ticket ticket = client->ask(login("one"), cancelled.done());
    client->ask(login("two"), kept.done());
    const Packet first = server.next();
    const Packet second = server.next();
    client->cancel(ticket);
    client->cancel(ticket);
    client->cancel(0);
    server.answer(first);
    server.answer(second);
    EXPECT_EQ(kept.wait().kind, Kind::kAnswer);
    EXPECT_FALSE(cancelled.is_there());
    EXPECT_EQ(client->counters().cancelled, 1U);
    EXPECT_EQ(client->counters().unexpected, 1U);
    EXPECT_EQ(client->under_way(), 0U);
}

TEST(RadiusClient, CanBeCancelledBetweenTheAnswerAndTheCall) {
    net::Loop loop;
    UdpServer server(loop);
    const auto client = make_client(loop, server.patient_settings());
    Client::Ticket second = 0;
    int calls = 0;
    client->ask(login("one"), [&](const Outcome &) {
        ++calls;
        client->cancel(second);
    });
    second = client->ask(login("two"), [&](const Outcome &) { ++calls; });
    const Packet first_request = server.next();
    const Packet second_request = server.next();
    server.answer(first_request);
    server.answer(second_request);
    loop.run_once(INT64_MAX);
    loop.run_once(0);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(client->under_way(), 0U);
    EXPECT_EQ(client->counters().cancelled, 0U);  // it had been answered
}

TEST(RadiusClient, EndsAtTheDeadline) {
    net::Loop loop;
    UdpServer server(loop);
    const auto client = make_client(loop, server.patient_settings());
    Result result(loop);
    client->ask(login(), result.done(), net::Loop::clock() + net::kSecond / 5);
    const Outcome &outcome = result.wait();
    EXPECT_EQ(outcome.kind, Kind::kSilent);
    EXPECT_EQ(outcome.tries, 1);
    EXPECT_EQ(client->counters().silent, 1U);
}

TEST(RadiusClient, SendsNothingAfterTheDeadline) {
    net::Loop loop;
    UdpServer server(loop);
    const auto client = make_client(loop, server.patient_settings());
    Result result(loop);
    client->ask(login(), result.done(), net::Loop::clock());
    EXPECT_FALSE(result.is_there());  // never called within ask()
    const Outcome &outcome = result.wait();
    EXPECT_EQ(outcome.kind, Kind::kError);
    EXPECT_EQ(outcome.text, "the deadline had passed when the question was asked");
    EXPECT_EQ(outcome.tries, 0);
    EXPECT_EQ(outcome.time, 0);
    EXPECT_FALSE(server.has_one());
}

TEST(RadiusClient, SaysWhatCannotBeSent) {
    net::Loop loop;
    UdpServer server(loop);
    const auto client = make_client(loop, server.patient_settings());
    Result result(loop);
    client->ask(login("alice", std::string(129, 'p')), result.done());
    EXPECT_FALSE(result.is_there());
    EXPECT_EQ(result.wait().kind, Kind::kError);
    EXPECT_EQ(result.wait().text, "the password is longer than the 128 bytes of RADIUS");
    EXPECT_FALSE(server.has_one());
    EXPECT_EQ(client->counters().errors, 1U);
    EXPECT_EQ(client->counters().requests, 0U);
}

// ---- functions that call back

TEST(RadiusClient, CanBeAskedAgainByAnOutcome) {
    net::Loop loop;
    UdpServer server(loop);
    const auto client = make_client(loop, server.patient_settings());
    Result second(loop);
    client->ask(login("one"), [&](const Outcome &) { client->ask(login("two"), second.done()); });
    server.answer(server.next());
    const Packet request = server.next();
    EXPECT_EQ(request.text(Type::kUserName), "two");
    server.answer(request);
    EXPECT_EQ(second.wait().kind, Kind::kAnswer);
}

// A function that asks again whenever it fails must not keep the loop to itself.
TEST(RadiusClient, LetsTheLoopGoOnWhenFailuresAskAgain) {
    net::Loop loop;
    UdpServer server(loop);
    const auto client = make_client(loop, server.patient_settings());
    int calls = 0;
    std::function<void(const Outcome &)> again = [&](const Outcome &) {
        ++calls;
        client->ask(login(), again, 0);
    };
    client->ask(login(), again, 0);
    bool read = false;
    loop.run_once(INT64_MAX);
    loop.post([&] { read = true; });
    loop.run_once(INT64_MAX);
    EXPECT_TRUE(read);
    EXPECT_LE(calls, 3);
}

TEST(RadiusClient, CanBeDestroyedByAnOutcome) {
    net::Loop loop;
    UdpServer server(loop);
    auto client = make_client(loop, server.patient_settings());
    int calls = 0;
    const auto destroy = [&, text = std::string(100, 'x')](const Outcome &) {
        ++calls;
        client.reset();
        EXPECT_EQ(text, std::string(100, 'x'));
    };
    client->ask(login("one"), destroy);
    client->ask(login("two"), destroy);
    const Packet first_request = server.next();
    const Packet second_request = server.next();
    server.answer(first_request);
    server.answer(second_request);
    while (calls == 0) {
        loop.run_once(INT64_MAX);
    }
    loop.run_once(0);
    EXPECT_EQ(calls, 1);
}

// The client belongs to what an outcome's function has captured, and goes with it.
TEST(RadiusClient, CanBelongToTheFunctionOfAQuestion) {
    net::Loop loop;
    UdpServer server(loop);
    std::shared_ptr<Client> client = make_client(loop, server.patient_settings());
    Client *const raw = client.get();
    bool called = false;
    raw->ask(login(), [&called, client](const Outcome &) { called = true; });
    raw->ask(login(), [](const Outcome &) { FAIL() << "called after the client was destroyed"; });
    client.reset();
    const Packet first_request = server.next();
    const Packet second_request = server.next();
    server.answer(first_request);
    server.answer(second_request);
    while (!called) {
        loop.run_once(INT64_MAX);
    }
    loop.run_once(0);
}

TEST(RadiusClient, EndsWithQuestionsUnderWay) {
    net::Loop loop;
    UdpServer server(loop);
    auto client = make_client(loop, server.patient_settings());
    Result sent(loop), failed(loop);
    client->ask(login(), sent.done());
    client->ask(login(), failed.done(), 0);
    client.reset();
    server.answer(server.next());
    loop.run_once(0);
    EXPECT_FALSE(sent.is_there());
    EXPECT_FALSE(failed.is_there());
}

}  // namespace
}  // namespace radius
