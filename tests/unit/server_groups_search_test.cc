// SPDX-License-Identifier: Apache-2.0
//
// The search for a server group in the configured method lists, which decides
// whether the group may be deleted. On a scripted database.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "aaa/lifecycle.h"
#include "aaa/result_codes.h"
#include "aaa/server_groups.h"
#include "platform/sysdb.h"
#include "support/fail_alloc.hpp"
#include "support/server_group_changes.hpp"
#include "testkit/fake_platform.hpp"

namespace {

using namespace server_groups;

class ServerGroupDelete : public testing::Test {
  protected:
    void SetUp() override {
        fake::sysdb::put_tuple(config("authentication/login/default"), {10, 2, 0, 0}, {"CORP", "", "", ""});
        fake::sysdb::put_tuple(config("accounting/exec/default"), {0, 0, 0, 2, 10, 0, 0},
                               {"", "BOOKS", "", ""});
        fake::sysdb::put_u32(config("radius/timeout"), 5);
    }
};

TEST_F(ServerGroupDelete, UnusedGroupMayGo) {
    const Verification v = verify(AAA_CFG_OP_DELETE, "OTHER", 1);
    EXPECT_EQ(v.rc, AAA_OK);
    EXPECT_EQ(v.verdict, 1u);
    EXPECT_TRUE(traced("Checking path "));
    EXPECT_TRUE(traced("Checking path authentication/login/"));
    EXPECT_TRUE(traced("Checking list: default"));
    EXPECT_TRUE(traced("tuple unmask passed"));
}

TEST_F(ServerGroupDelete, GroupOfAnyListMustStay) {
    for (const char *name : {"CORP", "BOOKS"}) {
        fake::clear_journal();
        const Verification v = verify(AAA_CFG_OP_DELETE, name, 1);
        EXPECT_EQ(v.rc, AAA_ERR_SG_IN_USE) << name;
        EXPECT_EQ(v.verdict, 2u);
        EXPECT_EQ(v.text, "");
        EXPECT_TRUE(traced(std::string("group ") + name + " is in list default"));
        EXPECT_TRUE(traced("dup name [need to remove]"));
    }
}

TEST_F(ServerGroupDelete, EachOfTheFourNamesCounts) {
    for (size_t slot = 0; slot < 4; slot++) {
        std::vector<std::string> names(4);
        names[slot] = "SLOT";
        fake::sysdb::put_tuple(config("authorization/exec/extra"), {10, 10, 10, 10}, names);
        EXPECT_EQ(verify(AAA_CFG_OP_DELETE, "SLOT", 2).rc, AAA_ERR_SG_IN_USE) << slot;
    }
}

TEST_F(ServerGroupDelete, AccountingListsAreReadWithTheirLongerFormat) {
    verify(AAA_CFG_OP_DELETE, "OTHER", 1);
    const Texts unpacked = fake::calls("tuple_unpack_mask");
    ASSERT_EQ(unpacked.size(), 2u);
    EXPECT_NE(unpacked[0].find("\"%d%d%d%d%d%d%d%s%s%s%s\""), std::string::npos) << unpacked[0];
    EXPECT_NE(unpacked[1].find("\"%d%d%d%d%s%s%s%s\""), std::string::npos) << unpacked[1];
}

TEST_F(ServerGroupDelete, UnreadableTupleEndsTheSearch) {
    fake::answer("tuple_unpack_mask", 1);
    EXPECT_EQ(verify(AAA_CFG_OP_DELETE, "OTHER", 1).rc, AAA_ERR_INVALID_METHOD);
    EXPECT_TRUE(traced("tuple unmask failed"));
}

TEST_F(ServerGroupDelete, TupleWithoutAValueEndsTheSearch) {
    fake::sysdb::put(config("authentication/login/null"), {5, {}, true});
    EXPECT_EQ(verify(AAA_CFG_OP_DELETE, "OTHER", 1).rc, AAA_ERR_INVALID_ARG);
}

TEST_F(ServerGroupDelete, ItemThatCannotBeReadIsSkipped) {
    fake::fail_call("sysdb_item_get", 1, kStrange);
    EXPECT_EQ(verify(AAA_CFG_OP_DELETE, "OTHER", 1).rc, AAA_OK);
    EXPECT_EQ(fake::count("tuple_unpack_mask"), 1u);
}

TEST_F(ServerGroupDelete, EntryWithoutANameEndsTheSearch) {
    fake::fail_call("sysdb_list_next", 1, 0);  // success without a name
    EXPECT_EQ(verify(AAA_CFG_OP_DELETE, "CORP", 1).rc, AAA_OK);
    EXPECT_EQ(fake::count("sysdb_list_next"), 1u);
    EXPECT_EQ(fake::sysdb::open_lists(), 0u);
}

TEST_F(ServerGroupDelete, ListingFailuresAreTheResultAndListsAreFreed) {
    fake::sysdb::set_list_on_failure(true);
    for (const char *function : {"sysdb_list", "sysdb_list_start", "sysdb_list_next"}) {
        fake::fail_call(function, 2, kStrange);
        const Verification v = verify(AAA_CFG_OP_DELETE, "OTHER", 1);
        EXPECT_EQ(v.rc, kStrange) << function;
        EXPECT_EQ(v.verdict, 2u);
        EXPECT_EQ(fake::sysdb::open_lists(), 0u);
    }
}

TEST_F(ServerGroupDelete, BindFailureIsLoggedWithOneBlank) {
    fake::answer("_sysdb_bind", kStrange);
    EXPECT_EQ(verify(AAA_CFG_OP_DELETE, "OTHER", 1).rc, kStrange);
    EXPECT_EQ(fake::log_texts(), (Texts{"sysdb_bind failed on  path /cfg/gl/aaa/: " + text_of(kStrange)}));
}

TEST_F(ServerGroupDelete, OwnHandleIsUsedOnceBound) {
    verify(AAA_CFG_OP_DELETE, "OTHER", 1);
    verify(AAA_CFG_OP_DELETE, "OTHER", 1);
    EXPECT_EQ(fake::count("_sysdb_bind"), 1u);
    EXPECT_NE(aaa_cfg_sysdb_connid, 0u);
}

TEST_F(ServerGroupDelete, BindsAndListsTheWholeTree) {
    verify(AAA_CFG_OP_DELETE, "BOOKS", 1);
    const Texts calls =
        fake::calls({"_sysdb_bind", "sysdb_list", "sysdb_list_start", "sysdb_list_free", "sysdb_item_get"});
    const std::string list = std::string("sysdb_list(") + kConfig + ", ";
    EXPECT_EQ(calls,
              (Texts{std::string("_sysdb_bind(\"") + kConfig + "\", 2)", list + "\"\", \"\", 0)",
                     "sysdb_list_start(list)", list + "\"accounting/\", \"\", 0)", "sysdb_list_start(list)",
                     list + "\"accounting/exec/\", \"\", 0)", "sysdb_list_start(list)",
                     std::string("sysdb_item_get(") + kConfig + ", \"accounting/exec/default\", 5, 0)",
                     "sysdb_list_free(list)", "sysdb_list_free(list)", "sysdb_list_free(list)"}));
}

TEST_F(ServerGroupDelete, NamesAreComparedWholeAndExactly) {
    const std::string longest(49, 'n');
    fake::sysdb::put_tuple(config("authorization/exec/long"), {10, 0, 0, 0}, {longest, "", "", ""});
    EXPECT_EQ(verify(AAA_CFG_OP_DELETE, longest.c_str(), 1).rc, AAA_ERR_SG_IN_USE);
    for (const std::string &name : {std::string("corp"), std::string("COR"), std::string("CORPS"),
                                    std::string(48, 'n'), std::string(50, 'n')}) {
        EXPECT_EQ(verify(AAA_CFG_OP_DELETE, name.c_str(), 1).rc, AAA_OK) << name;
    }
}

// The format follows the path that is searched, with the word anywhere in it,
// and not the name of the list.
TEST_F(ServerGroupDelete, TheWordAccountingInThePathChoosesTheFormat) {
    fake::sysdb::put_tuple(config("authorization/exec/accounting"), {10, 0, 0, 0}, {"PLAIN", "", "", ""});
    fake::sysdb::put_tuple(config("my-accounting-lists/x"), {0, 0, 0, 10, 0, 0, 0}, {"LONG", "", "", ""});
    EXPECT_EQ(verify(AAA_CFG_OP_DELETE, "PLAIN", 1).rc, AAA_ERR_SG_IN_USE);
    EXPECT_EQ(verify(AAA_CFG_OP_DELETE, "LONG", 1).rc, AAA_ERR_SG_IN_USE);
}

// A list at a longer path cannot be read under its own name, and is read under no other.
TEST_F(ServerGroupDelete, AListAtAPathOfMoreThan511CharactersIsPassedOver) {
    const std::string directory = std::string(200, 'a') + "/" + std::string(200, 'b') + "/";
    const std::string fitting = directory + std::string(511 - directory.size(), 'c');
    fake::sysdb::put_tuple(config(fitting), {10, 0, 0, 0}, {"DEEP", "", "", ""});
    fake::sysdb::put_tuple(config(fitting + "c"), {10, 0, 0, 0}, {"TOO", "", "", ""});
    fake::sysdb::put_tuple(config(directory + "d"), {10, 0, 0, 0}, {"AFTER", "", "", ""});
    EXPECT_EQ(verify(AAA_CFG_OP_DELETE, "DEEP", 1).rc, AAA_ERR_SG_IN_USE);
    EXPECT_EQ(verify(AAA_CFG_OP_DELETE, "AFTER", 1).rc, AAA_ERR_SG_IN_USE);
    fake::clear_journal();
    EXPECT_EQ(verify(AAA_CFG_OP_DELETE, "TOO", 1).rc, AAA_OK);
    unsigned reads = 0;
    for (const std::string &call : fake::calls("sysdb_item_get")) {
        reads += call.find(fitting) != std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(reads, 1u);
    EXPECT_TRUE(traced("Checking list: " + fitting.substr(directory.size()) + "c"));
}

TEST_F(ServerGroupDelete, AnItemOfAnotherTypeIsSkippedHoweverLongItsNameIs) {
    const std::string directory = std::string(200, 'a') + "/" + std::string(200, 'b') + "/";
    fake::sysdb::put_u32(config(directory + std::string(120, 'c')), 1);
    fake::sysdb::put_tuple(config(directory + "d"), {10, 0, 0, 0}, {"AFTER", "", "", ""});
    EXPECT_EQ(verify(AAA_CFG_OP_DELETE, "AFTER", 1).rc, AAA_ERR_SG_IN_USE);
    EXPECT_EQ(verify(AAA_CFG_OP_DELETE, "OTHER", 1).rc, AAA_OK);
}

TEST_F(ServerGroupDelete, ADirectoryWhosePathDoesNotFitStopsTheSearch) {
    fake::sysdb::put_u32(config(std::string(300, 'a') + "/" + std::string(300, 'b') + "/x"), 1);
    EXPECT_EQ(verify(AAA_CFG_OP_DELETE, "OTHER", 1).rc, AAA_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(fake::sysdb::open_lists(), 0u);
}

TEST_F(ServerGroupDelete, TreeThatNestsTooDeepStopsTheSearch) {
    std::string path;
    for (int i = 0; i < 70; i++) {
        path += "d/";
    }
    fake::sysdb::put_u32(config(path + "x"), 1);
    EXPECT_EQ(verify(AAA_CFG_OP_DELETE, "OTHER", 1).rc, AAA_ERR_BUFFER_TOO_SMALL);
}

TEST_F(ServerGroupDelete, ExhaustedMemoryGivesItsCode) {
    fake::sweep_allocations([](fake::FailAlloc &fail) {
        const aaa_cfg_event_t event = {AAA_CFG_OP_DELETE, 0, {}};
        char *text = nullptr;
        uint32_t verdict = 99;
        const cerrno rc =
            fail.run([&] { return aaa_util_svr_grp_verify(&event, &text, &verdict, "OTHER", 1); });
        EXPECT_EQ(rc, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
        EXPECT_EQ(verdict, fail.fired() ? 2u : 1u);
    });
}

// A tree that is empty is searched. A platform that says that it is absent, which
// the contract's does not for a bind point, makes the search fail.
TEST(ServerGroupDeleteTree, AbsentTreeRefusesTheDelete) {
    fake::answer("sysdb_list", SYSDB_ERR_NOT_FOUND, 1);
    EXPECT_EQ(verify(AAA_CFG_OP_DELETE, "OTHER", 1).rc, SYSDB_ERR_NOT_FOUND);
    EXPECT_EQ(verify(AAA_CFG_OP_DELETE, "OTHER", 1).rc, AAA_OK);
}

}  // namespace
