// SPDX-License-Identifier: Apache-2.0
//
// Catalog messages: their text, their limits, and where they go.

#include "platform/logging.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <string>
#include <thread>
#include <vector>

#include "aaa/result_codes.h"
#include "child_process.hpp"
#include "log_socket.hpp"

namespace {

std::atomic<time_t> g_clock_offset{0};

kel_msg_rec_t make_record(const char *format, const char *mnemonic, uint32_t severity,
                          kel_msg_limit_t *limit = nullptr) {
    kel_msg_rec_t record{};
    record.format = format;
    record.limit = limit;
    record.facility = "AAA";
    record.category = "SECURITY";
    record.mnemonic = mnemonic;
    record.severity = severity << 16;
    record.msg_id = 0x048d0001u;
    return record;
}

struct Logging : testing::Test {
    LogSocket socket;
    void SetUp() override { setenv("AAA_SYSLOG_SOCKET", socket.path().c_str(), 1); }
    std::vector<std::string> texts() { return socket.take_texts(); }
    std::string text() {
        const auto all = texts();
        return all.size() == 1 ? all[0] : "(" + std::to_string(all.size()) + " messages)";
    }
};

using Text = Logging;
using Limit = Logging;

const ChildBodies kBodies = {
    {"error",
     [] {
         const kel_msg_rec_t record = make_record("%s: %s", "DEBUG_ERROR", 3);
         kel_errmsg(&record, 3, "line one", "and more");
     }},
    {"debug",
     [] {
         const kel_msg_rec_t record = make_record("%s", "ERR_SYSDB", 7);
         kel_errmsg(&record, 7, "quiet");
     }},
    {"journal-stream",
     [] {
         struct stat st {};
         fstat(STDERR_FILENO, &st);
         const std::string stream = std::to_string(st.st_dev) + ":" + std::to_string(st.st_ino);
         setenv("JOURNAL_STREAM", stream.c_str(), 1);
         const kel_msg_rec_t record = make_record("%s", "DEBUG_ERROR", 3);
         kel_errmsg(&record, 3, "to the journal");
     }},
};

const std::string kLine = "%AAA-SECURITY-3-DEBUG_ERROR : line one: and more\n";

}  // namespace

// The platform's limits follow the monotonic clock, which moves only when a
// test moves it.
extern "C" int clock_gettime(clockid_t clock, struct timespec *now) {
    if (clock == CLOCK_MONOTONIC) {
        *now = {1000 + g_clock_offset.load(), 0};
        return 0;
    }
    return static_cast<int>(syscall(SYS_clock_gettime, clock, now));
}

// ---- text ------------------------------------------------------------------------

TEST_F(Text, CarriesFacilityCategorySeverityAndMnemonic) {
    const kel_msg_rec_t record = make_record("%s: %s", "DEBUG_ERROR", 3);
    kel_errmsg(&record, 3, "Failed to initialize debug module", "Success");
    EXPECT_EQ("%AAA-SECURITY-3-DEBUG_ERROR : Failed to initialize debug module: Success", text());
}

TEST_F(Text, HasTheSyslogPriorityAndTheProgram) {
    for (const uint32_t severity : {3u, 4u, 7u}) {
        const kel_msg_rec_t record = make_record("x", "M", severity);
        kel_errmsg(&record, severity);
        const auto all = socket.take();
        ASSERT_EQ(1u, all.size());
        EXPECT_EQ("<" + std::to_string(LOG_AUTHPRIV | static_cast<int>(severity)) + ">" +
                      program_invocation_short_name + "[" + std::to_string(getpid()) + "]: %AAA-SECURITY-" +
                      std::to_string(severity) + "-M : x",
                  all[0]);
    }
}

TEST_F(Text, FormatsNumbers) {
    const kel_msg_rec_t record = make_record("The AAA debug flag %d does not exist", "INVALID_DEBUG_FLAG", 3);
    kel_errmsg(&record, 3, 99);
    EXPECT_EQ("%AAA-SECURITY-3-INVALID_DEBUG_FLAG : The AAA debug flag 99 does not exist", text());
}

TEST_F(Text, CannotForgeALine) {
    const kel_msg_rec_t record = make_record("%s", "M", 3);
    kel_errmsg(&record, 3, "user\n<83>su: root logged in\x1b[2J\r\x7f\ttab caf\xc3\xa9");
    EXPECT_EQ("%AAA-SECURITY-3-M : user\\n<83>su: root logged in\\x1b[2J\\x0d\\x7f\ttab caf\xc3\xa9", text());
}

