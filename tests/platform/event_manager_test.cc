// SPDX-License-Identifier: Apache-2.0

#include "platform/event_manager.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <thread>
#include <vector>

#include "event_loop.hpp"
#include "support/sysdb.hpp"

namespace {

int32_t count_call(void *counter) {
    ++*static_cast<std::atomic<int> *>(counter);
    return 0;
}

std::set<int> open_descriptors() {
    std::set<int> descriptors;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        descriptors.insert(std::atoi(entry.path().filename().c_str()));
    }
    // The descriptor that read the directory is closed now.
    for (auto at = descriptors.begin(); at != descriptors.end();) {
        at = fcntl(*at, F_GETFD) < 0 ? descriptors.erase(at) : std::next(at);
    }
    return descriptors;
}

TEST(EventManager, CreateGivesDistinctHandlesAndLeavesTheWordAlone) {
    uint64_t word = 0x0123456789abcdef;
    event_manager_t one = event_manager_create(0, "/dev/aaa/lib/util", 0, &word);
    event_manager_t two = event_manager_create(0, "/dev/aaa/lib/util", 0, nullptr);
    event_manager_t nameless = event_manager_create(0, nullptr, 0, nullptr);
    EXPECT_NE(nullptr, one);
    EXPECT_NE(nullptr, two);
    EXPECT_NE(nullptr, nameless);
    EXPECT_NE(one, two);
    EXPECT_EQ(0x0123456789abcdefu, word);
    event_manager_destroy(one);
    event_manager_destroy(two);
    event_manager_destroy(nameless);
    event_manager_destroy(nullptr);
}

TEST(EventManager, CreateRefusesUnknownFlags) {
    errno = 0;
    EXPECT_EQ(nullptr, event_manager_create(1, "x", 0, nullptr));
    EXPECT_EQ(EINVAL, errno);
}

TEST(EventManager, CreateWithoutDescriptorsFailsWithErrno) {
    run_forked([] {
        while (dup(0) >= 0) {
        }
        errno = 0;
        EXPECT_EQ(nullptr, event_manager_create(0, "x", 0, nullptr));
        EXPECT_EQ(EMFILE, errno);
    });
}

TEST(EventManager, DescriptorsAreNotInheritedByPrograms) {
    const std::set<int> before = open_descriptors();
    EventLoop loop;
    int opened = 0;
    for (const int fd : open_descriptors()) {
        if (before.count(fd) == 0) {
            ++opened;
            EXPECT_NE(0, fcntl(fd, F_GETFD) & FD_CLOEXEC) << fd;
        }
    }
    EXPECT_GT(opened, 0);
}

TEST(EventManager, DestroyClosesEverything) {
    const std::set<int> before = open_descriptors();
    { EventLoop loop; }
    EXPECT_EQ(before, open_descriptors());
}

TEST(EventManager, WakeUpSentBeforeTheBlockIsDelivered) {
    EventLoop loop;
    std::atomic<int> calls{0};
    const int32_t code = event_async_attach(loop.handle(), 128, count_call, &calls);
    ASSERT_GE(code, 0);
    EXPECT_EQ(0, event_send_async(loop.handle(), code, 0));
    EXPECT_EQ(0, loop.step());
    EXPECT_EQ(1, calls);
}

TEST(EventManager, EveryWakeUpIsDeliveredOnceAndInOrder) {
    EventLoop loop;
    static std::vector<long> order;
    order.clear();
    const auto note = [](void *which) -> int32_t {
        order.push_back(reinterpret_cast<long>(which));
        return 0;
    };
    const int32_t one = event_async_attach(loop.handle(), 128, note, reinterpret_cast<void *>(1));
    const int32_t two = event_async_attach(loop.handle(), 128, note, reinterpret_cast<void *>(2));
    ASSERT_NE(one, two);
    std::vector<long> expected;
    for (int i = 0; i < 1000; ++i) {
        const bool first = i % 3 == 0;
        ASSERT_EQ(0, event_send_async(loop.handle(), first ? one : two, 0));
        expected.push_back(first ? 1 : 2);
    }
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(0, loop.step());
    }
    EXPECT_EQ(expected, order);
}

