// SPDX-License-Identifier: Apache-2.0
//
// Blocks of pcapng, byte by byte. tests/dissector/ reads them with tshark.

#include "capture/pcapng.hpp"

#include <gtest/gtest.h>

#include <bit>

namespace service {
namespace {

std::string hex(std::string_view bytes) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        text += digits[static_cast<unsigned char>(c) >> 4];
        text += digits[static_cast<unsigned char>(c) & 15];
    }
    return text;
}

class Pcapng : public testing::Test {
  protected:
    void SetUp() override {
        if (std::endian::native != std::endian::little) {
            GTEST_SKIP() << "the expected bytes are those of a little-endian machine";
        }
    }
};

TEST_F(Pcapng, ASectionTellsTheByteOrderAndTheProgram) {
    EXPECT_EQ(hex(pcapng::section("aaad")),
              "0a0d0d0a280000004d3c2b1a01000000ffffffffffffffff"
              "0400040061616164"
              "0000000028000000");
}

TEST_F(Pcapng, AnInterfaceHasNameDescriptionAndNanoseconds) {
    EXPECT_EQ(hex(pcapng::interface(pcapng::kUser0, "clients", "text")),
              "01000000340000009300000000000000"
              "02000700636c69656e747300"
              "0300040074657874"
              "0900010009000000"
              "0000000034000000");
}

TEST_F(Pcapng, APacketIsPaddedAndTellsItsDirection) {
    EXPECT_EQ(
        hex(pcapng::packet({1, 0x0102030405060708, true, 0, "abc"})),
        "060000003000000001000000040302010807060503000000030000006162630002000400020000000000000030000000");
}

TEST_F(Pcapng, APacketTellsHowManyWereDroppedBeforeIt) {
    EXPECT_EQ(hex(pcapng::packet({0, 0, false, 7, "abcd"})),
              "060000003c000000000000000000000000000000040000000400000061626364"
              "0200040001000000"
              "040008000700000000000000"
              "000000003c000000");
}

TEST_F(Pcapng, APacketMayHaveAComment) {
    EXPECT_EQ(hex(pcapng::packet({0, 0, false, 0, "abcd", "why"})),
              "0600000038000000000000000000000000000000040000000400000061626364"
              "0100030077687900"
              "0200040001000000"
              "0000000038000000");
}

TEST_F(Pcapng, StatisticsHaveTimesAndCounts) {
    EXPECT_EQ(hex(pcapng::statistics({1, 2, 3, 4, 5})),
              "050000004c000000010000000000000003000000"
              "020008000000000002000000"
              "030008000000000003000000"
              "040008000400000000000000"
              "050008000500000000000000"
              "000000004c000000");
}

TEST_F(Pcapng, StatisticsMayHaveAComment) {
    EXPECT_EQ(hex(pcapng::statistics({1, 2, 3, 4, 5, "why"})),
              "0500000054000000010000000000000003000000"
              "0100030077687900"
              "020008000000000002000000"
              "030008000000000003000000"
              "040008000400000000000000"
              "050008000500000000000000"
              "0000000054000000");
}

TEST_F(Pcapng, SecretsHaveAKindAndAText) {
    EXPECT_EQ(hex(pcapng::secrets(pcapng::kTlsKeys, "line\n")),
              "0a000000200000004b534c54050000006c696e650a0000000000000020000000");
}

}  // namespace
}  // namespace service
