// SPDX-License-Identifier: Apache-2.0
//
// Blocks of secrets as lines of the file of keys: no key and no name makes up a line or a word.

#include "service/capture_keys.hpp"

#include <gtest/gtest.h>

#include <cstring>

namespace {

using aaactl::CaptureBlock;
using aaactl::CaptureKeys;
using aaactl::keys_header;

constexpr uint32_t kTls = 0x544c534b, kRadius = 0x61616152, kTacacs = 0x61616154;

CaptureBlock block(uint32_t kind, const std::string &text) {
    std::string bytes(16, '\0');
    const uint32_t words[2] = {kind, static_cast<uint32_t>(text.size())};
    std::memcpy(bytes.data() + 8, words, sizeof words);
    return {CaptureBlock::secrets, bytes + text};
}

TEST(CaptureKeys, LinesOfTlsAreThreeFields) {
    CaptureKeys keys;
    const std::string good = "CLIENT_RANDOM 00aF 11\n";
    EXPECT_EQ(keys.lines(block(kTls, good)), good);
    EXPECT_EQ(keys.lines(block(kTls, "#= tls.debug_file: x\n" + good + "CLIENT_RANDOM 00\n")), good);
    for (const char *bad :
         {"", "\n", "CLIENT_RANDOM", "CLIENT_RANDOM 00", "CLIENT_RANDOM 00 ", "CLIENT_RANDOM  00 11",
          " 00 11", "CLIENT_RANDOM 00 11 22", "CLIENT_RANDOM 00 1g", "#= 00 11", "lower 00 11"}) {
        EXPECT_EQ(keys.lines(block(kTls, bad)), "") << bad;
    }
}

TEST(CaptureKeys, KeysThatCannotBePreferencesAreComments) {
    CaptureKeys keys;
    EXPECT_EQ(keys.lines(block(kTacacs, "10.0.0.1\t10.0.0.2\ta key")),
              "# the key of 10.0.0.2 has a blank, and cannot be a preference\n");
    EXPECT_EQ(keys.lines(block(kTacacs, "10.0.0.1\t10.0.0.2\ta\nkey")),
              "# the key of 10.0.0.2 has a line feed, and cannot be a preference\n");
    EXPECT_EQ(keys.lines(block(kRadius, "10.0.0.4:1812\t key")),
              "# the key of 10.0.0.4:1812 begins with a blank, and cannot be a preference\n");
    // Neither spoils the preference for the others.
    EXPECT_EQ(keys.lines(block(kTacacs, "10.0.0.1\t10.0.0.3\tgood")),
              "# 10.0.0.3\n#= tacplus.key: 10.0.0.1/10.0.0.3=good\n");
    // A key is written as it is: nothing there has a meaning for who reads the line.
    EXPECT_EQ(keys.lines(block(kRadius, "10.0.0.4:1812\ta key's \"#\\n\" $(id)")),
              "# 10.0.0.4:1812\n#= radius.shared_secret: a key's \"#\\n\" $(id)\n");
}

TEST(CaptureKeys, TheRecipeQuotesTheFileAndHasNoKeyInACommand) {
    const std::string header = keys_header("my $(id) keys");
    EXPECT_NE(header.find(" sed -n 's/^#= //p' 'my $(id) keys' > "), std::string::npos) << header;
    EXPECT_NE(header.find("-o 'tls.keylog_file:my $(id) keys'\n"), std::string::npos) << header;
    EXPECT_EQ(header.find("xargs"), std::string::npos);
    EXPECT_NE(keys_header("-n").find(" './-n' >"), std::string::npos);
    const std::string odd = keys_header("a\nb");
    EXPECT_EQ(odd.find("sed"), std::string::npos);
    EXPECT_NE(odd.find("rename this file"), std::string::npos);
}

}  // namespace
