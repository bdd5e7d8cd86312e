// SPDX-License-Identifier: Apache-2.0
//
// Tracing: which flags are on, what a trace line looks like, where it goes.

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "aaa/debug_flags.h"
#include "aaa/result_codes.h"
#include "child_process.hpp"
#include "log_socket.hpp"
#include "platform/control.h"
#include "platform/logging.h"

namespace {

constexpr cerrno kNoSuchFlag = 0xa2580e00u;
constexpr uint32_t kAllFlags = (1u << AAA_PLATFORM_DEBUG_FLAGS) - 1;

struct Line {
    int pid;
    int tid;
    std::string area;
    std::string text;
};

// A digit for every '0' of the pattern, everything else as it is.
bool has_form(const std::string &text, const char *pattern) {
    if (text.size() != std::strlen(pattern)) {
        return false;
    }
    for (size_t i = 0; i < text.size(); ++i) {
        if (pattern[i] == '0' ? std::isdigit(static_cast<unsigned char>(text[i])) == 0
                              : text[i] != pattern[i]) {
            return false;
        }
    }
    return true;
}

// "time process/thread aaa[area]: text"
bool parse_line(const std::string &line, Line *out) {
    constexpr char kTime[] = "0000-00-00T00:00:00.000000Z";
    char area[32];
    if (!has_form(line.substr(0, sizeof kTime - 1), kTime) ||
        std::sscanf(line.c_str() + sizeof kTime - 1, " %d/%d aaa[%31[^]]]", &out->pid, &out->tid, area) !=
            3) {
        return false;
    }
    out->area = area;
    const size_t at = line.find("]: ");
    out->text = at == std::string::npos ? "" : line.substr(at + 3);
    return at != std::string::npos;
}

std::vector<Line> parse(const std::string &output) {
    std::vector<Line> out;
    for (const std::string &line : lines_of(output)) {
        Line parsed{};
        EXPECT_TRUE(parse_line(line, &parsed)) << "not a trace line: " << line;
        out.push_back(parsed);
    }
    return out;
}

// Output of a body that runs in this process with standard error captured.
template <typename Body>
std::vector<Line> traced(Body body) {
    testing::internal::CaptureStderr();
    body();
    return parse(testing::internal::GetCapturedStderr());
}

struct Tracing : testing::Test {
    void SetUp() override { aaa_platform_debug_set_areas("none"); }
    void TearDown() override { aaa_platform_debug_set_areas(nullptr); }
};

using Flags = Tracing;
using Lines = Tracing;

// Mask after a start with that value of AAA_DEBUG.
uint32_t mask_of(const std::string &setting) {
    const ChildResult child = run_child("mask", {"AAA_DEBUG=" + setting, "AAA_LOG=none"});
    return static_cast<uint32_t>(std::stoul(child.out));
}

const kel_msg_rec_t kLibraryRecord = {
    0, "no flag %d here", nullptr, "AAA", "SECURITY", "FROM_THE_LIBRARY", 3u << 16, {}, 0x048d000bu, 0};

const ChildBodies kBodies = {
    {"mask", [] { printf("%u\n", aaa_platform_debug_mask()); }},
    {"trace", [] { aaa_debug(8, "hello %d", 5); }},
    {"bad-flags",
     [] {
         for (int i = 0; i < 3; ++i) {
             aaa_debug(11, "x");
         }
         aaa_debug(12, "x");
         aaa_debug(0xffffffffu, "x");
     }},
    {"bad-flag-of-the-library",
     [] {
         aaa_debug_init();
         aaa_debug(99, "x");
     }},
    {"restart",
     [] {
         printf("%u ", aaa_platform_debug_mask());
         aaa_debug_cleanup();
         printf("%u ", aaa_platform_debug_mask());
         setenv("AAA_DEBUG", "9", 1);
         printf("%u ", aaa_debug_init());
         printf("%u\n", aaa_platform_debug_mask());
     }},
};

}  // namespace

// aaa_debug_init() finds it as it would find the library's.
extern "C" const kel_msg_rec_t *kel_msg_rec_aaa_invalid_debug_flag_getfn(void) {
    return &kLibraryRecord;
}

// ---- flags -----------------------------------------------------------------------

