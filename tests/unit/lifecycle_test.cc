// SPDX-License-Identifier: Apache-2.0
//
// Load, unload, the worker thread and the database connections, driven by
// the scripted platform. This program is not linked with the library: each
// test loads it, and sees what the loader's hooks do.

#include "aaa/lifecycle.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <mutex>
#include <semaphore>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/node.h"
#include "support/fail_alloc.hpp"
#include "testkit/fake_platform.hpp"

namespace {

using Lines = std::vector<std::string>;

constexpr char kMapPath[] = "/oper/aaa/gl/group-server/";
constexpr char kCfgPath[] = "/cfg/gl/aaa/";

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

class LifecycleTest : public testing::Test {
  protected:
    void SetUp() override {
        unsetenv("NO_DLLMAIN");
        Sabotage &s = sabotage();
        s.mutexattr_init = s.mutex_init = s.sigemptyset = s.sigmask = s.sigaddset = 0;
        s.sigaddset_at = s.sigaddset_calls = 0;
        s.settypes.clear();
        s.added_signals.clear();
        fake::events::on_block([this](event_block_ctx_t *ctx) { at_block(ctx); });
        pthread_sigmask(SIG_BLOCK, nullptr, &mask_before_);
    }

    void TearDown() override {
        unload();
        setenv("NO_DLLMAIN", "1", 1);
        pthread_sigmask(SIG_SETMASK, &mask_before_, nullptr);
    }

    void load() {
        ASSERT_EQ(library_, nullptr);
        sabotage().watching = true;
        library_ = dlopen(AAAUTIL_LIBRARY, RTLD_LAZY | RTLD_LOCAL);
        sabotage().watching = false;
        ASSERT_NE(library_, nullptr) << dlerror();
        map_handle = static_cast<uint64_t *>(dlsym(library_, "aaa_sgmap_sysdb_connid"));
        cfg_handle = static_cast<uint64_t *>(dlsym(library_, "aaa_cfg_sysdb_connid"));
        ASSERT_NE(map_handle, nullptr);
        ASSERT_NE(cfg_handle, nullptr);
    }

    // Loads and waits until the worker is in its event loop.
    void load_running() {
        load();
        wait_for_block(1);
    }

    void unload() {
        if (library_ == nullptr) {
            return;
        }
        if (dl_close_answer_) {
            fake::answer("__in_dlclose", 1);
        }
        void *const was = std::exchange(library_, nullptr);
        EXPECT_EQ(dlclose(was), 0);
        EXPECT_EQ(dlopen(AAAUTIL_LIBRARY, RTLD_LAZY | RTLD_NOLOAD), nullptr) << "the library is still there";
    }

    // The journal from the unload on.
    Lines unload_calls() {
        fake::clear_journal();
        unload();
        return fake::calls();
    }

    void wait_for_block(unsigned n) {
        std::unique_lock lock(mutex_);
        blocked_.wait(lock, [&] { return blocks_ >= n; });
    }

    fake::events::Connection connection(std::size_t i) { return fake::events::connections().at(i); }
    int32_t up(std::size_t i) { return connection(i).up(connection(i).handle, connection(i).context); }
    int32_t down(std::size_t i) { return connection(i).down(connection(i).handle, connection(i).context); }
    static uint64_t value(const uint64_t *handle) { return __atomic_load_n(handle, __ATOMIC_SEQ_CST); }

    void *library_ = nullptr;
    bool dl_close_answer_ = true;
    uint64_t *map_handle = nullptr;
    uint64_t *cfg_handle = nullptr;
    event_block_ctx_t first_ctx{};
    std::string worker_name;
    sigset_t worker_mask{};

