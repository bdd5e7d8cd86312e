// SPDX-License-Identifier: Apache-2.0

#include "net/loop.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace net {
namespace {

class Pipe {
  public:
    Pipe() {
        std::array<int, 2> ends;
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), 0);
        reader = Descriptor(ends[0]);
        writer = Descriptor(ends[1]);
    }
    void put() { EXPECT_EQ(write(writer.get(), "x", 1), 1); }
    void take() {
        char byte;
        EXPECT_EQ(read(reader.get(), &byte, 1), 1);
    }

    Descriptor reader, writer;
};

TEST(Loop, CallsForADescriptorAsLongAsItIsReadable) {
    Loop loop;
    Pipe pipe;
    int calls = 0;
    Watch watch(loop, pipe.reader.get(), EPOLLIN, [&](std::uint32_t events) {
        EXPECT_EQ(events, EPOLLIN);
        ++calls;
    });
    ASSERT_TRUE(watch.usable());
    loop.run_once(0);
    EXPECT_EQ(calls, 0);
    pipe.put();
    loop.run_once(INT64_MAX);
    loop.run_once(INT64_MAX);
    EXPECT_EQ(calls, 2);
    pipe.take();
    loop.run_once(0);
    EXPECT_EQ(calls, 2);
}

TEST(Loop, ReplacesTheEventsThatAreWaitedFor) {
    Loop loop;
    Pipe pipe;
    std::vector<std::uint32_t> seen;
    Watch watch(loop, pipe.writer.get(), 0, [&](std::uint32_t events) { seen.push_back(events); });
    loop.run_once(0);
    EXPECT_TRUE(seen.empty());
    watch.want(EPOLLOUT);
    loop.run_once(INT64_MAX);
    EXPECT_EQ(seen, std::vector<std::uint32_t>{EPOLLOUT});
    watch.want(0);
    loop.run_once(0);
    EXPECT_EQ(seen.size(), 1U);
}

TEST(Loop, ReportsTheOtherEndsClosing) {
    Loop loop;
    Pipe pipe;
    std::uint32_t seen = 0;
    Watch watch(loop, pipe.reader.get(), EPOLLIN, [&](std::uint32_t events) { seen = events; });
    pipe.writer.reset();
    loop.run_once(INT64_MAX);
    EXPECT_TRUE(seen & EPOLLHUP);
}

TEST(Loop, AWatchMayDestroyItself) {
    Loop loop;
    Pipe pipe;
    int calls = 0;
    Watch watch;
    watch = Watch(loop, pipe.reader.get(), EPOLLIN, [&, text = std::string(100, 'x')](std::uint32_t) {
        ++calls;
        watch.reset();
        EXPECT_EQ(text, std::string(100, 'x'));  // what was captured lives until the call ends
    });
    pipe.put();
    loop.run_once(INT64_MAX);
    loop.run_once(0);
    EXPECT_EQ(calls, 1);
}

TEST(Loop, AWatchThatIsDestroyedInTheSameRoundIsNotCalled) {
    Loop loop;
    std::array<Pipe, 2> pipes;
    std::array<Watch, 2> watches;
    int calls = 0;
    for (std::size_t i = 0; i < 2; ++i) {
        watches[i] = Watch(loop, pipes[i].reader.get(), EPOLLIN, [&, i](std::uint32_t) {
            ++calls;
            watches[1 - i].reset();
        });
        pipes[i].put();
    }
    loop.run_once(INT64_MAX);
    EXPECT_EQ(calls, 1);
}

TEST(Loop, AnEventForAWatchThatIsGoneDoesNotReachItsSuccessor) {
    Loop loop;
    std::array<Pipe, 2> pipes;
    std::array<Watch, 2> watches;
    Pipe other;
    Watch successor;
    int calls_of_successor = 0;
    for (std::size_t i = 0; i < 2; ++i) {
        watches[i] = Watch(loop, pipes[i].reader.get(), EPOLLIN, [&, i](std::uint32_t) {
            watches[1 - i].reset();
            // Takes the slot that has just become free, for a descriptor without input.
            successor =
                Watch(loop, other.reader.get(), EPOLLIN, [&](std::uint32_t) { ++calls_of_successor; });
        });
        pipes[i].put();
    }
    loop.run_once(INT64_MAX);
    EXPECT_EQ(calls_of_successor, 0);
}

