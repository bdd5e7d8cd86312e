// SPDX-License-Identifier: Apache-2.0
//
// The checks of the system database's client, which come before the provider. The
// conformance tests have the work of both together.

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>

#include "platform/sysdb_changes.h"
#include "support/sysdb.hpp"

namespace {

void without_provider(const std::function<void()> &body) {
    const DatabaseSandbox sandbox;
    run_forked([&] {
        setenv("AAA_SYSDB_PROVIDER", "/nonexistent/libsysdb.so", 1);
        body();
    });
}

int32_t ignore(const void *, void *, void *) {
    return 0;
}

TEST(SysdbClient, EveryCallSaysThatTheProviderIsAbsent) {
    without_provider([] {
        int32_t coid = -1;
        uint64_t notification = 0;
        char *name = nullptr;
        int something = 0;
        sysdb_list_t list = nullptr;
        EXPECT_EQ(0u, _sysdb_unbind(0));
        EXPECT_EQ(SYSDB_ERR_LIB_ABSENT, _sysdb_unbind(1));
        EXPECT_EQ(SYSDB_ERR_LIB_ABSENT, sysdb_conn_to_coid(1, &coid));
        EXPECT_EQ(SYSDB_ERR_LIB_ABSENT, existence(1, "a"));
        EXPECT_EQ(SYSDB_ERR_LIB_ABSENT, set_number(1, "a", 1));
        EXPECT_EQ(SYSDB_ERR_LIB_ABSENT, sysdb_item_delete(1, "a", 0));
        EXPECT_EQ(SYSDB_ERR_LIB_ABSENT, sysdb_list(1, "", "", nullptr, &list, 0));
        EXPECT_EQ(SYSDB_ERR_LIB_ABSENT, sysdb_list_start(&something));
        EXPECT_EQ(SYSDB_ERR_LIB_ABSENT, sysdb_list_next(&something, &name, nullptr, 0));
        sysdb_list_free(&something);
        EXPECT_EQ(SYSDB_ERR_LIB_ABSENT, sysdb_find(1, "", "", nullptr, &list, 0, 1));
        EXPECT_EQ(SYSDB_ERR_LIB_ABSENT, sysdb_directory_get_last(1, "", &name, nullptr, 0));
        EXPECT_EQ(SYSDB_ERR_LIB_ABSENT,
                  _sysdb_register_notification(1, "a", 6, 1, ignore, nullptr, 0, nullptr, 0, &notification));
        EXPECT_EQ(SYSDB_ERR_LIB_ABSENT, sysdb_notification_unregister(1, 1));
        EXPECT_EQ(SYSDB_ERR_LIB_ABSENT, sysdb_dispatch(1));
        EXPECT_EQ(SYSDB_ERR_LIB_ABSENT, sysdb_apply(1, nullptr, 0, nullptr));
        EXPECT_EQ(-1, coid);
        // Tuples need no database.
        void *tuple = nullptr;
        uint32_t length = 0;
        EXPECT_EQ(0u, sysdb_tuple_pack(&tuple, &length, "%d", 1));
        free(tuple);
    });
}

// A mistake of the caller is reported as such on a host without the database too.
TEST(SysdbClient, ArgumentsAreCheckedFirst) {
    without_provider([] {
        sysdb_conn_t conn = 0;
        uint32_t type = SYSDB_TYPE_ANY;
        uint32_t number = 1;
        void *value = nullptr;
        uint32_t length = 0;
        char *name = nullptr;
        sysdb_list_t list = nullptr;
        uint64_t notification = 0;
        EXPECT_EQ(SYSDB_ERR_INVALID_ARG, _sysdb_bind(nullptr, "/cfg/", 0));
        EXPECT_EQ(SYSDB_ERR_INVALID_ARG, _sysdb_bind(&conn, nullptr, 0));
        EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_conn_to_coid(1, nullptr));
        EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_item_get(1, nullptr, &type, &value, &length, 0));
        EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_item_set(1, nullptr, SYSDB_TYPE_U32, &number, 4, 0));
        EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_item_delete(1, nullptr, 0));
        EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_item_delete(1, "a", 99));
        EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_list(1, nullptr, "", nullptr, &list, 0));
        EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_list(1, "", "", nullptr, nullptr, 0));
        EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_list_start(nullptr));
        EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_list_next(nullptr, &name, nullptr, 0));
        EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_find(1, "", "", nullptr, &list, 0, 2));
        EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_directory_get_last(1, "", nullptr, nullptr, 0));
        EXPECT_EQ(SYSDB_ERR_INVALID_ARG,
                  _sysdb_register_notification(1, "a", 6, 1, nullptr, nullptr, 0, nullptr, 0, &notification));
        EXPECT_EQ(SYSDB_ERR_INVALID_ARG,
                  _sysdb_register_notification(1, "a", 0, 1, ignore, nullptr, 0, nullptr, 0, &notification));
        EXPECT_EQ(0u, sysdb_notification_unregister(1, 0));
        sysdb_list_free(nullptr);
        EXPECT_EQ(0u, notification);
    });
}

TEST(SysdbClient, ChangesAreCheckedOneByOneAndThenRefusedAsAWhole) {
    without_provider([] {
        const uint32_t value = 1;
        const sysdb_change_t good = {SYSDB_CHANGE_SET, SYSDB_TYPE_U32, "a", &value, sizeof value};
        const sysdb_change_t bad = {SYSDB_CHANGE_SET, SYSDB_TYPE_U32, nullptr, &value, sizeof value};
        const sysdb_change_t changes[] = {good, good, bad};
        uint32_t failed = 99;
        EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_apply(1, changes, 3, &failed));
        EXPECT_EQ(2u, failed);
        EXPECT_EQ(SYSDB_ERR_LIB_ABSENT, sysdb_apply(1, changes, 2, &failed));
        EXPECT_EQ(2u, failed) << "none of the two";
        EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_apply(1, nullptr, 5, &failed));
        EXPECT_EQ(5u, failed);
    });
}

TEST(SysdbClient, ProviderWithoutTheMembersAddedLaterIsUsedWithoutThem) {
    const DatabaseSandbox sandbox;
    run_forked([] {
        setenv("AAA_SYSDB_PROVIDER", SYSDB_FIRST_TABLE, 1);
        sysdb_conn_t conn = 0;
        ASSERT_EQ(0u, _sysdb_bind(&conn, "/cfg/", 0));
        const uint32_t value = 1;
        const sysdb_change_t change = {SYSDB_CHANGE_SET, SYSDB_TYPE_U32, "a", &value, sizeof value};
        uint32_t failed = 7;
        EXPECT_EQ(SYSDB_ERR_NOT_SUPPORTED, sysdb_apply(conn, &change, 1, &failed));
        EXPECT_EQ(1u, failed);
    });
}

}  // namespace
