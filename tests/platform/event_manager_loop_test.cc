// SPDX-License-Identifier: Apache-2.0
//
// The loop of an event manager: wake-ups are neither lost nor repeated, and what
// ends a block.

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

#include "event_loop.hpp"
#include "support/sysdb.hpp"

namespace {

int32_t count_call(void *counter) {
    ++*static_cast<std::atomic<int> *>(counter);
    return 0;
}

TEST(EventManagerLoop, WakeUpSentBeforeTheBlockIsDelivered) {
    EventLoop loop;
    std::atomic<int> calls{0};
    const int32_t code = event_async_attach(loop.handle(), 128, count_call, &calls);
    ASSERT_GE(code, 0);
    EXPECT_EQ(0, event_send_async(loop.handle(), code, 0));
    EXPECT_EQ(0, loop.step());
    EXPECT_EQ(1, calls);
}

TEST(EventManagerLoop, EveryWakeUpIsDeliveredOnceAndInOrder) {
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

TEST(EventManagerLoop, WakeUpWithoutHandlerStillEndsTheBlock) {
    EventLoop loop;
    const int32_t code = event_async_attach(loop.handle(), 128, nullptr, nullptr);
    ASSERT_EQ(0, event_send_async(loop.handle(), code, 0));
    EXPECT_EQ(0, loop.step());
}

TEST(EventManagerLoop, SendersOnManyThreadsLoseNothing) {
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

TEST(EventManagerLoop, StartAndStopManyTimes) {
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

TEST(EventManagerLoop, SignalEndsTheBlock) {
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

TEST(EventManagerLoop, DestroyEndsTheBlock) {
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

}  // namespace
