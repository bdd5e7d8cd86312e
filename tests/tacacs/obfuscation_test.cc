// SPDX-License-Identifier: Apache-2.0
//
// Obfuscation, against that of another implementation.

#include "tacacs/vectors.hpp"

namespace tacacs {
namespace {

using tacacs_test::kSession;

// The pad itself: what a body of zeros becomes.
std::string pad(const Protection &protection, Head head, std::size_t length) {
    std::string body(length, '\0');
    EXPECT_TRUE(protection.combine(head, body.data(), length));
    return body;
}

TEST(Obfuscation, IsThatOfTheOtherImplementation) {
    const std::string packet = tacacs_test::vector("longest_password");
    const std::string body = packet.substr(kHeadSize);
    const std::string hidden = std::string("\xff\xfa\0\0\0", 5) + std::string(65530, 'p');
    std::string bytes = pad(tacacs_test::protection(), {.sequence = 3, .session = kSession}, hidden.size());
    for (std::size_t i = 0; i < hidden.size(); ++i) {
        bytes[i] = static_cast<char>(bytes[i] ^ hidden[i]);
    }
    EXPECT_EQ(bytes, body);
}

TEST(Obfuscation, OfEveryLengthIsTheBeginningOfOnePad) {
    const Head head = {.session = kSession};
    const std::string whole = pad(tacacs_test::protection(), head, 100);
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_EQ(pad(tacacs_test::protection(), head, length), whole.substr(0, length));
    }
}

TEST(Obfuscation, DependsOnSecretSessionVersionAndSequence) {
    const Head head = {.session = kSession};
    const std::string usual = pad(tacacs_test::protection(), head, 16);
    EXPECT_NE(pad(Protection::secret("other"), head, 16), usual);
    EXPECT_NE(pad(tacacs_test::protection(), {.session = kSession + 1}, 16), usual);
    EXPECT_NE(pad(tacacs_test::protection(), {.minor = 1, .session = kSession}, 16), usual);
    EXPECT_NE(pad(tacacs_test::protection(), {.sequence = 3, .session = kSession}, 16), usual);
}

TEST(Obfuscation, TwiceGivesTheBodyAgain) {
    std::string body = "a body that is longer than one block";
    const Head head = {.session = kSession};
    ASSERT_TRUE(tacacs_test::protection().combine(head, body.data(), body.size()));
    EXPECT_NE(body, "a body that is longer than one block");
    ASSERT_TRUE(tacacs_test::protection().combine(head, body.data(), body.size()));
    EXPECT_EQ(body, "a body that is longer than one block");
}

TEST(Obfuscation, NeedsASecret) {
    std::string body = "x";
    EXPECT_FALSE(Protection::secret("").combine({}, body.data(), body.size()));
    EXPECT_FALSE(Protection::tls().combine({}, body.data(), body.size()));
    EXPECT_EQ(body, "x");
}

}  // namespace
}  // namespace tacacs
