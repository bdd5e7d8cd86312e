// SPDX-License-Identifier: Apache-2.0

#include "radius/identifiers.hpp"

#include <gtest/gtest.h>

#include <set>

namespace radius {
namespace {

TEST(Identifiers, GivesEachOfThe256Once) {
    Identifiers ids;
    std::set<int> seen;
    for (int i = 0; i < 256; ++i) {
        const auto id = ids.take(0);
        ASSERT_TRUE(id);
        EXPECT_TRUE(seen.insert(*id).second);
    }
    EXPECT_EQ(ids.taken(), 256U);
    EXPECT_FALSE(ids.take(0));
}

TEST(Identifiers, TakesTheOneThatWasFreeForLongest) {
    Identifiers ids;
    const std::uint8_t first = *ids.take(0);
    ids.release(first);
    for (int i = 0; i < 255; ++i) {
        const std::uint8_t id = *ids.take(0);
        EXPECT_NE(id, first);
        ids.release(id);
    }
    EXPECT_EQ(*ids.take(0), first);
}

TEST(Identifiers, LetsOneRest) {
    Identifiers ids;
    for (int i = 0; i < 256; ++i) {
        ids.take(0);
    }
    EXPECT_EQ(ids.next_free(), INT64_MAX);
    ids.release_at(7, 100);
    ids.release_at(9, 200);
    EXPECT_EQ(ids.taken(), 254U);
    EXPECT_EQ(ids.next_free(), 100);
    EXPECT_FALSE(ids.take(99));
    EXPECT_EQ(ids.take(100), 7);
    EXPECT_FALSE(ids.take(100));
    EXPECT_EQ(ids.next_free(), 200);
    EXPECT_EQ(ids.take(INT64_MAX), 9);
    EXPECT_EQ(ids.taken(), 256U);
}

}  // namespace
}  // namespace radius
