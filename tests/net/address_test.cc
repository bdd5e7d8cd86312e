// SPDX-License-Identifier: Apache-2.0

#include "net/address.hpp"

#include <gtest/gtest.h>

namespace net {
namespace {

TEST(Address, ReadsBothFamilies) {
    const auto four = Address::parse("192.0.2.1", 1812);
    ASSERT_TRUE(four);
    EXPECT_EQ(four->family(), AF_INET);
    EXPECT_EQ(four->port(), 1812);
    EXPECT_EQ(four->text(), "192.0.2.1:1812");
    EXPECT_EQ(four->size(), 16U);
    const auto six = Address::parse("2001:db8::1", 49);
    ASSERT_TRUE(six);
    EXPECT_EQ(six->family(), AF_INET6);
    EXPECT_EQ(six->port(), 49);
    EXPECT_EQ(six->text(), "[2001:db8::1]:49");
}

TEST(Address, ReadsBracketsAndInterfaces) {
    const auto bracketed = Address::parse("[2001:db8::1]", 2083);
    ASSERT_TRUE(bracketed);
    EXPECT_EQ(bracketed->text(), "[2001:db8::1]:2083");
    const auto local = Address::parse("fe80::1%lo", 1);
    ASSERT_TRUE(local);
    EXPECT_EQ(local->text(), "[fe80::1%lo]:1");
}

TEST(Address, RefusesNamesAndEverythingElse) {
    using std::string_view_literals::operator""sv;
    for (const std::string_view text :
         {""sv, "localhost"sv, "radius.example.net"sv, "192.0.2.1:1812"sv, "192.0.2.256"sv, "[192.0.2.1]"sv,
          "[]"sv, "["sv, "::1]"sv, "192.0.2.1 "sv, "192.0.2.1\0x"sv, "fe80::1%no-such-interface"sv}) {
        EXPECT_FALSE(Address::parse(text, 1)) << text;
    }
}

}  // namespace
}  // namespace net
