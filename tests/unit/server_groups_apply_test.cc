// SPDX-License-Identifier: Apache-2.0
//
// Application of server-group changes, on a scripted database.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "aaa/lifecycle.h"
#include "aaa/result_codes.h"
#include "aaa/server_groups.h"
#include "platform/cerr.h"
#include "platform/sysdb.h"
#include "support/fail_alloc.hpp"
#include "support/server_group_changes.hpp"
#include "testkit/fake_platform.hpp"

namespace {

using namespace server_groups;

class ServerGroupApply : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(_sysdb_bind(&conn_, kMaps, 0), 0u);
        fake::clear_journal();
    }
    void TearDown() override { _sysdb_unbind(conn_); }

    cerrno apply(uint32_t operation, const char *protocol, const char *name, uint8_t flags = 0) {
        const aaa_cfg_event_t event = {operation, flags, {}};
        number_ = 99;
        return aaa_util_svr_grp_apply(conn_, &event, protocol, name, &number_);
    }

    sysdb_conn_t conn_ = 0;
    uint32_t number_ = 99;
};

TEST_F(ServerGroupApply, FirstNumbersOfTheProtocols) {
    EXPECT_EQ(apply(AAA_CFG_OP_CREATE, "radius", "A"), AAA_OK);
    EXPECT_EQ(number_, 1001u);
    EXPECT_EQ(apply(AAA_CFG_OP_SET, "tacacs", "B"), AAA_OK);
    EXPECT_EQ(number_, 3001u);
    EXPECT_EQ(apply(AAA_CFG_OP_CREATE, "diameter", "C"), AAA_OK);
    EXPECT_EQ(number_, 3001u);
    EXPECT_EQ(fake::sysdb::get_u32(maps("sg_name_map/radius/A")), 1001u);
    EXPECT_EQ(fake::sysdb::get_string(maps("sg_num_map/radius/0x3e9")), "A");
    EXPECT_EQ(fake::sysdb::get_string(maps("sg_num_map/tacacs/0xbb9")), "B");
    EXPECT_EQ(fake::sysdb::get_string(maps("sg_num_map/diameter/0xbb9")), "C");
}

TEST_F(ServerGroupApply, TracesOfANewMapping) {
    ASSERT_EQ(apply(AAA_CFG_OP_CREATE, "radius", "A"), AAA_OK);
    EXPECT_EQ(traces(),
              (Texts{"Set/create event for server group A (type = radius)", "New mapping for sg A: # 1001"}));
}

TEST_F(ServerGroupApply, WritesNameItemThenNumberItem) {
    ASSERT_EQ(apply(AAA_CFG_OP_CREATE, "radius", "A"), AAA_OK);
    const Texts sets = fake::calls("sysdb_item_set");
    ASSERT_EQ(sets.size(), 2u);
    EXPECT_NE(sets[0].find("\"sg_name_map/radius/A\", 1"), std::string::npos) << sets[0];
    EXPECT_NE(sets[0].find("4, 1)"), std::string::npos) << sets[0];
    EXPECT_NE(sets[1].find("\"sg_num_map/radius/0x3e9\", 3"), std::string::npos) << sets[1];
    EXPECT_NE(sets[1].find("2, 1)"), std::string::npos) << sets[1];
}

TEST_F(ServerGroupApply, NextNumberFollowsTheHighestAndLeavesGaps) {
    fake::sysdb::put_string(maps("sg_num_map/radius/0x3e9"), "OLD");
    fake::sysdb::put_string(maps("sg_num_map/radius/0x400"), "OTHER");
    EXPECT_EQ(apply(AAA_CFG_OP_CREATE, "radius", "A"), AAA_OK);
    EXPECT_EQ(number_, 0x401u);
}

TEST_F(ServerGroupApply, LastNumbersAreGivenAndThenNoMore) {
    fake::sysdb::put_string(maps("sg_num_map/radius/0x7ce"), "X");
    EXPECT_EQ(apply(AAA_CFG_OP_CREATE, "radius", "A"), AAA_OK);
    EXPECT_EQ(number_, 1999u);
    EXPECT_EQ(apply(AAA_CFG_OP_CREATE, "radius", "B"), AAA_ERR_SG_MAPPING);
    ASSERT_EQ(fake::logs().size(), 1u);
    EXPECT_EQ(fake::logs()[0].mnemonic, "ERR_SERVER_GROUP");
    EXPECT_EQ(fake::logs()[0].severity, 3u);
    EXPECT_EQ(fake::logs()[0].text, "Server group index exceeded the maximum limit");
    EXPECT_EQ(traces().back(),
              "Failed to create server group mapping for B - " + text_of(AAA_ERR_SG_MAPPING));
    EXPECT_FALSE(fake::sysdb::get_u32(maps("sg_name_map/radius/B")).has_value());
    fake::sysdb::put_string(maps("sg_num_map/tacacs/0xf9f"), "X");
    EXPECT_EQ(apply(AAA_CFG_OP_CREATE, "tacacs", "C"), AAA_ERR_SG_MAPPING);
    fake::sysdb::put_string(maps("sg_num_map/diameter/0xffffffffffffffffff"), "X");
    EXPECT_EQ(apply(AAA_CFG_OP_CREATE, "diameter", "D"), AAA_ERR_SG_MAPPING);
}

