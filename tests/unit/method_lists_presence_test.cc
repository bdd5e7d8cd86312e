// SPDX-License-Identifier: Apache-2.0
//
// What method lists do without the database library. The presence is learned
// once in a process, so this program holds one test.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "aaa/lifecycle.h"
#include "aaa/method_lists.h"
#include "aaa/result_codes.h"
#include "platform/cerr.h"
#include "testkit/fake_platform.hpp"

namespace {

int32_t on_change(const void *, void *, void *) {
    return 0;
}

TEST(MethodListPresence, IsLookedForUntilFoundAndThenRemembered) {
    const std::string absent = cerr_strerror(0x8081c200u);
    fake::sysdb::set_present(false);

    EXPECT_EQ(aaa_util_lookup_methodlist("authentication", "login", "default"), 0x8081c200u);
    EXPECT_EQ(aaa_util_verify_methodlist(0, 1, "default"), 0x8081c200u);
    char path[] = "authentication/login/default";
    uint32_t *methods = nullptr;
    EXPECT_EQ(lookup_methods(path, &methods), 0x8081c200u);
    EXPECT_EQ(methods, nullptr);
    EXPECT_TRUE(fake::logs().empty());

    aaa_mlist_reg_t record = {77, 78};
    EXPECT_EQ(aaa_mlist_change_register(0, 1, "default", on_change, nullptr, nullptr, &record), 0x8081c200u);
    EXPECT_EQ(record.connection, 77u);
    EXPECT_EQ(record.notification, 78u);
    EXPECT_EQ(fake::traces_of(5).back(), "Unable to bind to sysdb at /cfg/gl/aaa/: " + absent);

    fake::answer("sysdb_notification_unregister", 0, 1);
    record = {42, 43};
    EXPECT_EQ(aaa_mlist_change_unregister(&record), 0x8081c200u);
    EXPECT_EQ(fake::traces_of(5).back(), "Unable to unbind at /cfg/gl/aaa/: " + absent);
    EXPECT_TRUE(fake::calls({"_sysdb_bind", "_sysdb_unbind"}).empty());

    fake::sysdb::set_present(true);
    EXPECT_EQ(aaa_util_verify_methodlist(0, 1, "default"), AAA_ERR_NOT_FOUND);
    fake::sysdb::set_present(false);
    aaa_cfg_sysdb_connid = 0;
    EXPECT_EQ(aaa_util_verify_methodlist(0, 1, "default"), AAA_ERR_NOT_FOUND);
}

}  // namespace
