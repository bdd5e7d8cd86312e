// SPDX-License-Identifier: Apache-2.0
//
// Lookup of server groups by name and by number, on a scripted database.

#include "aaa/server_groups.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "aaa/lifecycle.h"
#include "aaa/result_codes.h"
#include "platform/cerr.h"
#include "testkit/fake_platform.hpp"

namespace {

using Calls = std::vector<std::string>;

constexpr char kMaps[] = "/oper/aaa/gl/group-server/";

std::string maps(const std::string &item) {
    return kMaps + item;
}

class ServerGroupLookup : public testing::Test {
  protected:
    void SetUp() override {
        fake::sysdb::put_u32(maps("sg_name_map/radius/CORP"), 1001);
        fake::sysdb::put_string(maps("sg_num_map/radius/0x3e9"), "CORP");
        fake::sysdb::put_u32(maps("sg_name_map/tacacs/ARCHIVE"), 3001);
        fake::sysdb::put_string(maps("sg_num_map/tacacs/0xbb9"), "ARCHIVE");
        fake::sysdb::put_u32(maps("sg_name_map/diameter/EDGE"), 3002);
        fake::sysdb::put_string(maps("sg_num_map/diameter/0xbba"), "EDGE");
    }
};

TEST(ServerGroupProtocol, NamesAllKeywordsAndNothingAbove) {
    const char *const expected[] = {"none",        "radius",        "tacacs",    "tacacs+",          "local",
                                    "enable",      "default",       "if-needed", "if-authenticated", "krb5",
                                    "krb5-telnet", "krb5-instance", "line",      "local-case",       "guest",
                                    "auth-guest",  "rcmd",          "diameter"};
    for (uint32_t i = 0; i < 18; i++) {
        EXPECT_STREQ(aaa_util_get_sg_defined_name(i), expected[i]) << i;
    }
    EXPECT_EQ(aaa_util_get_sg_defined_name(18), nullptr);
    EXPECT_EQ(aaa_util_get_sg_defined_name(0xFFFFFFFFu), nullptr);
}

TEST_F(ServerGroupLookup, FindsEachProtocolsGroup) {
    struct Case {
        const char *name;
        uint32_t number, protocol;
    };
    for (const Case &c : {Case{"CORP", 1001, 1}, Case{"ARCHIVE", 3001, 2}, Case{"EDGE", 3002, 17}}) {
        uint32_t number = 99, protocol = 99;
        EXPECT_EQ(aaa_util_lookup_sg_index_and_get_type(c.name, &number, &protocol), AAA_OK) << c.name;
        EXPECT_EQ(number, c.number);
        EXPECT_EQ(protocol, c.protocol);
        number = 99;
        EXPECT_EQ(aaa_util_lookup_sg_index(c.name, &number), AAA_OK);
        EXPECT_EQ(number, c.number);
    }
}

TEST_F(ServerGroupLookup, SearchesRadiusThenTacacsThenDiameter) {
    uint32_t number = 0;
    ASSERT_EQ(aaa_util_lookup_sg_index("EDGE", &number), AAA_OK);
    const Calls reads = fake::calls("sysdb_item_get");
    ASSERT_EQ(reads.size(), 3u);
    EXPECT_NE(reads[0].find("\"sg_name_map/radius/EDGE\", 1"), std::string::npos) << reads[0];
    EXPECT_NE(reads[1].find("\"sg_name_map/tacacs/EDGE\", 1"), std::string::npos) << reads[1];
    EXPECT_NE(reads[2].find("\"sg_name_map/diameter/EDGE\", 1"), std::string::npos) << reads[2];
}

TEST_F(ServerGroupLookup, FirstProtocolWinsForANameOfTwo) {
    fake::sysdb::put_u32(maps("sg_name_map/tacacs/CORP"), 3777);
    uint32_t number = 0, protocol = 0;
    EXPECT_EQ(aaa_util_lookup_sg_index_and_get_type("CORP", &number, &protocol), AAA_OK);
    EXPECT_EQ(number, 1001u);
    EXPECT_EQ(protocol, 1u);
    EXPECT_EQ(fake::count("sysdb_item_get"), 1u);
}

TEST_F(ServerGroupLookup, UnknownNameGivesNotFoundWithZeroes) {
    uint32_t number = 99, protocol = 99;
    EXPECT_EQ(aaa_util_lookup_sg_index_and_get_type("NOBODY", &number, &protocol), 0x40818600u);
    EXPECT_EQ(number, 0u);
    EXPECT_EQ(protocol, 0u);
}

TEST_F(ServerGroupLookup, NullOutputsAreAllowedAndTheValueIsFreed) {
    EXPECT_EQ(aaa_util_lookup_sg_index_and_get_type("CORP", nullptr, nullptr), AAA_OK);
    EXPECT_EQ(aaa_util_lookup_sg_index("CORP", nullptr), AAA_OK);
}

TEST_F(ServerGroupLookup, NullNameTouchesNothing) {
    uint32_t number = 99, protocol = 99;
    EXPECT_EQ(aaa_util_lookup_sg_index_and_get_type(nullptr, &number, &protocol), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(number, 99u);
    EXPECT_EQ(protocol, 99u);
    EXPECT_EQ(aaa_util_lookup_sg_index(nullptr, &number), AAA_ERR_INVALID_ARG);
    EXPECT_TRUE(fake::calls().empty());
}

TEST_F(ServerGroupLookup, DatabaseFailureEndsTheSearch) {
    for (const unsigned failing : {1u, 2u, 3u}) {
        fake::clear_journal();
        fake::clear_answers("sysdb_item_get");
        fake::fail_call("sysdb_item_get", failing, 0x12345600u);
        uint32_t number = 99, protocol = 99;
        EXPECT_EQ(aaa_util_lookup_sg_index_and_get_type("NOBODY", &number, &protocol), 0x12345600u);
        EXPECT_EQ(number, 0u);
        EXPECT_EQ(protocol, 99u);
        EXPECT_EQ(fake::count("sysdb_item_get"), failing);
    }
}

TEST_F(ServerGroupLookup, BindsOnceAndKeepsTheHandle) {
    uint32_t number = 0;
    ASSERT_EQ(aaa_util_lookup_sg_index("CORP", &number), AAA_OK);
    EXPECT_NE(aaa_sgmap_sysdb_connid, 0u);
    ASSERT_EQ(aaa_util_lookup_sg_index("ARCHIVE", &number), AAA_OK);
    const Calls binds = fake::calls("_sysdb_bind");
    ASSERT_EQ(binds.size(), 1u);
    EXPECT_NE(binds[0].find("\"/oper/aaa/gl/group-server/\", 2"), std::string::npos) << binds[0];
}

TEST_F(ServerGroupLookup, BindFailureIsLoggedWithOneBlankAndReturned) {
    fake::answer("_sysdb_bind", 0x12345600u);
    uint32_t number = 99, protocol = 99;
    EXPECT_EQ(aaa_util_lookup_sg_index_and_get_type("CORP", &number, &protocol), 0x12345600u);
    EXPECT_EQ(number, 0u);
    EXPECT_EQ(protocol, 99u);
    ASSERT_EQ(fake::logs().size(), 1u);
    EXPECT_EQ(fake::logs()[0].mnemonic, "ERR_SYSDB");
    EXPECT_EQ(fake::logs()[0].severity, 7u);
    EXPECT_EQ(fake::logs()[0].text, std::string("sysdb_bind failed on  path /oper/aaa/gl/group-server/: ") +
                                        cerr_strerror(0x12345600u));
    EXPECT_EQ(aaa_sgmap_sysdb_connid, 0u);
}

TEST_F(ServerGroupLookup, BindFailureOfTheReverseLookupHasTwoBlanks) {
    fake::answer("_sysdb_bind", 0x12345600u);
    EXPECT_EQ(aaa_util_lookup_sg_name(1001), nullptr);
    ASSERT_EQ(fake::logs().size(), 1u);
    EXPECT_EQ(fake::logs()[0].text, std::string("sysdb_bind failed  on  path /oper/aaa/gl/group-server/: ") +
                                        cerr_strerror(0x12345600u));
}

TEST_F(ServerGroupLookup, FindsNamesByNumberInLowerCaseHex) {
    char *name = aaa_util_lookup_sg_name(1001);
    EXPECT_STREQ(name, "CORP");
    free(name);
    name = aaa_util_lookup_sg_name(3001);
    EXPECT_STREQ(name, "ARCHIVE");
    free(name);
    const Calls reads = fake::calls("sysdb_item_get");
    ASSERT_EQ(reads.size(), 3u);
    EXPECT_NE(reads[0].find("\"sg_num_map/radius/0x3e9\", 3"), std::string::npos) << reads[0];
    EXPECT_NE(reads[1].find("\"sg_num_map/radius/0xbb9\", 3"), std::string::npos) << reads[1];
    EXPECT_NE(reads[2].find("\"sg_num_map/tacacs/0xbb9\", 3"), std::string::npos) << reads[2];
}

TEST_F(ServerGroupLookup, AnyNumberIsLookedUpAsItIs) {
    EXPECT_EQ(aaa_util_lookup_sg_name(0x2a), nullptr);
    EXPECT_EQ(aaa_util_lookup_sg_name(0xFFFFFFFFu), nullptr);
    const std::string read = std::string("sysdb_item_get(") + kMaps + ", \"sg_num_map/";
    EXPECT_EQ(fake::calls("sysdb_item_get"),
              (Calls{read + "radius/0x2a\", 3, 0)", read + "tacacs/0x2a\", 3, 0)",
                     read + "radius/0xffffffff\", 3, 0)", read + "tacacs/0xffffffff\", 3, 0)"}));
}

// Kept: the lookup by number knows RADIUS and TACACS numbers only.
TEST_F(ServerGroupLookup, DiameterNumbersAreNotFound) {
    EXPECT_EQ(aaa_util_lookup_sg_name(3002), nullptr);
}

TEST_F(ServerGroupLookup, OtherFailuresOfTheReverseLookupEndIt) {
    fake::answer("sysdb_item_get", 0x12345600u);
    EXPECT_EQ(aaa_util_lookup_sg_name(3001), nullptr);
    EXPECT_EQ(fake::count("sysdb_item_get"), 1u);
}

TEST_F(ServerGroupLookup, UnterminatedNameIsTerminatedInItsLastByte) {
    fake::sysdb::put(maps("sg_num_map/radius/0x3ea"), {3, {'a', 'b', 'c', 'd'}});
    char *name = aaa_util_lookup_sg_name(1002);
    EXPECT_STREQ(name, "abc");
    free(name);
}

TEST_F(ServerGroupLookup, MalformedItemsAreRefused) {
    fake::sysdb::put(maps("sg_num_map/radius/0x3ea"), {3, {}});
    EXPECT_EQ(aaa_util_lookup_sg_name(1002), nullptr);
    fake::sysdb::put(maps("sg_num_map/radius/0x3eb"), {3, {}, true});
    EXPECT_EQ(aaa_util_lookup_sg_name(1003), nullptr);
    fake::sysdb::put(maps("sg_name_map/radius/SHORT"), {1, {1, 2, 3}});
    uint32_t number = 99;
    EXPECT_EQ(aaa_util_lookup_sg_index("SHORT", &number), AAA_ERR_SG_MAPPING);
    EXPECT_EQ(number, 0u);
    fake::sysdb::put(maps("sg_name_map/radius/NULL"), {1, {}, true});
    EXPECT_EQ(aaa_util_lookup_sg_index("NULL", &number), AAA_ERR_SG_MAPPING);
}

// Without a place for the number only the existence of the item is asked for.
TEST_F(ServerGroupLookup, AMalformedItemIsFoundWhenItsNumberIsNotWanted) {
    fake::sysdb::put(maps("sg_name_map/tacacs/SHORT"), {1, {1, 2}});
    uint32_t protocol = 9;
    EXPECT_EQ(aaa_util_lookup_sg_index_and_get_type("SHORT", nullptr, &protocol), AAA_OK);
    EXPECT_EQ(protocol, 2u);
}

TEST_F(ServerGroupLookup, OverlongNameIsCutAt255Characters) {
    const std::string name(400, 'n');
    uint32_t number = 0;
    EXPECT_EQ(aaa_util_lookup_sg_index(name.c_str(), &number), SYSDB_ERR_NOT_FOUND);
    const std::string path = (std::string("sg_name_map/radius/") + name).substr(0, 255);
    EXPECT_EQ(path.size(), 255u);
    EXPECT_NE(fake::calls("sysdb_item_get").at(0).find("\"" + path + "\""), std::string::npos);
}

}  // namespace
