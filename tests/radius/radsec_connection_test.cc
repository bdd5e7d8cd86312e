// SPDX-License-Identifier: Apache-2.0

#include "radius/radsec_connection.hpp"

#include <gtest/gtest.h>

#include <string>

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
using radius_test::TestTls;
using radius_test::TlsServer;
using Kind = Outcome::Kind;

// A login at a server whose first connection does as a script says; over the next one it
// answers.
Outcome login_after(const std::function<void(ServerSide &, const Packet &)> &script,
                    Counters *counters = nullptr, net::Time watchdog = 600 * net::kSecond) {
    net::Loop loop;
    const TestTls tls;
    TlsServer server(
        [&](Server &listener) {
            ServerSide first = listener.accept();
            script(first, next_packet(first));
            ServerSide side = listener.accept();
            side.write(answer_to(next_packet(side)));
        },
        tls);
    ServerSettings settings = server.settings(tls);
    settings.watchdog = watchdog;
    const auto client = make_client(loop, settings);
    Result result(loop);
    client->ask(login(), result.done());
    const Outcome outcome = result.wait();
    if (counters != nullptr) {
        *counters = client->counters();
    }
    return outcome;
}

TEST(RadsecConnection, ReadsAnswersHoweverTheyAreSplit) {
    net::Loop loop;
    const TestTls tls;
    TlsServer server(
        [](Server &listener) {
            ServerSide side = listener.accept();
            const Packet first = next_packet(side);
            for (const char byte : answer_to(first)) {
                side.write({&byte, 1});
            }
            const Packet second = next_packet(side);
            const Packet third = next_packet(side);
            side.write(answer_to(third) + answer_to(second).substr(0, 5));
            side.write(answer_to(second).substr(5));
        },
        tls);
    const auto client = make_client(loop, server.settings(tls));
    Result first(loop), second(loop), third(loop);
    client->ask(login(), first.done());
    EXPECT_EQ(first.wait().kind, Kind::kAnswer);
    client->ask(login(), second.done());
    client->ask(login(), third.done());
    EXPECT_EQ(second.wait().kind, Kind::kAnswer);
    EXPECT_EQ(third.wait().kind, Kind::kAnswer);
    EXPECT_EQ(client->counters().connections, 1U);
}

// ---- damage

TEST(RadsecConnection, IsGivenUpAfterBytesThatAreNoPacket) {
    Counters counters;
    const Outcome outcome = login_after(
        [](ServerSide &side, const Packet &) {
            side.write("HTTP/1.1 400 Bad Request\r\n");
            EXPECT_EQ(side.read(), "");
        },
        &counters);
    EXPECT_EQ(outcome.kind, Kind::kAnswer);
    EXPECT_EQ(outcome.tries, 2);
    EXPECT_EQ(counters.connection_failures, 1U);
}

TEST(RadsecConnection, IsGivenUpAfterAWrongAuthenticator) {
    Counters counters;
    const Outcome outcome = login_after(
        [](ServerSide &side, const Packet &request) {
            side.write(radius_test::answer(2, request.bytes, "", "another secret"));
            EXPECT_EQ(side.read(), "");
        },
        &counters);
    EXPECT_EQ(outcome.kind, Kind::kAnswer);
    EXPECT_EQ(outcome.tries, 2);
    EXPECT_EQ(counters.dropped[static_cast<std::size_t>(Fault::kForged)], 1U);
    EXPECT_EQ(counters.connection_failures, 1U);
}

TEST(RadsecConnection, GoesOnAfterAnswersToNothing) {
    net::Loop loop;
    const TestTls tls;
    TlsServer server(
        [](Server &listener) {
            ServerSide side = listener.accept();
            const Packet request = next_packet(side);
            std::string other = answer_to(request);
            other[1] = static_cast<char>(request.id() + 1);
            side.write(other);
            other[1] = 0;  // as to a watchdog that was never sent
            side.write(other);
            side.write(answer_to(request, Code::kAccountingResponse));
            side.write(answer_to(request));
        },
        tls);
    const auto client = make_client(loop, server.settings(tls));
    Result result(loop);
    client->ask(login(), result.done());
    EXPECT_EQ(result.wait().kind, Kind::kAnswer);
    EXPECT_EQ(client->counters().unexpected, 1U);
    EXPECT_EQ(client->counters().dropped[static_cast<std::size_t>(Fault::kOtherRequest)], 1U);
    EXPECT_EQ(client->counters().connections, 1U);
}

// ---- the watchdog

TEST(RadsecConnection, AsksASilentServerWhetherItIsThere) {
    net::Loop loop;
    const TestTls tls;
    TlsServer server(
        [](Server &listener) {
            ServerSide side = listener.accept();
            const Packet request = next_packet(side);
            const Packet watchdog = next_packet(side);
            EXPECT_EQ(watchdog.code(), 12);
            EXPECT_EQ(watchdog.id(), 0);
            EXPECT_EQ(watchdog.text(Type::kMessageAuthenticator).size(), 16U);
            side.write(answer_to(watchdog));
            side.write(answer_to(request));
        },
        tls);
    ServerSettings settings = server.settings(tls);
    settings.watchdog = net::kSecond;  // and the server's thread has as long for its answer
    const auto client = make_client(loop, settings);
    Result result(loop);
    client->ask(login(), result.done());
    EXPECT_EQ(result.wait().kind, Kind::kAnswer);
    EXPECT_EQ(result.wait().tries, 1);
    EXPECT_EQ(client->counters().connections, 1U);
    EXPECT_EQ(client->counters().status_answers, 0U);  // they are the connection's own
}

TEST(RadsecConnection, IsGivenUpWhenTheWatchdogIsNotAnswered) {
    const Outcome outcome = login_after(
        [](ServerSide &side, const Packet &) {
            EXPECT_EQ(next_packet(side).code(), 12);
            EXPECT_EQ(side.read(), "");
        },
        nullptr, net::kSecond);
    EXPECT_EQ(outcome.kind, Kind::kAnswer);
    EXPECT_EQ(outcome.tries, 2);
}

// Otherwise a server that is gone would be noticed by no question that ends before the
// watchdog's time.
TEST(RadsecConnection, WatchesForQuestionsThatHaveEnded) {
    net::Loop loop;
    const TestTls tls;
    bool closed = false;
    TlsServer server(
        [&](Server &listener) {
            ServerSide side = listener.accept();
            int logins = 0, watchdogs = 0;
            for (Packet packet = next_packet(side); !packet.bytes.empty(); packet = next_packet(side)) {
                logins += packet.code() == 1;
                watchdogs += packet.code() == 12 && logins == 2;
                if (logins < 2) {
                    side.write(answer_to(packet));
                }
            }
            EXPECT_EQ(watchdogs, 1);
            loop.post([&] { closed = true; });
        },
        tls);
    ServerSettings settings = server.settings(tls);
    settings.watchdog = net::kSecond / 2;
    const auto client = make_client(loop, settings);
    Result open(loop);
    client->ask(login(), open.done());
    open.wait();
    client->cancel(client->ask(login(), [](const Outcome &) {}));
    while (!closed) {
        loop.run_once(INT64_MAX);
    }
    EXPECT_EQ(client->under_way(), 0U);
}

}  // namespace
}  // namespace radius