  private:
    void at_block(event_block_ctx_t *ctx) {
        const std::lock_guard lock(mutex_);
        if (++blocks_ == 1) {
            first_ctx = *ctx;
            char name[16];
            pthread_getname_np(pthread_self(), name, sizeof name);
            worker_name = name;
            pthread_sigmask(SIG_BLOCK, nullptr, &worker_mask);
        }
        blocked_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable blocked_;
    unsigned blocks_ = 0;
    sigset_t mask_before_{};
};

using Load = LifecycleTest;
using Unload = LifecycleTest;
using Worker = LifecycleTest;
using Callbacks = LifecycleTest;
using Lock = LifecycleTest;

const Lines kOneConnection = {"event_conn_create(ptr, ptr, ptr, 2)", "event_conn_notify(ptr, 24576, ptr)",
                              "event_conn_open(ptr)"};

Lines operator+(Lines a, const Lines &b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

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

// Its handle is cleared by the time that its thread is gone.
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

// Unload joins it without a word.
TEST_F(Worker, EndsWhenItHasNoBuffer) {
    if (!fake::FailAlloc::available()) {
        GTEST_SKIP();
    }
    // The worker clears its handle when it ends; the load must have stored it by then.
    std::binary_semaphore loaded(0);
    // The buffer is the first allocation after the second connection is open.
    fake::before("event_conn_open", [&loaded] {
        if (fake::count("event_conn_open") == 2) {
            loaded.acquire();
            fail_alloc_arm(1, 0);
        }
    });
    load();
    loaded.release();
    while (fake::traces_of(0).back() != "AAA lib Thread about to exit" || worker_is_there()) {
        std::this_thread::yield();
    }
    EXPECT_EQ(fake::count("event_block"), 0u);
    fake::clear_journal();
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
// sent. It has cleared its handle then, and is joined all the same.
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
    // In a process of its own: the worker stays in event_block for good.
    EXPECT_EXIT(_exit(detached() ? 0 : 1), testing::ExitedWithCode(0), "");
}

// ---- Connection callbacks ----

TEST_F(Callbacks, KeepAConnectionThatIsThere) {
    load_running();
    const uint64_t before = value(map_handle);
    fake::clear_journal();
    EXPECT_EQ(up(0), connection(0).channel);
    EXPECT_EQ(value(map_handle), before);
    EXPECT_EQ(fake::calls(), (Lines{"sysdb_conn_to_coid(/oper/aaa/gl/group-server/)"}));
    EXPECT_EQ(fake::traces_of(0), (Lines{"Done with sgmap sysdb con init"}));
    fake::clear_journal();
    EXPECT_EQ(up(1), connection(1).channel);
    EXPECT_EQ(fake::calls(), (Lines{"sysdb_conn_to_coid(/cfg/gl/aaa/)"}));
}

TEST_F(Callbacks, DownUnbindsAndUpBindsAgain) {
    load_running();
    fake::clear_journal();
    down(0);
    EXPECT_EQ(value(map_handle), 0u);
    EXPECT_NE(value(cfg_handle), 0u);
    down(1);
    EXPECT_EQ(value(cfg_handle), 0u);
    EXPECT_EQ(fake::calls(),
              (Lines{"_sysdb_unbind(/oper/aaa/gl/group-server/)", "_sysdb_unbind(/cfg/gl/aaa/)"}));
    EXPECT_EQ(fake::traces_of(0),
              (Lines{"Done with sgmap sysdb con close", "Done with cfg sysdb con close"}));
    EXPECT_GE(up(0), 0);
    EXPECT_GE(up(1), 0);
    EXPECT_EQ(fake::sysdb::open_connections(), (Lines{kMapPath, kCfgPath}));
}

// The handle says "connected" until the connection has been closed.
TEST_F(Callbacks, AHandleBecomesZeroAfterItsConnectionIsClosed) {
    load_running();
    const uint64_t map = value(map_handle);
    const uint64_t cfg = value(cfg_handle);
    std::vector<std::pair<uint64_t, uint64_t>> seen;
    fake::before("_sysdb_unbind", [&] { seen.emplace_back(value(map_handle), value(cfg_handle)); });
    down(0);
    fake::answer("sysdb_conn_to_coid", 0x33, 1);
    EXPECT_EQ(up(1), -1);
    EXPECT_EQ(seen, (std::vector<std::pair<uint64_t, uint64_t>>{{map, cfg}, {0, cfg}}));
    EXPECT_EQ(value(map_handle), 0u);
    EXPECT_EQ(value(cfg_handle), 0u);
}

TEST_F(Callbacks, AHandleIsThereWhileThePresenceOfTheDatabaseIsChecked) {
    fake::sysdb::set_present(false);
    load_running();
    __atomic_store_n(map_handle, uint64_t{4711}, __ATOMIC_SEQ_CST);
    uint64_t seen = 0;
    fake::before("access", [&] { seen = value(map_handle); });
    down(0);
    EXPECT_EQ(seen, 4711u);
    EXPECT_EQ(value(map_handle), 0u);
}

TEST_F(Callbacks, DownWithoutAConnectionUnbindsNothing) {
    load_running();
    down(0);
    fake::clear_journal();
    down(0);
    EXPECT_TRUE(fake::calls().empty());
    EXPECT_EQ(fake::traces_of(0), (Lines{"Done with sgmap sysdb con close"}));
}

TEST_F(Callbacks, WithoutTheDatabaseStayDownUntilItIsThere) {
    fake::sysdb::set_present(false);
    load_running();
    EXPECT_EQ(fake::count("_sysdb_bind"), 0u);
    EXPECT_EQ(value(map_handle), 0u);
    EXPECT_EQ(value(cfg_handle), 0u);
    EXPECT_EQ(connection(0).channel, -1);
    EXPECT_EQ(up(1), -1);
    EXPECT_EQ(fake::count("access"), 3u);
    fake::sysdb::set_present(true);
    EXPECT_GE(up(1), 0);
    EXPECT_NE(value(cfg_handle), 0u);
    // Known for good now: the file is not looked at any more.
    fake::sysdb::set_present(false);
    EXPECT_GE(up(0), 0);
    EXPECT_EQ(fake::count("access"), 4u);
}

TEST_F(Callbacks, WithoutTheDatabaseForgetAConnectionUnclosed) {
    fake::sysdb::set_present(false);
    load_running();
    __atomic_store_n(map_handle, uint64_t{4711}, __ATOMIC_SEQ_CST);
    down(0);
    EXPECT_EQ(value(map_handle), 0u);
    EXPECT_EQ(fake::count("_sysdb_unbind"), 0u);
    // Likewise when the channel of a bound connection cannot be had.
    __atomic_store_n(cfg_handle, uint64_t{4711}, __ATOMIC_SEQ_CST);
    fake::answer("sysdb_conn_to_coid", 0x11, 1);
    EXPECT_EQ(up(1), -1);
    EXPECT_EQ(value(cfg_handle), 0u);
    EXPECT_EQ(fake::count("_sysdb_unbind"), 0u);
}

TEST_F(Callbacks, FailedBindIsTriedAgainNextTime) {
    fake::answer("_sysdb_bind", 0x33, 2);
    load_running();
    EXPECT_EQ(connection(0).channel, -1);
    EXPECT_EQ(fake::count("sysdb_conn_to_coid"), 0u);
    EXPECT_GE(up(0), 0);
    EXPECT_NE(value(map_handle), 0u);
}

TEST_F(Callbacks, ConnectionWithoutAChannelIsClosed) {
    fake::answer("sysdb_conn_to_coid", 0x33, 2);
    load_running();
    EXPECT_EQ(connection(0).channel, -1);
    EXPECT_EQ(connection(1).channel, -1);
    EXPECT_EQ(value(map_handle), 0u);
    EXPECT_EQ(value(cfg_handle), 0u);
    EXPECT_EQ(fake::calls("_sysdb_unbind"),
              (Lines{"_sysdb_unbind(/oper/aaa/gl/group-server/)", "_sysdb_unbind(/cfg/gl/aaa/)"}));
    EXPECT_EQ(fake::traces_of(0), (Lines{"Done with lib util sysdb con mutex init",
                                         "Done with sgmap sysdb con init", "Done with cfg sysdb con init"}));
}

// ---- The mutex ----

// A thread that holds the connection mutex: it is inside _sysdb_bind, called
// by the configuration's up callback, until let go.
class Holder {
  public:
    explicit Holder(std::function<int32_t()> up) {
        fake::before("_sysdb_bind", [this] { hold(); });
        thread_ = std::thread([up] { up(); });
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return held_; });
    }
    ~Holder() {
        release();
        thread_.join();
        fake::before("_sysdb_bind", nullptr);
    }
    void release() {
        const std::lock_guard lock(mutex_);
        released_ = true;
        changed_.notify_all();
    }

