// SPDX-License-Identifier: Apache-2.0
//
// The time zone's name, from files that the test uses instead of the system's.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <string>

#include "platform/node.h"
#include "support/temp_dir.hpp"

namespace {

constexpr cerrno kInvalidArg = 0xa2580200u;
constexpr cerrno kNoTimezone = 0xa2580c00u;

// Read by the platform instead of the two files of the time zone.
std::string g_timezone_file;
std::string g_localtime_link;

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