TEST(Loop, RefusesADescriptorThatCannotBeWatched) {
    Loop loop;
    Descriptor file(open("/dev/null", O_RDONLY | O_CLOEXEC));
    Watch of_file(loop, file.get(), EPOLLIN, [](std::uint32_t) {});
    EXPECT_FALSE(of_file.usable());
    EXPECT_EQ(errno, EPERM);
    of_file.want(EPOLLOUT);
    Watch of_none(loop, -1, EPOLLIN, [](std::uint32_t) {});
    EXPECT_FALSE(of_none.usable());
    EXPECT_EQ(errno, EBADF);
}

TEST(Loop, MovesAWatch) {
    Loop loop;
    Pipe pipe;
    int calls = 0;
    Watch first(loop, pipe.reader.get(), EPOLLIN, [&](std::uint32_t) { ++calls; });
    Watch second = std::move(first);
    pipe.put();
    loop.run_once(INT64_MAX);
    EXPECT_EQ(calls, 1);
    second = Watch();
    loop.run_once(0);
    EXPECT_EQ(calls, 1);
}

// ---- timers -------------------------------------------------------------------------------

TEST(Timer, IsCalledOnceWhenItsTimeHasCome) {
    Loop loop;
    int calls = 0;
    Timer timer(loop, [&] {
        EXPECT_GE(Loop::clock(), loop.now());
        ++calls;
    });
    const Time at = Loop::clock() + kMillisecond;
    timer.set(at);
    EXPECT_TRUE(timer.is_set());
    while (calls == 0) {
        EXPECT_TRUE(timer.is_set());
        loop.run_once(INT64_MAX);
    }
    EXPECT_GE(loop.now(), at);
    EXPECT_FALSE(timer.is_set());
    loop.run_once(0);
    EXPECT_EQ(calls, 1);
}

TEST(Timer, DoesNotComeEarly) {
    Loop loop;
    bool called = false;
    Timer timer(loop, [&] { called = true; });
    timer.set(Loop::clock() + 3600 * kSecond);
    loop.run_once(0);
    EXPECT_FALSE(called);
    timer.set(INT64_MAX);
    loop.run_once(0);
    EXPECT_FALSE(called);
    timer.set(INT64_MIN);
    loop.run_once(INT64_MAX);
    EXPECT_TRUE(called);
}

TEST(Timer, CancelledOrSetAgainIsNotCalledForItsOldTime) {
    Loop loop;
    int calls = 0;
    Timer timer(loop, [&] { ++calls; });
    timer.set(0);
    timer.cancel();
    timer.cancel();
    loop.run_once(0);
    EXPECT_EQ(calls, 0);
    timer.set(0);
    timer.set(Loop::clock() + 3600 * kSecond);
    loop.run_once(0);
    EXPECT_EQ(calls, 0);
}

TEST(Timer, MayDestroyItself) {
    Loop loop;
    std::unique_ptr<Timer> timer;
    std::string after;
    timer = std::make_unique<Timer>(loop, [&, text = std::string(100, 'x')] {
        timer.reset();
        after = text;
    });
    timer->set(0);
    loop.run_once(INT64_MAX);
    EXPECT_EQ(after, std::string(100, 'x'));
}

TEST(Timer, ThatSetsItselfLetsTheLoopGoOn) {
    Loop loop;
    Pipe pipe;
    bool read = false;
    int calls = 0;
    Timer timer(loop, [&] {
        ++calls;
        timer.set(0);
    });
    Watch watch(loop, pipe.reader.get(), EPOLLIN, [&](std::uint32_t) { read = true; });
    timer.set(0);
    pipe.put();
    loop.run_once(INT64_MAX);
    loop.run_once(INT64_MAX);
    EXPECT_TRUE(read);
    EXPECT_EQ(calls, 2);
}

