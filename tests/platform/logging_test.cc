// SPDX-License-Identifier: Apache-2.0
//
// Catalog messages: their text and their limits.

#include "platform/logging.h"

#include <fcntl.h>
#include <gtest/gtest.h>
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
#include "log_socket.hpp"
#include "message_record.hpp"
#include "support/temp_dir.hpp"

namespace {

std::atomic<time_t> g_clock_offset{0};

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
    const TempDir dir;
    const int before = dup(2);
    dup2(open(dir.path("err").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600), 2);
    errno = EINTR;
    kel_errmsg(&record, 3, "x");
    EXPECT_EQ(EINTR, errno);
    dup2(before, 2);
    close(before);
    EXPECT_EQ("%AAA-SECURITY-3-M : x\n", dir.read("err"));
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

int main(int argc, char **argv) {
    setenv("AAA_LOG", "syslog", 1);
    unsetenv("JOURNAL_STREAM");
    testing::InitGoogleTest(&argc, argv);
    const int rc = RUN_ALL_TESTS();
    return rc;
}
