// SPDX-License-Identifier: Apache-2.0

#include "radius/radsec.hpp"

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
using radius_test::settings_of_nothing;
using radius_test::TestTls;
using radius_test::TlsServer;
using Kind = Outcome::Kind;

// The outcome of a login at a server with a certificate.
Outcome login_with(const net_test::Wanted &certificate, const std::string &name = "aaa.test") {
    net::Loop loop;
    const TestTls tls(certificate);
    TlsServer server([](Server &side) { side.accept(); }, tls);
    ServerSettings settings = server.settings(tls);
    settings.tls = tls.peer(name);
    settings.tries = 1;
    const auto client = make_client(loop, settings);
    Result result(loop);
    client->ask(login(), result.done());
    return result.wait();
}

TEST(Radsec, AnswersOverOneConnection) {
    net::Loop loop;
    const TestTls tls;
    TlsServer server(
        [](Server &listener) {
            ServerSide side = listener.accept();
            for (int i = 0; i < 3; ++i) {
                const Packet request = next_packet(side);
                EXPECT_EQ(request.text(Type::kMessageAuthenticator).size(), 16U);
                side.write(
                    answer_to(request, request.code() == 4 ? Code::kAccountingResponse : Code::kAccessAccept,
                              radius_test::attribute(Type::kReplyMessage, request.text(Type::kUserName))));
            }
        },
        tls);
    const auto client = make_client(loop, server.settings(tls));
    Result first(loop), second(loop), accounting(loop);
    client->ask(login("one"), first.done());
    client->ask(login("two"), second.done());
    client->ask(Question::accounting({.session_id = "s1"}), accounting.done());
    EXPECT_EQ(first.wait().answer.text(), "one");
    EXPECT_EQ(second.wait().answer.text(), "two");
    EXPECT_EQ(accounting.wait().answer.code(), Code::kAccountingResponse);
    EXPECT_EQ(client->counters().connections, 1U);
    EXPECT_EQ(client->counters().requests, 3U);
    EXPECT_EQ(client->counters().connection_failures, 0U);
}

TEST(Radsec, RefusesACertificateOfAnotherName) {
    const Outcome outcome =
        login_with({.common_name = "server", .alternative_names = "DNS:aaa.test"}, "bbb.test");
    EXPECT_EQ(outcome.kind, Kind::kRefused);
    EXPECT_EQ(outcome.tries, 0);  // no password was sent
    EXPECT_NE(outcome.text.find("the server's certificate is refused: "), std::string::npos) << outcome.text;
}

TEST(Radsec, RefusesAnExpiredCertificate) {
    const Outcome outcome = login_with(
        {.common_name = "server", .alternative_names = "DNS:aaa.test", .begins = -7200, .ends = -3600});
    EXPECT_EQ(outcome.kind, Kind::kRefused);
    EXPECT_NE(outcome.text.find("expired"), std::string::npos) << outcome.text;
}

TEST(Radsec, RefusesACertificateThatSignsItself) {
    net::Loop loop;
    TestTls tls;
    TestTls shown;
    shown.identity = net_test::make_identity({.common_name = "server", .alternative_names = "DNS:aaa.test"});
    TlsServer server([](Server &side) { side.accept(); }, shown);
    ServerSettings settings = server.settings(tls);
    settings.tries = 1;
    const auto client = make_client(loop, settings);
    Result result(loop);
    client->ask(login(), result.done());
    EXPECT_EQ(result.wait().kind, Kind::kRefused);
    EXPECT_NE(result.wait().text.find("self"), std::string::npos) << result.wait().text;
    EXPECT_EQ(client->counters().connection_failures, 1U);
}

TEST(Radsec, RefusesVersionsOfTlsBefore12) {
    for (const int version : {TLS1_1_VERSION, TLS1_2_VERSION}) {
        net::Loop loop;
        const TestTls tls;
        TlsServer server(
            [version](Server &listener) {
                listener.offer_only(version);
                ServerSide side = listener.accept();
                EXPECT_EQ(side.usable(), version == TLS1_2_VERSION);
                if (side.usable()) {
                    side.write(answer_to(next_packet(side)));
                }
            },
            tls);
        ServerSettings settings = server.settings(tls);
        settings.tries = 1;
        const auto client = make_client(loop, settings);
        Result result(loop);
        client->ask(login(), result.done());
        const Outcome outcome = result.wait();
        if (version == TLS1_2_VERSION) {
            EXPECT_EQ(outcome.kind, Kind::kAnswer) << outcome.text;
        } else {
            EXPECT_EQ(outcome.kind, Kind::kRefused);
            EXPECT_NE(outcome.text.find("the server offers only older versions of TLS than 1.2"),
                      std::string::npos)
                << outcome.text;
        }
    }
}

