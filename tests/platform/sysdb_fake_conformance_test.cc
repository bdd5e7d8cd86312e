// SPDX-License-Identifier: Apache-2.0
//
// The test kit's database passes the tests that all providers must pass, except
// those with several processes.

#include <gtest/gtest.h>

#include "aaa/testkit.h"
#include "support/sysdb.hpp"
#include "sysdb_conformance.hpp"

void prepare_database() {
    testkit_reset();
    // The tests use stale handles on purpose and check the code only.
    testkit_on_misuse([](const char *, void *) {}, nullptr);
}

unsigned longest_path() {
    return 4095;
}

// The kit's functions take precedence over those of the host, which is linked for its tuples.
TEST(SysdbFake, ServesTheTests) {
    const unsigned before = testkit_count("sysdb_item_set");
    const Bound bound("/oper/served/");
    EXPECT_EQ(0u, set_number(bound.handle(), "item", 1));
    EXPECT_EQ(before + 1, testkit_count("sysdb_item_set"));
}
