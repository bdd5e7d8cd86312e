// SPDX-License-Identifier: Apache-2.0
//
// Identifiers, connections and the queue over TLS.

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "radius/tls_server.hpp"

namespace radius {
namespace {

using net_test::Server;
using net_test::ServerSide;
using radius_test::answer_to;
using radius_test::login;
using radius_test::make_client;
using radius_test::next_packet;
using radius_test::Packet;
using radius_test::Result;
using radius_test::settings_of_nothing;
using radius_test::TestTls;
using radius_test::TlsServer;
using Kind = Outcome::Kind;

TEST(RadsecQueue, OpensAFurtherConnectionForTheNextRequest) {
    net::Loop loop;
    const TestTls tls;
    TlsServer server(
        [](Server &listener) {
            ServerSide side = listener.accept();
            std::set<int> ids;
            std::vector<Packet> requests;
            for (int i = 0; i < 255; ++i) {
                requests.push_back(next_packet(side));
                ids.insert(requests.back().id());
            }
            EXPECT_EQ(ids.size(), 255U);
            EXPECT_EQ(ids.count(0), 0U);  // of the watchdog
            ServerSide further = listener.accept();
            further.write(answer_to(next_packet(further)));
            for (const Packet &request : requests) {
                side.write(answer_to(request));
            }
        },
        tls);
    const auto client = make_client(loop, server.settings(tls));
    int answers = 0;
    for (int i = 0; i < 256; ++i) {
        client->ask(login(), [&](const Outcome &outcome) { answers += outcome.kind == Kind::kAnswer; });
    }
    while (client->under_way() > 0) {
        loop.run_once(INT64_MAX);
    }
    EXPECT_EQ(answers, 256);
    EXPECT_EQ(client->counters().connections, 2U);
}

TEST(RadsecQueue, QueuesWhatHasNoIdentifier) {
    net::Loop loop;
    const TestTls tls;
    TlsServer server(
        [](Server &listener) {
            ServerSide side = listener.accept();
            std::vector<Packet> requests;
            for (int i = 0; i < 255; ++i) {
                requests.push_back(next_packet(side));
            }
            side.write(answer_to(requests[7]));
            const Packet queued = next_packet(side);
            EXPECT_EQ(queued.text(Type::kUserName), "queued");
            EXPECT_EQ(queued.id(), requests[7].id());
            side.write(answer_to(queued));
            EXPECT_EQ(side.read(), "");
        },
        tls);
    ServerSettings settings = server.settings(tls);
    settings.max_connections = 1;
    auto client = make_client(loop, settings);
    for (int i = 0; i < 255; ++i) {
        client->ask(login(), [](const Outcome &) {});
    }
    Result queued(loop);
    client->ask(login("queued"), queued.done());
    EXPECT_EQ(queued.wait().kind, Kind::kAnswer);
    client.reset();
}

TEST(RadsecQueue, LimitsTheQueue) {
    net::Loop loop;
    const TestTls tls;
    ServerSettings settings = settings_of_nothing(tls);
    settings.max_queued = 1;
    const auto client = make_client(loop, settings);
    Result refused(loop);
    client->ask(login(), [](const Outcome &) {});
    client->ask(login(), refused.done());
    EXPECT_EQ(refused.wait().kind, Kind::kError);
    EXPECT_EQ(refused.wait().text, "1 questions to " + settings.address.text() +
                                       " wait already; it answers too slowly or not at all");
}

// The answer to a question that was cancelled must not meet the next request, and an
// answer that nobody waits for is no reason to give up the connection.
TEST(RadsecQueue, KeepsAnIdentifierUntilItsLateAnswer) {
    net::Loop loop;
    const TestTls tls;
    TlsServer server(
        [](Server &listener) {
            ServerSide side = listener.accept();
            const Packet cancelled = next_packet(side);
            side.write(answer_to(cancelled, Code::kAccessReject));  // tells the test to cancel "late"
            const Packet late = next_packet(side);
            std::vector<Packet> requests;
            for (int i = 0; i < 254; ++i) {
                requests.push_back(next_packet(side));
                EXPECT_NE(requests.back().id(), late.id());
            }
            side.write(answer_to(late));
            EXPECT_EQ(next_packet(side).id(), late.id());
        },
        tls);
    ServerSettings settings = server.settings(tls);
    settings.max_connections = 1;
    const auto client = make_client(loop, settings);
    Result open(loop), late(loop);
    client->ask(login("open"), open.done());
    open.wait();
    client->cancel(client->ask(login("late"), late.done()));
    for (int i = 0; i < 255; ++i) {
        client->ask(login(), [](const Outcome &) {});
    }
    while (client->counters().requests < 257) {
        loop.run_once(INT64_MAX);
    }
    EXPECT_FALSE(late.is_there());
    EXPECT_EQ(client->counters().unexpected, 1U);
    EXPECT_EQ(client->counters().connections, 1U);
}

TEST(RadsecQueue, ReplacesAConnectionWhoseIdentifiersAreAllGone) {
    net::Loop loop;
    const TestTls tls;
    TlsServer server(
        [](Server &listener) {
            ServerSide exhausted = listener.accept();
            exhausted.write(answer_to(next_packet(exhausted)));
            while (!next_packet(exhausted).bytes.empty()) {
            }
            ServerSide side = listener.accept();
            side.write(answer_to(next_packet(side)));
        },
        tls);
    ServerSettings settings = server.settings(tls);
    settings.max_connections = 1;
    const auto client = make_client(loop, settings);
    Result open(loop), next(loop);
    client->ask(login(), open.done());
    open.wait();
    for (int i = 0; i < 255; ++i) {
        client->cancel(client->ask(login(), [](const Outcome &) {}));
    }
    client->ask(login(), next.done());
    EXPECT_EQ(next.wait().kind, Kind::kAnswer);
    EXPECT_EQ(client->counters().connections, 2U);
}

}  // namespace
}  // namespace radius
