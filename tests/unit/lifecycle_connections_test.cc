// SPDX-License-Identifier: Apache-2.0
//
// The two database connections that the worker keeps open, and the exported helpers
// that put connections on an event manager. This program is not linked with the
// library: each test loads it.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "aaa/lifecycle.h"
#include "aaa/result_codes.h"
#include "support/loaded_library.hpp"
#include "testkit/fake_platform.hpp"

namespace {

using namespace lifecycle;

class ConnectionTest : public LoadedLibrary {
  protected:
    ConnectionTest() : LoadedLibrary(AAAUTIL_LIBRARY) {}
};

using Callbacks = ConnectionTest;
using Lock = ConnectionTest;

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
    // Remembered now: the file is not looked for any more.
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
    // Learn which mutex it is by waiting for it, then release it without the library.
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

class Helpers : public ConnectionTest {
  protected:
    using Open = cerrno (*)(void *, void **, aaa_event_cb_t, aaa_event_cb_t, void *);

    void SetUp() override {
        ConnectionTest::SetUp();
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
