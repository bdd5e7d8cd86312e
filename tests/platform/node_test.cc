// SPDX-License-Identifier: Apache-2.0

#include "platform/node.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "child_process.hpp"
#include "platform/control.h"
#include "platform/task_table.h"
#include "temp_dir.hpp"

namespace {

constexpr cerrno kInvalidArg = 0xa2580200u;
constexpr cerrno kNoMemory = 0xa2580400u;
constexpr cerrno kNoTimezone = 0xa2580c00u;

// What the platform finds in the place of the two time zone files.
std::string g_timezone_file;
std::string g_localtime_link;

const ChildBodies kBodies = {
    {"line-card", [] { printf("%d %d\n", platform_am_i_lc(), platform_am_i_lc()); }},
    {"bad-task-table",
     [] {
         char other[64] = "something else entirely";
         aaa_destroy_task_table(other);
         printf("%s\n", other);
     }},
};

std::string line_card(const std::vector<std::string> &settings) {
    std::vector<std::string> all = {"AAA_LOG=stderr",
                                    "AAA_NODE_TYPE=", "AAA_NODE_CONF=/nonexistent/node.conf"};
    all.insert(all.end(), settings.begin(), settings.end());
    const ChildResult child = run_child("line-card", all);
    return child.out + child.err;
}

struct Timezone : testing::Test {
    TempDir dir;
    void SetUp() override {
        unsetenv("TZ");
        g_timezone_file = dir.path("no-timezone");
        g_localtime_link = dir.path("no-localtime");
    }
    void TearDown() override {
        unsetenv("TZ");
        g_timezone_file.clear();
        g_localtime_link.clear();
    }
    void set_file(const std::string &text) { g_timezone_file = dir.write("timezone", text, 0644); }
    void set_link(const std::string &target) {
        g_localtime_link = dir.path("localtime");
        ASSERT_EQ(0, symlink(target.c_str(), g_localtime_link.c_str()));
    }
    static std::string name(uint32_t size = 16) {
        char buffer[64];
        std::memset(buffer, 'x', sizeof buffer);
        const cerrno rc = conf_get_timezone_string(buffer, size);
        EXPECT_EQ('x', buffer[size]);
        return rc == 0 ? buffer : "failed";
    }
};

}  // namespace

