// SPDX-License-Identifier: Apache-2.0
//
// Tests that load the library themselves, with its worker thread at work. A test
// program hands in the library's path.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "testkit/fake_platform.hpp"

namespace lifecycle {

using Lines = std::vector<std::string>;

inline constexpr char kMapPath[] = "/oper/aaa/gl/group-server/";
inline constexpr char kCfgPath[] = "/cfg/gl/aaa/";

class LoadedLibrary : public testing::Test {
  protected:
    explicit LoadedLibrary(const char *path) : path_(path) {}

    void SetUp() override {
        unsetenv("NO_DLLMAIN");
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
        before_load();
        library_ = dlopen(path_, RTLD_LAZY | RTLD_LOCAL);
        after_load();
        ASSERT_NE(library_, nullptr) << dlerror();
        map_handle = static_cast<uint64_t *>(dlsym(library_, "aaa_sgmap_sysdb_connid"));
        cfg_handle = static_cast<uint64_t *>(dlsym(library_, "aaa_cfg_sysdb_connid"));
        ASSERT_NE(map_handle, nullptr);
        ASSERT_NE(cfg_handle, nullptr);
    }

    virtual void before_load() {}
    virtual void after_load() {}

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
        EXPECT_EQ(dlopen(path_, RTLD_LAZY | RTLD_NOLOAD), nullptr) << "the library is still there";
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
    const char *path_;

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

inline const Lines kOneConnection = {"event_conn_create(ptr, ptr, ptr, 2)",
                                     "event_conn_notify(ptr, 24576, ptr)", "event_conn_open(ptr)"};

inline Lines operator+(Lines a, const Lines &b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

}  // namespace lifecycle
