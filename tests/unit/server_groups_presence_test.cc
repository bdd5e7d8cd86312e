// SPDX-License-Identifier: Apache-2.0
//
// What server groups do without the database library. The presence is learned
// once in a process, so this program holds one test.

#include <gtest/gtest.h>

#include <string>

#include "aaa/lifecycle.h"
#include "aaa/result_codes.h"
#include "aaa/server_groups.h"
#include "platform/cerr.h"
#include "testkit/fake_platform.hpp"

namespace {

std::string bind_failure(const std::string &action, const std::string &path) {
    return action + " path " + path + ": " + cerr_strerror(0x8081c200u);
}

TEST(ServerGroupPresence, IsLookedForUntilFoundAndThenRemembered) {
    const std::string maps = "/oper/aaa/gl/group-server/";
    fake::sysdb::set_present(false);

    uint32_t number = 99, protocol = 99;
    EXPECT_EQ(aaa_util_lookup_sg_index_and_get_type("CORP", &number, &protocol), 0x8081c200u);
    EXPECT_EQ(number, 0u);
    EXPECT_EQ(protocol, 99u);
    EXPECT_EQ(aaa_util_lookup_sg_name(1001), nullptr);

    aaa_cfg_event_t event = {AAA_CFG_OP_CREATE, 0, {}};
    char *text = nullptr;
    uint32_t verdict = 99;
    EXPECT_EQ(aaa_util_svr_grp_verify(&event, &text, &verdict, "CORP", 1), 0x8081c200u);
    EXPECT_EQ(verdict, AAA_VERDICT_REJECTED);
    EXPECT_EQ(text, nullptr);
    event.operation = AAA_CFG_OP_DELETE;
    EXPECT_EQ(aaa_util_svr_grp_verify(&event, &text, &verdict, "CORP", 1), 0x8081c200u);

    EXPECT_EQ(fake::log_texts(),
              (std::vector<std::string>{bind_failure("sysdb_bind failed on ", maps),
                                        bind_failure("sysdb_bind failed  on ", maps),
                                        bind_failure("sysdb_bind failed  on ", maps),
                                        bind_failure("sysdb_bind failed on ", "/cfg/gl/aaa/")}));

    uint32_t index = 99;
    EXPECT_EQ(aaa_util_get_next_ord_index("CORP", 1, AAA_INDEX_ANY, &index, "192.0.2.1", 1, 2, 0, 0),
              0x8081c200u);
    EXPECT_EQ(index, 0u);
    EXPECT_EQ(fake::traces_of(AAA_DBG_SERVER_GROUP).back(),
              std::string("Failed to validate index - ") + cerr_strerror(0x8081c200u));

    EXPECT_TRUE(fake::calls({"_sysdb_bind", "_sysdb_unbind"}).empty());
    EXPECT_EQ(aaa_sgmap_sysdb_connid, 0u);
    EXPECT_EQ(aaa_cfg_sysdb_connid, 0u);

    // Once the file exists, the next call finds it, and later ones do not look again.
    fake::sysdb::set_present(true);
    EXPECT_EQ(aaa_util_lookup_sg_index("CORP", &number), SYSDB_ERR_NOT_FOUND);
    fake::sysdb::set_present(false);
    aaa_sgmap_sysdb_connid = 0;
    EXPECT_EQ(aaa_util_lookup_sg_index("CORP", &number), SYSDB_ERR_NOT_FOUND);
}

}  // namespace
