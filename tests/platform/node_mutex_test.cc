// SPDX-License-Identifier: Apache-2.0
//
// The list of threads that wait for a mutex.

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "platform/control.h"
#include "platform/node.h"

namespace {

uint64_t monotonic_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

}  // namespace

TEST(MutexWait, IsListedWhileItLasts) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    EXPECT_EQ(0u, aaa_platform_mutex_waits(nullptr, 0));
    const uint64_t before = monotonic_ms();
    ptd_set_mutex_block(&mutex, "aaa_close_sysdb_connections", 321);
    aaa_platform_mutex_wait_t wait{};
    ASSERT_EQ(1u, aaa_platform_mutex_waits(&wait, 1));
    EXPECT_EQ(gettid(), wait.thread);
    EXPECT_EQ(321, wait.line);
    EXPECT_EQ(&mutex, wait.mutex);
    EXPECT_STREQ("aaa_close_sysdb_connections", wait.function);
    EXPECT_LE(wait.waited_ms, monotonic_ms() - before);
    while (wait.waited_ms == 0) {
        ASSERT_EQ(1u, aaa_platform_mutex_waits(&wait, 1));
    }
    ptd_unset_mutex_block();
    EXPECT_EQ(0u, aaa_platform_mutex_waits(&wait, 1));
    ptd_unset_mutex_block();
}

TEST(MutexWait, CutsLongNamesAndTakesNone) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    aaa_platform_mutex_wait_t wait{};
    ptd_set_mutex_block(&mutex, std::string(200, 'f').c_str(), 1);
    ASSERT_EQ(1u, aaa_platform_mutex_waits(&wait, 1));
    EXPECT_EQ(std::string(63, 'f'), wait.function);
    ptd_set_mutex_block(&mutex, nullptr, 2);
    ASSERT_EQ(1u, aaa_platform_mutex_waits(&wait, 1)) << "the same thread takes one place";
    EXPECT_STREQ("", wait.function);
    EXPECT_EQ(2, wait.line);
    ptd_unset_mutex_block();
}

TEST(MutexWait, KeepsErrno) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    errno = EBUSY;
    ptd_set_mutex_block(&mutex, "f", 1);
    EXPECT_EQ(EBUSY, errno);
    ptd_unset_mutex_block();
    EXPECT_EQ(EBUSY, errno);
}

TEST(MutexWait, IsNotInheritedByAForkedChild) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    ptd_set_mutex_block(&mutex, "f", 1);
    const pid_t pid = fork();
    if (pid == 0) {
        _exit(static_cast<int>(aaa_platform_mutex_waits(nullptr, 0)));
    }
    int status = -1;
    waitpid(pid, &status, 0);
    EXPECT_EQ(0, status);
    ptd_unset_mutex_block();
}

TEST(MutexWait, OfManyThreadsIsCounted) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_mutex_lock(&mutex);
    std::vector<std::thread> threads;
    constexpr uint32_t kThreads = 80;  // more than the table holds
    for (uint32_t t = 0; t < kThreads; ++t) {
        threads.emplace_back([&mutex] {
            ptd_set_mutex_block(&mutex, "waiting_function", 7);
            pthread_mutex_lock(&mutex);
            ptd_unset_mutex_block();
            pthread_mutex_unlock(&mutex);
        });
    }
    aaa_platform_mutex_wait_t waits[4] = {};
    while (aaa_platform_mutex_waits(waits, 4) < 64) {
        std::this_thread::yield();
    }
    for (const auto &wait : waits) {
        EXPECT_STREQ("waiting_function", wait.function);
        EXPECT_EQ(&mutex, wait.mutex);
    }
    pthread_mutex_unlock(&mutex);
    for (auto &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0u, aaa_platform_mutex_waits(nullptr, 0));
}
