// SPDX-License-Identifier: Apache-2.0
//
// Kinds of lines.

#include "platform/terminal.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "aaa/lines.h"
#include "log_socket.hpp"
#include "support/temp_dir.hpp"
#include "support/terminal_process.hpp"

namespace {

constexpr cerrno kInvalidArg = 0xa2571000u;
constexpr cerrno kUnknownLine = 0xa2571200u;

// Kind of a device, or -1.
int kind_of(const char *device) {
    tty_details_t details;
    std::memset(&details, 0x5a, sizeof details);
    if (tty_details_from_device_file(0, device, &details) != 0) {
        return -1;
    }
    for (const uint8_t byte : details.rest) {
        EXPECT_EQ(0, byte);
    }
    return static_cast<int>(details.kind);
}

std::string own_device() {
    char name[64];
    return ttyname_r(0, name, sizeof name) == 0 ? name : "/dev/none";
}

}  // namespace

// ---- kinds -----------------------------------------------------------------------

TEST(LineKind, IsToldByTheName) {
    const struct {
        const char *device;
        int kind;
    } expected[] = {
        {"/dev/console", AAA_LINE_CONSOLE},
        {"/dev/con0", AAA_LINE_CONSOLE},
        {"/dev/con0_RP0", AAA_LINE_CONSOLE},
        {"/dev/tty1", AAA_LINE_TTY2},
        {"/dev/tty63", AAA_LINE_TTY2},
        {"/dev/tty", AAA_LINE_TTY1},
        {"/dev/hvc0", AAA_LINE_TTY1},
        {"/dev/aux", AAA_LINE_AUX},
        {"/dev/aux0", AAA_LINE_AUX},
        {"/dev/ttyS0", AAA_LINE_AUX},
        {"/dev/ttyS12", AAA_LINE_AUX},
        {"/dev/ttyUSB0", AAA_LINE_AUX},
        {"/dev/ttyACM1", AAA_LINE_AUX},
        {"/dev/ttyAMA0", AAA_LINE_AUX},
        {"/dev/pts/0", AAA_LINE_VTY},
        {"/dev/pts/1234", AAA_LINE_VTY},
        {"/dev/vty1", AAA_LINE_VTY},
        {"pts/3", AAA_LINE_VTY},
        {"vty1", AAA_LINE_VTY},
        {"ttyS1", AAA_LINE_AUX},
        {"dev-vty1", AAA_LINE_VTY},
    };
    for (const auto &row : expected) {
        EXPECT_EQ(row.kind, kind_of(row.device)) << row.device;
    }
}

TEST(LineKind, OfOtherDevicesIsUnknown) {
    for (const char *device :
         {"/dev/null", "/dev/sda", "/dev/pts", "/dev/pts/", "/dev/pts/ptmx", "/dev/ttyprintk",
          "/dev/consoles", "/dev/vty", "/dev/ttyS", "", "/", "/nonexistent", "/dev/con", "/dev/auxiliary"}) {
        EXPECT_EQ(-1, kind_of(device)) << device;
    }
}

TEST(LineKind, FollowsALinkToADevice) {
    const TempDir dir;
    const std::string link = dir.path("usb-maker-serial");
    ASSERT_EQ(0, symlink("/dev/console", link.c_str()));
    if (access("/dev/console", F_OK) == 0) {
        EXPECT_EQ(AAA_LINE_CONSOLE, kind_of(link.c_str()));
    }
    ASSERT_EQ(0, unlink(link.c_str()));
    ASSERT_EQ(0, symlink("/dev/null", link.c_str()));
    EXPECT_EQ(-1, kind_of(link.c_str()));
}

TEST(LineKind, OfARealTerminalIsVty) {
    TerminalProcess child([] { return std::to_string(kind_of(own_device().c_str())); });
    EXPECT_EQ("4", child.report());
}

TEST(LineKind, RefusesNullsAndKeepsErrno) {
    tty_details_t details;
    EXPECT_NE(0, tty_details_from_device_file(0, nullptr, &details));
    EXPECT_NE(0, tty_details_from_device_file(0, "/dev/tty1", nullptr));
    errno = EINTR;
    tty_details_from_device_file(0, "/nonexistent", &details);
    EXPECT_EQ(EINTR, errno);
}

TEST(CheckLinetype, FillsCategoryAndDetails) {
    const struct {
        const char *mnemonic;
        uint32_t category;
        const char *detail;
        const char *detail2;
    } expected[] = {
        {"vty3", AAA_LINE_VTY, "vty", "vty3"},
        {"/dev/pts/3", AAA_LINE_VTY, "vty", "pts/3"},
        {"con0_RP0", AAA_LINE_CONSOLE, "console", "con0_RP0"},
        {"aux0", AAA_LINE_AUX, "aux", "aux0"},
        {"tty2", AAA_LINE_TTY2, "tty", "tty2"},
    };
    for (const auto &row : expected) {
        aaa_usercred_t cred{};
        std::string mnemonic = row.mnemonic;
        cred.tty_mnemonic = mnemonic.data();
        EXPECT_EQ(0u, aaa_util_check_linetype(&cred));
        EXPECT_EQ(row.category, cred.line_category) << row.mnemonic;
        EXPECT_STREQ(row.detail, cred.line_detail);
        EXPECT_STREQ(row.detail2, cred.line_detail2);
    }
}

// Category 0 is the console: an unknown line must not get it.
TEST(CheckLinetype, MarksAnUnknownLine) {
    aaa_usercred_t cred{};
    std::string mnemonic(100, 'z');
    cred.tty_mnemonic = mnemonic.data();
    EXPECT_EQ(kUnknownLine, aaa_util_check_linetype(&cred));
    EXPECT_EQ(0xffffffffu, cred.line_category);
    EXPECT_STREQ("unknown", cred.line_detail);
    EXPECT_EQ(std::string(31, 'z'), cred.line_detail2);
    EXPECT_EQ(0u, cred.authen_method);
    cred.tty_mnemonic = nullptr;
    EXPECT_EQ(kUnknownLine, aaa_util_check_linetype(&cred));
    EXPECT_STREQ("", cred.line_detail2);
    EXPECT_EQ(kInvalidArg, aaa_util_check_linetype(nullptr));
}

int main(int argc, char **argv) {
    return run_with_captured_log(argc, argv);
}