TEST_F(Flags, AreOffAtFirst) {
    for (uint32_t flag = 0; flag < AAA_PLATFORM_DEBUG_FLAGS; ++flag) {
        EXPECT_EQ(0, aaa_debugging(flag)) << flag;
    }
}

TEST_F(Flags, AreSwitchedOneByOne) {
    EXPECT_EQ(0u, aaa_platform_debug_set(AAA_DBG_AVLIST, 1));
    EXPECT_EQ(0u, aaa_platform_debug_set(AAA_DBG_LIFECYCLE, 77));
    EXPECT_EQ(1u << 8 | 1u, aaa_platform_debug_mask());
    EXPECT_NE(0, aaa_debugging(AAA_DBG_AVLIST));
    EXPECT_EQ(0, aaa_debugging(AAA_DBG_MALLOC));
    EXPECT_EQ(0u, aaa_platform_debug_set(AAA_DBG_AVLIST, 0));
    EXPECT_EQ(1u, aaa_platform_debug_mask());
}

TEST_F(Flags, ThatDoNotExistAreNeverOn) {
    aaa_platform_debug_set_areas("all");
    for (const uint32_t flag : {11u, 31u, 32u, 40u, 0x80000000u, 0xffffffffu}) {
        EXPECT_EQ(0, aaa_debugging(flag)) << flag;
        EXPECT_EQ(kNoSuchFlag, aaa_platform_debug_set(flag, 1));
    }
    EXPECT_EQ(kAllFlags, aaa_platform_debug_mask());
}

TEST_F(Flags, AreReplacedByAList) {
    EXPECT_EQ(0u, aaa_platform_debug_set_areas("8,9"));
    EXPECT_EQ(0x300u, aaa_platform_debug_mask());
    EXPECT_EQ(0u, aaa_platform_debug_set_areas("0"));
    EXPECT_EQ(1u, aaa_platform_debug_mask());
    EXPECT_EQ(0u, aaa_platform_debug_set_areas(nullptr));
    EXPECT_EQ(0u, aaa_platform_debug_mask());
}

int own_debugging(uint32_t) {
    return 1;
}

TEST_F(Flags, AreBitsOfAWord) {
    const uint32_t *const word = aaa_debug_word(aaa_debugging);
    ASSERT_NE(nullptr, word);
    EXPECT_EQ(0u, *word);
    aaa_platform_debug_set(AAA_DBG_AVLIST, 1);
    EXPECT_EQ(1u << AAA_DBG_AVLIST, *word);
    aaa_platform_debug_set_areas("all");
    EXPECT_EQ(kAllFlags, *word);
    EXPECT_EQ(word, aaa_debug_word(aaa_debugging));
}

TEST_F(Flags, StandElsewhereForAProgramThatAnswersItself) {
    EXPECT_EQ(nullptr, aaa_debug_word(own_debugging));
    EXPECT_EQ(nullptr, aaa_debug_word(nullptr));
}

TEST_F(Flags, HaveAreaNames) {
    for (uint32_t flag = 0; flag < AAA_PLATFORM_DEBUG_FLAGS; ++flag) {
        const char *area = aaa_platform_debug_area(flag);
        ASSERT_NE(nullptr, area);
        EXPECT_EQ(0u, aaa_platform_debug_set_areas(area));
        EXPECT_EQ(1u << flag, aaa_platform_debug_mask()) << area;
    }
    EXPECT_EQ(nullptr, aaa_platform_debug_area(AAA_PLATFORM_DEBUG_FLAGS));
    EXPECT_STREQ("avlist", aaa_platform_debug_area(AAA_DBG_AVLIST));
}

TEST(Documentation, NamesEveryArea) {
    std::ostringstream page;
    page << std::ifstream(AAA_SOURCE_DIR "/docs/host-platform.md").rdbuf();
    for (uint32_t flag = 0; flag < AAA_PLATFORM_DEBUG_FLAGS; ++flag) {
        const std::string name = "`" + std::string(aaa_platform_debug_area(flag)) + "`";
        const std::string row = flag == 4 || flag == 7 ? std::to_string(flag) + " (" + name + ")"
                                                       : "| " + std::to_string(flag) + " | " + name + " |";
        EXPECT_NE(std::string::npos, page.str().find(row)) << row;
    }
}

