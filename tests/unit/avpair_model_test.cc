// SPDX-License-Identifier: Apache-2.0
//
// Random operations on a list and on its model: after every step both hold
// the same, buffers and deleted pairs included, and the verifier finds nothing
// wrong.

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "aaa/avpair.h"
#include "aaa/result_codes.h"
#include "support/avlist_driver.hpp"
#include "support/avlist_model.hpp"

namespace {

using namespace aaatest;

TEST(AvpairModel, AgreesWithTheListUnderRandomOperations) {
    for (uint32_t seed = 1; seed <= 120; ++seed) {
        std::mt19937 random(seed);
        std::vector<uint8_t> script(200 + random() % 1000);
        for (uint8_t &byte : script) {
            byte = static_cast<uint8_t>(random());
        }
        ASSERT_EQ(drive_list(script), "") << "seed " << seed;
    }
}

TEST(AvpairModel, AgreesWithTheListOnLongScripts) {
    std::mt19937 random(4711);
    std::vector<uint8_t> script(8000);
    for (uint8_t &byte : script) {
        byte = static_cast<uint8_t>(random());
    }
    ASSERT_EQ(drive_list(script), "");
}

TEST(AvpairModel, SeesADifference) {
    const ListPtr list = make_list();
    ListModel model;
    ASSERT_EQ(aaa_avpair_add(1, 2, "abcd", 3, 4, list.get()), AAA_OK);
    EXPECT_EQ(model.difference_from(list.get()), "1 buffers, expected 0");
    model.add({1, 3, 2, "abcd"});
    EXPECT_EQ(model.difference_from(list.get()), "");
    model.add({1, 3, 2, "abcd"});
    EXPECT_EQ(model.difference_from(list.get()), "buffer 0: 1 pairs, expected 2");
    ASSERT_EQ(aaa_avpair_add(1, 2, "abce", 3, 4, list.get()), AAA_OK);
    EXPECT_EQ(model.difference_from(list.get()),
              "buffer 0: pair 1 is {type 1, tag 3, flags 2, 4 bytes 61 62 63 65}, "
              "expected {type 1, tag 3, flags 2, 4 bytes 61 62 63 64}");
}

}  // namespace