// The heap against a sorted list: set, set again and cancelled at random.
TEST(Timer, AreCalledInTheOrderOfTheirTimes) {
    std::mt19937 random(20261122);
    for (int round = 0; round < 200; ++round) {
        Loop loop;
        constexpr int kTimers = 60;
        std::vector<int> called;
        std::vector<std::unique_ptr<Timer>> timers;
        std::vector<std::pair<std::pair<Time, int>, int>> expected;  // ((time, order), timer)
        std::array<int, kTimers> order = {};
        std::array<Time, kTimers> at = {};
        for (int i = 0; i < kTimers; ++i) {
            timers.push_back(std::make_unique<Timer>(loop, [&called, i] { called.push_back(i); }));
        }
        for (int step = 1; step < 200; ++step) {
            const int i = static_cast<int>(random() % kTimers);
            if (random() % 4 == 0) {
                timers[i]->cancel();
                order[i] = 0;
            } else {
                at[i] = static_cast<Time>(random() % 20) - 5;
                order[i] = step;
                timers[i]->set(at[i]);
            }
        }
        for (int i = 0; i < kTimers; ++i) {
            EXPECT_EQ(timers[i]->is_set(), order[i] != 0);
            if (order[i] != 0) {
                expected.push_back({{at[i], order[i]}, i});
            }
        }
        std::sort(expected.begin(), expected.end());
        std::vector<int> in_order;
        for (const auto &entry : expected) {
            in_order.push_back(entry.second);
        }
        loop.run_once(0);
        EXPECT_EQ(called, in_order);
    }
}

// ---- posted work --------------------------------------------------------------------------

TEST(Loop, CallsPostedWorkInOrderInItsOwnThread) {
    Loop loop;
    constexpr int kPosts = 1000;
    std::vector<int> seen;
    std::thread other([&] {
        for (int i = 0; i < kPosts; ++i) {
            loop.post([&seen, i] { seen.push_back(i); });
        }
        loop.post([&loop] { loop.stop(); });
    });
    loop.run();
    other.join();
    ASSERT_EQ(seen.size(), static_cast<std::size_t>(kPosts));
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
}

TEST(Loop, WorkThatIsPostedByWorkIsCalledInTheNextRound) {
    Loop loop;
    int calls = 0;
    loop.post([&] { loop.post([&] { ++calls; }); });
    loop.run_once(INT64_MAX);
    EXPECT_EQ(calls, 0);
    loop.run_once(INT64_MAX);
    EXPECT_EQ(calls, 1);
}

TEST(Loop, DestroysWorkThatWasNeverCalled) {
    auto alive = std::make_shared<int>(0);
    {
        Loop loop;
        loop.post([alive] {});
        EXPECT_EQ(alive.use_count(), 2);
    }
    EXPECT_EQ(alive.use_count(), 1);
}

TEST(Loop, StopsWhenItWasToldSoBeforeItRan) {
    Loop loop;
    loop.stop();
    loop.run();
    bool called = false;
    loop.post([&] {
        called = true;
        loop.stop();
    });
    loop.run();
    EXPECT_TRUE(called);
}

Loop *loop_of_signal;

TEST(Loop, CanBeStoppedByASignalHandler) {
    Loop loop;
    loop_of_signal = &loop;
    struct sigaction action = {}, before;
    action.sa_handler = [](int) { loop_of_signal->stop(); };
    sigaction(SIGUSR1, &action, &before);
    loop.post([] { raise(SIGUSR1); });
    loop.run();
    sigaction(SIGUSR1, &before, nullptr);
}

// A daemon may be started with the first three descriptors closed.
TEST(Loop, UsesNoneOfTheFirstThreeDescriptors) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        close(0);
        close(1);
        close(2);
        bool called = false;
        Loop loop;
        loop.post([&] { called = true; });
        loop.run_once(INT64_MAX);
        const bool free = fcntl(0, F_GETFD) == -1 && fcntl(1, F_GETFD) == -1 && fcntl(2, F_GETFD) == -1;
        _exit(loop.usable() && called && free ? 0 : 1);
    }
    int status;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace net
