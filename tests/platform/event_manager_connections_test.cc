// SPDX-License-Identifier: Apache-2.0
//
// Connections of an event manager: up, lost and tried again, with input or without.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "event_loop.hpp"
#include "support/sysdb.hpp"

namespace {

using Clock = std::chrono::steady_clock;

// A connection to a peer made of socket pairs; counts the callbacks.
struct Peer {
    int refusals = 0;  // how often the next attempts fail
    int own_end = -1;
    int far_end = -1;
    int ups = 0;
    int downs = 0;
    std::string received;
    std::vector<Clock::time_point> attempts;
    event_conn_t connection = nullptr;
    void *last_conn = nullptr;

    ~Peer() {
        close_end(own_end);
        close_end(far_end);
    }

    static void close_end(int &fd) {
        if (fd >= 0) {
            close(fd);
        }
        fd = -1;
    }

    static int32_t up(void *conn, void *self) {
        auto &peer = *static_cast<Peer *>(self);
        peer.last_conn = conn;
        peer.attempts.push_back(Clock::now());
        if (peer.refusals > 0) {
            --peer.refusals;
            return -1;
        }
        int ends[2];
        EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends));
        peer.own_end = ends[0];
        peer.far_end = ends[1];
        ++peer.ups;
        return peer.own_end;
    }

    static int32_t down(void *conn, void *self) {
        auto &peer = *static_cast<Peer *>(self);
        EXPECT_EQ(peer.connection, conn);
        ++peer.downs;
        close_end(peer.own_end);
        return 0;
    }

    // Takes a few bytes at a time, so that there is more than one call.
    static int32_t handle(void *conn, void *self) {
        auto &peer = *static_cast<Peer *>(self);
        EXPECT_EQ(peer.connection, conn);
        char bytes[3];
        const ssize_t n = read(peer.own_end, bytes, sizeof bytes);
        if (n > 0) {
            peer.received.append(bytes, static_cast<std::size_t>(n));
        }
        return 0;
    }

    void create(EventLoop &loop, bool with_down = true) {
        ASSERT_EQ(0u, event_conn_create(&connection, loop.handle(), up, this, EVENT_CONN_TYPE_FD));
        ASSERT_EQ(0u, event_conn_evm_handler(connection, 1, handle, nullptr));
        if (with_down) {
            ASSERT_EQ(0u, event_conn_notify(connection, 0x6000, down));
        }
    }

    void send(const std::string &text) {
        EXPECT_EQ(static_cast<ssize_t>(text.size()), write(far_end, text.data(), text.size()));
    }
};

long milliseconds(Clock::duration duration) {
    return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(duration).count());
}

ino_t inode_of(int fd) {
    struct stat status;
    return fstat(fd, &status) == 0 ? status.st_ino : 0;
}

TEST(EventConnection, OpenCallsUpAndInputCallsTheHandler) {
    EventLoop loop;
    Peer peer;
    peer.create(loop);
    EXPECT_EQ(0, peer.ups);
    EXPECT_EQ(0u, event_conn_open(peer.connection));
    EXPECT_EQ(1, peer.ups);
    EXPECT_EQ(peer.connection, peer.last_conn);
    peer.send("hello there");
    while (peer.received.size() < 11) {
        ASSERT_EQ(0, loop.step());
    }
    EXPECT_EQ("hello there", peer.received);
}

TEST(EventConnection, OpenOfAnOpenConnectionChangesNothing) {
    EventLoop loop;
    Peer peer;
    peer.create(loop);
    EXPECT_EQ(0u, event_conn_open(peer.connection));
    EXPECT_EQ(0u, event_conn_open(peer.connection));
    EXPECT_EQ(1, peer.ups);
}

