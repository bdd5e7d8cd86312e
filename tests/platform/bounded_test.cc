// SPDX-License-Identifier: Apache-2.0
//
// The host's bounded copies and comparisons: every limit, overlap and null.

#include "platform/bounded.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

namespace {

constexpr size_t kTooLarge = SIZE_MAX / 2 + 1;

// A buffer whose bytes around the tested part must stay as they are.
struct Fenced {
    char before[8];
    char data[16];
    char after[8];
    Fenced() { std::memset(this, 'x', sizeof *this); }
    [[nodiscard]] bool fences_intact() const {
        return std::memcmp(before, "xxxxxxxx", 8) == 0 && std::memcmp(after, "xxxxxxxx", 8) == 0;
    }
};

std::string bytes(const char *p, size_t n) {
    return {p, n};
}

}  // namespace

// ---- memcpy_s ------------------------------------------------------------------

TEST(MemcpyS, CopiesUpToTheFullSize) {
    Fenced f;
    EXPECT_EQ(0, memcpy_s(f.data, 16, "0123456789abcdef", 16));
    EXPECT_EQ("0123456789abcdef", bytes(f.data, 16));
    EXPECT_TRUE(f.fences_intact());
}

TEST(MemcpyS, LeavesTheRestOfTheDestination) {
    Fenced f;
    EXPECT_EQ(0, memcpy_s(f.data, 16, "ab", 2));
    EXPECT_EQ("abxx", bytes(f.data, 4));
}

TEST(MemcpyS, ZeroesTheDestinationWhenTheSourceIsLonger) {
    Fenced f;
    EXPECT_EQ(ERANGE, memcpy_s(f.data, 4, "01234", 5));
    EXPECT_EQ(bytes("\0\0\0\0xx", 6), bytes(f.data, 6));
    EXPECT_TRUE(f.fences_intact());
}

TEST(MemcpyS, ZeroesTheDestinationForANullSource) {
    Fenced f;
    EXPECT_NE(0, memcpy_s(f.data, 4, nullptr, 2));
    EXPECT_EQ(bytes("\0\0\0\0x", 5), bytes(f.data, 5));
}

TEST(MemcpyS, TakesNothingFromANullSource) {
    Fenced f;
    EXPECT_EQ(0, memcpy_s(f.data, 4, nullptr, 0));
    EXPECT_EQ("xxxx", bytes(f.data, 4));
}

TEST(MemcpyS, RefusesOverlapInBothDirections) {
    char text[] = "0123456789";
    EXPECT_NE(0, memcpy_s(text + 2, 4, text, 4));
    EXPECT_EQ(bytes("01\0\0\0\0"
                    "6789",
                    10),
              bytes(text, 10));
    char other[] = "0123456789";
    EXPECT_NE(0, memcpy_s(other, 4, other + 3, 4));
    EXPECT_EQ(bytes("\0\0\0\0"
                    "456789",
                    10),
              bytes(other, 10));
}

TEST(MemcpyS, CopiesBetweenNeighbours) {
    char text[] = "abcdefgh";
    EXPECT_EQ(0, memcpy_s(text, 4, text + 4, 4));
    EXPECT_STREQ("efghefgh", text);
    EXPECT_EQ(0, memcpy_s(text + 4, 4, "wxyz", 4));
    EXPECT_EQ(0, memcpy_s(text + 4, 4, text, 4));
    EXPECT_STREQ("efghefgh", text);
}

TEST(MemcpyS, RefusesANullDestinationAndANegativeSize) {
    char c = 'x';
    EXPECT_NE(0, memcpy_s(nullptr, 4, "abcd", 4));
    EXPECT_NE(0, memcpy_s(&c, kTooLarge, "a", 1));
    EXPECT_EQ('x', c);
}

// ---- memset_s ------------------------------------------------------------------

TEST(MemsetS, FillsTheGivenNumberOfBytes) {
    Fenced f;
    EXPECT_EQ(0, memset_s(f.data, 16, 'z', 3));
    EXPECT_EQ("zzzx", bytes(f.data, 4));
}

TEST(MemsetS, TakesTheSameNumberTwice) {
    Fenced f;
    EXPECT_EQ(0, memset_s(f.data, 16, 0, 16));
    EXPECT_EQ(std::string(16, '\0'), bytes(f.data, 16));
    EXPECT_TRUE(f.fences_intact());
}

TEST(MemsetS, FillsNoMoreThanTheDestination) {
    Fenced f;
    EXPECT_NE(0, memset_s(f.data, 4, 0, 100));
    EXPECT_EQ(bytes("\0\0\0\0x", 5), bytes(f.data, 5));
}

TEST(MemsetS, RefusesANullDestinationAndANegativeSize) {
    char c = 'x';
    EXPECT_NE(0, memset_s(nullptr, 4, 0, 4));
    EXPECT_NE(0, memset_s(&c, kTooLarge, 0, 1));
    EXPECT_EQ('x', c);
}

// ---- strcmp_s ------------------------------------------------------------------

TEST(StrcmpS, ComparesTheProtocolName) {
    int diff = 99;
    EXPECT_EQ(0, strcmp_s("radius", 7, "radius", &diff));
    EXPECT_EQ(0, diff);
    EXPECT_EQ(0, strcmp_s("tacacs", 7, "radius", &diff));
    EXPECT_GT(diff, 0);
    EXPECT_EQ(0, strcmp_s("diameter", 7, "radius", &diff));
    EXPECT_LT(diff, 0);
}

