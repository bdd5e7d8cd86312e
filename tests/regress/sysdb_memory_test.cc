// SPDX-License-Identifier: Apache-2.0
//
// Exhausted memory within a change of the system database.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>

#include "support/fail_alloc.hpp"
#include "support/sysdb.hpp"

namespace {

// When memory ran out during a change, the transaction stayed open and no one
// could write any more. The alarm ends that hang.
void expect_writable_after_every_failure(cerrno (*change)(sysdb_conn_t)) {
    const DatabaseSandbox sandbox;
    run_forked([change] {
        alarm(60);
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

// When memory ran out while watchers were notified, a stored change was reported
// as failed.
TEST(SysdbMemory, ExhaustedIsOnlyWhatWasNotStored) {
    const DatabaseSandbox sandbox;
    run_forked([] {
        alarm(60);
        const Bound bound("/oper/f/");
        const auto ignore = [](const void *, void *, void *) -> int32_t { return 0; };
        uint64_t watch = 0;
        ASSERT_EQ(0u, _sysdb_register_notification(bound.handle(), "", 6, 1, ignore, nullptr, 0, nullptr, 0,
                                                   &watch));
        uint32_t value = 1;
        ASSERT_EQ(0u, set_number(bound.handle(), "item", value));
        fake::sweep_allocations([&](fake::FailAlloc &fail) {
            const int64_t before = get_number(bound.handle(), "item");
            ++value;
            const cerrno rc = fail.run([&] {
                return sysdb_item_set(bound.handle(), "item", SYSDB_TYPE_U32, &value, sizeof value, 1);
            });
            EXPECT_EQ(rc == 0 ? int64_t{value} : before, get_number(bound.handle(), "item"));
        });
    });
}

}  // namespace
