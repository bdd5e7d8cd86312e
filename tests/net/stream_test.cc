// SPDX-License-Identifier: Apache-2.0

#include "net/stream.hpp"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <csignal>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "net/client.hpp"
#include "net/server.hpp"

namespace net {
namespace {

using net_test::Client;
using net_test::Server;
using net_test::ServerSide;

// A port on which nothing listens.
Address closed_port() {
    return Server().address();
}

TEST(Stream, SendsAndReceives) {
    Loop loop;
    Server server;
    std::thread other([&] {
        ServerSide side = server.accept();
        EXPECT_EQ(side.read(5), "hello");
        side.write("world");
        EXPECT_EQ(side.read(), "");
    });
    Client client(loop, server.address());
    EXPECT_FALSE(client.stream->is_connected());
    ASSERT_TRUE(client.stream->send("he"));  // before there is a connection
    EXPECT_EQ(client.stream->pending(), 2U);
    client.run_until([&] { return client.connected; });
    ASSERT_TRUE(client.stream->send("llo"));
    client.run_until_received(5);
    EXPECT_EQ(client.received, "world");
    EXPECT_TRUE(client.stream->is_connected());
    EXPECT_EQ(client.stream->pending(), 0U);
    client.stream.reset();
    other.join();
    EXPECT_FALSE(client.closed);
}

TEST(Stream, ReportsAServerThatRefuses) {
    Loop loop;
    Client client(loop, closed_port());
    EXPECT_FALSE(client.closed);
    client.run_until_closed();
    EXPECT_EQ(client.reason, "Connection refused");
    EXPECT_FALSE(client.connected);
    EXPECT_FALSE(client.stream->send("x"));
    EXPECT_FALSE(client.stream->is_connected());
}

TEST(Stream, ReportsAnAddressThatCannotBeReached) {
    Loop loop;
    Client client(loop, *Address::parse("255.255.255.255", 1));
    EXPECT_FALSE(client.closed);
    client.run_until_closed();
    EXPECT_NE(client.reason, "");
}

TEST(Stream, ConnectsFromALocalAddress) {
    Loop loop;
    Server server;
    std::string reason;
    bool closed = false;
    std::thread other([&] {
        ServerSide side = server.accept();
        sockaddr_storage peer;
        socklen_t size = sizeof peer;
        getpeername(side.socket(), reinterpret_cast<sockaddr *>(&peer), &size);
        EXPECT_EQ(reinterpret_cast<sockaddr_in *>(&peer)->sin_addr.s_addr, htonl(0x7f000002));
    });
    const auto until_closed = [&](const char *local) {
        closed = false;
        const Stream stream(loop, server.address(), {},
                            {.connected = {},
                             .received = {},
                             .closed =
                                 [&](std::string_view why) {
                                     reason = why;
                                     closed = true;
                                 }},
                            Address::parse(local, 0));
        while (!closed) {
            loop.run_once(INT64_MAX);
        }
    };
    until_closed("127.0.0.2");
    other.join();
    EXPECT_EQ(reason, "the server has closed the connection");
    until_closed("192.0.2.77");
    EXPECT_EQ(reason, "local address 192.0.2.77:0: Cannot assign requested address");
}

TEST(Stream, ReportsTheEndAfterTheLastBytes) {
    Loop loop;
    Server server;
    std::thread other([&] { server.accept().write("bye"); });
    Client client(loop, server.address());
    client.run_until_closed();
    other.join();
    EXPECT_EQ(client.received, "bye");
    EXPECT_EQ(client.reason, "the server has closed the connection");
}

TEST(Stream, ReportsAReset) {
    Loop loop;
    Server server;
    std::thread other([&] {
        ServerSide side = server.accept();
        const linger at_once = {.l_onoff = 1, .l_linger = 0};
        setsockopt(side.socket(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    });
    Client client(loop, server.address());
    client.run_until_closed();
    other.join();
    EXPECT_EQ(client.reason, "Connection reset by peer");
}

TEST(Stream, KeepsWhatASlowServerDoesNotTakeAndRefusesMore) {
    Loop loop;
    Server server;
    const std::string block(100000, 'b');
    std::size_t sent = 0;
    std::string received;
    Client client(loop, server.address());
    ServerSide side = server.accept();
    client.run_until([&] { return client.connected; });
    while (client.stream->send(block)) {
        sent += block.size();
    }
    EXPECT_LE(client.stream->pending(), Stream::kMaxPending);
    EXPECT_GT(client.stream->pending(), Stream::kMaxPending - block.size());
    std::thread other([&] {
        received = side.read(sent);
        side.write("all");
    });
    client.run_until_received(3);
    other.join();
    EXPECT_EQ(received.size(), sent);
    EXPECT_EQ(client.stream->pending(), 0U);
    EXPECT_TRUE(client.stream->send(block));
}

TEST(Stream, LongAnswersDoNotKeepTheLoop) {
    Loop loop;
    Server server;
    constexpr std::size_t kSize = 8 << 20;
    std::thread other([&] { server.accept().write(std::string(kSize, 'l')); });
    Client client(loop, server.address());
    int rounds = 0;
    client.run_until([&] {
        ++rounds;
        return client.closed;
    });
    other.join();
    EXPECT_EQ(client.received.size(), kSize);
    EXPECT_GE(rounds, 8 << 20 >> 17);  // at most 128 KiB in each
}

TEST(Stream, MayBeDestroyedByEachOfItsCalls) {
    for (const int which : {0, 1, 2}) {
        Loop loop;
        Server server;
        std::thread other([&] { server.accept().write("x"); });
        std::unique_ptr<Stream> stream;
        bool done = false;
        const auto destroy_at = [&](int call) {
            if (which == call) {
                stream.reset();
                done = true;
            }
        };
        stream = std::make_unique<Stream>(loop, server.address(), TlsPeer{},
                                          Stream::Calls{.connected = [&] { destroy_at(0); },
                                                        .received = [&](std::string_view) { destroy_at(1); },
                                                        .closed = [&](std::string_view) { destroy_at(2); }});
        while (!done) {
            loop.run_once(INT64_MAX);
        }
        other.join();
    }
}

// The default action of SIGPIPE would end this process.
TEST(Stream, SendsToAServerThatIsGoneWithoutASignal) {
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    struct sigaction before;
    sigaction(SIGPIPE, &action, &before);
    Loop loop;
    Server server;
    Client client(loop, server.address());
    {
        const ServerSide side = server.accept();
        client.run_until([&] { return client.connected; });
    }
    while (client.stream->send(std::string(1000, 'x'))) {
        loop.run_once(INT64_MAX);
    }
    EXPECT_TRUE(client.closed);
    sigaction(SIGPIPE, &before, nullptr);
}

}  // namespace
}  // namespace net