TEST_F(Text, CutsWhatIsTooLongAndSaysSo) {
    const kel_msg_rec_t record = make_record("%s", "M", 3);
    kel_errmsg(&record, 3, std::string(10000, 'a').c_str());
    const std::string line = text();
    EXPECT_EQ("...", line.substr(line.size() - 3));
    EXPECT_EQ(2047u + std::strlen("%AAA-SECURITY-3-M : "), line.size());
}

TEST_F(Text, SurvivesARecordWithoutTexts) {
    const kel_msg_rec_t record{};
    kel_errmsg(&record, 3);
    EXPECT_EQ("%----3-- : (no text)", text());
    kel_errmsg(nullptr, 3, "a", "b");
    EXPECT_EQ("%AAA-PLATFORM-3-NO_RECORD : A message was logged without its catalog record", text());
}

TEST_F(Text, KeepsErrno) {
    const kel_msg_rec_t record = make_record("%s", "M", 3);
    errno = EINTR;
    kel_errmsg(&record, 3, "x");
    EXPECT_EQ(EINTR, errno);
    setenv("AAA_SYSLOG_SOCKET", "/nonexistent/log", 1);
    testing::internal::CaptureStderr();
    kel_errmsg(&record, 3, "x");
    EXPECT_EQ(EINTR, errno);
    EXPECT_EQ("%AAA-SECURITY-3-M : x\n", testing::internal::GetCapturedStderr());
}

// ---- limit -----------------------------------------------------------------------

TEST_F(Limit, PassesTheFirstAndHoldsBackTheRest) {
    kel_msg_limit_t limit{60, {}};
    const kel_msg_rec_t record = make_record("%s", "ERR_SYSDB", 7, &limit);
    for (int i = 0; i < 5; ++i) {
        kel_errmsg(&record, 7, "bind");
    }
    EXPECT_EQ("%AAA-SECURITY-7-ERR_SYSDB : bind", text());
    EXPECT_EQ(60u, limit.period);
}

TEST_F(Limit, ReportsWhatWasHeldBackWhenThePeriodIsOver) {
    kel_msg_limit_t limit{60, {}};
    const kel_msg_rec_t record = make_record("%s", "ERR_SYSDB", 7, &limit);
    kel_errmsg(&record, 7, "first");
    kel_errmsg(&record, 7, "second");
    g_clock_offset += 59;
    kel_errmsg(&record, 7, "third");
    EXPECT_EQ("%AAA-SECURITY-7-ERR_SYSDB : first", text());
    g_clock_offset += 1;
    kel_errmsg(&record, 7, "fourth");
    const auto all = texts();
    ASSERT_EQ(2u, all.size());
    EXPECT_EQ("%AAA-SECURITY-7-ERR_SYSDB : 2 messages of this kind were held back in the last 60 seconds",
              all[0]);
    EXPECT_EQ("%AAA-SECURITY-7-ERR_SYSDB : fourth", all[1]);
    kel_errmsg(&record, 7, "fifth");
    EXPECT_TRUE(texts().empty());
}

TEST_F(Limit, ReportsNothingWhenNothingWasHeldBack) {
    kel_msg_limit_t limit{60, {}};
    const kel_msg_rec_t record = make_record("%s", "M", 3, &limit);
    kel_errmsg(&record, 3, "a");
    g_clock_offset += 61;
    kel_errmsg(&record, 3, "b");
    EXPECT_EQ(2u, texts().size());
}

TEST_F(Limit, IsPerLimitRecord) {
    kel_msg_limit_t one{60, {}};
    kel_msg_limit_t other{60, {}};
    const kel_msg_rec_t first = make_record("%s", "A", 3, &one);
    const kel_msg_rec_t second = make_record("%s", "B", 3, &other);
    kel_errmsg(&first, 3, "x");
    kel_errmsg(&second, 3, "x");
    EXPECT_EQ(2u, texts().size());
}

TEST_F(Limit, OfZeroSecondsHoldsNothingBack) {
    kel_msg_limit_t limit{0, {}};
    const kel_msg_rec_t record = make_record("%s", "M", 3, &limit);
    kel_errmsg(&record, 3, "x");
    kel_errmsg(&record, 3, "x");
    EXPECT_EQ(2u, texts().size());
}

TEST_F(Limit, WritesOnlyItsOwnState) {
    struct {
        kel_msg_limit_t limit;
        uint8_t after[8];
    } block{{60, {}}, {1, 2, 3, 4, 5, 6, 7, 8}};
    const kel_msg_rec_t record = make_record("%s", "M", 3, &block.limit);
    kel_errmsg(&record, 3, "x");
    kel_errmsg(&record, 3, "x");
    EXPECT_EQ(60u, block.limit.period);
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(i + 1, block.after[i]);
    }
}

