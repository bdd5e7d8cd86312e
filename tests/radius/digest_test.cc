// SPDX-License-Identifier: Apache-2.0

#include "radius/digest.hpp"

#include <gtest/gtest.h>

#include <string>

#include "radius/bytes.hpp"

namespace radius {
namespace {

using radius_test::from_hex;

std::string hmac(std::string_view key, std::initializer_list<std::string_view> parts) {
    Digest digest{};
    EXPECT_TRUE(hmac_md5(key, parts, digest));
    return std::string(view_of(digest));
}

// RFC 1321, A.5.
TEST(Md5, Vectors) {
    Digest digest{};
    ASSERT_TRUE(md5({}, digest));
    EXPECT_EQ(view_of(digest), from_hex("d41d8cd98f00b204e9800998ecf8427e"));
    ASSERT_TRUE(md5({"message", " ", "digest"}, digest));
    EXPECT_EQ(view_of(digest), from_hex("f96b697d7cb7938d525a2f31aaf161d0"));
}

// RFC 2202, section 2: keys shorter and longer than a block.
TEST(HmacMd5, Vectors) {
    EXPECT_EQ(hmac(std::string(16, '\x0b'), {"Hi ", "There"}), from_hex("9294727a3638bb1c13f48ef8158bfc9d"));
    EXPECT_EQ(hmac("Jefe", {"what do ya want for nothing?"}), from_hex("750c783e6ab0b503eaa86e310a5db738"));
    EXPECT_EQ(hmac(std::string(16, '\xaa'), {std::string(50, '\xdd')}),
              from_hex("56be34521d144c88dbb8c733f0e8b3f6"));
    EXPECT_EQ(hmac(std::string(80, '\xaa'), {"Test Using Larger Than Block-Size Key - Hash Key First"}),
              from_hex("6b1ab7fe4bd7bf8f0b62e6ce61b9d0cd"));
    EXPECT_EQ(hmac(std::string(80, '\xaa'),
                   {"Test Using Larger Than Block-Size Key and Larger Than One Block-Size Data"}),
              from_hex("6f630fad67cda0ee1fb1f562db3aa53e"));
}

TEST(EqualDigests, ComparesLengthsToo) {
    EXPECT_TRUE(equal_digests("abc", "abc"));
    EXPECT_TRUE(equal_digests("", ""));
    EXPECT_FALSE(equal_digests("abc", "abd"));
    EXPECT_FALSE(equal_digests("abc", "ab"));
}

}  // namespace
}  // namespace radius