TEST_F(ServerGroupApply, NumbersThatAreUsedUpRollTheNameItemBack) {
    fake::sysdb::put_string(maps("sg_num_map/radius/0x7cf"), "X");
    EXPECT_EQ(apply(AAA_CFG_OP_CREATE, "radius", "A"), AAA_ERR_SG_MAPPING);
    EXPECT_EQ(number_, 0u);
    const std::string at = std::string("(") + kMaps + ", \"";
    EXPECT_EQ(
        fake::calls({"sysdb_item_get", "sysdb_directory_get_last", "sysdb_item_set", "sysdb_item_delete"}),
        (Texts{"sysdb_item_get" + at + "sg_name_map/radius/A\", 1, 0)",
               "sysdb_directory_get_last" + at + "sg_num_map/radius/\", 0)",
               "sysdb_item_delete" + at + "sg_name_map/radius/A\", 0)"}));
}

TEST_F(ServerGroupApply, ItemPathsAreCutAt255Characters) {
    const std::string name(400, 'n');
    ASSERT_EQ(apply(AAA_CFG_OP_CREATE, "radius", name.c_str()), AAA_OK);
    EXPECT_EQ(fake::sysdb::paths(),
              (Texts{maps(("sg_name_map/radius/" + name).substr(0, 255)), maps("sg_num_map/radius/0x3e9")}));
    EXPECT_EQ(fake::sysdb::get_string(maps("sg_num_map/radius/0x3e9")), name);
}

TEST_F(ServerGroupApply, SecondSetKeepsTheNumberAndRestoresTheWayBack) {
    ASSERT_EQ(apply(AAA_CFG_OP_CREATE, "radius", "A"), AAA_OK);
    fake::sysdb::remove(maps("sg_num_map/radius/0x3e9"));
    fake::clear_journal();
    EXPECT_EQ(apply(AAA_CFG_OP_SET, "radius", "A"), AAA_OK);
    EXPECT_EQ(number_, 1001u);
    EXPECT_EQ(fake::sysdb::get_string(maps("sg_num_map/radius/0x3e9")), "A");
    EXPECT_EQ(traces(), (Texts{"Set/create event for server group A (type = radius)",
                               "Found mapping for sg A: # 1001"}));
    EXPECT_EQ(apply(AAA_CFG_OP_SET, "radius", "A"), AAA_OK);
    EXPECT_EQ(number_, 1001u);
}

TEST_F(ServerGroupApply, WayBackToAnotherNameIsAnError) {
    fake::sysdb::put_u32(maps("sg_name_map/radius/A"), 1001);
    for (const std::string other : {"B", "AA", ""}) {
        fake::clear_journal();
        fake::sysdb::put_string(maps("sg_num_map/radius/0x3e9"), other);
        EXPECT_EQ(apply(AAA_CFG_OP_SET, "radius", "A"), AAA_ERR_SG_MAPPING);
        EXPECT_EQ(fake::log_texts(), (Texts{"Invalid server group name mapping"}));
        EXPECT_EQ(fake::count("sysdb_item_delete"), 0u);
    }
    fake::sysdb::put(maps("sg_num_map/radius/0x3e9"), {3, {}, true});
    EXPECT_EQ(apply(AAA_CFG_OP_SET, "radius", "A"), AAA_ERR_SG_MAPPING);
}

TEST_F(ServerGroupApply, FailuresOfTheNumberItemAreLogged) {
    fake::sysdb::put_u32(maps("sg_name_map/radius/A"), 1001);
    fake::fail_call("sysdb_item_get", 2, kStrange);
    EXPECT_EQ(apply(AAA_CFG_OP_SET, "radius", "A"), kStrange);
    fake::clear_answers("sysdb_item_get");
    fake::answer("sysdb_item_set", kStrange);
    EXPECT_EQ(apply(AAA_CFG_OP_SET, "radius", "A"), kStrange);
    EXPECT_EQ(fake::log_texts(),
              (Texts{"Cannot get number map from path sg_num_map/radius/0x3e9: " + text_of(kStrange),
                     "Cannot set path sg_num_map/radius/0x3e9: " + text_of(kStrange)}));
}