TEST(EventConnection, RefusedConnectionIsTriedAgainLaterAndLater) {
    EventLoop loop;
    Peer peer;
    peer.refusals = 4;
    peer.create(loop);
    EXPECT_EQ(EVENT_CONN_RETRY, event_conn_open(peer.connection));
    while (peer.ups == 0) {
        ASSERT_EQ(0, loop.step());
    }
    ASSERT_EQ(5u, peer.attempts.size());
    // Never early; how late depends on the machine.
    long at_least = 100;
    for (std::size_t i = 1; i < peer.attempts.size(); ++i, at_least *= 2) {
        EXPECT_GE(milliseconds(peer.attempts[i] - peer.attempts[i - 1]), at_least) << i;
    }
    EXPECT_EQ(0, peer.downs);
    peer.send("x");
    while (peer.received.empty()) {
        ASSERT_EQ(0, loop.step());
    }
}

TEST(EventConnection, OpenWhileItWaitsTriesAtOnceAndStartsTheDelaysAgain) {
    EventLoop loop;
    Peer peer;
    peer.refusals = 2;
    peer.create(loop);
    EXPECT_EQ(EVENT_CONN_RETRY, event_conn_open(peer.connection));
    EXPECT_EQ(EVENT_CONN_RETRY, event_conn_open(peer.connection));
    EXPECT_EQ(2u, peer.attempts.size());
    EXPECT_EQ(0u, event_conn_open(peer.connection));
    EXPECT_EQ(1, peer.ups);
}

TEST(EventConnection, LostConnectionGoesDownAndComesUpAgain) {
    EventLoop loop;
    Peer peer;
    peer.create(loop);
    ASSERT_EQ(0u, event_conn_open(peer.connection));
    for (int round = 1; round <= 2; ++round) {
        peer.close_end(peer.far_end);
        while (peer.downs < round) {
            ASSERT_EQ(0, loop.step());
        }
        peer.refusals = round - 1;
        while (peer.ups <= round) {
            ASSERT_EQ(0, loop.step());
        }
    }
    peer.send("again");
    while (peer.received != "again") {
        ASSERT_EQ(0, loop.step());
    }
    EXPECT_EQ(2, peer.downs);
    EXPECT_EQ(3, peer.ups);
}

TEST(EventConnection, WhatThePeerSentBeforeItHungUpIsRead) {
    EventLoop loop;
    Peer peer;
    peer.create(loop);
    ASSERT_EQ(0u, event_conn_open(peer.connection));
    peer.send("famous last words");
    peer.close_end(peer.far_end);
    while (peer.downs == 0) {
        ASSERT_EQ(0, loop.step());
    }
    EXPECT_EQ("famous last words", peer.received);
}

TEST(EventConnection, DescriptorWithoutDownCallbackIsClosed) {
    EventLoop loop;
    Peer peer;
    peer.create(loop, false);
    ASSERT_EQ(0u, event_conn_open(peer.connection));
    const int lost = std::exchange(peer.own_end, -1);
    const ino_t inode = inode_of(lost);
    peer.refusals = 1;
    peer.close_end(peer.far_end);
    while (peer.refusals == 1) {
        ASSERT_EQ(0, loop.step());
    }
    EXPECT_NE(inode, inode_of(lost));  // the number may be in use again
    EXPECT_EQ(0, peer.downs);
}

TEST(EventConnection, DownCallbackIsCalledOnlyForItsEvents) {
    EventLoop loop;
    Peer peer;
    peer.create(loop);
    ASSERT_EQ(0u, event_conn_notify(peer.connection, 0x1000, Peer::down));
    ASSERT_EQ(0u, event_conn_open(peer.connection));
    peer.own_end = -1;
    peer.close_end(peer.far_end);
    while (peer.ups < 2) {
        ASSERT_EQ(0, loop.step());
    }
    EXPECT_EQ(0, peer.downs);
}

TEST(EventConnection, ConnectionWithoutHandlerNoticesTheEndOnly) {
    EventLoop loop;
    Peer peer;
    peer.create(loop);
    ASSERT_EQ(0u, event_conn_evm_handler(peer.connection, 1, nullptr, nullptr));
    ASSERT_EQ(0u, event_conn_open(peer.connection));
    const int32_t code = event_async_attach(loop.handle(), 128, nullptr, nullptr);
    peer.send("unread");
    ASSERT_EQ(0, event_send_async(loop.handle(), code, 0));
    ASSERT_EQ(0, loop.step());  // the wake-up: input is not watched
    EXPECT_EQ(0, peer.downs);
    char unread[6];
    ASSERT_EQ(6, read(peer.own_end, unread, sizeof unread));
    peer.close_end(peer.far_end);
    while (peer.downs == 0) {
        ASSERT_EQ(0, loop.step());
    }
}

