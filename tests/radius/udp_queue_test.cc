// SPDX-License-Identifier: Apache-2.0
//
// Identifiers, sockets and the queue over UDP.

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

int descriptors() {
    int count = 0;
    for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        ++count;
    }
    return count;
}

void ignore(const Outcome &) {}

TEST(RadiusUdpQueue, OpensAFurtherSocketForThe257thRequest) {
    net::Loop loop;
    UdpServer server(loop);
    const auto client = make_client(loop, server.patient_settings());
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

TEST(RadiusUdpQueue, QueuesWhatHasNoIdentifier) {
    net::Loop loop;
    UdpServer server(loop);
    ServerSettings settings = server.patient_settings();
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

TEST(RadiusUdpQueue, EndsAQueuedQuestionAtItsDeadline) {
    net::Loop loop;
    UdpServer server(loop);
    ServerSettings settings = server.patient_settings();
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
TEST(RadiusUdpQueue, EndsAQueuedQuestionThatIsNeverSent) {
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
TEST(RadiusUdpQueue, DoesNotReuseAnIdentifierWhoseAnswerMayComeLate) {
    net::Loop loop;
    UdpServer server(loop);
    ServerSettings settings = server.patient_settings();
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

TEST(RadiusUdpQueue, ReusesAnIdentifierAfterItsRest) {
    net::Loop loop;
    UdpServer server(loop);
    ServerSettings settings = server.patient_settings();
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
TEST(RadiusUdpQueue, ChangesThePortAfterSilence) {
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

}  // namespace
}  // namespace radius
