// SPDX-License-Identifier: Apache-2.0

#include "radius/udp_socket.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>

#include "radius/udp_server.hpp"

namespace radius {
namespace {

using radius_test::Packet;
using radius_test::UdpServer;

TEST(RadiusUdpSocket, DropsWhatOthersSend) {
    net::Loop loop;
    UdpServer server(loop), other(loop);
    std::string received, error;
    bool unreachable = false;
    const auto socket =
        UdpSocket::open(loop, server.settings(),
                        {.received = [&](UdpSocket &, std::string_view bytes) { received += bytes; },
                         .failed = [](UdpSocket &, int) { ADD_FAILURE(); }},
                        error, unreachable);
    ASSERT_NE(socket, nullptr) << error;
    EXPECT_EQ(socket->send("question"), 0);
    const Packet packet = server.next();
    EXPECT_EQ(packet.bytes, "question");
    other.send(packet, "forged");
    server.send(packet, "answer");
    loop.run_once(INT64_MAX);
    EXPECT_EQ(received, "answer");
}

TEST(RadiusUdpSocket, ReportsAClosedPort) {
    net::Loop loop;
    UdpServer server(loop);
    const ServerSettings settings = server.settings();
    server.close();
    std::string error;
    bool unreachable = false;
    int reported = 0;
    const auto socket = UdpSocket::open(loop, settings,
                                        {.received = [](UdpSocket &, std::string_view) { ADD_FAILURE(); },
                                         .failed = [&](UdpSocket &, int number) { reported = number; }},
                                        error, unreachable);
    ASSERT_NE(socket, nullptr) << error;
    EXPECT_EQ(socket->send("question"), 0);
    loop.run_once(INT64_MAX);
    EXPECT_EQ(reported, ECONNREFUSED);
}

TEST(RadiusUdpSocket, KnowsWhichErrorsAreTheNetworks) {
    for (const int error : {ECONNREFUSED, EHOSTUNREACH, ENETUNREACH}) {
        EXPECT_TRUE(UdpSocket::is_of_network(error)) << error;
    }
    for (const int error : {0, EPERM, EACCES, EADDRNOTAVAIL, EMFILE, EINVAL}) {
        EXPECT_FALSE(UdpSocket::is_of_network(error)) << error;
    }
}

TEST(RadiusUdpSocket, IsNotInheritedByPrograms) {
    net::Loop loop;
    ServerSettings settings;
    settings.address = *net::Address::parse("127.0.0.1", 9);
    std::array<bool, 256> was_open = {};
    for (int fd = 0; fd < 256; ++fd) {
        was_open[static_cast<std::size_t>(fd)] = fcntl(fd, F_GETFD) != -1;
    }
    std::string error;
    bool unreachable = false;
    const auto socket = UdpSocket::open(loop, settings, {}, error, unreachable);
    ASSERT_NE(socket, nullptr) << error;
    int opened = 0;
    for (int fd = 0; fd < 256; ++fd) {
        const int flags = fcntl(fd, F_GETFD);
        if (flags != -1 && !was_open[static_cast<std::size_t>(fd)]) {
            ++opened;
            EXPECT_TRUE(flags & FD_CLOEXEC);
        }
    }
    EXPECT_EQ(opened, 1);
}

// A daemon may be started with the first three descriptors closed.
TEST(RadiusUdpSocket, IsNoneOfTheFirstThreeDescriptors) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        for (int fd = 0; fd < 3; ++fd) {
            close(fd);
        }
        constexpr int kMost = 64;
        std::array<bool, kMost> was_open = {};
        for (int fd = 0; fd < kMost; ++fd) {
            was_open[fd] = fcntl(fd, F_GETFD) != -1;
        }
        net::Loop loop;
        ServerSettings settings;
        settings.address = *net::Address::parse("127.0.0.1", 9);
        std::string error;
        bool unreachable = false;
        const auto socket = UdpSocket::open(loop, settings, {}, error, unreachable);
        bool right = socket != nullptr;
        for (int fd = 0; fd < kMost; ++fd) {
            const int flags = fcntl(fd, F_GETFD);
            const bool is_new = flags != -1 && !was_open[fd];
            right = right && (!is_new || (fd >= 3 && (flags & FD_CLOEXEC) != 0));
        }
        _exit(right ? 0 : 1);
    }
    int status;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace radius