TEST(Environment, SelectsFlags) {
    EXPECT_EQ(0u, mask_of(""));
    EXPECT_EQ(0x300u, mask_of("8,9"));
    EXPECT_EQ(0x300u, mask_of(" avlist ; malloc,,"));
    EXPECT_EQ(kAllFlags, mask_of("all"));
    EXPECT_EQ(0x00eu, mask_of("1-3"));
    EXPECT_EQ(0x101u, mask_of("lifecycle 8"));
    EXPECT_EQ(0x001u, mask_of("all,none,0"));
    EXPECT_EQ(0x400u, mask_of("10"));
}

TEST(Environment, KeepsTheGoodWordsOfABadList) {
    for (const char *list :
         {"8,nonsense", "8,3-1", "8,-", "8,1-", "8,1-x", "8,0x9", "8,99999999999999999999"}) {
        EXPECT_EQ(0x100u, mask_of(list)) << list;
    }
    EXPECT_EQ(0x700u, mask_of("8-12"));
}

TEST(Environment, ReportsWordsThatNameNoArea) {
    LogSocket syslog;
    run_child("mask", {"AAA_DEBUG=8,no\x1bsense,11", "AAA_LOG=syslog", "AAA_SYSLOG_SOCKET=" + syslog.path()});
    const auto all = syslog.take_texts();
    ASSERT_EQ(2u, all.size());
    EXPECT_EQ(
        "%AAA-PLATFORM-4-BAD_DEBUG_AREA : \"no\\x1bsense\" names no debug area; use flag numbers 0 to 10, "
        "\"all\", or names such as \"avlist\"",
        all[0]);
    EXPECT_EQ("%AAA-PLATFORM-3-INVALID_DEBUG_FLAG : The AAA debug flag 11 does not exist", all[1]);
}

TEST(Environment, IsReadAgainAtEachStart) {
    EXPECT_EQ("256 0 0 512\n", run_child("restart", {"AAA_DEBUG=8", "AAA_LOG=none"}).out);
}

TEST(BadFlag, IsReportedOnce) {
    LogSocket syslog;
    run_child("bad-flags", {"AAA_DEBUG=all", "AAA_LOG=syslog", "AAA_SYSLOG_SOCKET=" + syslog.path()});
    const auto all = syslog.take_texts();
    ASSERT_EQ(3u, all.size());
    EXPECT_EQ("%AAA-PLATFORM-3-INVALID_DEBUG_FLAG : The AAA debug flag 11 does not exist", all[0]);
    EXPECT_EQ("%AAA-PLATFORM-3-INVALID_DEBUG_FLAG : The AAA debug flag 12 does not exist", all[1]);
    EXPECT_EQ("%AAA-PLATFORM-3-INVALID_DEBUG_FLAG : The AAA debug flag -1 does not exist", all[2]);
}

TEST(BadFlag, IsReportedWithTheLibrarysRecord) {
    LogSocket syslog;
    run_child("bad-flag-of-the-library", {"AAA_LOG=syslog", "AAA_SYSLOG_SOCKET=" + syslog.path()});
    EXPECT_EQ((std::vector<std::string>{"%AAA-SECURITY-3-FROM_THE_LIBRARY : no flag 99 here"}),
              syslog.take_texts());
}

// ---- lines -----------------------------------------------------------------------

TEST_F(Lines, NameTimeProcessThreadAndFlag) {
    aaa_platform_debug_set_areas("8");
    const auto lines = traced([] { aaa_debug(8, "add %s = %d", "user", 5); });
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(getpid(), lines[0].pid);
    EXPECT_EQ(gettid(), lines[0].tid);
    EXPECT_EQ("8 avlist", lines[0].area);
    EXPECT_EQ("add user = 5", lines[0].text);
}

TEST_F(Lines, AreWrittenOnlyForFlagsThatAreOn) {
    aaa_platform_debug_set_areas("8");
    EXPECT_TRUE(traced([] {
                    aaa_debug(9, "x");
                    aaa_debug(0, "x");
                    aaa_debug(8, nullptr);
                }).empty());
    aaa_debug_cleanup();
    EXPECT_TRUE(traced([] { aaa_debug(8, "x"); }).empty());
}

