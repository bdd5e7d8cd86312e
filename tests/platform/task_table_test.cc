// SPDX-License-Identifier: Apache-2.0
//
// Task tables of credential records.

#include "platform/task_table.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "child_process.hpp"
#include "platform/node.h"

namespace {

constexpr cerrno kInvalidArg = 0xa2580200u;
constexpr cerrno kNoMemory = 0xa2580400u;

const ChildBodies kBodies = {
    {"bad-task-table",
     [] {
         char other[64] = "something else entirely";
         aaa_destroy_task_table(other);
         printf("%s\n", other);
     }},
};

}  // namespace

TEST(TaskTable, GrantsPermissions) {
    aaa_task_table_t *table = aaa_task_table_create(2);
    ASSERT_NE(nullptr, table);
    EXPECT_EQ(0u, aaa_task_table_permissions(table, "bgp"));
    EXPECT_EQ(0u, aaa_task_table_grant(table, "bgp", AAA_TASK_READ));
    EXPECT_EQ(0u, aaa_task_table_grant(table, "ospf", AAA_TASK_DEBUG));
    EXPECT_EQ(0u, aaa_task_table_grant(table, "bgp", AAA_TASK_WRITE));
    EXPECT_EQ(AAA_TASK_READ | AAA_TASK_WRITE, aaa_task_table_permissions(table, "bgp"));
    EXPECT_EQ(AAA_TASK_DEBUG, aaa_task_table_permissions(table, "ospf"));
    EXPECT_EQ(kNoMemory, aaa_task_table_grant(table, "isis", AAA_TASK_READ));
    EXPECT_EQ(0u, aaa_task_table_permissions(table, "isis"));
    aaa_destroy_task_table(table);
}

TEST(TaskTable, RefusesBadArguments) {
    EXPECT_EQ(nullptr, aaa_task_table_create(0));
    EXPECT_EQ(nullptr, aaa_task_table_create(4097));
    aaa_task_table_t *table = aaa_task_table_create(4096);
    ASSERT_NE(nullptr, table);
    EXPECT_EQ(kInvalidArg, aaa_task_table_grant(nullptr, "bgp", 1));
    EXPECT_EQ(kInvalidArg, aaa_task_table_grant(table, nullptr, 1));
    EXPECT_EQ(kInvalidArg, aaa_task_table_grant(table, "", 1));
    EXPECT_EQ(kInvalidArg, aaa_task_table_grant(table, "bgp", 0x10));
    EXPECT_EQ(kInvalidArg, aaa_task_table_grant(table, std::string(32, 'a').c_str(), 1));
    EXPECT_EQ(0u, aaa_task_table_grant(table, std::string(31, 'a').c_str(), 1));
    EXPECT_EQ(0u, aaa_task_table_permissions(nullptr, "bgp"));
    EXPECT_EQ(0u, aaa_task_table_permissions(table, nullptr));
    aaa_destroy_task_table(table);
    aaa_destroy_task_table(nullptr);
}

TEST(TaskTable, OfAnotherKindIsLeftAlone) {
    const ChildResult child = run_child("bad-task-table", {"AAA_LOG=stderr"});
    EXPECT_EQ("something else entirely\n", child.out);
    EXPECT_EQ(
        "%AAA-PLATFORM-3-BAD_TASK_TABLE : A credential record carries a task table that this host did not "
        "make; "
        "it is not freed\n",
        child.err);
}

int main(int argc, char **argv) {
    if (run_child_body(kBodies)) {
        return 0;
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
