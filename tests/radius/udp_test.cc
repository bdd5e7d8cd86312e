// SPDX-License-Identifier: Apache-2.0

#include "radius/udp.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "radius/udp_server.hpp"

namespace radius {
namespace {

using radius_test::login;
using radius_test::make_client;
using radius_test::Packet;
using radius_test::Result;
using radius_test::UdpServer;
using Kind = Outcome::Kind;

ServerSettings patient(const UdpServer &server) {
    ServerSettings settings = server.settings();
    settings.timeout = settings.longest_timeout = 3600 * net::kSecond;
    return settings;
}

int descriptors() {
    int count = 0;
    for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        ++count;
    }
    return count;
}

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
    const auto client = make_client(loop, patient(server));
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

// ---- identifiers

TEST(RadiusUdp, OpensAFurtherSocketForThe257thRequest) {
    net::Loop loop;
    UdpServer server(loop);
    const auto client = make_client(loop, patient(server));
    const int descriptors_of_one = descriptors() + 1;
    constexpr int kQuestions = 600;
    std::map<int, std::set<int>> ids_of_port;
    std::vector<Packet> requests;
    int answers = 0;
    for (int i = 0; i < kQuestions; ++i) {
        client->ask(login(), [&](const Outcome &outcome) { answers += outcome.kind == Kind::kAnswer; });
        requests.push_back(server.next());
        ids_of_port[requests.back().port()].insert(requests.back().id());
    }
    ASSERT_EQ(ids_of_port.size(), 3U);
    std::size_t different = 0;
    for (const auto &[port, ids] : ids_of_port) {
        different += ids.size();
    }
    EXPECT_EQ(different, static_cast<std::size_t>(kQuestions));
    for (const Packet &request : requests) {
        server.answer(request);
        loop.run_once(INT64_MAX);
    }
    while (client->under_way() > 0) {
        loop.run_once(INT64_MAX);
    }
    EXPECT_EQ(answers, kQuestions);
    // The further sockets are closed when they are not needed.
    loop.run_once(0);
    client->ask(login(), ignore);
    EXPECT_EQ(server.next().port(), requests.front().port());
    EXPECT_EQ(descriptors(), descriptors_of_one);
}

TEST(RadiusUdp, QueuesWhatHasNoIdentifier) {
    net::Loop loop;
    UdpServer server(loop);
    ServerSettings settings = patient(server);
    settings.max_sockets = 1;
    settings.max_queued = 2;
    const auto client = make_client(loop, settings);
    std::vector<Packet> requests;
    for (int i = 0; i < 256; ++i) {
        client->ask(login(), ignore);
        requests.push_back(server.next());
    }
    Result queued(loop), cancelled(loop), refused(loop);
    client->ask(login("queued"), queued.done());
    const Client::Ticket ticket = client->ask(login("cancelled"), cancelled.done());
    client->ask(login("refused"), refused.done());
    const Outcome &outcome = refused.wait();
    EXPECT_EQ(outcome.kind, Kind::kError);
    EXPECT_EQ(outcome.text, "2 questions to " + server.address().text() +
                                " wait already; it answers too slowly or not at all");
    EXPECT_FALSE(server.has_one());
    client->cancel(ticket);
    server.answer(requests[7]);
    const Packet next = server.next();
    EXPECT_EQ(next.text(Type::kUserName), "queued");
    EXPECT_EQ(next.id(), requests[7].id());
    server.answer(next);
    EXPECT_EQ(queued.wait().kind, Kind::kAnswer);
    EXPECT_FALSE(cancelled.is_there());
}

TEST(RadiusUdp, EndsAQueuedQuestionAtItsDeadline) {
    net::Loop loop;
    UdpServer server(loop);
    ServerSettings settings = patient(server);
    settings.max_sockets = 1;
    const auto client = make_client(loop, settings);
    for (int i = 0; i < 256; ++i) {
        client->ask(login(), ignore);
    }
    Result result(loop);
    client->ask(login(), result.done(), net::Loop::clock() + net::kSecond / 5);
    const Outcome &outcome = result.wait();
    EXPECT_EQ(outcome.kind, Kind::kError);
    EXPECT_EQ(outcome.tries, 0);
    EXPECT_EQ(outcome.text, "the question could not be sent to " + server.address().text() +
                                " in time: 257 questions are under way");
}

// The server is dead, and more questions come than there are identifiers. The third batch
// would be sent when the second has been given up, which takes too long.
TEST(RadiusUdp, EndsAQueuedQuestionThatIsNeverSent) {
    net::Loop loop;
    UdpServer server(loop);
    ServerSettings settings = server.settings();
    settings.max_sockets = 1;
    settings.tries = 1;
    settings.rest = 3600 * net::kSecond;
    settings.timeout = settings.longest_timeout = net::kSecond / 2;
    const auto client = make_client(loop, settings);
    int silent = 0, unsent = 0;
    for (int i = 0; i < 600; ++i) {
        client->ask(login(), [&](const Outcome &outcome) {
            silent += outcome.kind == Kind::kSilent;
            unsent += outcome.kind == Kind::kError && outcome.tries == 0;
        });
    }
    while (client->under_way() > 0) {
        loop.run_once(INT64_MAX);
    }
    EXPECT_EQ(silent + unsent, 600);
    EXPECT_GE(silent, 256);
    EXPECT_GE(unsent, 600 - 2 * 256);
}

// A late answer must not meet the next request that has its identifier.
TEST(RadiusUdp, DoesNotReuseAnIdentifierWhoseAnswerMayComeLate) {
    net::Loop loop;
    UdpServer server(loop);
    ServerSettings settings = patient(server);
    settings.max_sockets = 1;
    const auto client = make_client(loop, settings);
    const Client::Ticket cancelled = client->ask(login(), ignore);
    const Packet first = server.next();
    client->cancel(cancelled);
    for (int i = 0; i < 255; ++i) {
        client->ask(login(), ignore);
        EXPECT_NE(server.next().id(), first.id());
    }
    Result waits(loop);
    client->ask(login(), waits.done());
    EXPECT_FALSE(server.has_one());
    server.answer(first);
    loop.run_once(INT64_MAX);
    EXPECT_EQ(client->counters().unexpected, 1U);
}

TEST(RadiusUdp, ReusesAnIdentifierAfterItsRest) {
    net::Loop loop;
    UdpServer server(loop);
    ServerSettings settings = patient(server);
    settings.max_sockets = 1;
    settings.rest = net::kMillisecond;
    const auto client = make_client(loop, settings);
    for (int i = 0; i < 255; ++i) {
        client->ask(login(), ignore);
        server.next();
    }
    const Client::Ticket cancelled = client->ask(login(), ignore);
    const std::uint8_t id = server.next().id();
    client->cancel(cancelled);
    client->ask(login(), ignore);
    EXPECT_EQ(server.next().id(), id);
}

// A socket keeps the address of this system with which it was opened. When that goes, nothing
// is answered over it any more.
TEST(RadiusUdp, ChangesThePortAfterSilence) {
    net::Loop loop;
    UdpServer server(loop);
    const auto client = make_client(loop, server.settings());
    Result silent(loop);
    client->ask(login(), silent.done());
    silent.wait();
    const int first = server.next().port();
    while (server.has_one()) {
        server.next();
    }
    client->ask(login(), ignore);
    EXPECT_NE(server.next().port(), first);
}

// ---- errors of the network and of this system

TEST(RadiusUdp, NoticesAtOnceThatThePortIsClosed) {
    net::Loop loop;
    UdpServer server(loop);
    const ServerSettings settings = patient(server);
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
    const ServerSettings settings = patient(*server);
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
    ServerSettings settings = patient(server);
    settings.local = net::Address::parse("127.0.0.5", 0);
    const auto client = make_client(loop, settings);
    client->ask(login(), ignore);
    const Packet request = server.next();
    EXPECT_EQ(ntohl(reinterpret_cast<const sockaddr_in *>(&request.from)->sin_addr.s_addr), 0x7f000005U);
}

TEST(RadiusUdp, SaysThatTheLocalAddressIsNotOfThisSystem) {
    net::Loop loop;
    UdpServer server(loop);
    ServerSettings settings = patient(server);
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
    const auto client = make_client(loop, patient(server));
    Result result(loop);
    client->ask(login(), result.done());
    server.answer(server.next());
    EXPECT_EQ(result.wait().kind, Kind::kAnswer);
}

// As long as a packet may be.
TEST(RadiusUdp, SendsAndReceivesTheLongestPackets) {
    net::Loop loop;
    UdpServer server(loop);
    const auto client = make_client(loop, patient(server));
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
