// SPDX-License-Identifier: Apache-2.0
//
// Steps of load and unload that the loader's hooks never reach, or reach only
// after a failure. This program is linked with the sources of the lifecycle and
// the scripted platform. Their state exists once per process, so each test runs
// in its own child.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iterator>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "internal/lifecycle.hpp"
#include "internal/sysdb_access.hpp"
#include "support/fail_alloc.hpp"
#include "support/time_limit.h"
#include "testkit/fake_platform.hpp"

#ifdef AAA_COVERAGE
extern "C" void __gcov_dump();
#endif

namespace {

using Lines = std::vector<std::string>;

std::function<void()> &on_join() {
    static auto &instance = *new std::function<void()>;
    return instance;
}
std::function<void()> &on_created() {
    static auto &instance = *new std::function<void()>;
    return instance;
}
std::atomic<int> create_error{0};

template <typename F>
F next(F, const char *name) {
    return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

int pthread_join(pthread_t thread, void **result) {
    static const auto real = next(&::pthread_join, "pthread_join");
    if (on_join()) {
        on_join()();
    }
    return real(thread, result);
}

int pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*start)(void *),
                   void *arg) noexcept {
    static const auto real = next(&::pthread_create, "pthread_create");
    const int result = create_error != 0 ? create_error.load() : real(thread, attr, start, arg);
    if (on_created()) {
        on_created()();
    }
    return result;
}

}  // extern "C"

