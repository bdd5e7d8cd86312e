// SPDX-License-Identifier: Apache-2.0
//
// Kinds of terminal lines as the platform reports them, and names for lines.

#include "aaa/lines.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "support/fail_alloc.hpp"
#include "testkit/fake_platform.hpp"

namespace {

using Lines = std::vector<std::string>;

constexpr char kDevice[] = "/dev/vty1";
constexpr char kAsked[] = "tty_details_from_device_file(0, \"/dev/vty1\")";

struct Answers {
    int console, tty, aux, vty;
    bool operator==(const Answers &) const = default;
};

Answers ask(const char *device) {
    return {aaa_is_console(device), aaa_is_tty(device), aaa_is_aux(device), aaa_is_vty(device)};
}

std::ostream &operator<<(std::ostream &out, const Answers &a) {
    return out << "console " << a.console << ", tty " << a.tty << ", aux " << a.aux << ", vty " << a.vty;
}

// The converted name; "(null)" for a null.
std::string converted(std::string device) {
    const std::unique_ptr<char, decltype(&std::free)> name(aaa_util_convert_tty_name(device.data()),
                                                           &std::free);
    return name != nullptr ? name.get() : "(null)";
}

}  // namespace

TEST(LineKind, EachNumberIsOneKindAndBothTtyNumberingsAreTty) {
    const struct {
        uint32_t kind;
        Answers expected;
    } rows[] = {
        {0, {1, 0, 0, 0}}, {1, {0, 1, 0, 0}}, {2, {0, 1, 0, 0}},     {3, {0, 0, 1, 0}},
        {4, {0, 0, 0, 1}}, {5, {0, 0, 0, 0}}, {0x100, {0, 0, 0, 0}}, {0xFFFFFFFF, {0, 0, 0, 0}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.kind);
        fake::set_tty_kind(row.kind);
        EXPECT_EQ(ask(kDevice), row.expected);
    }
}

TEST(LineKind, ThePublicNamesAreTheNumbers) {
    EXPECT_EQ(AAA_LINE_CONSOLE, 0);
    EXPECT_EQ(AAA_LINE_TTY1, 1);
    EXPECT_EQ(AAA_LINE_TTY2, 2);
    EXPECT_EQ(AAA_LINE_AUX, 3);
    EXPECT_EQ(AAA_LINE_VTY, 4);
}

TEST(LineKind, AFailedQuestionIsNoKindWhateverTheRecordHolds) {
    // The record is zero then, which would be a console.
    for (const int32_t failure : {1, -1, 0x7FFFFFFF}) {
        fake::set_tty_kind(0, failure);
        EXPECT_EQ(ask(kDevice), (Answers{0, 0, 0, 0})) << failure;
    }
}

TEST(LineKind, ANullDeviceIsNoKindAndIsNotAskedAbout) {
    fake::set_tty_kind(0);
    EXPECT_EQ(ask(nullptr), (Answers{0, 0, 0, 0}));
    EXPECT_EQ(fake::calls(), Lines{});
}

TEST(LineKind, AsksThePlatformOnceByTheNameAsGiven) {
    fake::set_tty_kind(4);
    EXPECT_EQ(aaa_is_console(kDevice), 0);
    EXPECT_EQ(aaa_is_aux(kDevice), 0);
    EXPECT_EQ(aaa_is_vty(kDevice), 1);
    EXPECT_EQ(aaa_is_vty(""), 1);
    EXPECT_EQ(fake::calls(), (Lines{kAsked, kAsked, kAsked, "tty_details_from_device_file(0, \"\")"}));
}

TEST(LineKind, TtyAsksAgainOnlyWhenTheFirstAnswerIsNotTheSecondNumbering) {
    fake::set_tty_kind(2);
    EXPECT_EQ(aaa_is_tty(kDevice), 1);
    EXPECT_EQ(fake::calls(), Lines{kAsked});

    fake::clear_journal();
    fake::set_tty_kind(1);
    EXPECT_EQ(aaa_is_tty(kDevice), 1);
    EXPECT_EQ(fake::calls(), (Lines{kAsked, kAsked}));

    fake::clear_journal();
    fake::set_tty_kind(3);
    EXPECT_EQ(aaa_is_tty(kDevice), 0);
    EXPECT_EQ(fake::calls(), (Lines{kAsked, kAsked}));
}

TEST(LineKind, TtyTakesTheSecondAnswerWhenTheFirstQuestionFails) {
    fake::set_tty_kind(1);
    fake::fail_call("tty_details_from_device_file", 1, 5);
    EXPECT_EQ(aaa_is_tty(kDevice), 1);

    fake::fail_call("tty_details_from_device_file", 2, 5);
    EXPECT_EQ(aaa_is_tty(kDevice), 0);
}

TEST(LineName, DropsTheFirstCharacterAndTurnsSlashesIntoDashes) {
    EXPECT_EQ(converted("/dev/vty1"), "dev-vty1");
    EXPECT_EQ(converted("/dev/pts/0"), "dev-pts-0");
    EXPECT_EQ(converted("console"), "onsole");
    EXPECT_EQ(converted("//"), "-");
    EXPECT_EQ(converted("/a-b/"), "a-b-");
    EXPECT_EQ(converted("/"), "");
    EXPECT_EQ(converted("x"), "");
    EXPECT_EQ(converted("/\xff/\x80"), "\xff-\x80");
}

TEST(LineName, AnEmptyNameStaysEmpty) {
    // Two bytes, so that a step past the terminator would be seen.
    char device[2] = {'\0', 'x'};
    char *const name = aaa_util_convert_tty_name(device);
    EXPECT_STREQ(name, "");
    std::free(name);
}

TEST(LineName, LeavesTheDeviceAsItIs) {
    char device[] = "/dev/vty1";
    std::free(aaa_util_convert_tty_name(device));
    EXPECT_STREQ(device, "/dev/vty1");
}

TEST(LineName, ANullGivesANull) {
    EXPECT_EQ(aaa_util_convert_tty_name(nullptr), nullptr);
}

TEST(LineName, ExhaustedMemoryGivesANull) {
    fake::sweep_allocations([](fake::FailAlloc &fail) {
        char device[] = "/dev/vty1";
        char *const name = fail.run([&] { return aaa_util_convert_tty_name(device); });
        if (fail.fired()) {
            EXPECT_EQ(name, nullptr);
        } else {
            EXPECT_STREQ(name, "dev-vty1");
        }
        std::free(name);
    });
}
