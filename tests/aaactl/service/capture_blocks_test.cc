// SPDX-License-Identifier: Apache-2.0
//
// Captures from the service, cut into blocks: programs that are not the service cannot hold aaactl.

#include "service/capture_blocks.hpp"

#include <gtest/gtest.h>

#include <cstring>

#include "cli/output.hpp"

namespace aaactl {
namespace {

std::string words(std::initializer_list<uint32_t> numbers) {
    std::string bytes;
    for (const uint32_t number : numbers) {
        bytes.append(reinterpret_cast<const char *>(&number), sizeof number);
    }
    return bytes;
}

const uint32_t kSection = CaptureBlock::section, kOrder = 0x1a2b3c4d;

std::string refusal_of(const std::string &bytes) {
    CaptureBlocks blocks;
    try {
        blocks.add(bytes);
        while (blocks.next()) {
        }
    } catch (const Failure &failure) {
        EXPECT_EQ(failure.code(), ExitCode::bad_input);
        return failure.what();
    }
    return "";
}

TEST(CaptureBlocks, ComeWholeWhateverTheyAreReadIn) {
    const std::string first = words({kSection, 16, kOrder, 16}), second = words({6, 12, 12});
    CaptureBlocks blocks;
    std::string seen;
    for (const char c : first + second) {
        blocks.add(std::string(1, c));
        while (const auto block = blocks.next()) {
            seen += block->bytes;
        }
    }
    EXPECT_EQ(seen, first + second);
}

// The program waited for the rest.
TEST(CaptureBlocks, LengthsThatNoBlockHasAreRefusedAtOnce) {
    const std::string begin = words({kSection, 16, kOrder, 16});
    EXPECT_NE(refusal_of(words({kSection, 2u << 20})).find("a block of 2097152 bytes"), std::string::npos);
    EXPECT_NE(refusal_of(begin + words({6, UINT32_MAX - 3})).find("the longest has 1048576"),
              std::string::npos);
    EXPECT_NE(refusal_of(begin + words({6, 8})), "");
    EXPECT_NE(refusal_of(begin + words({6, 14})), "");
    EXPECT_EQ(refusal_of(begin + words({6, 1u << 20})), "");
}

TEST(CaptureBlocks, OtherBytesAreRefused) {
    EXPECT_NE(refusal_of(words({5, 12, 12})), "");
    EXPECT_NE(refusal_of(words({kSection, 16, 1, 16})), "");
    EXPECT_NE(refusal_of(words({kSection, 16, kOrder, 20})), "");
}

}  // namespace
}  // namespace aaactl