// The time zone's files are the test's; everything else is the system's.
extern "C" int open(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (std::strcmp(path, "/etc/timezone") == 0) {
        path = g_timezone_file.c_str();
    }
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

extern "C" ssize_t readlink(const char *path, char *buffer, size_t size) {
    if (std::strcmp(path, "/etc/localtime") == 0) {
        path = g_localtime_link.c_str();
    }
    return syscall(SYS_readlinkat, AT_FDCWD, path, buffer, size);
}

// ---- node ------------------------------------------------------------------------

TEST(LineCard, IsNoneAtFirst) {
    EXPECT_EQ("0 0\n", line_card({}));
}

TEST(LineCard, IsToldByTheEnvironment) {
    EXPECT_EQ("1 1\n", line_card({"AAA_NODE_TYPE=line-card"}));
    EXPECT_EQ("0 0\n", line_card({"AAA_NODE_TYPE=route-processor"}));
}

TEST(LineCard, IsToldByTheFile) {
    const TempDir dir;
    EXPECT_EQ("1 1\n",
              line_card({"AAA_NODE_CONF=" + dir.write("a", "# this node\n\nnode-type\tline-card # yes\n")}));
    EXPECT_EQ("0 0\n", line_card({"AAA_NODE_CONF=" + dir.write("b", "node-type route-processor")}));
    EXPECT_EQ("0 0\n", line_card({"AAA_NODE_TYPE=route-processor",
                                  "AAA_NODE_CONF=" + dir.write("c", "node-type line-card\n")}));
}

TEST(LineCard, ReportsWhatItCannotUse) {
    const TempDir dir;
    EXPECT_EQ(
        "0 0\n%AAA-PLATFORM-4-BAD_SETTING : AAA_NODE_TYPE: node type \"lc\" is neither line-card nor "
        "route-processor; taking route-processor\n",
        line_card({"AAA_NODE_TYPE=lc"}));
    const std::string file = dir.write("a", "\ncolour blue\nnode-type line-card\n");
    EXPECT_EQ("1 1\n%AAA-PLATFORM-4-BAD_FILE : " + file +
                  ":2: expected \"node-type line-card\" or \"node-type "
                  "route-processor\"; the line is not used\n",
              line_card({"AAA_NODE_CONF=" + file}));
    const std::string open_file = dir.write("b", "node-type line-card\n", 0666);
    EXPECT_EQ("0 0\n%AAA-PLATFORM-3-BAD_FILE : " + open_file +
                  ": others than its owner (root or this user) may write "
                  "it; correct owner and mode; the file is not used\n",
              line_card({"AAA_NODE_CONF=" + open_file}));
}

// ---- time zone -------------------------------------------------------------------

TEST_F(Timezone, ComesFromTheEnvironmentFirst) {
    set_file("Asia/Tokyo\n");
    set_link("/usr/share/zoneinfo/Asia/Seoul");
    for (const char *tz : {"Europe/Berlin", ":Europe/Berlin", "/usr/share/zoneinfo/Europe/Berlin",
                           ":/usr/share/zoneinfo/Europe/Berlin"}) {
        const ScopedEnv env("TZ", tz);
        EXPECT_EQ("Europe/Berlin", name()) << tz;
    }
}

TEST_F(Timezone, ComesFromTheFileThenFromTheLink) {
    set_link("/usr/share/zoneinfo/Asia/Seoul");
    EXPECT_EQ("Asia/Seoul", name());
    set_file("Asia/Tokyo\n");
    EXPECT_EQ("Asia/Tokyo", name());
    const ScopedEnv empty("TZ", "");
    EXPECT_EQ("Asia/Tokyo", name()) << "an empty TZ is none";
}

TEST_F(Timezone, TakesARelativeLink) {
    set_link("../usr/share/zoneinfo/Etc/UTC");
    EXPECT_EQ("Etc/UTC", name());
}

TEST_F(Timezone, IsNeverCut) {
    const ScopedEnv env("TZ", "CET-1CEST-2,M3.5.0,M10.5.0/3");
    const std::string abbreviation = name();
    EXPECT_TRUE(abbreviation == "CET" || abbreviation == "CEST") << abbreviation;
}

TEST_F(Timezone, FitsWithItsTerminator) {
    const ScopedEnv env("TZ", "ABC-3");  // name and abbreviation differ
    EXPECT_EQ("ABC-3", name(6));
    EXPECT_EQ("ABC", name(5));
    EXPECT_EQ("ABC", name(4));
    EXPECT_EQ("failed", name(3));
}

TEST_F(Timezone, TakesNumericAbbreviations) {
    const ScopedEnv env("TZ", "<-03>3");
    EXPECT_EQ("-03", name());
}

TEST_F(Timezone, IgnoresFilesThatHoldNoName) {
    set_link("/usr/share/zoneinfo/Asia/Seoul");
    for (const char *text : {"", "\n", "Asia/To\x01kyo\n", "two words\n", "Asia/Tokyo; rm\n"}) {
        set_file(text);
        EXPECT_EQ("Asia/Seoul", name()) << text;
    }
}

TEST_F(Timezone, RefusesNullsAndKeepsErrno) {
    char buffer[16];
    EXPECT_EQ(kInvalidArg, conf_get_timezone_string(nullptr, 16));
    EXPECT_EQ(kInvalidArg, conf_get_timezone_string(buffer, 0));
    errno = EINTR;
    conf_get_timezone_string(buffer, 16);
    EXPECT_EQ(EINTR, errno);
    const ScopedEnv env("TZ", "ABC-3");
    EXPECT_EQ(kNoTimezone, conf_get_timezone_string(buffer, 2));
    EXPECT_STREQ("", buffer);
}

// ---- system calls ------------------------------------------------------------------

TEST(Gettid, IsTheCallingThreads) {
    EXPECT_EQ(getpid(), qm_gettid());
    std::thread([] { EXPECT_EQ(gettid(), qm_gettid()); }).join();
}

TEST(InetNtop, WritesBothFamilies) {
    char text[64];
    const unsigned char v4[4] = {192, 0, 2, 1};
    EXPECT_EQ(text, qm_inet_ntop(AF_INET, v4, text, 16));
    EXPECT_STREQ("192.0.2.1", text);
    in6_addr v6;
    inet_pton(AF_INET6, "2001:db8::1", &v6);
    EXPECT_EQ(text, qm_inet_ntop(AF_INET6, &v6, text, 46));
    EXPECT_STREQ("2001:db8::1", text);
}

TEST(InetNtop, KeepsTheLimit) {
    char text[64] = "";
    const unsigned char v4[4] = {255, 255, 255, 255};
    EXPECT_NE(nullptr, qm_inet_ntop(AF_INET, v4, text, 16));
    EXPECT_EQ(nullptr, qm_inet_ntop(AF_INET, v4, text, 15));
    EXPECT_EQ(ENOSPC, errno);
    EXPECT_EQ(nullptr, qm_inet_ntop(AF_INET, v4, text, 0));
    EXPECT_NE(nullptr, qm_inet_ntop(AF_INET, v4, text, SIZE_MAX));
}

TEST(InetNtop, RefusesNullsAndOtherFamilies) {
    char text[64];
    const unsigned char v4[4] = {1, 2, 3, 4};
    EXPECT_EQ(nullptr, qm_inet_ntop(AF_INET, nullptr, text, 16));
    EXPECT_EQ(nullptr, qm_inet_ntop(AF_INET, v4, nullptr, 16));
    EXPECT_EQ(nullptr, qm_inet_ntop(AF_UNIX, v4, text, 46));
    EXPECT_EQ(EAFNOSUPPORT, errno);
}

TEST(Close, Closes) {
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    EXPECT_EQ(0, qm_close(fds[0]));
    EXPECT_EQ(-1, fcntl(fds[0], F_GETFD));
    EXPECT_EQ(0, qm_close(fds[1]));
    EXPECT_EQ(-1, qm_close(-1));
    EXPECT_EQ(EBADF, errno);
}

// ---- task tables -------------------------------------------------------------------

TEST(TaskTable, GrantsPermissions) {
    aaa_task_table_t *table = aaa_task_table_create(2);
    ASSERT_NE(nullptr, table);
    EXPECT_EQ(0u, aaa_task_table_permissions(table, "bgp"));
    EXPECT_EQ(0u, aaa_task_table_grant(table, "bgp", AAA_TASK_READ));
    EXPECT_EQ(0u, aaa_task_table_grant(table, "ospf", AAA_TASK_DEBUG));
    EXPECT_EQ(0u, aaa_task_table_grant(table, "bgp", AAA_TASK_WRITE));
    EXPECT_EQ(AAA_TASK_READ | AAA_TASK_WRITE, aaa_task_table_permissions(table, "bgp"));
    EXPECT_EQ(AAA_TASK_DEBUG, aaa_task_table_permissions(table, "ospf"));
    EXPECT_EQ(kNoMemory, aaa_task_table_grant(table, "isis", AAA_TASK_READ));
    EXPECT_EQ(0u, aaa_task_table_permissions(table, "isis"));
    aaa_destroy_task_table(table);
}

TEST(TaskTable, RefusesBadArguments) {
    EXPECT_EQ(nullptr, aaa_task_table_create(0));
    EXPECT_EQ(nullptr, aaa_task_table_create(4097));
    aaa_task_table_t *table = aaa_task_table_create(4096);
    ASSERT_NE(nullptr, table);
    EXPECT_EQ(kInvalidArg, aaa_task_table_grant(nullptr, "bgp", 1));
    EXPECT_EQ(kInvalidArg, aaa_task_table_grant(table, nullptr, 1));
    EXPECT_EQ(kInvalidArg, aaa_task_table_grant(table, "", 1));
    EXPECT_EQ(kInvalidArg, aaa_task_table_grant(table, "bgp", 0x10));
    EXPECT_EQ(kInvalidArg, aaa_task_table_grant(table, std::string(32, 'a').c_str(), 1));
    EXPECT_EQ(0u, aaa_task_table_grant(table, std::string(31, 'a').c_str(), 1));
    EXPECT_EQ(0u, aaa_task_table_permissions(nullptr, "bgp"));
    EXPECT_EQ(0u, aaa_task_table_permissions(table, nullptr));
    aaa_destroy_task_table(table);
    aaa_destroy_task_table(nullptr);
}

TEST(TaskTable, OfAnotherKindIsLeftAlone) {
    const ChildResult child = run_child("bad-task-table", {"AAA_LOG=stderr"});
    EXPECT_EQ("something else entirely\n", child.out);
    EXPECT_EQ(
        "%AAA-PLATFORM-3-BAD_TASK_TABLE : A credential record carries a task table that this host did not "
        "make; "
        "it is not freed\n",
        child.err);
}

// ---- waiting threads ---------------------------------------------------------------

uint64_t monotonic_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

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

int main(int argc, char **argv) {
    if (run_child_body(kBodies)) {
        return 0;
    }
    testing::InitGoogleTest(&argc, argv);
    const int rc = RUN_ALL_TESTS();
    return rc;
}
