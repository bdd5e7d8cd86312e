// SPDX-License-Identifier: Apache-2.0
//
// Finding the provider: absent, unfit, appearing later, used by many threads at
// once, and while the library that uses it is being unloaded. A process looks up
// the provider's path only once, so every test has its own process.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/control.h"
#include "platform/sysdb_changes.h"
#include "support/sysdb.hpp"

namespace {

namespace fs = std::filesystem;

#define EXPECT_HAS(text, part) EXPECT_NE(std::string::npos, (text).find(part)) << "in: " << (text)

const char *real_provider() {
    static const std::string path = std::getenv("AAA_SYSDB_PROVIDER");
    return path.c_str();
}

std::atomic<time_t> g_wall_clock_offset{0};

}  // namespace

// The time that the platform reads. Waits of the kernel use the real clocks.
extern "C" int clock_gettime(clockid_t clock, struct timespec *now) {
    const auto rc = static_cast<int>(syscall(SYS_clock_gettime, clock, now));
    if (clock == CLOCK_REALTIME) {
        now->tv_sec += g_wall_clock_offset.load();
    }
    return rc;
}

namespace {

class SysdbLoader : public ::testing::Test {
  protected:
    SysdbLoader() : place_(sandbox_.root() + "/libsysdb.so") { real_provider(); }

    // A forked process that looks for its provider at place().
    std::string run(const std::function<void()> &body) {
        return run_forked([&] {
            setenv("AAA_SYSDB_PROVIDER", place_.c_str(), 1);
            body();
        });
    }
    const std::string &place() const { return place_; }

    // As a package does: written under another name, then renamed.
    void install(const std::string &from) const {
        fs::copy_file(from, place_ + ".new", fs::copy_options::overwrite_existing);
        fs::rename(place_ + ".new", place_);
    }

  private:
    const DatabaseSandbox sandbox_;
    const std::string place_;
};

int threads_now() {
    int count = 0;
    for ([[maybe_unused]] const auto &task : fs::directory_iterator("/proc/self/task")) {
        ++count;
    }
    return count;
}

TEST_F(SysdbLoader, AbsentProviderIsACodeAndCostsNoThread) {
    const std::string log = run([] {
        const int before = threads_now();
        for (int i = 0; i < 1000; ++i) {
            sysdb_conn_t conn = 0;
            ASSERT_EQ(SYSDB_ERR_LIB_ABSENT, _sysdb_bind(&conn, "/cfg/", 0));
            ASSERT_EQ(0u, conn);
        }
        EXPECT_EQ(before, threads_now());
    });
    EXPECT_EQ("", log);  // running without a database is allowed
}

std::string fault() {
    char text[1024] = "unset";
    const uint32_t length = aaa_platform_sysdb_fault(text, sizeof text);
    EXPECT_EQ(length, std::strlen(text));
    return text;
}

TEST_F(SysdbLoader, SaysWhyThereIsNone) {
    run([this] {
        sysdb_conn_t conn = 0;
        const std::string named = "AAA_SYSDB_PROVIDER names " + place() + ": ";
        EXPECT_EQ(fault(), named + "No such file or directory");
        char cut[8];
        EXPECT_EQ(aaa_platform_sysdb_fault(cut, sizeof cut), fault().size());
        EXPECT_STREQ(cut, "AAA_SYS");
        EXPECT_EQ(aaa_platform_sysdb_fault(nullptr, 0), fault().size());
        std::ofstream(place()) << "not an object";
        EXPECT_EQ(SYSDB_ERR_LIB_ABSENT, _sysdb_bind(&conn, "/cfg/", 0));
        EXPECT_HAS(fault(), named + "provider cannot be loaded: " + place() + ": ");
        fs::remove(place());
        EXPECT_EQ(fault(), named + "No such file or directory") << "what is so now";
        install(real_provider());
        EXPECT_EQ(0u, _sysdb_bind(&conn, "/cfg/", 0));
        EXPECT_EQ(fault(), "");
    });
    install(SYSDB_NO_ENTRY);
    run([this] {
        sysdb_conn_t conn = 0;
        EXPECT_EQ(SYSDB_ERR_LIB_ABSENT, _sysdb_bind(&conn, "/cfg/", 0));
        EXPECT_HAS(fault(), "names " + place() + ": " + place() + " is not a sysdb provider");
    });
}

TEST_F(SysdbLoader, ProviderThatAppearsLaterIsUsed) {
    run([this] {
        sysdb_conn_t conn = 0;
        EXPECT_EQ(SYSDB_ERR_LIB_ABSENT, _sysdb_bind(&conn, "/cfg/", 0));
        install(real_provider());
        EXPECT_EQ(0u, _sysdb_bind(&conn, "/cfg/", 0));
        EXPECT_EQ(0u, set_number(conn, "a", 1));
        // A loaded provider stays loaded even if its file is deleted.
        fs::remove(place());
        EXPECT_EQ(1, get_number(conn, "a"));
        EXPECT_EQ(0u, _sysdb_bind(&conn, "/cfg/", 0));
    });
}

TEST_F(SysdbLoader, FileThatIsNotAnObjectIsReportedAndTriedAgain) {
    std::ofstream(place()) << "not an object";
    const std::string log = run([this] {
        sysdb_conn_t conn = 0;
        EXPECT_EQ(SYSDB_ERR_LIB_ABSENT, _sysdb_bind(&conn, "/cfg/", 0));
        install(real_provider());
        EXPECT_EQ(0u, _sysdb_bind(&conn, "/cfg/", 0));
    });
    EXPECT_HAS(log, "cannot be loaded");
    EXPECT_HAS(log, place());
}

TEST_F(SysdbLoader, ProvidersThatDoNotFitAreRefused) {
    const std::pair<const char *, const char *> unfit[] = {
        {SYSDB_OTHER_ABI, "implements another version"},
        {SYSDB_SHORT_TABLE, "implements another version"},
        {SYSDB_NO_TABLE, "implements another version"},
        {SYSDB_NO_ENTRY, "is not a sysdb provider"},
    };
    for (const auto &[file, why] : unfit) {
        install(file);
        const std::string log = run([] {
            sysdb_conn_t conn = 0;
            EXPECT_EQ(SYSDB_ERR_LIB_ABSENT, _sysdb_bind(&conn, "/cfg/", 0));
            EXPECT_EQ(SYSDB_ERR_LIB_ABSENT, existence(1, "a"));
        });
        EXPECT_HAS(log, why);
        EXPECT_HAS(log, place());
    }
}

TEST_F(SysdbLoader, ManyThreadsMayAskFirst) {
    install(real_provider());
    const unsigned rounds = repetitions("AAA_SYSDB_LOADER_ROUNDS", 20);
    for (unsigned round = 0; round < rounds; ++round) {
        run([] {
            std::atomic<bool> go{false};
            std::vector<std::thread> threads;
            for (int i = 0; i < 8; ++i) {
                threads.emplace_back([&go] {
                    while (!go) {
                    }
                    EXPECT_EQ(0u, Bound("/cfg/").code());
                });
            }
            go = true;
            for (std::thread &thread : threads) {
                thread.join();
            }
        });
    }
}

TEST_F(SysdbLoader, ForkedChildMayBeTheFirstToAsk) {
    install(real_provider());
    run([] {
        ForkedProcess child([] { EXPECT_EQ(0u, Bound("/cfg/").code()); });
        EXPECT_EQ(0u, Bound("/cfg/").code());
        EXPECT_EQ(0, child.wait());
    });
}

// ---- while a library is being unloaded

struct Module {
    void *object = dlopen(LOADER_MODULE, RTLD_NOW);

