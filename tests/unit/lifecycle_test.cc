// SPDX-License-Identifier: Apache-2.0
//
// Load, unload and the worker thread, driven by the scripted platform. This
// program is not linked with the library: each test loads it, and sees what the
// loader's hooks do.

#include "aaa/lifecycle.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <semaphore>
#include <string>
#include <utility>
#include <vector>

#include "platform/node.h"
#include "support/fail_alloc.hpp"
#include "support/loaded_library.hpp"
#include "support/time_limit.h"
#include "testkit/fake_platform.hpp"

namespace {

using namespace lifecycle;

// ---- libc calls of the load hook that fail on demand ----

struct Sabotage {
    std::atomic<int> mutexattr_init{0}, mutex_init{0}, sigemptyset{0}, sigmask{0};
    std::atomic<int> sigaddset{0};     // error of the call counted by sigaddset_at
    std::atomic<int> sigaddset_at{0};  // 1 or 2
    std::atomic<int> sigaddset_calls{0};
    std::atomic<unsigned> joins{0};
    std::vector<int> settypes;
    std::vector<int> added_signals;
    std::atomic<bool> watching{false};
};
Sabotage &sabotage() {
    static Sabotage &instance = *new Sabotage;
    return instance;
}

// libc's own, looked up before there is any worker: it must not need the
// loader's lock, which the thread that unloads the library holds.
template <typename F>
F next(F, const char *name) {
    return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}
struct Libc {
#define NEXT(function) next(&::function, #function)
    decltype(&::pthread_mutexattr_init) mutexattr_init = NEXT(pthread_mutexattr_init);
    decltype(&::pthread_mutexattr_settype) mutexattr_settype = NEXT(pthread_mutexattr_settype);
    decltype(&::pthread_mutex_init) mutex_init = NEXT(pthread_mutex_init);
    decltype(&::sigemptyset) emptyset = NEXT(sigemptyset);
    decltype(&::sigaddset) addset = NEXT(sigaddset);
    decltype(&::pthread_sigmask) thread_mask = NEXT(pthread_sigmask);
    decltype(&::pthread_join) join = NEXT(pthread_join);
#undef NEXT
};
const Libc &libc() {
    static const Libc instance;
    return instance;
}
[[maybe_unused]] const Libc &looked_up = libc();

}  // namespace

extern "C" {

int pthread_mutexattr_init(pthread_mutexattr_t *attr) noexcept {
    if (sabotage().watching && sabotage().mutexattr_init != 0) {
        return sabotage().mutexattr_init;
    }
    return libc().mutexattr_init(attr);
}

int pthread_mutexattr_settype(pthread_mutexattr_t *attr, int type) noexcept {
    if (sabotage().watching) {
        sabotage().settypes.push_back(type);
    }
    return libc().mutexattr_settype(attr, type);
}

int pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attr) noexcept {
    if (sabotage().watching && sabotage().mutex_init != 0) {
        return sabotage().mutex_init;
    }
    return libc().mutex_init(mutex, attr);
}

int sigemptyset(sigset_t *set) noexcept {
    if (sabotage().watching && sabotage().sigemptyset != 0) {
        return sabotage().sigemptyset;
    }
    return libc().emptyset(set);
}

int sigaddset(sigset_t *set, int number) noexcept {
    if (sabotage().watching) {
        sabotage().added_signals.push_back(number);
        if (++sabotage().sigaddset_calls == sabotage().sigaddset_at) {
            return sabotage().sigaddset;
        }
    }
    return libc().addset(set, number);
}

int pthread_sigmask(int how, const sigset_t *set, sigset_t *old) noexcept {
    if (sabotage().watching && sabotage().sigmask != 0) {
        return sabotage().sigmask;
    }
    return libc().thread_mask(how, set, old);
}

int pthread_join(pthread_t thread, void **result) {
    ++sabotage().joins;
    return libc().join(thread, result);
}

}  // extern "C"

namespace {

// ---- The library under test ----

class LifecycleTest : public LoadedLibrary {
  protected:
    LifecycleTest() : LoadedLibrary(AAAUTIL_LIBRARY) {}

    // An unload that waits for a worker which it has not woken would wait for ever.
    void SetUp() override {
        set_time_limit(testing::UnitTest::GetInstance()->current_test_info()->name());
        Sabotage &s = sabotage();
        s.mutexattr_init = s.mutex_init = s.sigemptyset = s.sigmask = s.sigaddset = 0;
        s.sigaddset_at = s.sigaddset_calls = 0;
        s.settypes.clear();
        s.added_signals.clear();
        LoadedLibrary::SetUp();
    }
    void TearDown() override {
        LoadedLibrary::TearDown();
        lift_time_limit();
    }

