// SPDX-License-Identifier: Apache-2.0
//
// Texts of result codes, and the registration of a table of them.

#include "platform/cerr.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "aaa/result_codes.h"

namespace {

constexpr uint32_t kOwnFacility = 0x3000u;
constexpr char kDll[] = "cerrno/libtest_error.dll";

constexpr cerrno code(uint32_t facility, uint32_t index, uint32_t severity = 2) {
    return severity << 30 | 1u << 29 | facility << 15 | index << 9;
}

std::string text(cerrno c) {
    return cerr_strerror(c);
}

constexpr cerrno kInvalidArg = 0xa2580200u;
constexpr cerrno kNoTable = 0xa2580600u;
constexpr cerrno kBadTable = 0xa2580800u;
constexpr cerrno kTooMany = 0xa2580a00u;

aaa_err_row_t g_rows[64] = {};

}  // namespace

// This program's table: found through the return address, and changed by tests.
extern "C" {
aaa_cerr_data_t test_program_table __asm__("cerr_data")
    __attribute__((visibility("default"), used)) = {2, 0, "Test", kOwnFacility, 0, g_rows, {0, 0}};
}

namespace {

// Gives this program's table a facility and rows of the given texts.
void set_table(uint32_t facility, const std::vector<const char *> &texts) {
    test_program_table = {2, 0, "Test", facility, static_cast<uint32_t>(texts.size()), g_rows, {0, 0}};
    for (uint32_t i = 0; i < texts.size(); ++i) {
        g_rows[i] = {i, 0, texts[i]};
    }
}

}  // namespace

// ---- texts -----------------------------------------------------------------------

TEST(CerrText, OfSuccess) {
    EXPECT_EQ("Success", text(0));
}

TEST(CerrText, OfErrnoValuesIsTheSystems) {
    EXPECT_EQ(strerrordesc_np(EINVAL), text(EINVAL));
    EXPECT_EQ(strerrordesc_np(ENOENT), text(ENOENT));
    EXPECT_EQ("Unknown error 0x00000fff", text(4095));
}

TEST(CerrText, OfThePlatformsCodes) {
    const struct {
        cerrno code;
        const char *text;
    } expected[] = {
        {0x40818600u, "Item not found in the system database"},
        {0x40818800u, "System database notifications are not available"},
        {0x8081c200u, "System database library is absent"},
        {0x21200e00u, "Connection cannot be made now, it will be tried again"},
        {0x22570e00u, "No controlling terminal"},
    };
    for (const auto &row : expected) {
        EXPECT_EQ(row.text, text(row.code));
    }
}

TEST(CerrText, OfThePlatformsCodesIsTheSameForEverySeverity) {
    for (uint32_t severity = 0; severity < 4; ++severity) {
        EXPECT_EQ("Item not found in the system database", text(0x00818600u | severity << 30));
        EXPECT_EQ("No controlling terminal", text(0x22570e00u | severity << 30));
    }
}

TEST(CerrText, OfEveryPlatformCodeIsThere) {
#define PLATFORM_CODE(name, code, words) EXPECT_STREQ(words, cerr_strerror(code)) << #name;
#include "platform/linux/platform_codes.def"
}

TEST(CerrText, OfUnknownCodesShowsTheCode) {
    EXPECT_EQ("Unknown error 0xdeadbe00", text(0xdeadbe00u));
    EXPECT_EQ("Unknown error 0xffffffff", text(0xffffffffu));
    EXPECT_EQ("Unknown error 0x00001000", text(4096));
}

TEST(CerrText, OfAnUnknownCodeIsTheThreadsOwn) {
    const char *mine = cerr_strerror(0xdeadbe00u);
    std::thread([] { EXPECT_STREQ("Unknown error 0xdeadc000", cerr_strerror(0xdeadc000u)); }).join();
    EXPECT_STREQ("Unknown error 0xdeadbe00", mine);
}

// ---- registration ------------------------------------------------------------------

TEST(CerrRegister, FindsTheTableOfTheCaller) {
    EXPECT_EQ(
        "Unknown error "
        "0xb8000200",
        text(code(kOwnFacility, 1)));
    set_table(kOwnFacility, {"Success", "First", "Second"});
    EXPECT_EQ(0u, cerr_register_dll(kOwnFacility, kDll));
    for (uint32_t severity = 0; severity < 4; ++severity) {
        EXPECT_EQ("First", text(code(kOwnFacility, 1, severity)));
        EXPECT_EQ("Second", text(code(kOwnFacility, 2, severity)));
    }
    EXPECT_EQ("Unknown error 0xb8000600", text(code(kOwnFacility, 3))) << "an index without a row";
}

