// SPDX-License-Identifier: Apache-2.0
//
// Server groups and method lists on the real database, across processes.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "aaa/aaautil.h"
#include "platform/cerr.h"
#include "platform/sysdb.h"
#include "support/sysdb.hpp"

namespace {

constexpr char kMaps[] = "/oper/aaa/gl/group-server/";
constexpr char kConfig[] = "/cfg/gl/aaa/";

// Each test has its own database and its own process.
class Groups : public testing::Test {
  protected:
    static cerrno apply(sysdb_conn_t maps, uint32_t operation, const char *protocol, const std::string &name,
                        uint32_t *number) {
        const aaa_cfg_event_t event = {operation, 0, {}};
        return aaa_util_svr_grp_apply(maps, &event, protocol, name.c_str(), number);
    }

    static void put_list(const char *path, uint32_t m0, uint32_t m1, const char *g0, const char *g1) {
        const Bound config(kConfig);
        void *tuple = nullptr;
        uint32_t length = 0;
        ASSERT_EQ(sysdb_tuple_pack(&tuple, &length, "%d%d%d%d%s%s%s%s", m0, m1, 0, 0, g0, g1, "", ""), 0u);
        EXPECT_EQ(sysdb_item_set(config.handle(), path, SYSDB_TYPE_TUPLE, tuple, length, 1), 0u);
        free(tuple);
    }

    static std::vector<uint32_t> methods_of(const char *path) {
        std::string copy(path);
        uint32_t *methods = nullptr;
        const cerrno rc = lookup_methods(copy.data(), &methods);
        EXPECT_EQ(rc, AAA_OK) << cerr_strerror(rc);
        std::vector<uint32_t> result;
        if (methods != nullptr) {
            result.assign(methods, methods + 4);
        }
        free(methods);
        return result;
    }