    void before_load() override { sabotage().watching = true; }
    void after_load() override { sabotage().watching = false; }
};

using Load = LifecycleTest;
using Unload = LifecycleTest;
using Worker = LifecycleTest;

const Lines kLoadCalls = {"_init_libc_globals()", "cerr_register_dll(1164, \"cerrno/libaaa_error.dll\")",
                          "aaa_debug_init()", "event_manager_create(0, \"/dev/aaa/lib/util\", 0, ptr)",
                          "event_async_attach(ptr, 128, ptr, null)"};

// ---- Load ----

TEST_F(Load, MakesItsCallsInOrder) {
    load_running();
    const Lines mapping = {fake::presence_call(), "_sysdb_bind(\"/oper/aaa/gl/group-server/\", 2)",
                           "sysdb_conn_to_coid(/oper/aaa/gl/group-server/)"};
    const Lines configuration = {"_sysdb_bind(\"/cfg/gl/aaa/\", 2)", "sysdb_conn_to_coid(/cfg/gl/aaa/)",
                                 "event_block(ptr)"};
    EXPECT_EQ(fake::calls(), kLoadCalls + kOneConnection + mapping + kOneConnection + configuration);
    EXPECT_EQ(fake::traces(), (std::vector<fake::Trace>{{0, "Done with lib util sysdb con mutex init"},
                                                        {0, "Done with sgmap sysdb con init"},
                                                        {0, "Done with cfg sysdb con init"}}));
    EXPECT_TRUE(fake::logs().empty());
}

TEST_F(Load, PublishesBothConnections) {
    load_running();
    EXPECT_NE(value(map_handle), 0u);
    EXPECT_NE(value(cfg_handle), 0u);
    EXPECT_NE(value(map_handle), value(cfg_handle));
    EXPECT_EQ(fake::sysdb::open_connections(), (Lines{kMapPath, kCfgPath}));
}

TEST_F(Load, HandsTheEventManagerToConnectionsAsContext) {
    load_running();
    ASSERT_EQ(fake::events::connections().size(), 2u);
    for (const auto &connection : fake::events::connections()) {
        EXPECT_EQ(connection.manager, fake::events::manager());
        EXPECT_EQ(connection.context, fake::events::manager());
        EXPECT_EQ(connection.type, EVENT_CONN_TYPE_SYSDB);
        EXPECT_EQ(connection.notify_mask, 0x6000u);
        EXPECT_EQ(connection.handler, nullptr);
        EXPECT_GE(connection.channel, 0);
    }
}

TEST_F(Load, DoesNothingWithNoDllmain) {
    for (const char *const text : {"1", "0", ""}) {
        setenv("NO_DLLMAIN", text, 1);
        load();
        EXPECT_EQ(value(map_handle), 0u);
        EXPECT_EQ(value(cfg_handle), 0u);
        unload();
        EXPECT_TRUE(fake::calls().empty()) << fake::calls().front();
        EXPECT_TRUE(fake::traces().empty());
        EXPECT_TRUE(sabotage().settypes.empty());
    }
}

TEST_F(Load, ReportsAFailedRegistrationAndGoesOn) {
    fake::answer("cerr_register_dll", 0x1234);
    load_running();
    ASSERT_EQ(fake::logs().size(), 1u);
    EXPECT_EQ(fake::logs()[0].severity, 3u);
    EXPECT_EQ(fake::logs()[0].record, dlsym(library_, "kel_msg_rec_aaa_dllmain_error"));
    EXPECT_EQ(fake::logs()[0].text,
              "Error encountered while initializing DLL for kel_msg_aaa_dllmain_error: code 0x00001234");
    EXPECT_NE(value(cfg_handle), 0u);
}

TEST_F(Load, ReportsFailedTracingAndGoesOn) {
    fake::answer("aaa_debug_init", 0x99);
    load_running();
    ASSERT_EQ(fake::logs().size(), 1u);
    EXPECT_EQ(fake::logs()[0].severity, 3u);
    EXPECT_EQ(fake::logs()[0].record, dlsym(library_, "kel_msg_rec_aaa_debug_error"));
    EXPECT_NE(fake::logs()[0].text.find("Failed to initialize debug module"), std::string::npos);
    EXPECT_NE(fake::logs()[0].text.find("code 0x00000099"), std::string::npos);
    EXPECT_NE(value(cfg_handle), 0u);
}

TEST_F(Load, WithoutAnEventManagerStartsNoThread) {
    fake::answer("event_manager_create", 0, 1, EMFILE);
    load();
    EXPECT_EQ(fake::count("event_async_attach"), 0u);
    EXPECT_EQ(fake::traces_of(0), (Lines{"Done with lib util sysdb con mutex init"}));
    EXPECT_EQ(sabotage().added_signals, std::vector<int>{});
    EXPECT_EQ(value(map_handle), 0u);
    EXPECT_EQ(unload_calls(),
              (Lines{"__in_dlclose()", "event_send_async(null, 0, 0)", "aaa_debug_cleanup()"}));
    EXPECT_EQ(fake::traces_of(0), (Lines{"Unloading libaaautil.dll", "Sending the async event to wakeup",
                                         "Done with sysdb con close"}));
}

// No error of the event manager's own is needed: a step before it may have left one.
TEST_F(Load, WithoutAnEventManagerAnErrorLeftByAnEarlierStepCounts) {
    fake::answer("aaa_debug_init", 0, 1, ENOENT);
    fake::answer("event_manager_create", 0, 1);
    load();
    EXPECT_EQ(fake::count("event_async_attach"), 0u);
    EXPECT_EQ(fake::traces_of(0), (Lines{"Done with lib util sysdb con mutex init"}));
    EXPECT_EQ(sabotage().added_signals, std::vector<int>{});
    EXPECT_EQ(value(map_handle), 0u);
}

TEST_F(Load, WithAnEventManagerAnErrorLeftByAnEarlierStepDoesNotCount) {
    fake::answer("aaa_debug_init", 0, 1, ENOENT);
    load_running();
    EXPECT_NE(value(cfg_handle), 0u);
}

TEST_F(Load, TakesANullEventManagerWithoutErrnoForMade) {
    fake::answer("aaa_debug_init", 0, 1, 0);
    fake::answer("event_manager_create", 0, 1);
    load_running();
    EXPECT_EQ(fake::calls("event_async_attach"), (Lines{"event_async_attach(null, 128, ptr, null)"}));
    EXPECT_EQ(first_ctx.evm, nullptr);
    EXPECT_TRUE(fake::events::connections().empty());
    EXPECT_EQ(value(map_handle), 0u);
}

TEST_F(Load, WithoutAnAsyncEventStartsNoThread) {
    fake::answer("event_async_attach", 0xFFFFFFFF, 1, EAGAIN);
    load();
    EXPECT_EQ(fake::traces_of(0), (Lines{"Done with lib util sysdb con mutex init"}));
    EXPECT_EQ(unload_calls(),
              (Lines{"__in_dlclose()", "event_send_async(ptr, -1, 0)", "aaa_debug_cleanup()"}));
}

TEST_F(Load, TakesAFailedAttachWithoutErrnoForMade) {
    fake::answer("event_async_attach", 0xFFFFFFFE, 1, 0);
    load_running();
    EXPECT_NE(value(cfg_handle), 0u);
    EXPECT_EQ(unload_calls().at(1), "event_send_async(ptr, -2, 0)");
}

TEST_F(Load, MakesAnErrorCheckingMutex) {
    load_running();
    EXPECT_EQ(sabotage().settypes, (std::vector<int>{2, 2}));
}

TEST_F(Load, SetsTheMutexTypeOnceWhenAttributesFail) {
    sabotage().mutexattr_init = ENOMEM;
    load_running();
    EXPECT_EQ(sabotage().settypes, (std::vector<int>{2}));
    EXPECT_NE(value(cfg_handle), 0u);
}

TEST_F(Load, TracesAFailedMutex) {
    sabotage().mutex_init = EAGAIN;
    load_running();
    const Lines traces = fake::traces_of(0);
    EXPECT_EQ(Lines(traces.begin(), traces.begin() + 2),
              (Lines{"Failed to init lib util sysdb con mutex", "Done with lib util sysdb con mutex init"}));
}

TEST_F(Load, BlocksTwoRealTimeSignalsAndKeepsThemBlocked) {
    sigset_t before, after;
    pthread_sigmask(SIG_BLOCK, nullptr, &before);
    EXPECT_EQ(sigismember(&before, SIGRTMIN + 6), 0);
    load_running();
    EXPECT_EQ(sabotage().added_signals, (std::vector<int>{SIGRTMIN + 6, SIGRTMIN + 10}));
    pthread_sigmask(SIG_BLOCK, nullptr, &after);
    for (int number = 1; number <= SIGRTMAX; ++number) {
        const bool reserved = number == SIGRTMIN + 6 || number == SIGRTMIN + 10;
        EXPECT_EQ(sigismember(&after, number), reserved ? 1 : sigismember(&before, number)) << number;
    }
}

class LoadDeathTest : public LifecycleTest {
  protected:
    void SetUp() override {
        testing::GTEST_FLAG(death_test_style) = "threadsafe";
        LifecycleTest::SetUp();
    }
};

TEST_F(LoadDeathTest, StopsWhenASignalSetCannotBeBuilt) {
    sabotage().sigemptyset = EINVAL;
    EXPECT_DEATH(load(), "aaa/lib/util/src/lifecycle.c:[0-9]+: .*Assertion `rc == 0' failed");
    sabotage().sigemptyset = 0;
    sabotage().sigaddset = EINVAL;
    sabotage().sigaddset_at = 1;
    EXPECT_DEATH(load(), "Assertion `rc == 0' failed");
    sabotage().sigaddset_at = 2;
    EXPECT_DEATH(load(), "Assertion `rc ==0' failed");
}

TEST_F(LoadDeathTest, StopsWhenTheSignalsCannotBeBlocked) {
    sabotage().sigmask = EINVAL;
    EXPECT_DEATH(load(), "Assertion `rc == 0' failed");
}

// ---- Worker ----

TEST_F(Worker, IsNamedAndTakesNoSignals) {
    load_running();
    EXPECT_EQ(worker_name, "aaa_util_th");
    for (int number = 1; number < 32; ++number) {
        EXPECT_EQ(sigismember(&worker_mask, number), number == SIGKILL || number == SIGSTOP ? 0 : 1)
            << number;
    }
    EXPECT_EQ(sigismember(&worker_mask, SIGRTMIN + 6), 1);
    EXPECT_EQ(sigismember(&worker_mask, SIGRTMAX), 1);
}

TEST_F(Worker, BlocksWithAContextOfItsOwn) {
    load_running();
    EXPECT_EQ(first_ctx.evm, fake::events::manager());
    EXPECT_EQ(first_ctx.word8, 0u);
    EXPECT_NE(first_ctx.buffer, nullptr);
    EXPECT_EQ(first_ctx.size, 256u);
    EXPECT_EQ(first_ctx.word32, 0u);
    for (const uint8_t byte : first_ctx.zero) {
        EXPECT_EQ(byte, 0);
    }
}

TEST_F(Worker, DispatchesWhatArrives) {
    load_running();
    fake::clear_journal();
    fake::events::wake();
    wait_for_block(2);
    EXPECT_EQ(fake::calls(), (Lines{"qm_event_dispatch(ptr, 0)", "event_block(ptr)"}));
}

TEST_F(Worker, BlocksAgainAfterAFailure) {
    fake::answer("event_block", 0xFFFFFFFF, 3);
    load();
    wait_for_block(4);
    EXPECT_EQ(fake::count("qm_event_dispatch"), 0u);
    EXPECT_EQ(fake::count("event_block"), 4u);
}

TEST_F(Worker, DispatchesAnyOtherResult) {
    fake::answer("event_block", 0x80000000, 2);
    load();
    wait_for_block(3);
    EXPECT_EQ(fake::count("qm_event_dispatch"), 2u);
}

TEST_F(Worker, LeavesOutTheConfigurationWhenTheMappingFails) {
    fake::fail_call("event_conn_create", 1, 0x77);
    load_running();
    EXPECT_EQ(fake::count("event_conn_create"), 1u);
    EXPECT_EQ(value(map_handle), 0u);
    EXPECT_EQ(value(cfg_handle), 0u);
    EXPECT_TRUE(fake::logs().empty());
}

TEST_F(Worker, OpensTheConfigurationWhenTheMappingIsRetried) {
    fake::fail_call("_sysdb_bind", 1, 0x77);
    load_running();
    EXPECT_EQ(value(map_handle), 0u);
    EXPECT_NE(value(cfg_handle), 0u);
    EXPECT_EQ(fake::traces_of(5), (Lines{"SysDB connection error retry 555748864"}));
    EXPECT_EQ(fake::traces_of(0), (Lines{"Done with lib util sysdb con mutex init",
                                         "Done with sgmap sysdb con init", "Done with cfg sysdb con init"}));
}

// Its handle is cleared before its thread has ended.
bool worker_is_there() {
    for (const auto &task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::ifstream(task.path() / "comm") >> name;
        if (name == "aaa_util_th") {
            return true;
        }
    }
    return false;
}

// Loads the library with a worker that gets no buffer, and waits for its end.
class WorkerWithoutBuffer : public LifecycleTest {
  protected:
    void SetUp() override {
        if (!fake::FailAlloc::available()) {
            GTEST_SKIP();
        }
        LifecycleTest::SetUp();
        // The buffer is the first allocation after the second connection is open.
        fake::before("event_conn_open", [this] {
            if (fake::count("event_conn_open") == 2) {
                loaded_.acquire();
                fail_alloc_arm(1, 0);
            }
        });
        load();
        loaded_.release();
        while (fake::traces_of(0).back() != "AAA lib Thread about to exit" || worker_is_there()) {
            std::this_thread::yield();
        }
        EXPECT_EQ(fake::count("event_block"), 0u);
        fake::clear_journal();
    }

