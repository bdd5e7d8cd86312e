// SPDX-License-Identifier: Apache-2.0
//
// The platform's support for loading and unloading libraries, tested with a small
// module. library_test.cc tests the real library.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include "event_loop.hpp"
#include "platform/node.h"
#include "support/sysdb.hpp"

namespace {

namespace fs = std::filesystem;

std::size_t descriptors() {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto &entry : fs::directory_iterator("/proc/self/fd")) {
        ++count;
    }
    return count;
}

int told;  // the module's report at unload; -1 before

void *load_module() {
    void *object = dlopen(LOADER_MODULE, RTLD_NOW);
    EXPECT_NE(nullptr, object) << dlerror();
    told = -1;
    const auto hook = static_cast<void (**)(int)>(dlsym(object, "module_unloading"));
    *hook = [](int in_dlclose) { told = in_dlclose; };
    return object;
}

TEST(Loader, DlcloseIsTold) {
    run_forked([] {
        ASSERT_EQ(0, dlclose(load_module()));
        EXPECT_EQ(1, told);
    });
}

TEST(Loader, ExitIsTold) {
    Pipe result;
    static int end = -1;
    end = result.writing_end();
    ForkedProcess process([] {
        const auto hook = static_cast<void (**)(int)>(dlsym(load_module(), "module_unloading"));
        *hook = [](int in_dlclose) {
            const char answer = in_dlclose == 0 ? '0' : '1';
            EXPECT_EQ(1, write(end, &answer, 1));
        };
        exit(7);
    });
    EXPECT_EQ(7, process.wait());
    char answer = '?';
    ASSERT_EQ(1, read(result.reading_end(), &answer, 1));
    EXPECT_EQ('0', answer);
}

TEST(Loader, EventManagersOfUnloadedLibrariesAreReleased) {
    run_forked([] {
        EventLoop own;
        ASSERT_EQ(0, dlclose(load_module()));
        void *object = load_module();
        const std::size_t with_one = descriptors();
        ASSERT_EQ(0, dlclose(object));
        for (int i = 0; i < 100; ++i) {
            object = load_module();
            ASSERT_EQ(with_one, descriptors()) << i;
            ASSERT_EQ(0, dlclose(object));
        }
        // Event managers of other objects are unaffected.
        const int32_t code = event_async_attach(own.handle(), 128, nullptr, nullptr);
        ASSERT_EQ(0, event_send_async(own.handle(), code, 0));
        EXPECT_EQ(0, own.step());
    });
}

std::size_t threads() {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator("/proc/self/task"), {}));
}

// The kernel says in which system call a thread is.
bool waits_for_events(const fs::path &task) {
    static const std::set<long> calls = {
#ifdef SYS_epoll_wait
        SYS_epoll_wait, SYS_poll,
#endif
        SYS_epoll_pwait, SYS_ppoll};
    long call = -1;
    std::ifstream(task / "syscall") >> call;
    return calls.count(call) != 0;
}

std::size_t threads_that_wait_for_events() {
    std::size_t count = 0;
    for (const auto &task : fs::directory_iterator("/proc/self/task")) {
        count += waits_for_events(task.path()) ? 1 : 0;
    }
    return count;
}

// A thread that could not be woken executed code that was not mapped any more when the
// next event manager was created, which releases those of unloaded libraries.
TEST(Loader, ThreadThatIsNotWokenAtAnUnloadDoesNotReturn) {
    run_forked([] {
        event_manager_destroy(event_manager_create(0, "first", 0, nullptr));
        const std::size_t before = threads();
        constexpr std::size_t kRounds = 50;
        for (std::size_t i = 1; i <= kRounds; ++i) {
            void *object = load_module();
            *static_cast<int *>(dlsym(object, "module_wakes_nobody")) = 1;
            while (threads_that_wait_for_events() < i) {  // those of the rounds before, and this one's
            }
            ASSERT_EQ(0, dlclose(object));
            ASSERT_EQ(1, told);
            event_manager_destroy(event_manager_create(0, "next", 0, nullptr));  // releases the module's
            ASSERT_LE(before + i, threads());
        }
        ASSERT_EQ(0, dlclose(load_module()));  // one that is woken ends
        _exit(testing::Test::HasFailure() ? 1 : 0);
    });
}

}  // namespace
