// SPDX-License-Identifier: Apache-2.0
//
// Configuration files: words and lines, and files that are not used, because they
// decide how users are authenticated. The rows of lines.conf show what was read.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "log_socket.hpp"
#include "open_files.hpp"
#include "platform/control.h"
#include "platform/terminal.h"
#include "support/machine.hpp"
#include "support/temp_dir.hpp"
#include "support/terminal_process.hpp"

namespace {

constexpr cerrno kUnusable = 0xa2571600u;
constexpr std::size_t kMaxSize = 16384;

struct ConfigFile : testing::Test {
    TempDir dir;
    void SetUp() override { g_log->take(); }

    // "NUMBER=PATTERN:LIST" of each row, with "!" if it is defective; "unusable" instead.
    static std::string rows_at(const std::string &path) {
        const ScopedEnv env("AAA_LINES_CONF", path);
        std::string rows;
        const auto visit = [](const aaa_platform_line_rule_t *rule, void *to) -> int32_t {
            auto &text = *static_cast<std::string *>(to);
            text += (text.empty() ? "" : " ") + std::to_string(rule->number) + "=" + rule->pattern + ":" +
                    (rule->list_name != nullptr ? rule->list_name : "") +
                    (rule->defect != nullptr ? "!" : "");
            return 0;
        };
        const cerrno rc = aaa_platform_line_rules(visit, &rows);
        EXPECT_FALSE(is_open(path)) << path;
        return rc == 0 ? rows : rc == kUnusable && rows.empty() ? "unusable" : "code " + std::to_string(rc);
    }
    std::string rows(const std::string &text, mode_t mode = 0644) const {
        return rows_at(dir.write("lines.conf", text, mode));
    }
    void expect_refused(const std::string &path, const std::string &why) const {
        EXPECT_EQ("unusable", rows_at(path));
        EXPECT_EQ("%AAA-PLATFORM-3-BAD_FILE : " + path + ": " + why + "; the file is not used",
                  g_log->take_one());
    }
};

}  // namespace

// ---- words and lines -------------------------------------------------------------

TEST_F(ConfigFile, BlanksTabsAndCarriageReturnsSeparateWords) {
    EXPECT_EQ("1=a:b 2=c:d", rows("  a\t *  b \r\nc * d\r\n"));
}

TEST_F(ConfigFile, ACommentEndsALineAlsoInsideAWord) {
    EXPECT_EQ("2=a:b 3=c:d", rows("# a * b\na * b#c\nc * d # e f\n"));
}

TEST_F(ConfigFile, LinesWithoutWordsAreCountedOnly) {
    EXPECT_EQ("4=a:b", rows("\n \t \n#\na * b\n\n"));
    EXPECT_EQ("", rows(""));
}

TEST_F(ConfigFile, TheLastLineNeedsNoLineFeed) {
    EXPECT_EQ("1=a:b 2=c:d", rows("a * b\nc * d"));
}

TEST_F(ConfigFile, ANulByteEndsItsLine) {
    EXPECT_EQ("1=a:b 2=c:d", rows(std::string("a * b\0c d\nc * d\n", 16)));
}

TEST_F(ConfigFile, ALineOfManyWordsIsDefectiveAndEndsNothing) {
    std::string words = "a * b";
    for (int i = 0; i < 100; ++i) {
        words += " word";
    }
    EXPECT_EQ("1=a:b! 2=c:d", rows(words + "\nc * d\n"));
}

// ---- files that are used or not --------------------------------------------------

TEST_F(ConfigFile, AMissingFileIsAnEmptyOne) {
    EXPECT_EQ("", rows_at(dir.path("absent")));
    EXPECT_EQ("", rows_at(dir.path("no/such/directory")));
    EXPECT_EQ("", rows_at(dir.write("file", "") + "/lines.conf"));
    std::filesystem::create_symlink("nowhere", dir.path("dangling"));
    EXPECT_EQ("", rows_at(dir.path("dangling")));
    EXPECT_TRUE(g_log->take().empty());
}

TEST_F(ConfigFile, AnEmptyVariableMeansTheUsualPath) {
    unsetenv("AAA_LINES_CONF");
    const std::string usual = aaa_platform_line_rules_path();
    const ScopedEnv env("AAA_LINES_CONF", "");
    EXPECT_EQ(usual, aaa_platform_line_rules_path());
}

// Users who can write the file could choose how logins are checked. An unusable
// file must be reported, not replaced by the default list.
TEST_F(ConfigFile, AFileThatOthersCanWriteIsRefused) {
    const std::string why =
        "users other than its owner (root or this user) may write it; correct owner and mode";
    for (const mode_t mode : {0664u, 0646u, 0666u}) {
        expect_refused(dir.write("lines.conf", "* * a\n", mode), why);
    }
    EXPECT_EQ("1=*:a", rows("* * a\n", 0444));
    if (geteuid() == 0) {
        const std::string path = dir.write("given", "* * a\n", 0644);
        ASSERT_EQ(0, chown(path.c_str(), 65534, 65534));
        expect_refused(path, why);
    }
}

TEST_F(ConfigFile, OnlyARegularFileIsUsed) {
    ASSERT_EQ(0, mkdir(dir.path("directory").c_str(), 0755));
    ASSERT_EQ(0, mkfifo(dir.path("fifo").c_str(), 0644));
    for (const char *name : {"directory", "fifo"}) {
        expect_refused(dir.path(name), "it is not a regular file");
    }
}

TEST_F(ConfigFile, AFileThatCannotBeOpenedIsRefused) {
    expect_refused(dir.path(std::string(300, 'x')), "File name too long");
    SKIP_WITHOUT_ROOT("needs root to become another user");
    const std::string path = dir.write("lines.conf", "* * a\n", 0644);
    TerminalProcess other(
        [&] {
            EXPECT_EQ(0, setuid(65534));
            return rows_at(path);
        },
        false);
    EXPECT_EQ("unusable", other.report());  // the test's log is closed to that user too
}

TEST_F(ConfigFile, ALargerFileThanTheLargestIsRefused) {
    const std::string row = "\n* * a\n";
    const std::string largest = std::string(kMaxSize - row.size(), '#') + row;
    EXPECT_EQ("2=*:a", rows(largest));
    expect_refused(dir.write("lines.conf", "#" + largest, 0644), "it is larger than 16 KiB");
    expect_refused(dir.write("lines.conf", std::string(10 * kMaxSize, '#'), 0644),
                   "it is larger than 16 KiB");
}

// A file of another format must not fill the log.
TEST_F(ConfigFile, OnlyAFewBadLinesAreReported) {
    std::string text;
    for (int i = 0; i < 100; ++i) {
        text += "bad\n";
    }
    const std::string path = dir.write("lines.conf", text + "* * good\n", 0644);
    TerminalProcess login([&] {
        setenv("AAA_LINES_CONF", path.c_str(), 1);
        char *list = nullptr;
        EXPECT_EQ(0u, find_method_for_line(0, &list));
        const std::string found = list != nullptr ? list : "(null)";
        free(list);
        return found;
    });
    EXPECT_EQ("good", login.report());
    EXPECT_EQ(5u, g_log->take().size());
}

int main(int argc, char **argv) {
    return run_with_captured_log(argc, argv);
}