TEST(Radsec, SendsAgainWhatWasOnALostConnection) {
    net::Loop loop;
    const TestTls tls;
    std::string first, second;
    {
        TlsServer server(
            [&](Server &listener) {
                ServerSide lost = listener.accept();
                first = next_packet(lost).bytes;
                lost = ServerSide(net::Descriptor(), nullptr);
                ServerSide side = listener.accept();
                const Packet request = next_packet(side);
                second = request.bytes;
                side.write(answer_to(request));
            },
            tls);
        const auto client = make_client(loop, server.settings(tls));
        Result result(loop);
        client->ask(login(), result.done());
        const Outcome &outcome = result.wait();
        EXPECT_EQ(outcome.kind, Kind::kAnswer);
        EXPECT_EQ(outcome.tries, 2);
        EXPECT_EQ(client->counters().connections, 2U);
        EXPECT_EQ(client->counters().retransmissions, 1U);
    }
    EXPECT_EQ(first.size(), second.size());
    EXPECT_NE(first.substr(4, 16), second.substr(4, 16));  // the authenticator
}

TEST(Radsec, GivesUpWhenConnectionsAreLostAgainAndAgain) {
    net::Loop loop;
    const TestTls tls;
    TlsServer server(
        [](Server &listener) {
            for (int i = 0; i < 2; ++i) {
                ServerSide side = listener.accept();
                next_packet(side);
            }
        },
        tls);
    ServerSettings settings = server.settings(tls);
    settings.tries = 2;
    const auto client = make_client(loop, settings);
    Result result(loop);
    client->ask(login(), result.done());
    const Outcome &outcome = result.wait();
    EXPECT_EQ(outcome.kind, Kind::kRefused);
    EXPECT_EQ(outcome.tries, 2);
    EXPECT_EQ(outcome.text.find("the connection to " + settings.address.text() +
                                " was lost 2 times before the answer: "),
              0U)
        << outcome.text;
}

TEST(Radsec, RefusesAtOnceUntilTheNextAttempt) {
    net::Loop loop;
    const TestTls tls;
    ServerSettings settings = settings_of_nothing(tls);
    settings.tries = 1;
    settings.reconnect = settings.longest_reconnect = 3600 * net::kSecond;
    const auto client = make_client(loop, settings);
    Result first(loop), second(loop);
    client->ask(login(), first.done());
    EXPECT_EQ(first.wait().kind, Kind::kRefused);
    EXPECT_EQ(first.wait().text,
              "there is no connection to " + settings.address.text() + ": Connection refused");
    client->ask(login(), second.done());
    EXPECT_EQ(second.wait().kind, Kind::kRefused);
    EXPECT_EQ(client->counters().connections, 1U);
}

TEST(Radsec, WaitsForTheNextAttemptAfterAFirstFailure) {
    net::Loop loop;
    const TestTls tls;
    ServerSettings settings = settings_of_nothing(tls);
    settings.tries = 3;
    const auto client = make_client(loop, settings);
    Result first(loop), cancelled(loop);
    client->ask(login(), first.done());
    client->cancel(client->ask(login(), cancelled.done()));
    EXPECT_EQ(first.wait().kind, Kind::kRefused);
    EXPECT_EQ(client->counters().connections, 3U);
    EXPECT_EQ(client->counters().connection_failures, 3U);
    EXPECT_FALSE(cancelled.is_there());
}

TEST(Radsec, LimitsTheTimeOfConnecting) {
    net::Loop loop;
    const TestTls tls;
    Server server;  // never says a word
    ServerSettings settings = settings_of_nothing(tls);
    settings.address = server.address();
    settings.tries = 1;
    settings.connect_timeout = net::kMillisecond;
    const auto client = make_client(loop, settings);
    Result result(loop);
    client->ask(login(), result.done());
    EXPECT_EQ(result.wait().kind, Kind::kRefused);
    EXPECT_EQ(result.wait().text,
              "there is no connection to " + settings.address.text() + ": no connection within 1 s");
}