TEST(EventConnection, HandlerMayBeSetWhileItIsUp) {
    EventLoop loop;
    Peer peer;
    ASSERT_EQ(0u, event_conn_create(&peer.connection, loop.handle(), Peer::up, &peer, EVENT_CONN_TYPE_FD));
    ASSERT_EQ(0u, event_conn_open(peer.connection));
    peer.send("abc");
    ASSERT_EQ(0u, event_conn_evm_handler(peer.connection, 1, Peer::handle, nullptr));
    ASSERT_EQ(0, loop.step());
    EXPECT_EQ("abc", peer.received);
}

TEST(EventConnection, ChannelThatCannotBeWatchedIsReleased) {
    EventLoop loop;
    struct File {
        int fd = -1;
        int downs = 0;
    } file;
    const auto up = [](void *, void *self) -> int32_t {
        return static_cast<File *>(self)->fd = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
    };
    const auto down = [](void *, void *self) -> int32_t {
        ++static_cast<File *>(self)->downs;
        return 0;
    };
    event_conn_t plain = nullptr;
    ASSERT_EQ(0u, event_conn_create(&plain, loop.handle(), up, &file, EVENT_CONN_TYPE_FD));
    EXPECT_EQ(EVENT_ERR_CHANNEL, event_conn_open(plain));
    EXPECT_EQ(-1, fcntl(file.fd, F_GETFD));
    event_conn_t caring = nullptr;
    ASSERT_EQ(0u, event_conn_create(&caring, loop.handle(), up, &file, EVENT_CONN_TYPE_FD));
    ASSERT_EQ(0u, event_conn_notify(caring, EVENT_CONN_NOTIFY_DOWN, down));
    EXPECT_EQ(EVENT_ERR_CHANNEL, event_conn_open(caring));
    EXPECT_EQ(1, file.downs);
    EXPECT_EQ(0, close(file.fd));
}

TEST(EventConnection, CallbacksMayCloseTheirConnection) {
    EventLoop loop;
    struct Once {
        event_conn_t connection = nullptr;
        Pipe pipe;
        int calls = 0;
    } once;
    const auto up = [](void *, void *self) -> int32_t {
        return static_cast<Once *>(self)->pipe.reading_end();
    };
    const auto handler = [](void *conn, void *self) -> int32_t {
        ++static_cast<Once *>(self)->calls;
        EXPECT_EQ(0u, event_conn_close(conn));
        return 0;
    };
    ASSERT_EQ(0u, event_conn_create(&once.connection, loop.handle(), up, &once, EVENT_CONN_TYPE_FD));
    ASSERT_EQ(0u, event_conn_evm_handler(once.connection, 1, handler, nullptr));
    ASSERT_EQ(0u, event_conn_open(once.connection));
    once.pipe.put();
    ASSERT_EQ(0, loop.step());
    const int32_t code = event_async_attach(loop.handle(), 128, nullptr, nullptr);
    ASSERT_EQ(0, event_send_async(loop.handle(), code, 0));
    ASSERT_EQ(0, loop.step());
    EXPECT_EQ(1, once.calls);
    EXPECT_EQ(EVENT_ERR_BAD_HANDLE, event_conn_open(once.connection));
}

