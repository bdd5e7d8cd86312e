// SPDX-License-Identifier: Apache-2.0
//
// Handles of event managers: what they hold, and arguments that are refused.

#include "platform/event_manager.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <set>

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

TEST(EventManager, DispatchOfOtherBytesDoesNothing) {
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
