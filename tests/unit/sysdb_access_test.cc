// SPDX-License-Identifier: Apache-2.0
//
// The connections of the system database: shared handles that are bound once, two
// threads that bind one at the same time, and connections of a caller's own.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "aaa/lifecycle.h"
#include "aaa/method_lists.h"
#include "aaa/result_codes.h"
#include "aaa/server_groups.h"
#include "testkit/fake_platform.hpp"

namespace {

using Lines = std::vector<std::string>;

constexpr cerrno kStrange = 0x12345600u;  // a database failure of no known meaning

cerrno read_list() {
    return aaa_util_lookup_methodlist("authentication", "login", "default");
}

int32_t on_change(const void *, void *, void *) {
    return 0;
}

class SharedHandle : public testing::Test {
  protected:
    void SetUp() override {
        aaa_cfg_sysdb_connid = 0;
        aaa_sgmap_sysdb_connid = 0;
    }
    void TearDown() override { SetUp(); }
};

TEST_F(SharedHandle, IsBoundAtTheFirstUseAndThenKept) {
    EXPECT_EQ(read_list(), AAA_ERR_NOT_FOUND);
    const uint64_t bound = aaa_cfg_sysdb_connid;
    EXPECT_NE(bound, 0u);
    EXPECT_EQ(read_list(), AAA_ERR_NOT_FOUND);
    EXPECT_EQ(aaa_cfg_sysdb_connid, bound);
    EXPECT_EQ(fake::calls("_sysdb_bind"), (Lines{"_sysdb_bind(\"/cfg/gl/aaa/\", 2)"}));
    EXPECT_EQ(fake::count("_sysdb_unbind"), 0u);
}

TEST_F(SharedHandle, OfEachPathIsItsOwn) {
    EXPECT_EQ(aaa_util_lookup_sg_index("CORP", nullptr), SYSDB_ERR_NOT_FOUND);
    EXPECT_NE(aaa_sgmap_sysdb_connid, 0u);
    EXPECT_EQ(aaa_cfg_sysdb_connid, 0u);
    EXPECT_EQ(fake::calls("_sysdb_bind"), (Lines{"_sysdb_bind(\"/oper/aaa/gl/group-server/\", 2)"}));
}

TEST_F(SharedHandle, StaysZeroWhenTheBindFailsAndIsTriedAgain) {
    fake::answer("_sysdb_bind", kStrange, 1);
    EXPECT_EQ(read_list(), kStrange);
    EXPECT_EQ(aaa_cfg_sysdb_connid, 0u);
    EXPECT_EQ(read_list(), AAA_ERR_NOT_FOUND);
    EXPECT_NE(aaa_cfg_sysdb_connid, 0u);
}

// Another thread stores its handle while this one binds: its connection is used,
// and the second one is released.
TEST_F(SharedHandle, OfTheOtherThreadIsKeptAfterALostRace) {
    bool raced = false;
    fake::before("_sysdb_bind", [&raced] {
        if (!raced) {
            raced = true;
            read_list();
        }
    });
    EXPECT_EQ(read_list(), AAA_ERR_NOT_FOUND);
    EXPECT_EQ(fake::count("_sysdb_bind"), 2u);
    EXPECT_EQ(fake::count("_sysdb_unbind"), 1u);
    EXPECT_EQ(fake::sysdb::open_connections(), (Lines{"/cfg/gl/aaa/"}));
    EXPECT_EQ(fake::count("sysdb_item_get"), 2u);
}

TEST_F(SharedHandle, IsNotUsedForAConnectionOfACallersOwn) {
    EXPECT_EQ(read_list(), AAA_ERR_NOT_FOUND);
    const uint64_t shared = aaa_cfg_sysdb_connid;
    fake::clear_journal();
    aaa_mlist_reg_t record = {};
    ASSERT_EQ(aaa_mlist_change_register(0, 1, "default", on_change, nullptr, nullptr, &record), AAA_OK);
    EXPECT_NE(record.connection, shared);
    EXPECT_EQ(fake::calls("_sysdb_bind"), (Lines{"_sysdb_bind(\"/cfg/gl/aaa/\", 0)"}));
    EXPECT_EQ(aaa_mlist_change_unregister(&record), AAA_OK);
    EXPECT_EQ(fake::sysdb::open_connections(), (Lines{"/cfg/gl/aaa/"}));
    EXPECT_EQ(aaa_cfg_sysdb_connid, shared);
}

}  // namespace
