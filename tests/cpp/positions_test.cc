// SPDX-License-Identifier: Apache-2.0
//
// Positions in lists of the C++ interface: what is changed at one must be a pair of the list that is
// asked to change it.

#include <gtest/gtest.h>

#include <string_view>
#include <utility>
#include <vector>

#include "aaa/cpp/list.hpp"

namespace {

using aaa::errc;

aaa::list of(std::string_view name, std::uint32_t count) {
    aaa::list list = aaa::list::create(name).value();
    for (std::uint32_t i = 0; i < count; ++i) {
        EXPECT_TRUE(list.add<AAA_IFH_ATTR>(i));
    }
    return list;
}

// Several buffers: a position can be in the first one, in the last one, and between.
constexpr std::uint32_t kMany = 100;

void refuses(aaa::list &list, aaa::list::iterator position, errc reason = errc::invalid_argument) {
    char text[] = "text";
    EXPECT_EQ(list.erase(position).error(), reason);
    EXPECT_EQ(list.update(position, 7).error(), reason);
    EXPECT_EQ(list.update(position, "another length").error(), reason);
    EXPECT_EQ(list.update(position, text).error(), reason);
}

TEST(CppPositions, OfAnotherListAreRefusedAndChangeNeither) {
    for (const std::uint32_t count : {1u, 2u, kMany}) {
        aaa::list list = of("first", count), other = of("other", count), empty = of("empty", 0);
        const aaa::list as_it_was = list.clone().value(), other_as_it_was = other.clone().value();
        for (auto at = other.begin(); at != other.end(); ++at) {
            refuses(list, at);
            refuses(empty, at);
        }
        EXPECT_EQ(list, as_it_was);
        EXPECT_EQ(other, other_as_it_was);
        EXPECT_TRUE(list.is_sane() && other.is_sane() && empty.is_sane());
        EXPECT_EQ(list.native()->av_cnt, count);
        EXPECT_EQ(other.native()->av_cnt, count);
    }
}

TEST(CppPositions, OfTheListAreTakenWhereverTheyAre) {
    for (std::uint32_t place = 0; place < kMany; ++place) {
        aaa::list list = of("list", kMany);
        const auto at = std::next(list.begin(), place);
        EXPECT_TRUE(list.update(at, 4711));
        EXPECT_EQ(at->get<std::uint32_t>().value(), 4711u);  // the length is the same: the pair stays
        EXPECT_TRUE(list.erase(at));
        EXPECT_EQ(list.size(), kMany - 1);
        EXPECT_EQ(list.at(place).has_value(), place < kMany - 1);
        EXPECT_TRUE(list.is_sane());
    }
    // A list that was unpacked has one buffer.
    const aaa::buffer packed = of("packed", kMany).pack().value();
    aaa::list unpacked = aaa::list::unpack(packed).value();
    EXPECT_TRUE(unpacked.erase(std::next(unpacked.begin(), kMany - 1)));
    EXPECT_TRUE(unpacked.update(std::next(unpacked.begin(), 50), "a text"));
    EXPECT_EQ(unpacked.size(), kMany - 1);
}

TEST(CppPositions, StayWithTheirPairsWhenListsAreMovedAndSwapped) {
    aaa::list list = of("list", kMany), other = of("other", 3);
    const auto in_list = std::next(list.begin(), 50), in_other = other.begin();
    list.swap(other);
    refuses(list, in_list);
    refuses(other, in_other);
    EXPECT_TRUE(list.update(in_other, 1));
    EXPECT_TRUE(other.update(in_list, 1));
    aaa::list moved = std::move(other);
    refuses(other, in_list, errc::empty_handle);  // NOLINT(bugprone-use-after-move)
    refuses(list, in_list);
    EXPECT_TRUE(moved.erase(in_list));
    list = std::move(moved);
    EXPECT_EQ(list.size(), kMany - 1);
    EXPECT_TRUE(list.is_sane());
}

TEST(CppPositions, OfASpentOrClearedListAreRefused) {
    aaa::list list = of("list", kMany);
    const auto at = list.begin();
    EXPECT_TRUE(list.pack());
    refuses(list, at, errc::spent_list);
    EXPECT_TRUE(list.clear());
    refuses(list, at);
    aaa::list never;
    refuses(never, at, errc::empty_handle);
    aaa::list other = of("other", 3);
    refuses(other, at);
    EXPECT_EQ(other.size(), 3u);
}

TEST(CppPositions, AtAnEndAreRefused) {
    aaa::list list = of("list", 3), other = of("other", 3);
    auto walked = list.begin();
    while (walked != list.end()) {
        ++walked;
    }
    ++walked;  // stays there
    EXPECT_EQ(walked, other.end());
    for (const auto position : {list.end(), walked, aaa::list::iterator()}) {
        refuses(list, position);
        refuses(other, position);
    }
}

TEST(CppPositions, OfADeletedPairAreRefused) {
    aaa::list list = of("list", 3);
    const auto first = list.begin(), last = std::next(list.begin(), 2);
    EXPECT_TRUE(list.erase(first));
    refuses(list, first);
    EXPECT_TRUE(list.erase(last));  // its room is given back
    refuses(list, last);
    EXPECT_EQ(list.size(), 1u);
    EXPECT_TRUE(list.is_sane());
    // The buffer goes with its last pair.
    const auto only = list.begin();
    EXPECT_TRUE(list.erase(only));
    refuses(list, only);
    EXPECT_TRUE(list.empty());
}

}  // namespace