TEST_F(ServerGroupApply, FailureOfTheNameItemIsLoggedAndTraced) {
    fake::answer("sysdb_item_get", kStrange);
    EXPECT_EQ(apply(AAA_CFG_OP_SET, "radius", "A"), kStrange);
    EXPECT_EQ(fake::log_texts(),
              (Texts{"Cannot get name map from path sg_name_map/radius/A: " + text_of(kStrange)}));
    ASSERT_EQ(traces().size(), 3u);
    EXPECT_EQ(traces()[1].rfind("sysdb_connid = 0x", 0), 0u) << traces()[1];
    EXPECT_NE(traces()[1].find(", item_name = sg_name_map/radius/A"), std::string::npos);
    EXPECT_EQ(traces()[2], "Failed to create server group mapping for A - " + text_of(kStrange));
    EXPECT_EQ(fake::count("sysdb_item_delete"), 0u);
}

TEST_F(ServerGroupApply, MalformedNumberIsRefused) {
    fake::sysdb::put(maps("sg_name_map/radius/A"), {1, {1, 2}});
    EXPECT_EQ(apply(AAA_CFG_OP_SET, "radius", "A"), AAA_ERR_SG_MAPPING);
    EXPECT_EQ(apply(AAA_CFG_OP_DELETE, "radius", "A"), AAA_ERR_SG_MAPPING);
}

TEST_F(ServerGroupApply, DirectoryFailureRollsBack) {
    fake::answer("sysdb_directory_get_last", kStrange);
    EXPECT_EQ(apply(AAA_CFG_OP_CREATE, "tacacs", "A"), kStrange);
    EXPECT_EQ(fake::log_texts(),
              (Texts{"Failed to read SysDB directory path sg_num_map/tacacs/: " + text_of(kStrange)}));
    const Texts deletes = fake::calls("sysdb_item_delete");
    ASSERT_EQ(deletes.size(), 1u);
    EXPECT_NE(deletes[0].find("\"sg_name_map/tacacs/A\", 0"), std::string::npos) << deletes[0];
}

TEST_F(ServerGroupApply, DirectoryWithoutANameIsAMappingError) {
    fake::answer("sysdb_directory_get_last", 0);
    EXPECT_EQ(apply(AAA_CFG_OP_CREATE, "tacacs", "A"), AAA_ERR_SG_MAPPING);
    EXPECT_EQ(fake::count("sysdb_item_delete"), 1u);
    EXPECT_TRUE(fake::logs().empty());
}

TEST_F(ServerGroupApply, FailingWriteRollsTheNameItemBack) {
    for (const unsigned failing : {1u, 2u}) {
        fake::clear_journal();
        fake::clear_answers("sysdb_item_set");
        fake::fail_call("sysdb_item_set", failing, kStrange);
        EXPECT_EQ(apply(AAA_CFG_OP_CREATE, "radius", "A"), kStrange);
        EXPECT_EQ(number_, 1001u);
        EXPECT_FALSE(fake::sysdb::get_u32(maps("sg_name_map/radius/A")).has_value());
        EXPECT_EQ(fake::count("sysdb_item_delete"), 1u);
    }
}

TEST_F(ServerGroupApply, DeleteRemovesBothItems) {
    ASSERT_EQ(apply(AAA_CFG_OP_CREATE, "tacacs", "A"), AAA_OK);
    fake::clear_journal();
    EXPECT_EQ(apply(AAA_CFG_OP_DELETE, "tacacs", "A"), AAA_OK);
    EXPECT_EQ(number_, 3001u);
    EXPECT_TRUE(fake::sysdb::paths().empty());
    EXPECT_EQ(traces(), (Texts{"Delete event for server group A (type = tacacs)"}));
}

TEST_F(ServerGroupApply, DeleteWaitsForTheSecondPassButForRadius) {
    ASSERT_EQ(apply(AAA_CFG_OP_CREATE, "tacacs", "A"), AAA_OK);
    ASSERT_EQ(apply(AAA_CFG_OP_CREATE, "radius", "A"), AAA_OK);
    fake::clear_journal();
    EXPECT_EQ(apply(AAA_CFG_OP_DELETE, "tacacs", "A", 0x10), AAA_OK);
    EXPECT_EQ(traces().back(), "Apply received for the first pass");
    EXPECT_TRUE(fake::sysdb::get_u32(maps("sg_name_map/tacacs/A")).has_value());
    EXPECT_EQ(number_, 99u);
    EXPECT_EQ(apply(AAA_CFG_OP_DELETE, "radius", "A", 0x10), AAA_OK);
    EXPECT_FALSE(fake::sysdb::get_u32(maps("sg_name_map/radius/A")).has_value());
}

TEST_F(ServerGroupApply, OnlyTheWholeWordRadiusIsDeletedInTheFirstPass) {
    for (const char *protocol : {"radius2", "radiu", "RADIUS", "", "diameter"}) {
        fake::clear_journal();
        EXPECT_EQ(apply(AAA_CFG_OP_DELETE, protocol, "A", 0x10), AAA_OK) << protocol;
        EXPECT_EQ(traces().back(), "Apply received for the first pass");
        EXPECT_EQ(fake::count("sysdb_item_get"), 0u);
    }
}