  private:
    void hold() {
        std::unique_lock lock(mutex_);
        held_ = true;
        changed_.notify_all();
        changed_.wait(lock, [this] { return released_; });
    }
    std::mutex mutex_;
    std::condition_variable changed_;
    bool held_ = false, released_ = false;
    std::thread thread_;
};

TEST_F(Lock, WaitersAnnounceThemselves) {
    load_running();
    struct Case {
        std::function<void()> call;
        const char *name;
    };
    const Case cases[] = {{[this] { up(0); }, "aaa_util_sgmap_lib_sysdb_init"},
                          {[this] { down(0); }, "aaa_util_lib_sgmap_sysdb_shutdown"},
                          {[this] { up(1); }, "aaa_util_cfg_lib_sysdb_init"},
                          {[this] { down(1); }, "aaa_util_lib_cfg_sysdb_shutdown"}};
    for (const Case &waiting : cases) {
        down(1);
        Holder holder([this] { return up(1); });
        fake::before("ptd_set_mutex_block", [&] { holder.release(); });
        fake::clear_journal();
        waiting.call();
        EXPECT_EQ(fake::calls({"ptd_set_mutex_block", "ptd_unset_mutex_block"}),
                  (Lines{"ptd_set_mutex_block(ptr, \"" + std::string(waiting.name) + "\")",
                         "ptd_unset_mutex_block()"}));
    }
}

TEST_F(Lock, FreeMutexIsTakenSilently) {
    load_running();
    EXPECT_EQ(fake::count("ptd_set_mutex_block"), 0u);
    EXPECT_EQ(fake::count("ptd_unset_mutex_block"), 0u);
}

// A thread that already holds the mutex is refused it: the mutex checks.
TEST_F(Lock, FailureIsTracedAndNothingIsDone) {
    load_running();
    struct Case {
        std::function<int32_t()> call;
        const char *text;
        bool up;
    };
    const Case cases[] = {{[this] { return up(0); }, "Mutex lock failed sgmap sysdb con init", true},
                          {[this] { return down(0); }, "Mutex lock failed sgmap sysdb con close", false},
                          {[this] { return up(1); }, "Mutex lock failed cfg sysdb con init", true},
                          {[this] { return down(1); }, "Mutex lock failed cfg sysdb con close", false}};
    for (const Case &refused : cases) {
        down(1);
        const uint64_t map_before = value(map_handle);
        fake::clear_journal();
        int32_t result = 7;
        fake::before("_sysdb_bind", [&] { result = refused.call(); });
        up(1);
        fake::before("_sysdb_bind", nullptr);
        if (refused.up) {
            EXPECT_EQ(result, -1);
        }
        EXPECT_EQ(value(map_handle), map_before);
        EXPECT_EQ(fake::traces_of(0), (Lines{refused.text, "Done with cfg sysdb con init"}));
        EXPECT_EQ(fake::calls({"ptd_set_mutex_block", "ptd_unset_mutex_block"}).size(), 2u);
    }
}

TEST_F(Lock, FailedUnlockIsTraced) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the thread sanitizer reports the extra unlock that this test makes";
#endif
    load_running();
    down(1);
    // Learn which mutex it is by waiting for it, then release it behind the library's back.
    fake::before("_sysdb_bind", [this] { up(0); });
    up(1);
    fake::before("_sysdb_bind", nullptr);
    pthread_mutex_t *const mutex = fake::awaited_mutex();
    ASSERT_NE(mutex, nullptr);

