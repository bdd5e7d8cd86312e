// SPDX-License-Identifier: Apache-2.0

#include "groups/server_text.hpp"

#include <gtest/gtest.h>

namespace service {
namespace {

TEST(ServerText, KeepsLinesAndReplacesWhatControlsATerminal) {
    EXPECT_EQ(text_for_user("one\r\ntwo\n\tthree"), "one\ntwo\n\tthree");
    EXPECT_EQ(text_for_user("a\rb"), "a b");
    EXPECT_EQ(text_for_user(std::string("\x1b[2J\7\x7f\0x", 8)), "?[2J???x");
    EXPECT_EQ(text_for_user("\xc2\x9b"
                            "31m"),
              "??31m")
        << "the wide form of the same";
    EXPECT_EQ(text_for_user("gr\xc3\xbc\xc3\x9f"), "gr\xc3\xbc\xc3\x9f");
    EXPECT_EQ(text_for_user(""), "");
}

TEST(ServerText, ALineOfTheLogStaysOne) {
    EXPECT_EQ(text_for_log("one\ntwo\rthree\t"), "one?two?three?");
    EXPECT_EQ(text_for_log(std::string(300, 'x')), std::string(256, 'x') + "...");
    EXPECT_EQ(text_for_user(std::string(5000, 'x')).size(), 4099u);
}

}  // namespace
}  // namespace service
