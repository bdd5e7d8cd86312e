// SPDX-License-Identifier: Apache-2.0

#include "records/crc32c.hpp"

#include <gtest/gtest.h>

#include <string>

namespace accounting {
namespace {

// The values of RFC 3720, B.4.
TEST(Crc32c, GivesTheValuesOfTheStandard) {
    EXPECT_EQ(crc32c(""), 0U);
    EXPECT_EQ(crc32c("123456789"), 0xe3069283U);
    EXPECT_EQ(crc32c(std::string(32, '\0')), 0x8a9136aaU);
    EXPECT_EQ(crc32c(std::string(32, '\xff')), 0x62a8ab43U);
    std::string rising;
    for (char c = 0; c < 32; ++c) {
        rising += c;
    }
    EXPECT_EQ(crc32c(rising), 0x46dd794eU);
}

TEST(Crc32c, CanBeTakenInParts) {
    const std::string text = "The checksum of parts is that of the whole, wherever it is cut.";
    for (std::size_t at = 0; at <= text.size(); ++at) {
        EXPECT_EQ(crc32c(text.substr(at), crc32c(text.substr(0, at))), crc32c(text)) << at;
    }
}

}  // namespace
}  // namespace accounting
