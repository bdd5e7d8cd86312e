// SPDX-License-Identifier: Apache-2.0
//
// Verification of server-group changes, on a scripted database.

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

// ---- verify: set and create ---------------------------------------------------

TEST(ServerGroupVerify, AcceptsANewNameForEveryProtocol) {
    for (const uint32_t operation : {2u, 3u}) {
        for (const uint32_t protocol : {1u, 2u, 17u}) {
            fake::clear_journal();
            const Verification v = verify(operation, "CORP", protocol);
            EXPECT_EQ(v.rc, AAA_OK);
            EXPECT_EQ(v.verdict, 1u);
            EXPECT_EQ(v.text, "");
            EXPECT_EQ(traces(), (Texts{"Entry [need to remove]", "Server group set/create verification"}));
        }
    }
}

TEST(ServerGroupVerify, RefusesEveryKeywordExactly) {
    for (uint32_t i = 0; i < 18; i++) {
        fake::clear_journal();
        const char *keyword = aaa_util_get_sg_defined_name(i);
        const Verification v = verify(AAA_CFG_OP_CREATE, keyword, 1);
        EXPECT_EQ(v.rc, AAA_ERR_INVALID_ARG) << keyword;
        EXPECT_EQ(v.verdict, 2u);
        EXPECT_EQ(v.text, "Bad server group name");
        EXPECT_EQ(traces(), (Texts{"Entry [need to remove]", "Server group set/create verification",
                                   "invalid arg Break [need to remove]"}));
        EXPECT_EQ(fake::count("_sysdb_bind"), 0u);
    }
    EXPECT_EQ(verify(AAA_CFG_OP_CREATE, "Local", 1).rc, AAA_OK);
    EXPECT_EQ(verify(AAA_CFG_OP_CREATE, "loca", 1).rc, AAA_OK);
}

struct Rival {
    uint32_t protocol;
    const char *taken_by;
    const char *text;
    bool traced;
};

class ServerGroupRival : public testing::TestWithParam<Rival> {};

TEST_P(ServerGroupRival, NameOfAnotherProtocolIsRefused) {
    const Rival &rival = GetParam();
    fake::sysdb::put_u32(maps(std::string("sg_name_map/") + rival.taken_by + "/CORP"), 1001);
    const Verification v = verify(AAA_CFG_OP_SET, "CORP", rival.protocol);
    EXPECT_EQ(v.rc, AAA_ERR_SG_NAME_OTHER_PROTOCOL);
    EXPECT_EQ(v.verdict, 2u);
    EXPECT_EQ(v.text, rival.text);
    EXPECT_EQ(traced("dup name [need to remove]"), rival.traced);
}

INSTANTIATE_TEST_SUITE_P(
    All, ServerGroupRival,
    testing::Values(Rival{1, "tacacs", "Server group name already defined for TACACS+", true},
                    Rival{1, "diameter", "Server group name already defined for DIAMETER+", true},
                    Rival{2, "radius", "Server group name already defined for RADIUS", false},
                    Rival{2, "diameter", "Server group name already defined for DIAMETER+", true},
                    Rival{17, "radius", "Server group name already defined for RADIUS", false},
                    Rival{17, "tacacs", "Server group name already defined for TACACS+", true}));

TEST(ServerGroupVerify, NameOfTheSameProtocolIsAccepted) {
    fake::sysdb::put_u32(maps("sg_name_map/radius/CORP"), 1001);
    EXPECT_EQ(verify(AAA_CFG_OP_CREATE, "CORP", 1).rc, AAA_OK);
}

TEST(ServerGroupVerify, FailingReadCountsAsNotFound) {
    fake::answer("sysdb_item_get", kStrange);
    const Verification v = verify(AAA_CFG_OP_CREATE, "CORP", 2);
    EXPECT_EQ(v.rc, AAA_OK);
    EXPECT_EQ(v.verdict, 1u);
    EXPECT_EQ(fake::count("sysdb_item_get"), 2u);
}

TEST(ServerGroupVerify, UnknownProtocolIsRefusedWithoutABlank) {
    for (const uint32_t protocol : {0u, 3u, 16u, 18u}) {
        const Verification v = verify(AAA_CFG_OP_CREATE, "CORP", protocol);
        EXPECT_EQ(v.rc, AAA_ERR_INVALID_ARG);
        EXPECT_EQ(v.verdict, 2u);
        EXPECT_EQ(v.text, "AAA: Unknown protocol, specify eitherRADIUS or TACACS+ or DIAMETER");
    }
}

TEST(ServerGroupVerify, BindFailureIsTheResult) {
    fake::answer("_sysdb_bind", kStrange);
    const Verification v = verify(AAA_CFG_OP_CREATE, "CORP", 1);
    EXPECT_EQ(v.rc, kStrange);
    EXPECT_EQ(v.verdict, 2u);
    EXPECT_EQ(fake::log_texts(),
              (Texts{"sysdb_bind failed  on  path /oper/aaa/gl/group-server/: " + text_of(kStrange)}));
}