TEST(EventConnection, FloodedConnectionDoesNotHoldUpWakeUps) {
    EventLoop loop;
    struct Flood {
        Pipe pipe;
        int calls = 0;
    } flood;
    const auto up = [](void *, void *self) -> int32_t {
        return static_cast<Flood *>(self)->pipe.reading_end();
    };
    const auto handler = [](void *, void *self) -> int32_t {
        ++static_cast<Flood *>(self)->calls;  // reads nothing, so the descriptor stays readable
        return 0;
    };
    event_conn_t connection = nullptr;
    ASSERT_EQ(0u, event_conn_create(&connection, loop.handle(), up, &flood, EVENT_CONN_TYPE_FD));
    ASSERT_EQ(0u, event_conn_evm_handler(connection, 1, handler, nullptr));
    ASSERT_EQ(0u, event_conn_open(connection));
    flood.pipe.put();
    std::atomic<int> woken{0};
    const auto count = [](void *counter) -> int32_t { return ++*static_cast<std::atomic<int> *>(counter); };
    const int32_t code = event_async_attach(loop.handle(), 128, count, &woken);
    for (int i = 1; i <= 100; ++i) {
        ASSERT_EQ(0, event_send_async(loop.handle(), code, 0));
        const int before = flood.calls;
        while (woken < i) {
            ASSERT_EQ(0, loop.step());
        }
        EXPECT_LE(flood.calls - before, 2);
    }
}

TEST(EventConnection, RefusesNullsUnknownTypesAndStaleHandles) {
    EventLoop loop;
    const auto up = [](void *, void *) -> int32_t { return -1; };
    event_conn_t connection = nullptr;
    EXPECT_EQ(EVENT_ERR_INVALID_ARG, event_conn_create(nullptr, loop.handle(), up, nullptr, 3));
    EXPECT_EQ(EVENT_ERR_INVALID_ARG, event_conn_create(&connection, nullptr, up, nullptr, 3));
    EXPECT_EQ(EVENT_ERR_INVALID_ARG, event_conn_create(&connection, loop.handle(), nullptr, nullptr, 3));
    for (const uint32_t type : {0u, 1u, 4u, 0xffffffffu}) {
        EXPECT_EQ(EVENT_ERR_INVALID_ARG, event_conn_create(&connection, loop.handle(), up, nullptr, type));
    }
    EXPECT_EQ(EVENT_ERR_BAD_HANDLE, event_conn_create(&connection, &loop, up, nullptr, 3));
    EXPECT_EQ(nullptr, connection);

    EXPECT_EQ(EVENT_ERR_INVALID_ARG, event_conn_notify(nullptr, 0x6000, nullptr));
    EXPECT_EQ(EVENT_ERR_INVALID_ARG, event_conn_evm_handler(nullptr, 1, nullptr, nullptr));
    EXPECT_EQ(EVENT_ERR_INVALID_ARG, event_conn_open(nullptr));
    EXPECT_EQ(EVENT_ERR_INVALID_ARG, event_conn_close(nullptr));

    ASSERT_EQ(0u, event_conn_create(&connection, loop.handle(), up, nullptr, 3));
    EXPECT_EQ(EVENT_ERR_INVALID_ARG, event_conn_evm_handler(connection, 0, nullptr, nullptr));
    EXPECT_EQ(EVENT_ERR_INVALID_ARG, event_conn_evm_handler(connection, 0x100, nullptr, nullptr));
    EXPECT_EQ(0u, event_conn_close(connection));
    EXPECT_EQ(EVENT_ERR_BAD_HANDLE, event_conn_close(connection));
    EXPECT_EQ(EVENT_ERR_BAD_HANDLE, event_conn_notify(connection, 0x6000, nullptr));
    EXPECT_EQ(EVENT_ERR_BAD_HANDLE, event_conn_evm_handler(connection, 1, nullptr, nullptr));
    EXPECT_EQ(EVENT_ERR_BAD_HANDLE, event_conn_open(connection));
    // The handle of a manager is not that of a connection, and vice versa.
    EXPECT_EQ(EVENT_ERR_BAD_HANDLE, event_conn_open(loop.handle()));
}

TEST(EventConnection, ConnectionsEndWithTheirManager) {
    event_conn_t connection = nullptr;
    Peer peer;
    {
        EventLoop loop;
        peer.create(loop);
        connection = peer.connection;
        ASSERT_EQ(0u, event_conn_open(connection));
    }
    EXPECT_EQ(EVENT_ERR_BAD_HANDLE, event_conn_open(connection));
    EXPECT_EQ(0, peer.downs);
}

}  // namespace