    const auto release = [mutex] { pthread_mutex_unlock(mutex); };
    fake::before("_sysdb_unbind", release);
    fake::before("sysdb_conn_to_coid", release);
    fake::clear_journal();
    up(0);
    up(1);
    down(0);
    down(1);
    EXPECT_EQ(fake::traces_of(0),
              (Lines{"Mutex unlock failed for sgmap sysdb con init", "Done with sgmap sysdb con init",
                     "Mutex unlock failed for cfg sysdb con init", "Done with cfg sysdb con init",
                     "Mutex unlock failed for sgmap sysdb con close", "Done with sgmap sysdb con close",
                     "Mutex unlock failed for cfg sysdb con close", "Done with cfg sysdb con close"}));
    fake::before("sysdb_conn_to_coid", nullptr);
    fake::before("_sysdb_unbind", nullptr);
    up(0);
    fake::before("_sysdb_unbind", release);
    fake::clear_journal();
    unload();
    const Lines traces = fake::traces_of(0);
    ASSERT_GE(traces.size(), 2u);
    EXPECT_EQ(Lines(traces.end() - 2, traces.end()),
              (Lines{"Mutex unlock failed for sysdb con close", "Done with sysdb con close"}));
}

// ---- Exported helpers ----

class Helpers : public LifecycleTest {
  protected:
    using Open = cerrno (*)(void *, void **, aaa_event_cb_t, aaa_event_cb_t, void *);

    void SetUp() override {
        LifecycleTest::SetUp();
        setenv("NO_DLLMAIN", "1", 1);
        load();
        sysdb_conn = reinterpret_cast<Open>(dlsym(library_, "aaa_util_ecm_sysdb_conn"));
        fd_conn = reinterpret_cast<Open>(dlsym(library_, "aaa_util_ecm_fd_conn"));
        ASSERT_NE(sysdb_conn, nullptr);
        ASSERT_NE(fd_conn, nullptr);
    }

    static int32_t channel(void *, void *ctx) { return *static_cast<int32_t *>(ctx); }
    static int32_t other(void *, void *) { return 0; }

