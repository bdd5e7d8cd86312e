// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <string>

extern "C" {
#include "visible.h"
}

namespace {

std::string shown(const std::string &text, bool lines = false, size_t room = 512) {
    std::string out(room, 'X');
    visible_copy(out.data(), room, text.data(), text.size(), lines);
    return out.c_str();
}

TEST(Visible, KeepsWhatCanBeRead) {
    EXPECT_EQ(shown("Access for Zoë, 東京 \xf0\x9f\x98\x80 ~!"), "Access for Zoë, 東京 \xf0\x9f\x98\x80 ~!");
}

TEST(Visible, KeepsLinesOnlyWhereTheyAreWanted) {
    EXPECT_EQ(shown("a\nb\tc", true), "a\nb\tc");
    EXPECT_EQ(shown("a\nb\tc", false), "a b c");
}

TEST(Visible, MarksWhatMovesHidesOrReorders) {
    EXPECT_EQ(shown("\x1b[31m\r\b\x7f"), "?[31m???");
    EXPECT_EQ(shown("\xc2\x9b"
                    "31m"),
              "?31m");  // CSI in one character
    EXPECT_EQ(shown("a\xe2\x80\xae"
                    "b\xe2\x80\x8b"),
              "a?b?");  // override, zero width
}

TEST(Visible, MarksEveryByteThatIsNotUtf8) {
    EXPECT_EQ(shown("\xff\xc0\xaf\xe4"), "????");
    EXPECT_EQ(shown("\xed\xa0\x80"), "???");       // half of a pair
    EXPECT_EQ(shown("\xf4\x90\x80\x80"), "????");  // beyond the last character
}

TEST(Visible, EndsAtANulAndAtTheLength) {
    EXPECT_EQ(shown(std::string("ab\0cd", 5)), "ab");
    const char *text = "abcdef";
    char out[16];
    visible_copy(out, sizeof out, text, 3, 0);
    EXPECT_STREQ(out, "abc");
}

TEST(Visible, CutsAtAWholeCharacter) {
    for (size_t room = 1; room <= 8; ++room) {
        const std::string out = shown("aëë", false, room);
        EXPECT_LT(out.size(), room);
        EXPECT_EQ(std::string("aëë").substr(0, out.size()), out);
        EXPECT_TRUE(out.size() == 0 || out.size() % 2 == 1) << "half a character with room for " << room;
    }
}

}  // namespace
