// SPDX-License-Identifier: Apache-2.0
//
// The accessors of the management attributes: address, absence and the trace that
// names the attribute.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "aaa/accessors.h"
#include "aaa/result_codes.h"
#include "support/messages.hpp"
#include "testkit/fake_platform.hpp"

namespace {

using messages::List;
using messages::make_list;
using messages::text;
using messages::u32;

struct Getter {
    const char *name;
    uint32_t type;
    char *(*get)(const avlist *list);
    const char *attribute;
};

const Getter kGetters[] = {
    {"cfg_commitid_get", 72, aaa_util_avlist_cfg_commitid_get, "AAA_CFG_COMMIT_ID_ATTR"},
    {"apl_sessid_get", 73, aaa_util_avlist_apl_sessid_get, "AAA_MGBL_APL_SESSID_ATTR"},
    {"apl_msgid_get", 74, aaa_util_avlist_apl_msgid_get, "AAA_MGBL_APL_MSGID_ATTR"},
    {"rpc_name_get", 75, aaa_util_avlist_rpc_name_get, "AAA_MBGL_RPCNAME_ATTR"},
    {"rpc_xpath1_get", 76, aaa_util_avlist_rpc_xpath1_get, "AAA_MGBL_RPC_XPATH1_ATTR"},
    {"rpc_xpath2_get", 77, aaa_util_avlist_rpc_xpath2_get, "AAA_MGBL_RPC_XPATH2_ATTR"},
    {"rpc_xpath3_get", 78, aaa_util_avlist_rpc_xpath3_get, "AAA_MGBL_RPC_XPATH3_ATTR"},
    {"rpc_xpath4_get", 79, aaa_util_avlist_rpc_xpath4_get, "AAA_MGBL_RPC_XPATH4_ATTR"},
    {"commit_start_time_get", 70, aaa_util_avlist_commit_start_time_get, "AAA_CFG_COMMIT_STRTIME_ATTR"},
    {"commit_stop_time_get", 71, aaa_util_avlist_commit_stop_time_get, "AAA_CFG_COMMIT_ENDTIME_ATTR"},
};

class ManagementGet : public testing::TestWithParam<Getter> {};
INSTANTIATE_TEST_SUITE_P(All, ManagementGet, testing::ValuesIn(kGetters),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_P(ManagementGet, GivesTheAddressOfTheFirstValueInsideTheList) {
    const List list =
        make_list("request", {u32(1, 1), text(GetParam().type, "value"), text(GetParam().type, "second")});
    void *value = nullptr;
    ASSERT_EQ(aaa_avpair_find_type(GetParam().type, nullptr, &value, nullptr, 0, list.get()), AAA_OK);
    EXPECT_EQ(GetParam().get(list.get()), value);
    EXPECT_STREQ(GetParam().get(list.get()), "value");
    EXPECT_TRUE(fake::traces().empty());
}

TEST_P(ManagementGet, GivesNullWhenAbsent) {
    const List list = make_list("request", {u32(GetParam().type + 1, 1)});
    EXPECT_EQ(GetParam().get(list.get()), nullptr);
    EXPECT_EQ(GetParam().get(nullptr), nullptr);
    EXPECT_TRUE(fake::traces().empty());
}

TEST_P(ManagementGet, NamesAMissingAttributeInTheTrace) {
    const List list = make_list("request", {u32(1, 1)});
    fake::enable_tracing(8);
    EXPECT_EQ(GetParam().get(list.get()), nullptr);
    const std::vector<std::string> traces = fake::traces_of(8);
    ASSERT_EQ(traces.size(), 2u);
    EXPECT_NE(traces[0].find(" not found: a2464800"), std::string::npos) << traces[0];
    EXPECT_EQ(traces[1], "Failed to Find " + std::string(GetParam().attribute) + " attr (" +
                             std::to_string(GetParam().type) + ")");
    EXPECT_EQ(fake::traces().size(), traces.size());
}

TEST_P(ManagementGet, DoesNotTraceAValueThatIsThere) {
    const List list = make_list("request", {text(GetParam().type, "value")});
    fake::enable_tracing(8);
    EXPECT_NE(GetParam().get(list.get()), nullptr);
    for (const std::string &trace : fake::traces_of(8)) {
        EXPECT_EQ(trace.find("Failed to Find"), std::string::npos) << trace;
    }
}

}  // namespace