TEST_F(Limit, LetsExactlyOneOfManyThreadsPass) {
    kel_msg_limit_t limit{60, {}};
    const kel_msg_rec_t record = make_record("%s", "M", 3, &limit);
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 100; ++i) {
                kel_errmsg(&record, 3, "x");
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(1u, texts().size());
    g_clock_offset += 61;
    kel_errmsg(&record, 3, "x");
    const auto all = texts();
    ASSERT_EQ(2u, all.size());
    EXPECT_NE(std::string::npos, all[0].find(" 799 messages")) << all[0];
}

// ---- sinks -----------------------------------------------------------------------

TEST(Sink, StandardErrorOnRequest) {
    const ChildResult child = run_child("error", {"AAA_LOG=stderr"});
    EXPECT_EQ(kLine, child.err);
    EXPECT_EQ("", child.out);
}

TEST(Sink, NoneOnRequest) {
    EXPECT_EQ("", run_child("error", {"AAA_LOG=none"}).err);
}

TEST(Sink, JournalGetsFields) {
    LogSocket journal;
    const ChildResult child = run_child("error", {"AAA_LOG=journal", "AAA_JOURNAL_SOCKET=" + journal.path()});
    EXPECT_EQ("", child.err);
    const auto all = journal.take();
    ASSERT_EQ(1u, all.size());
    const auto fields = lines_of(all[0]);
    ASSERT_EQ(7u, fields.size()) << all[0];
    EXPECT_EQ("PRIORITY=3", fields[0]);
    EXPECT_EQ("SYSLOG_FACILITY=10", fields[1]);
    EXPECT_EQ("SYSLOG_IDENTIFIER=child", fields[2]);
    EXPECT_EQ("SYSLOG_PID=", fields[3].substr(0, 11));
    EXPECT_EQ("AAA_MNEMONIC=DEBUG_ERROR", fields[4]);
    EXPECT_EQ("AAA_MSG_ID=0x048d0001", fields[5]);
    EXPECT_EQ("MESSAGE=" + kLine.substr(0, kLine.size() - 1), fields[6]);
    EXPECT_EQ('\n', all[0].back());
}

TEST(Sink, JournalWhenStandardErrorIsItsStream) {
    LogSocket journal;
    LogSocket syslog;
    const std::vector<std::string> sockets = {"AAA_LOG=", "AAA_JOURNAL_SOCKET=" + journal.path(),
                                              "AAA_SYSLOG_SOCKET=" + syslog.path()};
    run_child("journal-stream", sockets);
    EXPECT_EQ(1u, journal.take().size());
    EXPECT_TRUE(syslog.take().empty());
}

TEST(Sink, SyslogWhenTheJournalStreamIsAnother) {
    LogSocket journal;
    LogSocket syslog;
    run_child("error", {"AAA_LOG=", "AAA_JOURNAL_SOCKET=" + journal.path(),
                        "AAA_SYSLOG_SOCKET=" + syslog.path(), "JOURNAL_STREAM=1:1"});
    EXPECT_TRUE(journal.take().empty());
    EXPECT_EQ(1u, syslog.take().size());
}

TEST(Sink, FallsBackFromJournalToSyslogToStandardError) {
    LogSocket syslog;
    EXPECT_EQ("", run_child("error", {"AAA_LOG=journal", "AAA_JOURNAL_SOCKET=/nonexistent/socket",
                                      "AAA_SYSLOG_SOCKET=" + syslog.path()})
                      .err);
    EXPECT_EQ(1u, syslog.take().size());
    const std::vector<std::string> nowhere = {"AAA_LOG=journal", "AAA_JOURNAL_SOCKET=/nonexistent/socket",
                                              "AAA_SYSLOG_SOCKET=/nonexistent/socket"};
    EXPECT_EQ(kLine, run_child("error", nowhere).err);
    EXPECT_EQ("", run_child("debug", nowhere).err) << "a program's terminal is spared debug messages";
}

TEST(Sink, ReportsASettingThatItDoesNotKnow) {
    LogSocket syslog;
    run_child("error", {"AAA_LOG=paper", "AAA_SYSLOG_SOCKET=" + syslog.path()});
    const auto all = syslog.take_texts();
    ASSERT_EQ(2u, all.size());
    EXPECT_EQ(
        "%AAA-PLATFORM-4-BAD_SETTING : AAA_LOG is \"paper\", not stderr, syslog, journal or none; "
        "using the default log",
        all[0]);
    EXPECT_EQ(kLine, all[1] + "\n");
}

int main(int argc, char **argv) {
    if (run_child_body(kBodies)) {
        return 0;
    }
    setenv("AAA_LOG", "syslog", 1);
    unsetenv("JOURNAL_STREAM");
    testing::InitGoogleTest(&argc, argv);
    const int rc = RUN_ALL_TESTS();
    return rc;
}