    template <typename T>
    T *symbol(const char *name) const {
        return static_cast<T *>(dlsym(object, name));
    }
};

cerrno bind_code_at_unload;

void bind_during_an_unload() {
    Module module;
    ASSERT_NE(nullptr, module.object) << dlerror();
    fs::rename(std::string(std::getenv("AAA_SYSDB_PROVIDER")) + ".later", std::getenv("AAA_SYSDB_PROVIDER"));
    *module.symbol<int>("module_bind_at_unload") = 1;
    static cerrno *code = nullptr;
    code = module.symbol<cerrno>("module_bind_code");
    *module.symbol<void (*)(int)>("module_unloading") = [](int in_dlclose) {
        EXPECT_EQ(1, in_dlclose);
        bind_code_at_unload = *code;
    };
    ASSERT_EQ(0, dlclose(module.object));
    EXPECT_EQ(SYSDB_ERR_LIB_ABSENT, bind_code_at_unload);
    // Other libraries get the provider after the unload, without another load.
    while (Bound("/cfg/").code() != 0) {
        usleep(1000);
    }
}

TEST_F(SysdbLoader, BindDuringAnUnloadDoesNotWaitForTheLoader) {
    // The thread that unloads holds the loader's lock and joins the one that binds. The join must end
    // even though the provider cannot be loaded meanwhile; the provider is loaded afterwards.
    run([this] {
        fs::copy_file(real_provider(), place() + ".later");
        bind_during_an_unload();
    });
}

// The limit of that wait was a time of the wall clock: set back by an hour in between, it
// delayed the unload by an hour.
TEST_F(SysdbLoader, BindDuringAnUnloadDoesNotWaitForTheWallClock) {
    for (const time_t offset : {3600, -3600}) {
        run([this, offset] {
            fs::copy_file(real_provider(), place() + ".later", fs::copy_options::overwrite_existing);
            g_wall_clock_offset = offset;
            bind_during_an_unload();
        });
        fs::remove(place());
    }
}

TEST_F(SysdbLoader, LoadingALibraryLoadsTheProvider) {
    install(real_provider());
    run([this] {
        Module module;
        ASSERT_NE(nullptr, module.object) << dlerror();
        fs::remove(place());
        EXPECT_EQ(0u, Bound("/cfg/").code());
        EXPECT_EQ(0, dlclose(module.object));
    });
}

}  // namespace