TEST(ServerGroupVerify, UnknownOperationIsRefused) {
    const Verification v = verify(0xAB, "CORP", 1);
    EXPECT_EQ(v.rc, AAA_ERR_INVALID_ARG);
    EXPECT_EQ(v.verdict, 2u);
    EXPECT_EQ(v.text, "Unknown server group event");
    EXPECT_TRUE(traced("Server group unknown event AB"));
}

TEST(ServerGroupVerify, WithoutAnEventOrAVerdictNothingIsTouched) {
    const aaa_cfg_event_t event = {AAA_CFG_OP_CREATE, 0, {}};
    char *text = nullptr;
    uint32_t verdict = 99;
    EXPECT_EQ(aaa_util_svr_grp_verify(nullptr, &text, &verdict, "CORP", 1), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_util_svr_grp_verify(&event, &text, nullptr, "CORP", 1), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(verdict, 99u);
    EXPECT_EQ(text, nullptr);
    EXPECT_TRUE(traces().empty());
}

TEST(ServerGroupVerify, ASetOrCreateWithoutANameIsRejected) {
    for (const uint32_t operation : {AAA_CFG_OP_SET, AAA_CFG_OP_CREATE}) {
        fake::clear_journal();
        const Verification v = verify(operation, nullptr, 1);
        EXPECT_EQ(v.rc, AAA_ERR_INVALID_ARG);
        EXPECT_EQ(v.verdict, 2u);
        EXPECT_EQ(v.text, "");
        EXPECT_EQ(traces(), (Texts{"Entry [need to remove]", "Server group set/create verification"}));
        EXPECT_EQ(fake::count("_sysdb_bind"), 0u);
    }
}

TEST(ServerGroupVerify, AnUnknownOperationNeedsNoName) {
    const Verification v = verify(0xAB, nullptr, 1);
    EXPECT_EQ(v.rc, AAA_ERR_INVALID_ARG);
    EXPECT_EQ(v.verdict, 2u);
    EXPECT_EQ(v.text, "Unknown server group event");
    EXPECT_EQ(traces(), (Texts{"Entry [need to remove]", "Server group unknown event AB"}));
}

// A delete makes all its steps; only the search needs a name.
TEST(ServerGroupVerify, ADeleteWithoutANameIsRejectedByTheSearch) {
    fake::sysdb::make_directory(kConfig);
    for (const uint8_t flags : {uint8_t{0}, uint8_t{AAA_CFG_FIRST_PASS}}) {
        fake::clear_journal();
        const Verification v = verify(AAA_CFG_OP_DELETE, nullptr, 2, flags);
        EXPECT_EQ(v.rc, AAA_ERR_INVALID_ARG);
        EXPECT_EQ(v.verdict, flags != 0 ? 4u : 2u);
        EXPECT_EQ(v.text, "");
        EXPECT_TRUE(traced("Entry [need to remove]"));
        EXPECT_EQ(fake::count("sysdb_list"), 0u);
    }
    EXPECT_NE(aaa_cfg_sysdb_connid, 0u);
}

// Only a refusal with a text needs a buffer for it.
TEST(ServerGroupVerify, WithoutAPlaceForTheTextOnlyRefusalsThatWriteOneFail) {
    fake::sysdb::put_tuple(config("authentication/login/default"), {10, 0, 0, 0}, {"USED", "", "", ""});
    fake::sysdb::put_u32(maps("sg_name_map/radius/TAKEN"), 1001);
    const struct {
        uint32_t operation, protocol;
        const char *name;
        cerrno rc;
        uint32_t verdict;
    } cases[] = {{AAA_CFG_OP_DELETE, 1, "FREE", AAA_OK, 1},
                 {AAA_CFG_OP_DELETE, 1, "USED", AAA_ERR_SG_IN_USE, 2},
                 {AAA_CFG_OP_SET, 1, "CORP", AAA_OK, 1},
                 {AAA_CFG_OP_SET, 1, "local", AAA_ERR_INVALID_ARG, 2},
                 {AAA_CFG_OP_SET, 2, "TAKEN", AAA_ERR_INVALID_ARG, 2},
                 {AAA_CFG_OP_SET, 3, "CORP", AAA_ERR_INVALID_ARG, 2},
                 {9, 1, "CORP", AAA_ERR_INVALID_ARG, 2}};
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.operation << " " << c.name);
        const aaa_cfg_event_t event = {c.operation, 0, {}};
        uint32_t verdict = 99;
        EXPECT_EQ(aaa_util_svr_grp_verify(&event, nullptr, &verdict, c.name, c.protocol), c.rc);
        EXPECT_EQ(verdict, c.verdict);
    }
}

