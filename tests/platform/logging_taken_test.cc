// SPDX-License-Identifier: Apache-2.0
//
// A program that takes its log lines.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "aaa/result_codes.h"
#include "platform/control.h"
#include "platform/logging.h"

namespace {

bool g_takes = true;
std::vector<std::string> &lines() {
    static std::vector<std::string> all;
    return all;
}

}  // namespace

extern "C" int32_t aaa_program_take_log(uint32_t severity, const char *line, uint32_t length) {
    EXPECT_EQ(std::string(line), std::string(line, length));
    lines().push_back(std::to_string(severity) + " " + line);
    return g_takes ? 1 : 0;
}

namespace {

class TakenLog : public testing::Test {
  protected:
    TakenLog() {
        lines().clear();
        g_takes = true;
        setenv("AAA_LOG", "stderr", 1);
    }
    static std::string logged(uint32_t severity, const char *text) {
        testing::internal::CaptureStderr();
        errno = EDOM;
        aaa_platform_log(&kRecord, severity, nullptr, 0, text);
        EXPECT_EQ(errno, EDOM);
        return testing::internal::GetCapturedStderr();
    }
    static inline const kel_msg_rec_t kRecord = [] {
        kel_msg_rec_t record{};
        record.facility = "AAA";
        record.category = "TEST";
        record.mnemonic = "TAKEN";
        return record;
    }();
};

TEST_F(TakenLog, LinesThatTheProgramTakesAreNotWritten) {
    EXPECT_EQ(logged(3, "an error\nand more"), "");
    EXPECT_EQ(logged(7, "detail"), "");
    EXPECT_EQ(lines(), (std::vector<std::string>{"3 %AAA-TEST-3-TAKEN : an error\\nand more",
                                                 "7 %AAA-TEST-7-TAKEN : detail"}));
}

TEST_F(TakenLog, OthersAreWritten) {
    g_takes = false;
    EXPECT_EQ(logged(3, "an error"), "%AAA-TEST-3-TAKEN : an error\n");
    EXPECT_EQ(lines().size(), 1u);
}

}  // namespace
