// SPDX-License-Identifier: Apache-2.0
//
// Exhausted memory within a change of the system database.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>

#include "support/fail_alloc.hpp"
#include "sysdb_support.hpp"

namespace {

// When the memory was gone in the middle of a change, the transaction stayed
// open and nobody could write any more. That is a hang, which the alarm ends.
void expect_writable_after_every_failure(cerrno (*change)(sysdb_conn_t)) {
    const DatabaseSandbox sandbox;
    run_forked([change] {
        alarm(30);
        const Bound bound("/oper/a-directory-with-a-long-name/");
        uint32_t number = 0;
        fake::sweep_allocations([&](fake::FailAlloc &fail) {
            ASSERT_EQ(0u, set_number(bound.handle(), "below/another-item-with-a-long-name", ++number));
            const cerrno rc = fail.run([&] { return change(bound.handle()); });
            EXPECT_TRUE(rc == 0 || (rc == SYSDB_ERR_NOMEM && fail.fired())) << std::hex << rc;
            ASSERT_EQ(0u, set_number(bound.handle(), "another-item-with-a-long-name", ++number));
        });
    });
}

TEST(SysdbMemory, ExhaustedInASetLeavesTheDatabaseWritable) {
    expect_writable_after_every_failure([](sysdb_conn_t conn) {
        static uint32_t value = 0;
        ++value;
        return sysdb_item_set(conn, "an-item-with-a-long-name", SYSDB_TYPE_U32, &value, sizeof value, 1);
    });
}

TEST(SysdbMemory, ExhaustedInADeletionLeavesTheDatabaseWritable) {
    expect_writable_after_every_failure(
        [](sysdb_conn_t conn) { return sysdb_item_delete(conn, "below/", SYSDB_DELETE_TREE); });
}

}  // namespace