TEST(StrcmpS, CountsTheTerminatorAmongTheComparedBytes) {
    int diff = 99;
    EXPECT_EQ(0, strcmp_s("radius2", 7, "radius", &diff));
    EXPECT_NE(0, diff);
    EXPECT_EQ(0, strcmp_s("radius2", 6, "radius", &diff));
    EXPECT_EQ(0, diff);
    EXPECT_EQ(0, strcmp_s("radiu", 7, "radius", &diff));
    EXPECT_NE(0, diff);
}

TEST(StrcmpS, ReadsNoFurtherThanTheSize) {
    const char unterminated[3] = {'a', 'b', 'c'};
    int diff = 99;
    EXPECT_EQ(0, strcmp_s(unterminated, 3, "abcd", &diff));
    EXPECT_EQ(0, diff);
}

TEST(StrcmpS, TellsANullStringFromAnEqualOne) {
    for (const char *dst : {static_cast<const char *>(nullptr), "radius"}) {
        int diff = 0;
        EXPECT_NE(0, strcmp_s(dst, 7, nullptr, &diff));
        EXPECT_NE(0, diff);
    }
    int diff = 0;
    EXPECT_NE(0, strcmp_s(nullptr, 7, "radius", &diff));
    EXPECT_NE(0, diff);
    EXPECT_NE(0, strcmp_s("radius", 7, "radius", nullptr));
    diff = 0;
    EXPECT_NE(0, strcmp_s("radius", 0, "radius", &diff));
    EXPECT_NE(0, diff);
    diff = 0;
    EXPECT_NE(0, strcmp_s("radius", kTooLarge, "radius", &diff));
    EXPECT_NE(0, diff);
}

// ---- sstrncpy ------------------------------------------------------------------

TEST(Sstrncpy, CountsTheTerminatorInTheLimit) {
    Fenced f;
    EXPECT_EQ(f.data, sstrncpy(f.data, "0123456789", 5));
    EXPECT_STREQ("0123", f.data);
    EXPECT_EQ('x', f.data[5]);
}

TEST(Sstrncpy, LeavesOneByteOfA256ByteNameFree) {
    char name[256] = {};
    const std::string source(300, 'n');
    sstrncpy(name, source.c_str(), 255);
    EXPECT_EQ(254u, std::strlen(name));
}

TEST(Sstrncpy, FillsA32ByteTerminalName) {
    char name[33];
    std::memset(name, 'x', sizeof name);
    sstrncpy(name, "a-terminal-name-of-thirty-one-ch", 32);
    EXPECT_EQ(31u, std::strlen(name));
    EXPECT_EQ('x', name[32]);
}

TEST(Sstrncpy, ReadsNoFurtherThanTheLimit) {
    const char unterminated[3] = {'a', 'b', 'c'};
    char out[4];
    EXPECT_STREQ("abc", sstrncpy(out, unterminated, 4));
}

TEST(Sstrncpy, TakesNullsAndALimitOfZero) {
    char c[2] = {'x', 'x'};
    EXPECT_EQ(nullptr, sstrncpy(nullptr, "a", 4));
    EXPECT_EQ(c, sstrncpy(c, "a", 0));
    EXPECT_EQ('x', c[0]);
    EXPECT_STREQ("", sstrncpy(c, nullptr, 2));
    EXPECT_EQ('x', c[1]);
}

TEST(Sstrncpy, CopiesWithinOneBuffer) {
    char text[16] = "0123456789";
    EXPECT_STREQ("3456789", sstrncpy(text, text + 3, sizeof text));
}

// ---- copies into a buffer ------------------------------------------------------

TEST(MemcpyToBuf, NeverCopiesMoreThanTheBuffer) {
    Fenced f;
    EXPECT_EQ(f.data, __memcpy_to_buf(f.data, "0123456789", 10, 4));
    EXPECT_EQ("0123x", bytes(f.data, 5));
}

TEST(MemcpyToBuf, CopiesWhatIsThere) {
    Fenced f;
    __memcpy_to_buf(f.data, "01", 2, 4);
    EXPECT_EQ("01xx", bytes(f.data, 4));
}

TEST(MemcpyToBuf, TakesNulls) {
    char c = 'x';
    EXPECT_EQ(nullptr, __memcpy_to_buf(nullptr, "abcd", 4, 4));
    EXPECT_EQ(&c, __memcpy_to_buf(&c, nullptr, 1, 1));
    EXPECT_EQ('x', c);
}

TEST(StrncpyToBuf, TerminatesWithinTheBuffer) {
    Fenced f;
    EXPECT_EQ(f.data, __strncpy_to_buf(f.data, "0123456789", 10, 4));
    EXPECT_STREQ("012", f.data);
    EXPECT_EQ('x', f.data[4]);
}

TEST(StrncpyToBuf, CopiesAtMostTheGivenCharacters) {
    Fenced f;
    __strncpy_to_buf(f.data, "0123456789", 2, 16);
    EXPECT_STREQ("01", f.data);
    __strncpy_to_buf(f.data, "ab", 10, 16);
    EXPECT_STREQ("ab", f.data);
}

TEST(StrncpyToBuf, TakesNullsAndASizeOfZero) {
    char c = 'x';
    EXPECT_EQ(nullptr, __strncpy_to_buf(nullptr, "a", 1, 4));
    EXPECT_EQ(&c, __strncpy_to_buf(&c, "a", 1, 0));
    EXPECT_EQ('x', c);
    EXPECT_STREQ("", __strncpy_to_buf(&c, nullptr, 1, 1));
}