    DatabaseSandbox sandbox_;
};

TEST_F(Groups, OneProcessAppliesAnotherLooksUp) {
    run_forked([] {
        const Bound maps(kMaps);
        uint32_t number = 0;
        EXPECT_EQ(apply(maps.handle(), AAA_CFG_OP_CREATE, "radius", "corp", &number), AAA_OK);
        EXPECT_EQ(number, 1001u);
        EXPECT_EQ(apply(maps.handle(), AAA_CFG_OP_CREATE, "tacacs", "archive", &number), AAA_OK);
        EXPECT_EQ(number, 3001u);
        EXPECT_EQ(apply(maps.handle(), AAA_CFG_OP_CREATE, "diameter", "edge", &number), AAA_OK);
        EXPECT_EQ(number, 3001u);
    });
    uint32_t number = 0, protocol = 0;
    EXPECT_EQ(aaa_util_lookup_sg_index_and_get_type("corp", &number, &protocol), AAA_OK);
    EXPECT_EQ(number, 1001u);
    EXPECT_EQ(protocol, 1u);
    EXPECT_EQ(aaa_util_lookup_sg_index_and_get_type("edge", &number, &protocol), AAA_OK);
    EXPECT_EQ(protocol, 17u);
    char *name = aaa_util_lookup_sg_name(3001);
    EXPECT_STREQ(name, "archive");
    free(name);
    name = aaa_print_method(1001);
    EXPECT_STREQ(name, "corp");
    free(name);
    EXPECT_EQ(aaa_util_lookup_sg_index("nobody", &number), SYSDB_ERR_NOT_FOUND);

    run_forked([] {
        const Bound maps(kMaps);
        uint32_t gone = 0;
        EXPECT_EQ(apply(maps.handle(), AAA_CFG_OP_DELETE, "radius", "corp", &gone), AAA_OK);
        EXPECT_EQ(gone, 1001u);
    });
    EXPECT_EQ(aaa_util_lookup_sg_index("corp", &number), SYSDB_ERR_NOT_FOUND);
    EXPECT_EQ(aaa_util_lookup_sg_name(1001), nullptr);
}

TEST_F(Groups, NumbersEndAt1999) {
    const Bound maps(kMaps);
    uint32_t number = 0;
    for (uint32_t expected = 1001; expected <= 1999; expected++) {
        ASSERT_EQ(
            apply(maps.handle(), AAA_CFG_OP_CREATE, "radius", "group" + std::to_string(expected), &number),
            AAA_OK);
        ASSERT_EQ(number, expected);
    }
    EXPECT_EQ(last_in(maps.handle(), "sg_num_map/radius/"), "0x7cf");
    EXPECT_EQ(apply(maps.handle(), AAA_CFG_OP_CREATE, "radius", "onetoomany", &number), AAA_ERR_SG_MAPPING);
    EXPECT_EQ(existence(maps.handle(), "sg_name_map/radius/onetoomany"), SYSDB_ERR_NOT_FOUND);
    // The other range still has numbers.
    EXPECT_EQ(apply(maps.handle(), AAA_CFG_OP_CREATE, "tacacs", "first", &number), AAA_OK);
    EXPECT_EQ(number, 3001u);
}

TEST_F(Groups, SecondSetKeepsTheNumberAndMendsTheMap) {
    const Bound maps(kMaps);
    uint32_t number = 0;
    ASSERT_EQ(apply(maps.handle(), AAA_CFG_OP_CREATE, "radius", "corp", &number), AAA_OK);
    ASSERT_EQ(sysdb_item_delete(maps.handle(), "sg_num_map/radius/0x3e9", 0), 0u);
    ASSERT_EQ(apply(maps.handle(), AAA_CFG_OP_SET, "radius", "corp", &number), AAA_OK);
    EXPECT_EQ(number, 1001u);
    EXPECT_EQ(get_text(maps.handle(), "sg_num_map/radius/0x3e9"), "corp");
}

TEST_F(Groups, VerificationSeesOtherProtocolsAndLists) {
    const Bound maps(kMaps);
    uint32_t number = 0, verdict = 0;
    char *text = nullptr;
    ASSERT_EQ(apply(maps.handle(), AAA_CFG_OP_CREATE, "radius", "corp", &number), AAA_OK);
    const aaa_cfg_event_t create = {AAA_CFG_OP_CREATE, 0, {}};
    EXPECT_EQ(aaa_util_svr_grp_verify(&create, &text, &verdict, "corp", 2), AAA_ERR_SG_NAME_OTHER_PROTOCOL);
    EXPECT_STREQ(text, "Server group name already defined for RADIUS");
    free(text);
    put_list("authentication/login/default", AAA_METHOD_SERVER_GROUP, AAA_METHOD_LOCAL, "corp", "");
    const aaa_cfg_event_t erase = {AAA_CFG_OP_DELETE, 0, {}};
    EXPECT_EQ(aaa_util_svr_grp_verify(&erase, &text, &verdict, "corp", 1), AAA_ERR_SG_IN_USE);
    EXPECT_EQ(aaa_util_svr_grp_verify(&erase, &text, &verdict, "other", 1), AAA_OK);
    EXPECT_EQ(verdict, AAA_VERDICT_ACCEPTED);
}

TEST_F(Groups, IndexesCountOnAfterTheSixteenthServer) {
    const Bound config(kConfig);
    for (uint32_t expected = 1; expected <= 40; expected++) {
        const std::string host = "192.0.2." + std::to_string(expected);
        uint32_t index = 0;
        ASSERT_EQ(
            aaa_util_get_next_ord_index("corp", 1, AAA_INDEX_ANY, &index, host.c_str(), 1812, 1813, 0, 0),
            AAA_OK);
        ASSERT_EQ(index, expected);
        char path[128];
        snprintf(path, sizeof path, "group-server/radius/corp/server/0x%x/%s,1812,1813", expected,
                 host.c_str());
        ASSERT_EQ(set_number(config.handle(), path, 1), 0u);
    }
    uint32_t index = 0;
    EXPECT_EQ(aaa_util_get_next_ord_index("corp", 1, 0x10, &index, "198.51.100.1", 1, 2, 0, 0),
              AAA_ERR_INDEX_IN_USE);
    EXPECT_EQ(aaa_util_get_next_ord_index("corp", 1, 0x10, &index, "192.0.2.16", 1812, 1813, 0, 0), AAA_OK);
    EXPECT_EQ(index, 0u);
}

TEST_F(Groups, MethodListNamesGroupsByNumber) {
    const Bound maps(kMaps);
    uint32_t number = 0;
    ASSERT_EQ(apply(maps.handle(), AAA_CFG_OP_CREATE, "radius", "corp", &number), AAA_OK);
    put_list("authentication/login/default", AAA_METHOD_SERVER_GROUP, AAA_METHOD_LOCAL, "corp", "");
    EXPECT_EQ(methods_of("authentication/login/default"), (std::vector<uint32_t>{1001, 2, 0, 0}));
    EXPECT_EQ(aaa_util_lookup_methodlist("authentication", "login", "default"), AAA_OK);
    EXPECT_EQ(aaa_util_verify_methodlist(AAA_FUNC_AUTHEN, AAA_SVC_API, "default"), AAA_OK);
    EXPECT_EQ(aaa_util_lookup_methodlist("authentication", "login", "other"), AAA_ERR_NOT_FOUND);
}

TEST_F(Groups, ItemOfAnotherTypeIsNoMethodList) {
    const Bound config(kConfig);
    ASSERT_EQ(set_number(config.handle(), "authentication/login/odd", 7), 0u);
    EXPECT_EQ(aaa_util_lookup_methodlist("authentication", "login", "odd"), SYSDB_ERR_TYPE_MISMATCH);
}

int32_t note_change(const void *notification, void *callback_arg, void *user_ctx) {
    const auto *change = static_cast<const sysdb_notification_t *>(notification);
    *static_cast<std::string *>(callback_arg) = change->path;
    ++*static_cast<int *>(user_ctx);
    return 0;
}

// A name that the database refuses leaves a connection in the record.
TEST_F(Groups, RegistrationThatFailedIsReleasedLikeOneThatSucceeded) {
    aaa_mlist_reg_t registration = {};
    EXPECT_EQ(aaa_mlist_change_register(AAA_FUNC_AUTHEN, AAA_SVC_LOGIN, "not\ta name", note_change, nullptr,
                                        nullptr, &registration),
              SYSDB_ERR_BAD_PATH);
    ASSERT_NE(registration.connection, 0u);
    EXPECT_EQ(aaa_mlist_change_unregister(&registration), AAA_OK);
    EXPECT_EQ(existence(registration.connection, "x"), SYSDB_ERR_BAD_HANDLE);
}

TEST_F(Groups, ChangeOfAListReachesItsWatcher) {
    put_list("authentication/login/default", AAA_METHOD_LOCAL, 0, "", "");
    std::string path;
    int changes = 0;
    aaa_mlist_reg_t registration;
    ASSERT_EQ(aaa_mlist_change_register(AAA_FUNC_AUTHEN, AAA_SVC_LOGIN, "default", note_change, &path,
                                        &changes, &registration),
              AAA_OK);
    EXPECT_EQ(methods_of("authentication/login/default"), (std::vector<uint32_t>{2, 0, 0, 0}));
    run_forked([] { put_list("authentication/login/default", AAA_METHOD_LINE, AAA_METHOD_LOCAL, "", ""); });
    const int channel = channel_of(registration.connection);
    while (changes == 0 && wait_readable(channel, 20000)) {
        EXPECT_EQ(sysdb_dispatch(registration.connection), 0u);
    }
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(path, "authentication/login/default");
    EXPECT_EQ(methods_of("authentication/login/default"), (std::vector<uint32_t>{12, 2, 0, 0}));
    EXPECT_EQ(aaa_mlist_change_unregister(&registration), AAA_OK);
}

}  // namespace