    Open sysdb_conn = nullptr;
    Open fd_conn = nullptr;
    void *evm = fake::events::manager();
    void *conn = nullptr;
    int32_t number = 9;
};

TEST_F(Helpers, RefuseNullArguments) {
    for (const Open open : {sysdb_conn, fd_conn}) {
        EXPECT_EQ(open(nullptr, &conn, channel, other, &number), AAA_ERR_INVALID_ARG);
        EXPECT_EQ(open(evm, nullptr, channel, other, &number), AAA_ERR_INVALID_ARG);
        EXPECT_EQ(open(nullptr, nullptr, nullptr, nullptr, nullptr), AAA_ERR_INVALID_ARG);
    }
    EXPECT_TRUE(fake::calls().empty());
    EXPECT_EQ(conn, nullptr);
}

TEST_F(Helpers, OpenADatabaseConnection) {
    EXPECT_EQ(sysdb_conn(evm, &conn, channel, other, &number), AAA_OK);
    EXPECT_EQ(fake::calls(), kOneConnection);
    const auto made = connection(0);
    EXPECT_EQ(made.handle, conn);
    EXPECT_EQ(made.up, &channel);
    EXPECT_EQ(made.down, &other);
    EXPECT_EQ(made.context, &number);
    EXPECT_EQ(made.channel, 9);
}

TEST_F(Helpers, OpenADescriptorConnection) {
    EXPECT_EQ(fd_conn(evm, &conn, channel, other, &number), AAA_OK);
    EXPECT_EQ(fake::calls(), (Lines{"event_conn_create(ptr, ptr, ptr, 3)",
                                    "event_conn_evm_handler(ptr, 1, ptr, null)", "event_conn_open(ptr)"}));
    EXPECT_EQ(connection(0).handler, &other);
    EXPECT_EQ(connection(0).down, nullptr);
    EXPECT_EQ(connection(0).channel, 9);
}

TEST_F(Helpers, PassOnTheFirstFailure) {
    const Lines steps[] = {{"event_conn_create", "event_conn_notify", "event_conn_open"},
                           {"event_conn_create", "event_conn_evm_handler", "event_conn_open"}};
    const Open open[] = {sysdb_conn, fd_conn};
    for (std::size_t variant = 0; variant < 2; ++variant) {
        for (std::size_t failing = 0; failing < 3; ++failing) {
            fake::reset();
            fake::answer(steps[variant][failing], 0x41);
            EXPECT_EQ(open[variant](evm, &conn, channel, other, &number), 0x41u);
            for (std::size_t step = 0; step < 3; ++step) {
                EXPECT_EQ(fake::count(steps[variant][step]), step <= failing ? 1u : 0u)
                    << steps[variant][step];
            }
            EXPECT_TRUE(fake::logs().empty());
            EXPECT_TRUE(fake::traces().empty());
        }
    }
}

TEST_F(Helpers, DatabaseConnectionIsRetriedWhicheverStepSaysSo) {
    for (const char *const step : {"event_conn_create", "event_conn_notify", "event_conn_open"}) {
        fake::reset();
        fake::answer(step, EVENT_CONN_RETRY);
        EXPECT_EQ(sysdb_conn(evm, &conn, channel, other, &number), AAA_OK);
        EXPECT_EQ(fake::traces(), (std::vector<fake::Trace>{{5, "SysDB connection error retry 555748864"}}));
        EXPECT_TRUE(fake::logs().empty());
    }
}

TEST_F(Helpers, DescriptorConnectionIsRetriedOnlyWhenOpened) {
    for (const char *const step : {"event_conn_create", "event_conn_evm_handler"}) {
        fake::reset();
        fake::answer(step, EVENT_CONN_RETRY);
        EXPECT_EQ(fd_conn(evm, &conn, channel, other, &number), EVENT_CONN_RETRY);
        EXPECT_TRUE(fake::logs().empty());
    }
    fake::reset();
    fake::answer("event_conn_open", EVENT_CONN_RETRY);
    EXPECT_EQ(fd_conn(evm, &conn, channel, other, &number), AAA_OK);
    ASSERT_EQ(fake::logs().size(), 1u);
    EXPECT_EQ(fake::logs()[0].severity, 7u);
    EXPECT_EQ(fake::logs()[0].record, dlsym(library_, "kel_msg_rec_aaa_err_ecm"));
    EXPECT_EQ(fake::logs()[0].text,
              "Failed to open event connection for a file descriptor: code 0x21200e00, retrying");
    EXPECT_TRUE(fake::traces().empty());
}

}  // namespace
