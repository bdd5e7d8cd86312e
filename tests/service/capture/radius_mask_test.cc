// SPDX-License-Identifier: Apache-2.0
//
// Packets of RADIUS in captures: names that no one here has are replaced, all else stays.

#include "capture/radius_mask.hpp"

#include <gtest/gtest.h>

namespace service {
namespace {

bool is_alice(const std::string &name) {
    return name.empty() || name == "alice";
}

std::string attribute(int type, const std::string &value) {
    return std::string{static_cast<char>(type), static_cast<char>(value.size() + 2)} + value;
}

std::string packet(const std::string &attributes, char code = 1) {
    const std::size_t length = 20 + attributes.size();
    return std::string{code, 7, static_cast<char>(length >> 8), static_cast<char>(length)} +
           "an authenticator" + attributes;
}

TEST(RadiusMask, ANameThatNoOneHasIsReplaced) {
    const std::string more = attribute(2, "sixteen bytes of") + attribute(87, "vty0");
    for (const std::string name : {"x", "rosebud1", "a password that is long", "alic", "alice "}) {
        const Masked shown = masked_radius(packet(attribute(1, name) + more), {is_alice});
        EXPECT_TRUE(shown.is_changed) << name;
        EXPECT_EQ(shown.bytes, packet(attribute(1, "********") + more)) << name;
    }
}

TEST(RadiusMask, AKnownNameStaysAndSoDoesAllElse) {
    for (const std::string &bytes :
         {packet(attribute(1, "alice") + attribute(18, "rosebud")), packet(""), packet(attribute(1, "")),
          packet(attribute(1, "alice"), 2) + "after the packet", packet(attribute(18, "rosebud"), 3)}) {
        const Masked shown = masked_radius(bytes, {is_alice});
        EXPECT_FALSE(shown.is_changed);
        EXPECT_EQ(shown.bytes, bytes);
    }
}

TEST(RadiusMask, EachNameOfAPacketIsReplacedAndWhatFollowsThePacketStays) {
    const std::string rest(900, '\0');
    const Masked shown = masked_radius(
        packet(attribute(1, "rosebud") + attribute(1, "alice") + attribute(1, "rosebud"), 2) + rest,
        {is_alice});
    EXPECT_EQ(shown.bytes,
              packet(attribute(1, "********") + attribute(1, "alice") + attribute(1, "********"), 2) + rest);
}

TEST(RadiusMask, TextsDoNotRepeatTheName) {
    const std::string vendor("\0\0\0\11", 4);
    const auto shown = [](const std::string &bytes) {
        return masked_radius(bytes, {is_alice, "Rosebud@example"}).bytes;
    };
    EXPECT_EQ(shown(packet(attribute(18, "no ROSEBUD here") + attribute(24, "xrosebud@example"), 3)),
              packet(attribute(18, "no ******** here") + attribute(24, "x********"), 3));
    EXPECT_EQ(shown(packet(attribute(26, vendor + attribute(1, "user=rosebud") + attribute(2, "x")), 2)),
              packet(attribute(26, vendor + attribute(1, "user=********") + attribute(2, "x")), 2));
    EXPECT_EQ(shown(packet(attribute(26, vendor + "rosebud"), 2)),
              packet(attribute(26, vendor + "********"), 2));
    EXPECT_EQ(shown(packet(attribute(2, "rosebud") + attribute(80, "rosebud"))),
              packet(attribute(2, "rosebud") + attribute(80, "rosebud")));
    EXPECT_EQ(shown(packet(attribute(18, "rosebud")).replace(3, 1, 1, '\x40')).find("rosebud"),
              std::string::npos);
    EXPECT_EQ(shown(packet(attribute(18, std::string(246, 'x') + "rosebud"))).size(), 20u + 255u);
    EXPECT_EQ(masked_radius(packet(attribute(18, "bye alice"), 3), {is_alice, "alice"}).bytes,
              packet(attribute(18, "bye alice"), 3));
}

TEST(RadiusMask, LengthsGrowBeyondAByte) {
    const std::string filler = attribute(25, std::string(226, 'c'));
    const Masked shown = masked_radius(packet(attribute(1, "x") + filler), {is_alice});
    EXPECT_EQ(shown.bytes, packet(attribute(1, "********") + filler));
    EXPECT_EQ(shown.bytes[2], 1);
}

TEST(RadiusMask, WhatIsDamagedStays) {
    const std::string whole = packet(attribute(1, "rosebud"));
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_EQ(masked_radius(whole.substr(0, size), {is_alice}).bytes, whole.substr(0, size));
    }
    for (const int length : {0, 1, 8, 10, 255}) {
        std::string bytes = whole;
        bytes[21] = static_cast<char>(length);
        EXPECT_EQ(masked_radius(bytes, {is_alice}).bytes, bytes) << length;
    }
    // Longer than any packet: with asterisks in place of short names its length would not fit.
    const std::string large = packet(attribute(1, "x")) + std::string(4096, 'x');
    EXPECT_EQ(masked_radius(large, {is_alice}).bytes, large);
    for (const int length : {0, 19, 30, 255}) {
        std::string bytes = whole;
        bytes[3] = static_cast<char>(length);
        EXPECT_EQ(masked_radius(bytes, {is_alice}).bytes, bytes) << length;
    }
}

}  // namespace
}  // namespace service