TEST(EventManager, WakeUpWithoutHandlerStillEndsTheBlock) {
    EventLoop loop;
    const int32_t code = event_async_attach(loop.handle(), 128, nullptr, nullptr);
    ASSERT_EQ(0, event_send_async(loop.handle(), code, 0));
    EXPECT_EQ(0, loop.step());
}

TEST(EventManager, SendersOnManyThreadsLoseNothing) {
    constexpr int kSenders = 4;
    constexpr int kEach = 2000;
    EventLoop loop;
    std::atomic<int> calls{0};
    const int32_t code = event_async_attach(loop.handle(), 128, count_call, &calls);
    std::vector<std::thread> senders;
    for (int i = 0; i < kSenders; ++i) {
        senders.emplace_back([&] {
            for (int j = 0; j < kEach; ++j) {
                EXPECT_EQ(0, event_send_async(loop.handle(), code, 0));
            }
        });
    }
    while (calls < kSenders * kEach) {
        ASSERT_EQ(0, loop.step());
    }
    for (std::thread &sender : senders) {
        sender.join();
    }
    EXPECT_EQ(kSenders * kEach, calls);
}

TEST(EventManager, StartAndStopManyTimes) {
    EventLoop loop;
    const unsigned rounds = repetitions("AAA_EVENT_ROUNDS", 500);
    const int32_t code = event_async_attach(loop.handle(), 128, nullptr, nullptr);
    for (unsigned i = 0; i < rounds; ++i) {
        std::atomic<bool> stop{false};
        std::thread worker([&] {
            do {
                loop.step();
            } while (!stop);
        });
        stop = true;
        ASSERT_EQ(0, event_send_async(loop.handle(), code, 0));
        worker.join();
    }
}

TEST(EventManager, RefusesNullStaleAndForeignHandles) {
    event_manager_t stale = event_manager_create(0, "x", 0, nullptr);
    ASSERT_EQ(0, event_async_attach(stale, 128, nullptr, nullptr));
    event_manager_destroy(stale);
    char buffer[256];
    int something = 0;
    for (event_manager_t handle : {event_manager_t{nullptr}, stale, event_manager_t{&something}}) {
        errno = 0;
        EXPECT_EQ(-1, event_async_attach(handle, 128, nullptr, nullptr));
        EXPECT_EQ(EINVAL, errno);
        errno = 0;
        EXPECT_NE(0, event_send_async(handle, 0, 0));
        EXPECT_EQ(EINVAL, errno);
        event_block_ctx_t context{};
        context.evm = handle;
        context.buffer = buffer;
        context.size = sizeof buffer;
        errno = 0;
        EXPECT_EQ(-1, event_block(&context));
        EXPECT_EQ(EINVAL, errno);
        errno = 0;
        EXPECT_EQ(-1, qm_event_dispatch(&context, 0));
        EXPECT_EQ(EINVAL, errno);
    }
}

TEST(EventManager, SendRefusesUnknownCodes) {
    EventLoop loop;
    for (const int32_t code : {-1, 0, 1}) {
        errno = 0;
        EXPECT_EQ(-1, event_send_async(loop.handle(), code, 0)) << code;
        EXPECT_EQ(EINVAL, errno);
    }
    ASSERT_EQ(0, event_async_attach(loop.handle(), 128, nullptr, nullptr));
    EXPECT_EQ(0, event_send_async(loop.handle(), 0, 0));
    EXPECT_EQ(-1, event_send_async(loop.handle(), 1, 0));
}