TEST_F(ServerGroupApply, TheFirstPassDoesNotLookAtTheArguments) {
    const aaa_cfg_event_t event = {AAA_CFG_OP_DELETE, 0x10, {}};
    EXPECT_EQ(aaa_util_svr_grp_apply(conn_, &event, nullptr, nullptr, nullptr), AAA_OK);
    EXPECT_EQ(traces(), (Texts{"Delete event for server group (null) (type = (null))",
                               "Apply received for the first pass"}));
    EXPECT_EQ(aaa_util_svr_grp_apply(conn_, &event, "radius", nullptr, &number_), AAA_ERR_INVALID_ARG);
}

TEST_F(ServerGroupApply, MissingArgumentsOfADeleteAreNotTracedUnlikeThoseOfACreate) {
    aaa_cfg_event_t event = {AAA_CFG_OP_DELETE, 0, {}};
    EXPECT_EQ(aaa_util_svr_grp_apply(conn_, &event, "radius", "A", nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(traces(), (Texts{"Delete event for server group A (type = radius)"}));
    fake::clear_journal();
    event.operation = AAA_CFG_OP_CREATE;
    EXPECT_EQ(aaa_util_svr_grp_apply(conn_, &event, "radius", "A", nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(traces(),
              (Texts{"Set/create event for server group A (type = radius)",
                     "Failed to create server group mapping for A - " + text_of(AAA_ERR_INVALID_ARG)}));
}

TEST_F(ServerGroupApply, ItemsThatCannotBeDeletedDoNotFailTheDeletion) {
    ASSERT_EQ(apply(AAA_CFG_OP_CREATE, "radius", "A"), AAA_OK);
    fake::clear_journal();
    fake::answer("sysdb_item_delete", kStrange);
    EXPECT_EQ(apply(AAA_CFG_OP_DELETE, "radius", "A"), AAA_OK);
    EXPECT_EQ(number_, 1001u);
    EXPECT_EQ(
        traces(),
        (Texts{"Delete event for server group A (type = radius)",
               "Cannot delete server group  name for sg_name_map/radius/A - " + text_of(kStrange),
               "Cannot delete server group  number for sg_num_map/radius/0x3e9 - " + text_of(kStrange)}));
}

TEST_F(ServerGroupApply, DeleteOfAnUnknownGroupReportsTheReadFailure) {
    EXPECT_EQ(apply(AAA_CFG_OP_DELETE, "radius", "A"), SYSDB_ERR_NOT_FOUND);
    EXPECT_EQ(number_, 0u);
    EXPECT_EQ(traces().back(),
              "Failed to delete server group mapping for A - " + text_of(SYSDB_ERR_NOT_FOUND));
}

TEST_F(ServerGroupApply, DeleteOfANullValueDoesNothing) {
    fake::sysdb::put(maps("sg_name_map/radius/A"), {1, {}, true});
    EXPECT_EQ(apply(AAA_CFG_OP_DELETE, "radius", "A"), AAA_OK);
    EXPECT_EQ(number_, 0u);
    EXPECT_EQ(fake::count("sysdb_item_delete"), 0u);
}

TEST_F(ServerGroupApply, UnknownOperationIsRefused) {
    EXPECT_EQ(apply(1, "radius", "A"), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(traces(), (Texts{"Unknown notify event for server group A (type = radius)"}));
}

TEST_F(ServerGroupApply, NullArgumentsAreRefused) {
    uint32_t number = 99;
    EXPECT_EQ(aaa_util_svr_grp_apply(conn_, nullptr, "radius", "A", &number), AAA_ERR_INVALID_ARG);
    for (const uint32_t operation : {AAA_CFG_OP_SET, AAA_CFG_OP_CREATE, AAA_CFG_OP_DELETE}) {
        const aaa_cfg_event_t event = {operation, 0, {}};
        EXPECT_EQ(aaa_util_svr_grp_apply(conn_, &event, nullptr, "A", &number), AAA_ERR_INVALID_ARG);
        EXPECT_EQ(aaa_util_svr_grp_apply(conn_, &event, "radius", nullptr, &number), AAA_ERR_INVALID_ARG);
        EXPECT_EQ(aaa_util_svr_grp_apply(conn_, &event, "radius", "A", nullptr), AAA_ERR_INVALID_ARG);
    }
    EXPECT_EQ(number, 99u);
    EXPECT_TRUE(traced("Failed to create server group mapping for (null) - " + text_of(AAA_ERR_INVALID_ARG)));
    EXPECT_EQ(fake::count("sysdb_item_get"), 0u);
}

}  // namespace