  private:
    // The worker clears its handle when it ends; the load must have stored it by then.
    std::binary_semaphore loaded_{0};
};

TEST_F(WorkerWithoutBuffer, EndsAndIsJoinedWithoutATrace) {
    const unsigned joins = sabotage().joins;
    unload();
    EXPECT_EQ(sabotage().joins, joins + 1);
    EXPECT_EQ(fake::traces_of(0), (Lines{"Unloading libaaautil.dll", "Sending the async event to wakeup",
                                         "Done with sysdb con close"}));
    EXPECT_TRUE(fake::sysdb::open_connections().empty());
}

// ---- Unload ----

TEST_F(Unload, WakesJoinsAndCloses) {
    load_running();
    EXPECT_EQ(unload_calls(), (Lines{"__in_dlclose()", "event_send_async(ptr, 77, 0)",
                                     "qm_event_dispatch(ptr, 0)", "_sysdb_unbind(/oper/aaa/gl/group-server/)",
                                     "_sysdb_unbind(/cfg/gl/aaa/)", "aaa_debug_cleanup()"}));
    EXPECT_EQ(fake::traces(), (std::vector<fake::Trace>{{0, "Unloading libaaautil.dll"},
                                                        {0, "Sending the async event to wakeup"},
                                                        {0, "AAA lib Thread about to exit"},
                                                        {0, "Thread join of libaaautil.dll 0"},
                                                        {0, "Done with sysdb con close"}}));
    EXPECT_TRUE(fake::sysdb::open_connections().empty());
}

// A worker that wakes by itself finds that it is to end before the wake-up is
// sent. It has cleared its handle then, and is joined nevertheless.
TEST_F(Unload, TellsTheWorkerToEndBeforeItIsWoken) {
    load_running();
    fake::before("event_send_async", [] {
        fake::events::wake();
        while (fake::traces_of(0).back() != "AAA lib Thread about to exit") {
            std::this_thread::yield();
        }
    });
    unload_calls();
    EXPECT_EQ(fake::traces_of(0), (Lines{"Unloading libaaautil.dll", "Sending the async event to wakeup",
                                         "AAA lib Thread about to exit", "Thread join of libaaautil.dll 0",
                                         "Done with sysdb con close"}));
}

TEST_F(Unload, RightAfterLoadJoinsTheWorkerWhereverItIs) {
    for (int i = 0; i < 200; ++i) {
        load();
        unload();
        ASSERT_TRUE(fake::sysdb::open_connections().empty());
        ASSERT_EQ(fake::traces_of(0).back(), "Done with sysdb con close");
        fake::reset();
    }
}

TEST_F(Unload, AHandleBecomesZeroAfterItsConnectionIsClosed) {
    load_running();
    const uint64_t map = value(map_handle);
    const uint64_t cfg = value(cfg_handle);
    std::vector<std::pair<uint64_t, uint64_t>> seen;
    fake::before("_sysdb_unbind", [&] { seen.emplace_back(value(map_handle), value(cfg_handle)); });
    unload();
    EXPECT_EQ(seen, (std::vector<std::pair<uint64_t, uint64_t>>{{map, cfg}, {0, cfg}}));
}

TEST_F(Unload, UnbindsOnlyWhatIsBound) {
    fake::answer("_sysdb_bind", 0x77, 1);
    load_running();
    unload();
    EXPECT_EQ(fake::calls("_sysdb_unbind"), (Lines{"_sysdb_unbind(/cfg/gl/aaa/)"}));
}

TEST_F(Unload, IgnoresFailedUnbinds) {
    load_running();
    fake::answer("_sysdb_unbind", 0x55);
    const Lines calls = unload_calls();
    EXPECT_EQ(fake::calls("_sysdb_unbind").size(), 2u);
    EXPECT_EQ(calls.back(), "aaa_debug_cleanup()");
}

// The worker's code was unmapped while the worker ran.
TEST_F(Unload, WithNoDllmainSetSinceTheLoadEndsTheWorkerAndNothingElse) {
    load_running();
    setenv("NO_DLLMAIN", "1", 1);
    const unsigned joins = sabotage().joins;
    EXPECT_EQ(unload_calls(),
              (Lines{"__in_dlclose()", "event_send_async(ptr, 77, 0)", "qm_event_dispatch(ptr, 0)"}));
    EXPECT_EQ(sabotage().joins, joins + 1);
    EXPECT_EQ(fake::traces_of(0), Lines{"AAA lib Thread about to exit"});
    EXPECT_EQ(fake::sysdb::open_connections(), (Lines{kMapPath, kCfgPath}));
}

TEST_F(WorkerWithoutBuffer, IsJoinedWithNoDllmainSetSinceTheLoad) {
    setenv("NO_DLLMAIN", "1", 1);
    const unsigned joins = sabotage().joins;
    EXPECT_EQ(unload_calls(), Lines{"__in_dlclose()"});
    EXPECT_EQ(sabotage().joins, joins + 1);
    EXPECT_EQ(fake::traces_of(0), Lines{});
}

TEST_F(LoadDeathTest, WithNoDllmainSetSinceTheLoadAProcessExitsAsItDoesWithoutIt) {
    const auto run_to_the_end = [this] {
        load_running();
        setenv("NO_DLLMAIN", "1", 1);
        fake::before("event_send_async", [] { _exit(3); });
        std::exit(0);
    };
    EXPECT_EXIT(run_to_the_end(), testing::ExitedWithCode(0), "");
}

TEST_F(LoadDeathTest, ProcessExitRunsNoUnload) {
    // Exits with 0 only when the unload hook asked, was told of the exit, and did nothing more.
    const auto run_to_the_end = [this] {
        load_running();
        for (const char *const step : {"event_send_async", "_sysdb_unbind", "aaa_debug_cleanup"}) {
            fake::before(step, [] { _exit(3); });
        }
        fake::before("__in_dlclose", [] { std::cerr << "asked" << std::endl; });
        std::exit(0);
    };
    EXPECT_EXIT(run_to_the_end(), testing::ExitedWithCode(0), "asked");
}

// The worker was detached, and its next event made it execute code that was not mapped.
TEST_F(LoadDeathTest, WithNoDllmainSetSinceTheLoadAWorkerThatCannotBeWokenEndsWithItsEventManager) {
    const auto unloaded = [this] {
        load_running();
        setenv("NO_DLLMAIN", "1", 1);
        fake::answer("event_send_async", 0xFFFFFFFF);
        const unsigned joins = sabotage().joins;
        EXPECT_EQ(unload_calls(),
                  (Lines{"__in_dlclose()", "event_send_async(ptr, 77, 0)", "event_manager_destroy(ptr)"}));
        EXPECT_EQ(sabotage().joins, joins + 1);
        EXPECT_EQ(fake::traces_of(0), Lines{"AAA lib Thread about to exit"});
        return !HasFailure();
    };
    EXPECT_EXIT(_exit(unloaded() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST_F(LoadDeathTest, UnloadWithoutWakeUpDetachesAndCloses) {
    const auto detached = [this] {
        load_running();
        fake::answer("event_send_async", 0xFFFFFFFF);
        const Lines calls = unload_calls();
        const Lines expected = {"__in_dlclose()", "event_send_async(ptr, 77, 0)",
                                "_sysdb_unbind(/oper/aaa/gl/group-server/)", "_sysdb_unbind(/cfg/gl/aaa/)",
                                "aaa_debug_cleanup()"};
        const Lines traces = {"Unloading libaaautil.dll", "Sending the async event to wakeup",
                              "Async event failed", "Done with sysdb con close"};
        EXPECT_EQ(calls, expected);
        EXPECT_EQ(fake::traces_of(0), traces);
        return !HasFailure();
    };
    // In a separate process: the worker stays in event_block.
    EXPECT_EXIT(_exit(detached() ? 0 : 1), testing::ExitedWithCode(0), "");
}

}  // namespace