TEST_F(Lines, ComeOnePerPartOfATextWithLineFeeds) {
    aaa_platform_debug_set_areas("5");
    const auto lines = traced([] { aaa_debug(5, "first\nsecond\n\nfourth\n\n"); });
    ASSERT_EQ(4u, lines.size());
    EXPECT_EQ("first", lines[0].text);
    EXPECT_EQ("second", lines[1].text);
    EXPECT_EQ("", lines[2].text);
    EXPECT_EQ("fourth", lines[3].text);
}

TEST_F(Lines, AreWrittenForAnEmptyText) {
    aaa_platform_debug_set_areas("5");
    EXPECT_EQ(1u, traced([] { aaa_debug(5, "%s", ""); }).size());
    EXPECT_EQ(1u, traced([] { aaa_debug(5, "\n"); }).size());
}

TEST_F(Lines, ShowControlCharacters) {
    aaa_platform_debug_set_areas("5");
    EXPECT_EQ("a\\x1b[31mb\\x07", traced([] { aaa_debug(5, "a\x1b[31mb\a"); })[0].text);
}

TEST_F(Lines, EndInDotsWhenCut) {
    aaa_platform_debug_set_areas("8");
    const auto lines = traced([] { aaa_debug(8, "%s", std::string(9000, 'a').c_str()); });
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(4095u, lines[0].text.size());
    EXPECT_EQ("a...", lines[0].text.substr(4091));
}

// The library's alarm handler traces before the interrupted read's errno is tested.
TEST_F(Lines, KeepErrno) {
    aaa_platform_debug_set_areas("5");
    traced([] {
        errno = EINTR;
        aaa_debug(5, "Revd SIGNAL %d !", 14);
        EXPECT_EQ(EINTR, errno);
    });
}

TEST_F(Lines, OfManyThreadsStayWhole) {
    aaa_platform_debug_set_areas("all");
    const auto lines = traced([] {
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([t] {
                for (int i = 0; i < 100; ++i) {
                    aaa_debug(8, "thread %d line %d of some length, so that halves would show", t, i);
                    aaa_platform_debug_set(9, i % 2);
                    aaa_debugging(9);
                }
            });
        }
        for (auto &thread : threads) {
            thread.join();
        }
    });
    EXPECT_EQ(400u, lines.size());
}

// ---- output ----------------------------------------------------------------------

TEST(Output, IsStandardErrorAtFirst) {
    const auto lines = parse(run_child("trace", {"AAA_DEBUG=8"}).err);
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ("hello 5", lines[0].text);
}

TEST(Output, IsSyslogOnRequest) {
    LogSocket syslog;
    EXPECT_EQ("", run_child("trace",
                            {"AAA_DEBUG=8", "AAA_DEBUG_OUTPUT=syslog", "AAA_SYSLOG_SOCKET=" + syslog.path()})
                      .err);
    const auto all = syslog.take();
    ASSERT_EQ(1u, all.size());
    EXPECT_EQ("<87>child[", all[0].substr(0, 10)) << "severity debug";
    EXPECT_EQ("hello 5", parse(all[0].substr(all[0].find("]: ") + 3))[0].text);
}

TEST(Output, CanBeTheJournalOrNothing) {
    LogSocket journal;
    run_child("trace", {"AAA_DEBUG=8", "AAA_DEBUG_OUTPUT=journal", "AAA_JOURNAL_SOCKET=" + journal.path()});
    const auto all = journal.take();
    ASSERT_EQ(1u, all.size());
    EXPECT_NE(std::string::npos, all[0].find("PRIORITY=7\n"));
    EXPECT_EQ("", run_child("trace", {"AAA_DEBUG=8", "AAA_DEBUG_OUTPUT=none"}).err);
}

TEST(Output, IsStandardErrorForAnUnknownWord) {
    const ChildResult child = run_child("trace", {"AAA_DEBUG=8", "AAA_DEBUG_OUTPUT=paper", "AAA_LOG=stderr"});
    const auto lines = lines_of(child.err);
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ(
        "%AAA-PLATFORM-4-BAD_SETTING : AAA_DEBUG_OUTPUT is \"paper\", not stderr, syslog, "
        "journal or none; using stderr",
        lines[0]);
    EXPECT_EQ("hello 5", parse(lines[1])[0].text);
}

int main(int argc, char **argv) {
    if (run_child_body(kBodies)) {
        return 0;
    }
    setenv("AAA_LOG", "none", 1);
    testing::InitGoogleTest(&argc, argv);
    const int rc = RUN_ALL_TESTS();
    return rc;
}
