// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "radius/bytes.hpp"
#include "radius/packet.hpp"

namespace radius {
namespace {

using radius_test::from_hex;

TEST(RadiusAttributes, AreWholeOrNot) {
    const std::string whole = from_hex("0103 61 1802 19ff") + std::string(253, 'c');
    EXPECT_TRUE(Attributes::are_whole(""));
    EXPECT_TRUE(Attributes::are_whole(whole));
    for (std::size_t length = 1; length < whole.size(); ++length) {
        EXPECT_EQ(Attributes::are_whole(whole.substr(0, length)), length == 3 || length == 5) << length;
    }
    EXPECT_FALSE(Attributes::are_whole(from_hex("0100")));
    EXPECT_FALSE(Attributes::are_whole(from_hex("0101")));
    EXPECT_FALSE(Attributes::are_whole(from_hex("010461")));
}

TEST(RadiusAttributes, AreReadInOrder) {
    const std::string bytes = from_hex("010361 1802 010362 06060000000a");
    const Attributes attributes(bytes);
    std::vector<int> types;
    for (const Attribute attribute : attributes) {
        types.push_back(static_cast<int>(attribute.type));
    }
    EXPECT_EQ(types, (std::vector<int>{1, 24, 1, 6}));
    EXPECT_EQ(attributes.joined(Type::kUserName), "ab");
    EXPECT_EQ(attributes.find(Type::kUserName)->value, "a");
    EXPECT_EQ(attributes.find(Type::kState)->value, "");
    EXPECT_EQ(attributes.find(Type::kServiceType)->number(), 10U);
    EXPECT_EQ(attributes.find(Type::kUserName)->number(), std::nullopt);
    EXPECT_FALSE(attributes.find(Type::kClass));
    EXPECT_EQ(Attributes().joined(Type::kClass), "");
}

TEST(RadiusAttributes, AreAddedAllOrNone) {
    Request request(Code::kAccessRequest, 1);
    const std::string before(request.bytes());
    EXPECT_FALSE(request.add_encoded(from_hex("010361 0104")));
    EXPECT_FALSE(request.add_encoded(std::string(4094, 0)));
    std::string many;
    while (many.size() < kMaxPacket - before.size()) {
        many += from_hex("0102");
    }
    EXPECT_FALSE(request.add_encoded(many + from_hex("0102")));
    EXPECT_EQ(request.bytes(), before);
    EXPECT_TRUE(request.add_encoded(many));
    EXPECT_EQ(request.bytes(), before + many);
}

}  // namespace
}  // namespace radius