TEST(Radsec, EndsAQuestionWhileItConnects) {
    net::Loop loop;
    const TestTls tls;
    Server server;  // never says a word
    ServerSettings settings = settings_of_nothing(tls);
    settings.address = server.address();
    const auto client = make_client(loop, settings);
    Result result(loop);
    client->ask(login(), result.done(), net::Loop::clock() + net::kSecond / 10);
    EXPECT_EQ(result.wait().kind, Kind::kSilent);
    EXPECT_EQ(result.wait().text, "there is no connection to " + settings.address.text());
}

TEST(Radsec, IsSilentWhenTheAnswerDoesNotCome) {
    net::Loop loop;
    const TestTls tls;
    TlsServer server(
        [](Server &listener) {
            ServerSide side = listener.accept();
            while (!next_packet(side).bytes.empty()) {
            }
        },
        tls);
    ServerSettings settings = server.settings(tls);
    settings.timeout = settings.longest_timeout = 50 * net::kMillisecond;
    settings.tries = 1;
    const auto client = make_client(loop, settings);
    // The first connection takes a time of its own.
    Outcome outcome;
    do {
        Result result(loop);
        client->ask(login(), result.done());
        outcome = result.wait();
        EXPECT_EQ(outcome.kind, Kind::kSilent);
    } while (outcome.tries == 0);
    EXPECT_EQ(outcome.text, settings.address.text() +
                                " has not answered; it may be down, not reachable, or not know this client "
                                "or its secret");
}

// ---- the end of connections

TEST(Radsec, ClosesAConnectionThatIsNotUsed) {
    net::Loop loop;
    const TestTls tls;
    int closed = 0;
    TlsServer server(
        [&](Server &listener) {
            for (int i = 0; i < 2; ++i) {
                ServerSide side = listener.accept();
                side.write(answer_to(next_packet(side)));
                EXPECT_EQ(side.read(), "");
                loop.post([&] { ++closed; });
            }
        },
        tls);
    ServerSettings settings = server.settings(tls);
    settings.idle = net::kMillisecond;
    const auto client = make_client(loop, settings);
    for (int i = 1; i <= 2; ++i) {
        Result result(loop);
        client->ask(login(), result.done());
        EXPECT_EQ(result.wait().kind, Kind::kAnswer);
        while (closed < i) {
            loop.run_once(INT64_MAX);
        }
    }
    EXPECT_EQ(client->counters().connections, 2U);
    EXPECT_EQ(client->counters().connection_failures, 0U);
}

TEST(Radsec, ConnectsAgainAfterTheServerClosedAnIdleConnection) {
    net::Loop loop;
    const TestTls tls;
    TlsServer server(
        [](Server &listener) {
            for (int i = 0; i < 2; ++i) {
                ServerSide side = listener.accept();
                side.write(answer_to(next_packet(side)));
                side.end_tls();
            }
        },
        tls);
    const auto client = make_client(loop, server.settings(tls));
    for (int i = 0; i < 2; ++i) {
        Result result(loop);
        client->ask(login(), result.done());
        EXPECT_EQ(result.wait().kind, Kind::kAnswer);
    }
    EXPECT_EQ(client->counters().connection_failures, 0U);
}

TEST(Radsec, CanBeDestroyedByAnOutcome) {
    net::Loop loop;
    const TestTls tls;
    TlsServer server(
        [](Server &listener) {
            ServerSide side = listener.accept();
            side.write(answer_to(next_packet(side)));
            EXPECT_EQ(side.read(), "");
        },
        tls);
    auto client = make_client(loop, server.settings(tls));
    bool called = false;
    client->ask(login(), [&](const Outcome &outcome) {
        EXPECT_EQ(outcome.kind, Kind::kAnswer);
        client.reset();
        called = true;
    });
    while (!called) {
        loop.run_once(INT64_MAX);
    }
    loop.run_once(0);
}

}  // namespace
}  // namespace radius