// The call asks only whether the name exists, not for its number.
TEST(ServerGroupVerify, AnItemOfAnotherProtocolCountsHoweverShortItIs) {
    const std::vector<std::vector<uint8_t>> values = {{}, {1}, {1, 2, 3}};
    for (const auto &value : values) {
        SCOPED_TRACE(value.size());
        fake::sysdb::put(maps("sg_name_map/tacacs/CORP"), {1, value, value.empty()});
        const Verification v = verify(AAA_CFG_OP_CREATE, "CORP", 1);
        EXPECT_EQ(v.rc, AAA_ERR_SG_NAME_OTHER_PROTOCOL);
        EXPECT_EQ(v.verdict, 2u);
        EXPECT_EQ(v.text, "Server group name already defined for TACACS+");
    }
}

// The refusal remains, without its text.
TEST(ServerGroupVerify, RefusalsNeedNoMemory) {
    fake::sysdb::put_u32(maps("sg_name_map/radius/TAKEN"), 1001);
    const struct {
        uint32_t operation, protocol;
        const char *name;
        cerrno rc;
    } cases[] = {{AAA_CFG_OP_SET, 1, "local", AAA_ERR_INVALID_ARG},
                 {AAA_CFG_OP_SET, 2, "TAKEN", AAA_ERR_SG_NAME_OTHER_PROTOCOL},
                 {AAA_CFG_OP_SET, 3, "CORP", AAA_ERR_INVALID_ARG},
                 {9, 1, "CORP", AAA_ERR_INVALID_ARG}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        fake::sweep_allocations([&c](fake::FailAlloc &fail) {
            const aaa_cfg_event_t event = {c.operation, 0, {}};
            char *text = nullptr;
            uint32_t verdict = 99;
            EXPECT_EQ(fail.run([&] {
                return aaa_util_svr_grp_verify(&event, &text, &verdict, c.name, c.protocol);
            }),
                      c.rc);
            EXPECT_EQ(verdict, 2u);
            EXPECT_EQ(text == nullptr, fail.fired());
            free(text);
        });
    }
}

TEST(ServerGroupVerify, LooksTheNameUpInTheOthersMapsInOrder) {
    const struct {
        uint32_t protocol;
        const char *first, *second;
    } cases[] = {{1, "tacacs", "diameter"}, {2, "radius", "diameter"}, {17, "radius", "tacacs"}};
    for (const auto &c : cases) {
        fake::clear_journal();
        verify(AAA_CFG_OP_SET, "CORP", c.protocol);
        const std::string read = std::string("sysdb_item_get(") + kMaps + ", \"sg_name_map/";
        EXPECT_EQ(fake::calls("sysdb_item_get"),
                  (Texts{read + c.first + "/CORP\", 1, 0)", read + c.second + "/CORP\", 1, 0)"}));
    }
}

// ---- verify: first pass --------------------------------------------------------------

TEST(ServerGroupFirstPass, DeleteIsDecidedLaterButForRadius) {
    fake::sysdb::make_directory(kConfig);
    for (const uint32_t protocol : {1u, 2u, 17u}) {
        fake::clear_journal();
        const Verification v = verify(AAA_CFG_OP_DELETE, "OTHER", protocol, 0x10);
        EXPECT_EQ(v.rc, AAA_OK);
        EXPECT_EQ(v.verdict, protocol == 1 ? 1u : 4u);
        EXPECT_EQ(traces().back(), "Verification received for the first pass");
    }
}

TEST(ServerGroupFirstPass, OverridesARefusal) {
    fake::sysdb::put_tuple(config("authentication/login/default"), {10, 0, 0, 0}, {"CORP", "", "", ""});
    EXPECT_EQ(verify(AAA_CFG_OP_DELETE, "CORP", 2, 0x10).verdict, 4u);
    EXPECT_EQ(verify(AAA_CFG_OP_DELETE, "CORP", 1, 0x10).verdict, 1u);
    EXPECT_EQ(verify(AAA_CFG_OP_DELETE, "CORP", 2, 0x10).rc, AAA_ERR_SG_IN_USE);
}

// The bit counts, not the operation: an unknown event that has it is deferred too.
TEST(ServerGroupFirstPass, ConcernsEveryOperationWithTheDeleteBit) {
    for (const uint32_t operation : {5u, 6u, 7u, 0xFFu}) {
        const Verification v = verify(operation, "CORP", 2, 0x10);
        EXPECT_EQ(v.rc, AAA_ERR_INVALID_ARG);
        EXPECT_EQ(v.verdict, 4u);
        EXPECT_EQ(v.text, "Unknown server group event");
        EXPECT_EQ(verify(operation, "CORP", 1, 0x10).verdict, 1u);
        EXPECT_EQ(verify(operation, "CORP", 2).verdict, 2u);
    }
    EXPECT_EQ(verify(8, "CORP", 2, 0x10).verdict, 2u);
}

TEST(ServerGroupFirstPass, DoesNotConcernSetOrOtherFlags) {
    fake::sysdb::make_directory(kConfig);
    EXPECT_EQ(verify(AAA_CFG_OP_SET, "CORP", 2, 0x10).verdict, 1u);
    EXPECT_EQ(verify(AAA_CFG_OP_DELETE, "CORP", 2, 0xEF).verdict, 1u);
}

}  // namespace