namespace {

// A coverage build writes its counters only at a regular exit.
void keep_counters() {
#ifdef AAA_COVERAGE
    __gcov_dump();
#endif
}

// Runs the body in a child; its failures are this test's.
void in_child(const std::function<void()> &body) {
    std::fflush(nullptr);
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        set_time_limit("the child of the test");
        body();
        std::fflush(nullptr);
        keep_counters();
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status of the child: " << status;
}

// Loads, and waits until the worker is in event_block.
void load_running() {
    std::binary_semaphore blocked(0);
    fake::events::on_block([&](event_block_ctx_t *) { blocked.release(); });
    aaautil::lifecycle(aaautil::kLoad);
    blocked.acquire();
    fake::events::on_block(nullptr);
}

int32_t up(std::size_t i) {
    const auto connection = fake::events::connections().at(i);
    return connection.up(connection.handle, connection.context);
}

int32_t down(std::size_t i) {
    const auto connection = fake::events::connections().at(i);
    return connection.down(connection.handle, connection.context);
}

TEST(LifecycleOp, TwoDoesNothing) {
    in_child([] {
        aaautil::lifecycle(aaautil::kNothing);
        EXPECT_TRUE(fake::calls().empty());
        EXPECT_TRUE(fake::traces().empty());
    });
}

TEST(LifecycleOpDeathTest, AboveThreeAborts) {
    EXPECT_EXIT(aaautil::lifecycle(4), testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT(aaautil::lifecycle(0xFFFFFFFFu), testing::KilledBySignal(SIGABRT), "");
}

TEST(LifecycleOp, ThreeWithoutAThreadOnlyCloses) {
    in_child([] {
        fake::answer("event_manager_create", 0, 1, EMFILE);
        aaautil::lifecycle(aaautil::kLoad);
        ASSERT_EQ(
            aaautil::bind_shared(aaa_cfg_sysdb_connid, aaautil::kConfigPath, aaautil::lifecycle_presence),
            0u);
        fake::clear_journal();
        aaautil::lifecycle(aaautil::kJoin);
        EXPECT_EQ(fake::calls(), (Lines{"_sysdb_unbind(/cfg/gl/aaa/)", "aaa_debug_cleanup()"}));
        EXPECT_EQ(fake::traces_of(0), (Lines{"Done with sysdb con close"}));
    });
}

TEST(LifecycleOp, ThreeJoinsWithoutWaking) {
    if (!fake::FailAlloc::available()) {
        GTEST_SKIP();
    }
    in_child([] {
        // The worker waits before its last connection. Once it is joined, it ends
        // because its buffer cannot be allocated.
        static std::binary_semaphore joined(0);
        on_join() = [] { joined.release(); };
        fake::before("event_conn_open", [] {
            if (fake::count("event_conn_open") == 2) {
                joined.acquire();
                fail_alloc_arm(1, 0);
            }
        });
        aaautil::lifecycle(aaautil::kLoad);
        aaautil::lifecycle(aaautil::kJoin);
        EXPECT_EQ(fake::count("event_send_async"), 0u);
        EXPECT_EQ(fake::count("event_block"), 0u);
        const Lines traces = fake::traces_of(0);
        EXPECT_EQ(Lines(traces.end() - 3, traces.end()),
                  (Lines{"AAA lib Thread about to exit", "Thread join of libaaautil.dll 0",
                         "Done with sysdb con close"}));
        EXPECT_EQ(fake::calls().back(), "aaa_debug_cleanup()");
        EXPECT_TRUE(fake::sysdb::open_connections().empty());
    });
}

// The worker may end before pthread_create returns. Its handle is cleared even
// then, so that unload joins it without a trace.
TEST(LifecycleOp, WorkerThatEndsBeforeItsStartReturnsHasClearedItsHandle) {
    if (!fake::FailAlloc::available()) {
        GTEST_SKIP();
    }
    in_child([] {
        fake::before("event_conn_open", [] {
            if (fake::count("event_conn_open") == 2) {
                fail_alloc_arm(1, 0);  // fails the worker's buffer
            }
        });
        on_created() = [] {
            const auto threads = [] {
                return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
            };
            while (threads() > 1) {
                std::this_thread::yield();
            }
        };
        aaautil::lifecycle(aaautil::kLoad);
        on_created() = nullptr;
        unsigned joins = 0;
        on_join() = [&] { ++joins; };
        aaautil::lifecycle(aaautil::kUnload);
        EXPECT_EQ(joins, 1u);
        const Lines traces = fake::traces_of(0);
        EXPECT_EQ(Lines(traces.end() - 4, traces.end()),
                  (Lines{"AAA lib Thread about to exit", "Unloading libaaautil.dll",
                         "Sending the async event to wakeup", "Done with sysdb con close"}));
    });
}

TEST(LifecycleOp, ThreadThatCouldNotStartIsNotJoined) {
    in_child([] {
        create_error = EAGAIN;
        aaautil::lifecycle(aaautil::kLoad);
        unsigned joins = 0;
        on_join() = [&] { ++joins; };
        fake::clear_journal();
        aaautil::lifecycle(aaautil::kUnload);
        EXPECT_EQ(joins, 0u);
        EXPECT_EQ(fake::calls(), (Lines{"event_send_async(ptr, 77, 0)", "aaa_debug_cleanup()"}));
        EXPECT_EQ(fake::traces_of(0), (Lines{"Unloading libaaautil.dll", "Sending the async event to wakeup",
                                             "Done with sysdb con close"}));
    });
}

TEST(LifecycleOp, DetachedWorkerEndsWhenItWakes) {
    in_child([] {
        load_running();
        fake::answer("event_send_async", 0xFFFFFFFF);
        aaautil::lifecycle(aaautil::kUnload);
        EXPECT_EQ(fake::calls().back(), "aaa_debug_cleanup()");
        fake::events::wake();
        while (fake::traces_of(0).back() != "AAA lib Thread about to exit") {
            std::this_thread::yield();
        }
    });
}

TEST(LifecycleClose, SkipsWhenItCannotLockButEndsTracing) {
    in_child([] {
        load_running();
        down(1);
        fake::clear_journal();
        // Inside the up callback this thread holds the mutex, which detects that.
        fake::before("_sysdb_bind", [] { aaautil::lifecycle(aaautil::kUnload); });
        up(1);
        EXPECT_EQ(fake::count("_sysdb_unbind"), 0u);
        EXPECT_NE(aaa_sgmap_sysdb_connid, 0u);
        EXPECT_EQ(fake::calls({"ptd_set_mutex_block", "ptd_unset_mutex_block", "aaa_debug_cleanup"}),
                  (Lines{"ptd_set_mutex_block(ptr, \"aaa_close_sysdb_connections\")",
                         "ptd_unset_mutex_block()", "aaa_debug_cleanup()"}));
        const Lines traces = fake::traces_of(0);
        EXPECT_EQ(Lines(traces.end() - 2, traces.end()),
                  (Lines{"Mutex lock failed sysdb con close", "Done with cfg sysdb con init"}));
    });
}

TEST(LifecycleClose, WaitsForACallbackThatRuns) {
    in_child([] {
        load_running();
        down(1);
        static std::binary_semaphore held(0), let_go(0);
        fake::before("_sysdb_bind", [] {
            held.release();
            let_go.acquire();
        });
        std::thread holder([] { up(1); });
        held.acquire();
        fake::before("ptd_set_mutex_block", [] { let_go.release(); });
        fake::clear_journal();
        aaautil::lifecycle(aaautil::kUnload);
        holder.join();
        EXPECT_EQ(
            fake::calls({"ptd_set_mutex_block", "ptd_unset_mutex_block"}),
            (Lines{"ptd_set_mutex_block(ptr, \"aaa_close_sysdb_connections\")", "ptd_unset_mutex_block()"}));
        // The connection that the callback bound meanwhile is closed too.
        EXPECT_TRUE(fake::sysdb::open_connections().empty());
    });
}

TEST(LifecycleFork, ChildUnloadsWithoutWorkerAndWithoutItsLock) {
    in_child([] {
        load_running();
        down(1);
        // Instead of the worker, another thread holds the mutex while this one
        // forks.
        static std::binary_semaphore held(0), let_go(0);
        fake::before("_sysdb_bind", [] {
            held.release();
            let_go.acquire();
        });
        std::thread holder([] { up(1); });
        held.acquire();
        in_child([] {
            unsigned joins = 0;
            on_join() = [&] { ++joins; };
            fake::before("_sysdb_bind", nullptr);
            fake::answer("event_send_async", 0xFFFFFFFF);
            fake::clear_journal();
            aaautil::lifecycle(aaautil::kUnload);
            EXPECT_EQ(joins, 0u);
            EXPECT_EQ(fake::count("ptd_set_mutex_block"), 0u);
            EXPECT_EQ(fake::traces_of(0),
                      (Lines{"Unloading libaaautil.dll", "Sending the async event to wakeup",
                             "Async event failed", "Done with sysdb con close"}));
        });
        let_go.release();
        holder.join();
        fake::before("_sysdb_bind", nullptr);
        aaautil::lifecycle(aaautil::kUnload);
        EXPECT_TRUE(fake::sysdb::open_connections().empty());
    });
}

// ---- Shared connections to the database ----

TEST(SysdbAccess, LearnsOfTheDatabaseOncePerModule) {
    in_child([] {
        fake::sysdb::set_present(false);
        for (auto *const presence : {&aaautil::lifecycle_presence, &aaautil::server_group_presence,
                                     &aaautil::method_list_presence}) {
            fake::clear_journal();
            EXPECT_FALSE(presence->check());
            EXPECT_FALSE(presence->check());
            fake::sysdb::set_present(true);
            EXPECT_TRUE(presence->check());
            fake::sysdb::set_present(false);
            EXPECT_TRUE(presence->check());
            EXPECT_EQ(fake::calls(),
                      (Lines{fake::presence_call(), fake::presence_call(), fake::presence_call()}));
        }
    });
}

TEST(SysdbAccess, AbsentDatabaseIsNeitherBoundNorUnbound) {
    in_child([] {
        fake::sysdb::set_present(false);
        sysdb_conn_t conn = 9;
        auto &presence = aaautil::server_group_presence;
        EXPECT_EQ(aaautil::bind_shared(aaa_sgmap_sysdb_connid, aaautil::kServerGroupPath, presence),
                  SYSDB_ERR_LIB_ABSENT);
        EXPECT_EQ(aaautil::bind_private(&conn, aaautil::kConfigPath, presence), SYSDB_ERR_LIB_ABSENT);
        EXPECT_EQ(conn, 9u);
        EXPECT_EQ(aaautil::unbind(9, presence), SYSDB_ERR_LIB_ABSENT);
        EXPECT_EQ(aaa_sgmap_sysdb_connid, 0u);
        EXPECT_EQ(fake::calls("access").size(), fake::calls().size());
    });
}

TEST(SysdbAccess, BindsPrivateConnectionsWithoutTheSharedFlag) {
    in_child([] {
        sysdb_conn_t conn = 0;
        auto &presence = aaautil::method_list_presence;
        EXPECT_EQ(aaautil::bind_private(&conn, "/cfg/gl/aaa/x/", presence), 0u);
        EXPECT_EQ(aaautil::unbind(conn, presence), 0u);
        const sysdb_conn_t before = conn;
        fake::answer("_sysdb_bind", 0x31, 1);
        EXPECT_EQ(aaautil::bind_private(&conn, "/cfg/gl/aaa/x/", presence), 0x31u);
        EXPECT_EQ(conn, before);
        aaautil::unbind(0, presence);
        EXPECT_EQ(fake::calls(), (Lines{fake::presence_call(), "_sysdb_bind(\"/cfg/gl/aaa/x/\", 0)",
                                        "_sysdb_unbind(/cfg/gl/aaa/x/)", "_sysdb_bind(\"/cfg/gl/aaa/x/\", 0)",
                                        "_sysdb_unbind(0)"}));
    });
}

TEST(SysdbAccess, SecondBindOfASharedHandleGivesItsOwnBack) {
    in_child([] {
        auto &presence = aaautil::server_group_presence;
        const auto bind = [&] {
            return aaautil::bind_shared(aaa_cfg_sysdb_connid, aaautil::kConfigPath, presence);
        };
        uint64_t others = 0;
        // Another thread binds after this one has read the handle and before it binds.
        fake::before("_sysdb_bind", [&] {
            fake::before("_sysdb_bind", nullptr);
            std::thread([&] { EXPECT_EQ(bind(), 0u); }).join();
            others = aaautil::shared_handle(aaa_cfg_sysdb_connid);
        });
        EXPECT_EQ(bind(), 0u);
        EXPECT_NE(others, 0u);
        EXPECT_EQ(aaautil::shared_handle(aaa_cfg_sysdb_connid), others);
        EXPECT_EQ(fake::sysdb::open_connections(), (Lines{"/cfg/gl/aaa/"}));
        EXPECT_EQ(fake::count("_sysdb_unbind"), 1u);
        EXPECT_EQ(bind(), 0u);
        EXPECT_EQ(fake::count("_sysdb_bind"), 2u);
    });
}

}  // namespace
