// SPDX-License-Identifier: Apache-2.0

#include "radius/udp.hpp"

#include <gtest/gtest.h>

#include <string>

#include "radius/udp_server.hpp"

namespace radius {
namespace {

using radius_test::login;
using radius_test::make_client;
using radius_test::Packet;
using radius_test::Result;
using radius_test::UdpServer;
using Kind = Outcome::Kind;

void ignore(const Outcome &) {}

// ---- retransmission

TEST(RadiusUdp, RepeatsTheSamePacketAndThenGivesUp) {
    net::Loop loop;
    UdpServer server(loop);
    const auto client = make_client(loop, server.settings());
    Result result(loop);
    client->ask(login(), result.done());
    const Packet first = server.next();
    EXPECT_EQ(server.next().bytes, first.bytes);
    EXPECT_EQ(server.next().bytes, first.bytes);
    const Outcome &outcome = result.wait();
    EXPECT_EQ(outcome.kind, Kind::kSilent);
    EXPECT_EQ(outcome.tries, 3);
    EXPECT_GT(outcome.time, 0);
    EXPECT_FALSE(server.has_one());
    EXPECT_EQ(client->counters().requests, 1U);
    EXPECT_EQ(client->counters().retransmissions, 2U);
    EXPECT_EQ(client->counters().silent, 1U);
}

TEST(RadiusUdp, TakesTheAnswerToALaterTry) {
    net::Loop loop;
    UdpServer server(loop);
    ServerSettings settings = server.settings();
    settings.tries = 100;
    const auto client = make_client(loop, settings);
    Result result(loop);
    client->ask(login(), result.done());
    server.next();
    server.answer(server.next());
    EXPECT_EQ(result.wait().kind, Kind::kAnswer);
    EXPECT_GE(result.wait().tries, 2);
    EXPECT_EQ(client->counters().round_trip, 0);  // of which packet, nobody knows
}

TEST(RadiusUdp, CountsAnAnswerThatComesTwice) {
    net::Loop loop;
    UdpServer server(loop);
    const auto client = make_client(loop, server.patient_settings());
    Result result(loop), next(loop);
    client->ask(login(), result.done());
    const Packet request = server.next();
    server.answer(request);
    server.answer(request);
    result.wait();
    client->ask(login(), next.done());
    server.answer(server.next());
    EXPECT_EQ(next.wait().kind, Kind::kAnswer);
    EXPECT_EQ(client->counters().unexpected, 1U);
    EXPECT_EQ(client->counters().accepts, 2U);
}

// ---- accounting

TEST(RadiusUdp, AgesARecordThatIsSentAgain) {
    net::Loop loop;
    UdpServer server(loop);
    ServerSettings settings = server.settings();
    settings.timeout = settings.longest_timeout = net::kSecond + net::kSecond / 5;
    const auto client = make_client(loop, settings);
    Result result(loop);
    client->ask(Question::accounting({.session_id = "s1", .event_time = 1700000000, .delay = 40}),
                result.done());
    const Packet first = server.next();
    const Packet second = server.next();
    EXPECT_EQ(first.number(Type::kAcctDelayTime), 40U);
    EXPECT_GE(second.number(Type::kAcctDelayTime), 41U);
    EXPECT_EQ(second.number(Type::kEventTimestamp), 1700000000U);
    EXPECT_NE(first.id(), second.id());
    EXPECT_NE(first.authenticator(), second.authenticator());
    EXPECT_GE(client->counters().retransmissions, 1U);
    // The event is recorded as soon as either packet is.
    server.answer(first, Code::kAccountingResponse);
    EXPECT_EQ(result.wait().kind, Kind::kAnswer);
    server.answer(second, Code::kAccountingResponse);
    Result status(loop);
    client->ask_status(status.done());
    server.answer(server.next());
    status.wait();
    EXPECT_GE(client->counters().unexpected, 1U);
}

TEST(RadiusUdp, RepeatsARecordThatHasNotAged) {
    net::Loop loop;
    UdpServer server(loop);
    ServerSettings settings = server.settings();
    settings.timeout = settings.longest_timeout = net::kMillisecond;
    const auto client = make_client(loop, settings);
    Result result(loop);
    client->ask(Question::accounting({.session_id = "s1"}), result.done());
    result.wait();
    const Packet first = server.next();
    const Packet second = server.next();
    if (first.number(Type::kAcctDelayTime) == second.number(Type::kAcctDelayTime)) {
        EXPECT_EQ(first.bytes, second.bytes);
    } else {  // the machine was slow
        EXPECT_NE(first.id(), second.id());
    }
}

// ---- errors of the network and of this system

TEST(RadiusUdp, NoticesAtOnceThatThePortIsClosed) {
    net::Loop loop;
    UdpServer server(loop);
    const ServerSettings settings = server.patient_settings();
    server.close();
    const auto client = make_client(loop, settings);
    Result result(loop), second(loop);
    client->ask(login("one"), result.done());
    client->ask(login("two"), second.done());
    const Outcome &outcome = result.wait();
    EXPECT_EQ(outcome.kind, Kind::kRefused);
    EXPECT_EQ(outcome.text, "requests to " + settings.address.text() + " are refused: Connection refused");
    EXPECT_EQ(second.wait().kind, Kind::kRefused);
    EXPECT_EQ(client->counters().refused, 2U);
}

// The error of one packet is reported when the next is sent, which then was not sent.
TEST(RadiusUdp, SendsAgainWhatFailedForAnEarlierPacket) {
    net::Loop loop;
    auto server = std::make_unique<UdpServer>(loop);
    const ServerSettings settings = server->patient_settings();
    server->close();
    const auto client = make_client(loop, settings);
    client->cancel(client->ask(login("lost"), ignore));
    server = std::make_unique<UdpServer>(loop, "127.0.0.1", settings.address.port());
    Result result(loop);
    client->ask(login("alice"), result.done());
    const Packet request = server->next();
    EXPECT_EQ(request.text(Type::kUserName), "alice");
    server->answer(request);
    EXPECT_EQ(result.wait().kind, Kind::kAnswer);
}

TEST(RadiusUdp, RefusesWhatWasSentWhenTheServerGoes) {
    net::Loop loop;
    UdpServer server(loop);
    ServerSettings settings = server.settings();
    settings.tries = 100;
    const auto client = make_client(loop, settings);
    Result result(loop);
    client->ask(login(), result.done());
    server.next();
    server.close();
    EXPECT_EQ(result.wait().kind, Kind::kRefused);
    EXPECT_GE(result.wait().tries, 1);
}

TEST(RadiusUdp, SendsFromTheLocalAddress) {
    net::Loop loop;
    UdpServer server(loop);
    ServerSettings settings = server.patient_settings();
    settings.local = net::Address::parse("127.0.0.5", 0);
    const auto client = make_client(loop, settings);
    client->ask(login(), ignore);
    const Packet request = server.next();
    EXPECT_EQ(ntohl(reinterpret_cast<const sockaddr_in *>(&request.from)->sin_addr.s_addr), 0x7f000005U);
}

TEST(RadiusUdp, SaysThatTheLocalAddressIsNotOfThisSystem) {
    net::Loop loop;
    UdpServer server(loop);
    ServerSettings settings = server.patient_settings();
    settings.local = net::Address::parse("192.0.2.77", 0);
    const auto client = make_client(loop, settings);
    Result result(loop);
    client->ask(login(), result.done());
    const Outcome &outcome = result.wait();
    EXPECT_EQ(outcome.kind, Kind::kError);
    EXPECT_EQ(outcome.text,
              "requests cannot be sent from 192.0.2.77 (\"ip address\" lists the addresses of this system): "
              "Cannot assign requested address");
}

TEST(RadiusUdp, AsksOverIpv6) {
    net::Loop loop;
    net::Descriptor probe(socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const net::Address any = *net::Address::parse("::1", 0);
    if (!probe || bind(probe.get(), any.get(), any.size()) != 0) {
        GTEST_SKIP() << "this system has no IPv6 loopback";
    }
    UdpServer server(loop, "::1");
    const auto client = make_client(loop, server.patient_settings());
    Result result(loop);
    client->ask(login(), result.done());
    server.answer(server.next());
    EXPECT_EQ(result.wait().kind, Kind::kAnswer);
}

// As long as a packet may be.
TEST(RadiusUdp, SendsAndReceivesTheLongestPackets) {
    net::Loop loop;
    UdpServer server(loop);
    const auto client = make_client(loop, server.patient_settings());
    Question question = login();
    std::string attributes;
    for (int i = 0; i < 15; ++i) {
        ASSERT_TRUE(question.add(Type::kProxyState, std::string(253, 'p')));
        attributes += radius_test::attribute(Type::kReplyMessage, std::string(253, 'r'));
    }
    Result result(loop);
    client->ask(std::move(question), result.done());
    const Packet request = server.next();
    EXPECT_EQ(request.text(Type::kProxyState).size(), 15U * 253);
    server.answer(request, Code::kAccessAccept, attributes);
    EXPECT_EQ(result.wait().answer.text(), std::string(15 * 253, 'r'));
}

}  // namespace
}  // namespace radius
