// SPDX-License-Identifier: Apache-2.0
//
// Secrets leave no copy in memory.

#include "tacacs/secret.hpp"

#include <gtest/gtest.h>

#include "support/memory_search.hpp"
#include "tacacs/packet.hpp"

namespace tacacs {
namespace {

constexpr Inverted kPassword("a password of 34 bytes, found once");

std::string_view password(std::string &room) {
    room.clear();
    for (const char byte : kPassword.bytes) {
        room += static_cast<char>(~byte);
    }
    return room;
}

TEST(SecretBytes, AreWipedWhenTheyGrowAndWhenTheyGo) {
    std::string room;
    room.reserve(64);
    {
        SecretBytes bytes(password(room));
        wipe(room.data(), room.size());
        for (int i = 0; i < 1000; ++i) {
            bytes.append("xxxxxxxxxxxxxxxx");
        }
        const SecretBytes moved = std::move(bytes);
        EXPECT_EQ(copies_in_memory(kPassword), 1u);
    }
    EXPECT_EQ(copies_in_memory(kPassword), 0u);
}

TEST(SecretBytes, AreObfuscatedInPlace) {
    std::string room;
    room.reserve(64);
    const Protection secret = Protection::secret("key");
    Session session(Type::kAuthentication, 0, secret);
    SecretBytes packet = begin_packet(100);
    packet.append(password(room));
    wipe(room.data(), room.size());
    ASSERT_TRUE(session.seal(packet, false));
    EXPECT_EQ(copies_in_memory(kPassword), 0u);
}

TEST(SecretBytes, AreCopiedMovedAndCleared) {
    SecretBytes bytes("secret");
    const SecretBytes copy = bytes;
    EXPECT_EQ(copy.view(), "secret");
    SecretBytes moved = std::move(bytes);
    EXPECT_EQ(moved.view(), "secret");
    bytes = copy;
    bytes.append(bytes.view().substr(0, 0));
    EXPECT_EQ(bytes.view(), "secret");
    moved.clear();
    EXPECT_TRUE(moved.empty());
    moved.append("again");
    EXPECT_EQ(moved.view(), "again");
    moved = SecretBytes("");
    EXPECT_TRUE(moved.empty());
}

TEST(SecretBytes, HoldNumbersBigEndian) {
    SecretBytes bytes;
    bytes.append_number16(0x1234);
    bytes.append_number8(0x56);
    EXPECT_EQ(bytes.view(), "\x12\x34\x56");
}

}  // namespace
}  // namespace tacacs