TEST(CerrRegister, CopiesTheTexts) {
    char words[] = "Before";
    set_table(kOwnFacility, {"Success", words});
    ASSERT_EQ(0u, cerr_register_dll(kOwnFacility, kDll));
    const char *handed_out = cerr_strerror(code(kOwnFacility, 1));
    std::strcpy(words, "After!");
    EXPECT_STREQ("Before", handed_out);
    EXPECT_EQ("Before", text(code(kOwnFacility, 1)));
    ASSERT_EQ(0u, cerr_register_dll(kOwnFacility, kDll));
    EXPECT_EQ("After!", text(code(kOwnFacility, 1))) << "registering again replaces the texts";
    EXPECT_STREQ("Before", handed_out) << "a text that was handed out stays";
}

TEST(CerrRegister, KeepsTheTextsWhereNothingChanged) {
    set_table(kOwnFacility, {"Success", "Same"});
    ASSERT_EQ(0u, cerr_register_dll(kOwnFacility, kDll));
    const char *first = cerr_strerror(code(kOwnFacility, 1));
    ASSERT_EQ(0u, cerr_register_dll(kOwnFacility, kDll));
    EXPECT_EQ(first, cerr_strerror(code(kOwnFacility, 1)));
}

TEST(CerrRegister, FailsWithoutATable) {
    set_table(kOwnFacility, {"Success"});
    EXPECT_EQ(kNoTable, cerr_register_dll(0x2fffu, kDll));
}

TEST(CerrRegister, RefusesBadArguments) {
    EXPECT_EQ(kInvalidArg, cerr_register_dll(0, kDll));
    EXPECT_EQ(kInvalidArg, cerr_register_dll(0x4000u, kDll));
    EXPECT_EQ(kInvalidArg, cerr_register_dll(kOwnFacility, nullptr));
    EXPECT_EQ(kInvalidArg, cerr_register_dll(kOwnFacility, ""));
}

TEST(CerrRegister, RefusesAMalformedTable) {
    set_table(kOwnFacility, {"Success", "Good"});
    ASSERT_EQ(0u, cerr_register_dll(kOwnFacility, kDll));
    const auto refused = [] {
        EXPECT_EQ(kBadTable, cerr_register_dll(kOwnFacility, kDll));
        EXPECT_EQ("Good", text(code(kOwnFacility, 1))) << "the registered table stays";
    };
    set_table(kOwnFacility, {"Success", "Bad"});
    for (const uint32_t version : {0u, 1u, 3u}) {
        test_program_table.version = version;
        refused();
    }
    set_table(kOwnFacility, {"Success", "Bad"});
    test_program_table.table = nullptr;
    refused();
    set_table(kOwnFacility, {"Success", "Bad"});
    test_program_table.rows = 65;
    refused();
    set_table(kOwnFacility, {"Success", nullptr});
    refused();
    set_table(kOwnFacility, {"Success", "Bad"});
    g_rows[1].index = 64;
    refused();
}

TEST(CerrRegister, CutsATextThatNeverEnds) {
    const std::string endless(100000, 'a');
    set_table(kOwnFacility, {"Success", endless.c_str()});
    ASSERT_EQ(0u, cerr_register_dll(kOwnFacility, kDll));
    EXPECT_EQ(512u, text(code(kOwnFacility, 1)).size());
}

TEST(CerrRegister, TextsMayBeAskedForMeanwhile) {
    set_table(kOwnFacility, {"Success", "One"});
    ASSERT_EQ(0u, cerr_register_dll(kOwnFacility, kDll));
    std::atomic<bool> stop{false};
    std::vector<std::thread> readers;
    for (int t = 0; t < 3; ++t) {
        readers.emplace_back([&] {
            while (!stop) {
                const std::string got = text(code(kOwnFacility, 1));
                EXPECT_TRUE(got == "One" || got == "Two") << got;
                EXPECT_EQ("Unknown error 0xdeadbe00", text(0xdeadbe00u));
            }
        });
    }
    for (int i = 0; i < 50; ++i) {
        set_table(kOwnFacility, {"Success", i % 2 == 0 ? "Two" : "One"});
        EXPECT_EQ(0u, cerr_register_dll(kOwnFacility, kDll));
    }
    stop = true;
    for (auto &reader : readers) {
        reader.join();
    }
}

// Last, because it fills the registry for good.
TEST(CerrRegisterLast, RefusesMoreFacilitiesThanItHolds) {
    cerrno rc = 0;
    uint32_t facility = 0x2000u;
    for (; facility < 0x2100u && rc == 0; ++facility) {
        set_table(facility, {"Success", "Filling"});
        rc = cerr_register_dll(facility, kDll);
    }
    EXPECT_EQ(kTooMany, rc);
    EXPECT_EQ("Filling", text(code(0x2000u, 1)));
    set_table(kOwnFacility, {"Success", "Still replaceable"});
    EXPECT_EQ(0u, cerr_register_dll(kOwnFacility, kDll));
    EXPECT_EQ("Still replaceable", text(code(kOwnFacility, 1)));
}