TEST(EventManager, BlockRefusesAContextItCannotFill) {
    EventLoop loop;
    EXPECT_EQ(-1, event_block(nullptr));
    EXPECT_EQ(-1, qm_event_dispatch(nullptr, 0));
    char buffer[EVENT_BUFFER_MINIMUM];
    event_block_ctx_t context{};
    context.evm = loop.handle();
    context.size = sizeof buffer;
    errno = 0;
    EXPECT_EQ(-1, event_block(&context));
    EXPECT_EQ(EINVAL, errno);
    context.buffer = buffer;
    context.size = sizeof buffer - 1;
    EXPECT_EQ(-1, event_block(&context));
    context.size = sizeof buffer;
    const int32_t code = event_async_attach(loop.handle(), 128, nullptr, nullptr);
    ASSERT_EQ(0, event_send_async(loop.handle(), code, 0));
    EXPECT_EQ(0, event_block(&context));
}

TEST(EventManager, DispatchOfWhatIsNoEventDoesNothing) {
    EventLoop loop;
    char buffer[256] = {};
    event_block_ctx_t context{};
    context.evm = loop.handle();
    context.buffer = buffer;
    context.size = sizeof buffer;
    EXPECT_EQ(0, qm_event_dispatch(&context, 0));
    std::fill(std::begin(buffer), std::end(buffer), '\xff');
    EXPECT_EQ(0, qm_event_dispatch(&context, 0));
}

TEST(EventManager, SignalEndsTheBlock) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(0, sigaction(SIGUSR1, &action, nullptr));
    EventLoop loop;
    std::atomic<bool> done{false};
    int result = 0;
    int error = 0;
    std::thread blocked([&] {
        result = loop.step();
        error = errno;
        done = true;
    });
    while (!done) {  // the first signals may arrive before the thread blocks
        pthread_kill(blocked.native_handle(), SIGUSR1);
        std::this_thread::yield();
    }
    blocked.join();
    EXPECT_EQ(-1, result);
    EXPECT_EQ(EINTR, error);
}

TEST(EventManager, DestroyEndsTheBlock) {
    event_manager_t manager = event_manager_create(0, "x", 0, nullptr);
    const int32_t code = event_async_attach(manager, 128, nullptr, nullptr);
    Pipe blocking;
    int result = 0;
    std::thread blocked([&] {
        char buffer[256];
        event_block_ctx_t context{};
        context.evm = manager;
        context.buffer = buffer;
        context.size = sizeof buffer;
        EXPECT_EQ(0, event_block(&context));
        blocking.put();
        result = event_block(&context);
    });
    ASSERT_EQ(0, event_send_async(manager, code, 0));
    ASSERT_TRUE(blocking.take());
    event_manager_destroy(manager);
    blocked.join();
    EXPECT_EQ(-1, result);
}

TEST(EventManager, BelongsToTheParentAfterFork) {
    EventLoop loop;
    std::atomic<int> calls{0};
    const int32_t code = event_async_attach(loop.handle(), 128, count_call, &calls);
    run_forked([&] {
        errno = 0;
        EXPECT_EQ(-1, event_send_async(loop.handle(), code, 0));
        EXPECT_EQ(EPERM, errno);
        EXPECT_EQ(-1, event_async_attach(loop.handle(), 128, nullptr, nullptr));
        errno = 0;
        EXPECT_EQ(-1, loop.step());
        EXPECT_EQ(EPERM, errno);
        event_conn_t connection = nullptr;
        const auto up = [](void *, void *) -> int32_t { return -1; };
        EXPECT_EQ(EVENT_ERR_FORKED,
                  event_conn_create(&connection, loop.handle(), up, nullptr, EVENT_CONN_TYPE_FD));
        EventLoop own;
        std::atomic<int> own_calls{0};
        const int32_t own_code = event_async_attach(own.handle(), 128, count_call, &own_calls);
        EXPECT_EQ(0, event_send_async(own.handle(), own_code, 0));
        EXPECT_EQ(0, own.step());
        EXPECT_EQ(1, own_calls);
    });
    EXPECT_EQ(0, event_send_async(loop.handle(), code, 0));
    EXPECT_EQ(0, loop.step());
    EXPECT_EQ(1, calls);
}

}  // namespace
