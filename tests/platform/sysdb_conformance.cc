// SPDX-License-Identifier: Apache-2.0

#include "sysdb_conformance.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "platform/sysdb_changes.h"
#include "support/sysdb.hpp"

namespace {

using Names = std::vector<std::string>;

class Prepared : public ::testing::Environment {
  public:
    void SetUp() override { prepare_database(); }
};
const auto *const g_prepared = ::testing::AddGlobalTestEnvironment(new Prepared);

// Every test has its own directory, and runs in each of the trees.
class Sysdb : public ::testing::TestWithParam<const char *> {
  protected:
    Sysdb() : base_(unique_base()), bound_(base_) { EXPECT_EQ(0u, bound_.code()); }

    static std::string unique_base() {
        static int count = 0;
        return std::string(GetParam()) + "test" + std::to_string(++count) + "x/";
    }

    sysdb_conn_t conn() const { return bound_.handle(); }
    const std::string &base() const { return base_; }

  private:
    std::string base_;
    Bound bound_;
};

// The trees differ only in how long they keep items.
INSTANTIATE_TEST_SUITE_P(Trees, Sysdb, ::testing::Values("/cfg/", "/oper/"),
                         [](const auto &tree) { return std::string(tree.index == 0 ? "cfg" : "oper"); });

// ---- connections

TEST_P(Sysdb, BindRefusesPathsThatAreNotDirectories) {
    for (const char *path : {"", "cfg/", "/", "/cfg", "/other/", "/cfg/a", "/cfg//", "/cfg/a//b/",
                             "/cfg/a\tb/", "/cfg/a\x7f/", "//cfg/", "/cfgx/"}) {
        sysdb_conn_t conn = 4711;
        EXPECT_EQ(SYSDB_ERR_BAD_PATH, _sysdb_bind(&conn, path, 0)) << path;
        EXPECT_EQ(4711u, conn) << path;
    }
}

TEST_P(Sysdb, BindRefusesNullsAndUnknownFlags) {
    sysdb_conn_t conn = 0;
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, _sysdb_bind(nullptr, "/cfg/", 0));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, _sysdb_bind(&conn, nullptr, 0));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, _sysdb_bind(&conn, "/cfg/", 1));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, _sysdb_bind(&conn, "/cfg/", 4));
    EXPECT_EQ(0u, conn);
}

TEST_P(Sysdb, EveryBindGivesAnotherHandle) {
    const Bound one(base(), SYSDB_BIND_SHARED);
    const Bound two(base(), SYSDB_BIND_SHARED);
    EXPECT_NE(0u, one.handle());
    EXPECT_NE(one.handle(), two.handle());
}

TEST_P(Sysdb, UnbindToleratesZeroAndRefusesStaleHandles) {
    EXPECT_EQ(0u, _sysdb_unbind(0));
    sysdb_conn_t other = 0;
    ASSERT_EQ(0u, _sysdb_bind(&other, base().c_str(), 0));
    EXPECT_EQ(0u, _sysdb_unbind(other));
    EXPECT_EQ(SYSDB_ERR_BAD_HANDLE, _sysdb_unbind(other));
    EXPECT_EQ(SYSDB_ERR_BAD_HANDLE, _sysdb_unbind(0xdeadbeefcafeu));
}

TEST_P(Sysdb, EveryCallRefusesAStaleHandle) {
    sysdb_conn_t stale = 0;
    ASSERT_EQ(0u, _sysdb_bind(&stale, base().c_str(), 0));
    ASSERT_EQ(0u, _sysdb_unbind(stale));
    for (const sysdb_conn_t conn : {stale, sysdb_conn_t{0}}) {
        int32_t coid = -1;
        uint32_t count = 77;
        sysdb_list_t list = nullptr;
        char *name = nullptr;
        uint64_t notification = 0;
        const auto callback = [](const void *, void *, void *) -> int32_t { return 0; };
        EXPECT_EQ(SYSDB_ERR_BAD_HANDLE, sysdb_conn_to_coid(conn, &coid));
        EXPECT_EQ(SYSDB_ERR_BAD_HANDLE, existence(conn, "a"));
        EXPECT_EQ(SYSDB_ERR_BAD_HANDLE, set_number(conn, "a", 1));
        EXPECT_EQ(SYSDB_ERR_BAD_HANDLE, sysdb_item_delete(conn, "a", 0));
        EXPECT_EQ(SYSDB_ERR_BAD_HANDLE, sysdb_list(conn, "", "", &count, &list, 0));
        EXPECT_EQ(SYSDB_ERR_BAD_HANDLE, sysdb_find(conn, "a/", "", &count, &list, 0, 1));
        EXPECT_EQ(SYSDB_ERR_BAD_HANDLE, sysdb_directory_get_last(conn, "", &name, nullptr, 0));
        EXPECT_EQ(SYSDB_ERR_BAD_HANDLE, _sysdb_register_notification(conn, "a", 6, 1, callback, nullptr, 0,
                                                                     nullptr, 0, &notification));
        EXPECT_EQ(SYSDB_ERR_BAD_HANDLE, sysdb_notification_unregister(conn, 1));
        EXPECT_EQ(0u, sysdb_notification_unregister(conn, 0));
        EXPECT_EQ(SYSDB_ERR_BAD_HANDLE, sysdb_dispatch(conn));
        EXPECT_EQ(-1, coid);
        EXPECT_EQ(77u, count);
        EXPECT_EQ(nullptr, list);
        EXPECT_EQ(nullptr, name);
        EXPECT_EQ(0u, notification);
    }
}

TEST_P(Sysdb, ConnectionsBoundAtDifferentLevelsSeeTheSameItems) {
    ASSERT_EQ(0u, set_number(conn(), "upper/lower/item", 7));
    const Bound lower(base() + "upper/lower/");
    EXPECT_EQ(7, get_number(lower.handle(), "item"));
    const Bound root(GetParam());
    EXPECT_EQ(7, get_number(root.handle(), base().substr(std::strlen(GetParam())) + "upper/lower/item"));
}

TEST_P(Sysdb, ChannelIdStaysTheSameAndBelongsToOneConnection) {
    const Bound other(base());
    const int channel = channel_of(conn());
    EXPECT_GE(channel, 0);
    EXPECT_EQ(channel, channel_of(conn()));
    EXPECT_NE(channel, channel_of(other.handle()));
    EXPECT_FALSE(wait_readable(channel, 0));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_conn_to_coid(conn(), nullptr));
}

// ---- items

TEST_P(Sysdb, KeepsNumbersTextsTuplesAndOpaqueValues) {
    EXPECT_EQ(0u, set_number(conn(), "number", 0xfffffffe));
    EXPECT_EQ(0xfffffffe, get_number(conn(), "number"));
    EXPECT_EQ(0u, set_text(conn(), "text", "GRP1"));
    EXPECT_EQ("GRP1", get_text(conn(), "text"));
    EXPECT_EQ(0u, set_text(conn(), "empty", ""));
    EXPECT_EQ("", get_text(conn(), "empty"));

    void *tuple = nullptr;
    uint32_t tuple_length = 0;
    ASSERT_EQ(0u, sysdb_tuple_pack(&tuple, &tuple_length, "%d%s", 10, "GRP1"));
    EXPECT_EQ(0u, sysdb_item_set(conn(), "tuple", SYSDB_TYPE_TUPLE, tuple, tuple_length, 1));
    uint32_t type = SYSDB_TYPE_TUPLE;
    void *value = nullptr;
    uint32_t length = 0;
    ASSERT_EQ(0u, sysdb_item_get(conn(), "tuple", &type, &value, &length, 0));
    ASSERT_EQ(tuple_length, length);
    EXPECT_EQ(0, std::memcmp(tuple, value, length));
    free(value);
    free(tuple);

    const char bytes[] = {0, 1, '/', 0, 'x'};
    EXPECT_EQ(0u, sysdb_item_set(conn(), "opaque", 99, bytes, sizeof bytes, 1));
    type = SYSDB_TYPE_ANY;
    ASSERT_EQ(0u, sysdb_item_get(conn(), "opaque", &type, &value, &length, 0));
    EXPECT_EQ(99u, type);
    ASSERT_EQ(sizeof bytes, length);
    EXPECT_EQ(0, std::memcmp(bytes, value, length));
    free(value);
}

TEST_P(Sysdb, EmptyOpaqueValueComesBackAsABlockOfLengthZero) {
    EXPECT_EQ(0u, sysdb_item_set(conn(), "nothing", 99, nullptr, 0, 1));
    uint32_t type = 99;
    void *value = nullptr;
    uint32_t length = 7;
    ASSERT_EQ(0u, sysdb_item_get(conn(), "nothing", &type, &value, &length, 0));
    EXPECT_NE(nullptr, value);
    EXPECT_EQ(0u, length);
    free(value);
}

TEST_P(Sysdb, GetGivesTheTypeWhenAnyIsAskedFor) {
    ASSERT_EQ(0u, set_text(conn(), "text", "x"));
    uint32_t type = SYSDB_TYPE_ANY;
    EXPECT_EQ(0u, sysdb_item_get(conn(), "text", &type, nullptr, nullptr, 0));
    EXPECT_EQ(SYSDB_TYPE_STRING, type);
    EXPECT_EQ(0u, existence(conn(), "text"));
}

TEST_P(Sysdb, FailedGetWritesNothing) {
    ASSERT_EQ(0u, set_text(conn(), "text", "x"));
    const auto expect_untouched = [this](const char *path, uint32_t expected_type, cerrno expected_code) {
        uint32_t type = expected_type;
        void *value = nullptr;
        uint32_t length = 77;
        EXPECT_EQ(expected_code, sysdb_item_get(conn(), path, &type, &value, &length, 0)) << path;
        EXPECT_EQ(expected_type, type);
        EXPECT_EQ(nullptr, value);
        EXPECT_EQ(77u, length);
    };
    expect_untouched("text", SYSDB_TYPE_U32, SYSDB_ERR_TYPE_MISMATCH);
    expect_untouched("missing", SYSDB_TYPE_STRING, SYSDB_ERR_NOT_FOUND);
    expect_untouched("text/below", SYSDB_TYPE_STRING, SYSDB_ERR_NOT_FOUND);
    expect_untouched("a//b", SYSDB_TYPE_STRING, SYSDB_ERR_BAD_PATH);
}

TEST_P(Sysdb, SetReplacesValueAndType) {
    ASSERT_EQ(0u, set_text(conn(), "item", "before"));
    ASSERT_EQ(0u, set_number(conn(), "item", 5));
    EXPECT_EQ(5, get_number(conn(), "item"));
    ASSERT_EQ(0u, set_number(conn(), "item", 6));
    EXPECT_EQ(6, get_number(conn(), "item"));
}

TEST_P(Sysdb, SetRefusesValuesThatDoNotFitTheirType) {
    const char bytes[] = {'a', 'b', 'c', 'd', 'e'};
    EXPECT_EQ(SYSDB_ERR_BAD_VALUE, sysdb_item_set(conn(), "x", SYSDB_TYPE_U32, bytes, 3, 1));
    EXPECT_EQ(SYSDB_ERR_BAD_VALUE, sysdb_item_set(conn(), "x", SYSDB_TYPE_U32, bytes, 5, 1));
    EXPECT_EQ(SYSDB_ERR_BAD_VALUE, sysdb_item_set(conn(), "x", SYSDB_TYPE_U32, nullptr, 4, 1));
    EXPECT_EQ(SYSDB_ERR_BAD_VALUE, sysdb_item_set(conn(), "x", SYSDB_TYPE_STRING, bytes, 5, 1));
    EXPECT_EQ(SYSDB_ERR_BAD_VALUE, sysdb_item_set(conn(), "x", SYSDB_TYPE_STRING, bytes, 0, 1));
    EXPECT_EQ(SYSDB_ERR_BAD_VALUE, sysdb_item_set(conn(), "x", SYSDB_TYPE_TUPLE, bytes, 5, 1));
    EXPECT_EQ(SYSDB_ERR_BAD_VALUE, sysdb_item_set(conn(), "x/", SYSDB_TYPE_DIRECTORY, bytes, 5, 1));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_item_set(conn(), "x", SYSDB_TYPE_ANY, bytes, 5, 1));
    EXPECT_EQ(SYSDB_ERR_NOT_FOUND, existence(conn(), "x"));
}

TEST_P(Sysdb, RefusesNullsAndUnknownFlags) {
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_item_get(conn(), nullptr, nullptr, nullptr, nullptr, 0));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_item_get(conn(), "a", nullptr, nullptr, nullptr, 1));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_item_set(conn(), nullptr, 99, "", 1, 1));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_item_set(conn(), "a", 99, "", 1, 2));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_item_delete(conn(), nullptr, 0));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_item_delete(conn(), "a", 2));
    sysdb_list_t list = nullptr;
    char *name = nullptr;
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_list(conn(), nullptr, "", nullptr, &list, 0));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_list(conn(), "", "", nullptr, nullptr, 0));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_list(conn(), "", "", nullptr, &list, 1));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_find(conn(), nullptr, "", nullptr, &list, 0, 1));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_find(conn(), "", "", nullptr, &list, 0, 2));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_directory_get_last(conn(), nullptr, &name, nullptr, 0));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_directory_get_last(conn(), "", nullptr, nullptr, 0));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_list_start(nullptr));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_list_next(nullptr, &name, nullptr, 0));
    sysdb_list_free(nullptr);
    EXPECT_EQ(nullptr, list);
}

TEST_P(Sysdb, RefusesMalformedPaths) {
    for (const char *path : {"", "/a", "a/", "a//b", "a\nb", "\x01"}) {
        EXPECT_EQ(SYSDB_ERR_BAD_PATH, set_number(conn(), path, 1)) << path;
        EXPECT_EQ(SYSDB_ERR_BAD_PATH, existence(conn(), path)) << path;
    }
    EXPECT_EQ(0u, set_number(conn(), "Gr\xc3\xbc\xc3\x9f Gott, <invalid function> ..*?", 1));
}

TEST_P(Sysdb, TakesPathsUpToItsLimitAndRefusesLongerOnes) {
    const std::string fits(longest_path() - base().size(), 'n');
    EXPECT_EQ(0u, set_number(conn(), fits, 1));
    EXPECT_EQ(1, get_number(conn(), fits));
    EXPECT_EQ(Names{fits}, names_in(conn(), ""));
    EXPECT_EQ(SYSDB_ERR_PATH_TOO_LONG, set_number(conn(), fits + "n", 1));
    EXPECT_EQ(SYSDB_ERR_PATH_TOO_LONG, existence(conn(), fits + "n"));
    EXPECT_EQ(SYSDB_ERR_PATH_TOO_LONG, existence(conn(), std::string(100000, 'n')));
    EXPECT_EQ(Names{"!80819600"}, names_in(conn(), fits + "/"));
    sysdb_conn_t deep = 0;
    EXPECT_EQ(SYSDB_ERR_PATH_TOO_LONG, _sysdb_bind(&deep, (base() + fits + "/").c_str(), 0));
}

TEST_P(Sysdb, TakesLargeValuesAndRefusesTooLargeOnes) {
    std::vector<char> bytes(1024 * 1024, 'v');
    EXPECT_EQ(0u, sysdb_item_set(conn(), "large", 99, bytes.data(), static_cast<uint32_t>(bytes.size()), 1));
    void *value = nullptr;
    uint32_t length = 0;
    ASSERT_EQ(0u, sysdb_item_get(conn(), "large", nullptr, &value, &length, 0));
    ASSERT_EQ(bytes.size(), length);
    EXPECT_EQ(0, std::memcmp(bytes.data(), value, length));
    free(value);
    bytes.push_back('v');
    EXPECT_EQ(SYSDB_ERR_VALUE_TOO_LARGE,
              sysdb_item_set(conn(), "large", 99, bytes.data(), static_cast<uint32_t>(bytes.size()), 1));
    EXPECT_EQ(0u, sysdb_item_delete(conn(), "large", 0));
}

TEST_P(Sysdb, DeleteRemovesOneItem) {
    ASSERT_EQ(0u, set_number(conn(), "a", 1));
    ASSERT_EQ(0u, set_number(conn(), "a/b", 2));
    ASSERT_EQ(0u, set_number(conn(), "ab", 3));
    EXPECT_EQ(0u, sysdb_item_delete(conn(), "a", 0));
    EXPECT_EQ(SYSDB_ERR_NOT_FOUND, sysdb_item_delete(conn(), "a", 0));
    EXPECT_EQ((Names{"a/", "ab"}), names_in(conn(), ""));
}

TEST_P(Sysdb, DeleteTreeRemovesADirectoryAndNothingElse) {
    for (const char *path : {"a", "a-", "a/1", "a/2/3", "a/2/4/5", "a0", "b"}) {
        ASSERT_EQ(0u, set_number(conn(), path, 1));
    }
    EXPECT_EQ(0u, sysdb_item_delete(conn(), "a/", SYSDB_DELETE_TREE));
    EXPECT_EQ((Names{"a", "a-", "a0", "b"}), names_in(conn(), ""));
    EXPECT_EQ(SYSDB_ERR_NOT_FOUND, sysdb_item_delete(conn(), "a/", SYSDB_DELETE_TREE));
    EXPECT_EQ(0u, sysdb_item_delete(conn(), "", SYSDB_DELETE_TREE));
    EXPECT_EQ(Names{}, names_in(conn(), ""));
}

TEST_P(Sysdb, DeleteTreeManagesManyItems) {
    constexpr int kTransactions = 10;
    for (int i = 0; i < kTransactions; ++i) {
        std::vector<std::string> paths;
        for (int j = 0; j < 100; ++j) {
            paths.push_back("many/" + std::to_string(100 * i + j) + "/with a rather long name/item");
        }
        const uint32_t one = 1;
        std::vector<sysdb_change_t> changes;
        for (const std::string &path : paths) {
            changes.push_back({SYSDB_CHANGE_SET, SYSDB_TYPE_U32, path.c_str(), &one, sizeof one});
        }
        ASSERT_EQ(0u, sysdb_apply(conn(), changes.data(), static_cast<uint32_t>(changes.size()), nullptr));
    }
    EXPECT_EQ(1000u, names_in(conn(), "many/").size());
    EXPECT_EQ(0u, sysdb_item_delete(conn(), "many/", SYSDB_DELETE_TREE));
    EXPECT_EQ(Names{}, names_in(conn(), ""));
}

// ---- directories

TEST_P(Sysdb, ListsOneLevelWithDirectoriesOnce) {
    for (const char *path :
         {"login/default", "login/x/y", "login-x", "login.x", "login", "ppp/default", "zz"}) {
        ASSERT_EQ(0u, set_number(conn(), path, 1));
    }
    EXPECT_EQ((Names{"login", "login-x", "login.x", "login/", "ppp/", "zz"}), names_in(conn(), ""));
    EXPECT_EQ((Names{"default", "x/"}), names_in(conn(), "login/"));
    EXPECT_EQ((Names{"default", "x/"}), names_in(conn(), "login"));
    EXPECT_EQ((Names{"y"}), names_in(conn(), "login/x/"));
}

TEST_P(Sysdb, ListsNumbersInTheirOrder) {
    std::vector<uint32_t> numbers = {0xffffffff, 0x10000000, 0xfffffff, 0xa0, 0x9f};
    for (uint32_t i = 1; i <= 300; ++i) {
        numbers.push_back(i);
    }
    for (const uint32_t number : numbers) {
        char name[64];
        std::snprintf(name, sizeof name, "0x%x/host%u,1812,1813", number, number);
        ASSERT_EQ(0u, set_number(conn(), name, number));
    }
    std::sort(numbers.begin(), numbers.end());
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    Names expected;
    for (const uint32_t number : numbers) {
        char name[16];
        std::snprintf(name, sizeof name, "0x%x/", number);
        expected.emplace_back(name);
    }
    EXPECT_EQ(expected, names_in(conn(), ""));
    EXPECT_EQ("0xffffffff/", last_in(conn(), ""));
}

TEST_P(Sysdb, OnlyWholeNamesAreNumbers) {
    const Names in_order = {"0x",          "0x2",         "0x2,1813", "0x10,1812", "0x100000000", "0x10g",
                            "0x20000000x", "0xabcdefabc", "0xg",      "x0x2",      "x0x10"};
    for (const std::string &name : in_order) {
        ASSERT_EQ(0u, set_text(conn(), "n/" + name, name));
        ASSERT_EQ(0u, set_text(conn(), "d/" + name + "/below", name));
    }
    Names expected = in_order;
    std::sort(expected.begin(), expected.end());
    Names found = names_in(conn(), "n/");
    EXPECT_LT(std::find(found.begin(), found.end(), "0x2"),
              std::find(found.begin(), found.end(), "0x10,1812"));
    EXPECT_LT(std::find(found.begin(), found.end(), "x0x10"), std::find(found.begin(), found.end(), "x0x2"));
    std::sort(found.begin(), found.end());
    EXPECT_EQ(expected, found);
    for (const std::string &name : in_order) {
        EXPECT_EQ(name, get_text(conn(), "n/" + name));
        EXPECT_EQ(name, get_text(conn(), "d/" + name + "/below"));
        EXPECT_EQ(Names{"below"}, names_in(conn(), "d/" + name + "/"));
    }
}

TEST_P(Sysdb, ListTellsTypes) {
    ASSERT_EQ(0u, set_number(conn(), "a", 1));
    ASSERT_EQ(0u, set_text(conn(), "b", "x"));
    ASSERT_EQ(0u, set_text(conn(), "c/d", "x"));
    uint32_t count = 0;
    sysdb_list_t list = nullptr;
    ASSERT_EQ(0u, sysdb_list(conn(), "", "", &count, &list, 0));
    EXPECT_EQ(3u, count);
    for (const uint32_t expected : {SYSDB_TYPE_U32, SYSDB_TYPE_STRING, SYSDB_TYPE_DIRECTORY}) {
        char *name = nullptr;
        uint32_t type = 0;
        ASSERT_EQ(0u, sysdb_list_next(list, &name, &type, 0));
        EXPECT_EQ(expected, type) << name;
    }
    sysdb_list_free(list);
}

TEST_P(Sysdb, ListIsAStateThatStays) {
    ASSERT_EQ(0u, set_number(conn(), "a", 1));
    ASSERT_EQ(0u, set_number(conn(), "b", 1));
    uint32_t count = 0;
    sysdb_list_t list = nullptr;
    ASSERT_EQ(0u, sysdb_list(conn(), "", "", &count, &list, 0));
    ASSERT_EQ(0u, sysdb_item_delete(conn(), "a", 0));
    ASSERT_EQ(0u, set_number(conn(), "c", 1));
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(0u, sysdb_list_start(list));
        char *name = nullptr;
        ASSERT_EQ(0u, sysdb_list_next(list, &name, nullptr, 0));
        EXPECT_STREQ("a", name);
        ASSERT_EQ(0u, sysdb_list_next(list, &name, nullptr, 0));
        EXPECT_STREQ("b", name);
        EXPECT_EQ(SYSDB_ERR_END_OF_LIST, sysdb_list_next(list, &name, nullptr, 0));
        EXPECT_EQ(nullptr, name);
        EXPECT_EQ(SYSDB_ERR_END_OF_LIST, sysdb_list_next(list, &name, nullptr, 0));
    }
    sysdb_list_free(list);
}

TEST_P(Sysdb, ListPattern) {
    for (const char *path : {"alpha", "beta", "bet/x", "b", "gamma"}) {
        ASSERT_EQ(0u, set_number(conn(), path, 1));
    }
    EXPECT_EQ((Names{"b", "bet/", "beta"}), names_in(conn(), "", "b*"));
    EXPECT_EQ((Names{"bet/"}), names_in(conn(), "", "b?t"));
    EXPECT_EQ((Names{"alpha", "beta", "gamma"}), names_in(conn(), "", "*a"));
    EXPECT_EQ((Names{"alpha"}), names_in(conn(), "", "*l*h*"));
    EXPECT_EQ((Names{"gamma"}), names_in(conn(), "", "gamma"));
    EXPECT_EQ(Names{}, names_in(conn(), "",
                                "?"
                                "??????"));
    EXPECT_EQ(5u, names_in(conn(), "", "**").size());
    for (const char *path : {"[b]", "a\\b"}) {
        ASSERT_EQ(0u, set_number(conn(), "literal/" + std::string(path), 1));
    }
    ASSERT_EQ(0u, set_number(conn(), "literal/b", 1));
    EXPECT_EQ((Names{"[b]"}), names_in(conn(), "literal/", "[b]"));
    EXPECT_EQ((Names{"a\\b"}), names_in(conn(), "literal/", "a\\b"));
    ASSERT_EQ(0u, sysdb_item_delete(conn(), "literal/", SYSDB_DELETE_TREE));
    sysdb_list_t list = nullptr;
    uint32_t count = 0;
    ASSERT_EQ(0u, sysdb_list(conn(), "", nullptr, &count, &list, 0));
    EXPECT_EQ(5u, count);
    sysdb_list_free(list);
}

TEST_P(Sysdb, EmptyBindPointIsAnEmptyListAndAnAbsentDirectoryIsNotFound) {
    EXPECT_EQ(Names{}, names_in(conn(), ""));
    EXPECT_EQ(Names{"!40818600"}, names_in(conn(), "nowhere/"));
    ASSERT_EQ(0u, set_number(conn(), "item", 1));
    EXPECT_EQ(Names{"!40818600"}, names_in(conn(), "item/"));
    ASSERT_EQ(0u, set_number(conn(), "gone/item", 1));
    ASSERT_EQ(0u, sysdb_item_delete(conn(), "gone/item", 0));
    EXPECT_EQ(Names{"!40818600"}, names_in(conn(), "gone/"));
}

TEST_P(Sysdb, DirectoryMadeByHandExistsWhileItIsEmpty) {
    EXPECT_EQ(SYSDB_ERR_BAD_PATH, sysdb_item_set(conn(), "made", SYSDB_TYPE_DIRECTORY, nullptr, 0, 1));
    ASSERT_EQ(0u, sysdb_item_set(conn(), "made/", SYSDB_TYPE_DIRECTORY, nullptr, 0, 1));
    EXPECT_EQ(Names{"made/"}, names_in(conn(), ""));
    EXPECT_EQ(Names{}, names_in(conn(), "made/"));
    EXPECT_EQ("!40818600", last_in(conn(), "made/"));
    EXPECT_EQ("made/", last_in(conn(), ""));
    ASSERT_EQ(0u, set_number(conn(), "made/item", 1));
    EXPECT_EQ(Names{"item"}, names_in(conn(), "made/"));
    EXPECT_EQ("item", last_in(conn(), "made/"));
    EXPECT_EQ(0u, sysdb_item_delete(conn(), "made/", 0));
    EXPECT_EQ(Names{"item"}, names_in(conn(), "made/"));
    EXPECT_EQ(SYSDB_ERR_NOT_FOUND, sysdb_item_delete(conn(), "made/", 0));
}

TEST_P(Sysdb, LastIsTheHighestNumber) {
    EXPECT_EQ("!40818600", last_in(conn(), "sg_num_map/radius/"));
    EXPECT_EQ("!40818600", last_in(conn(), ""));
    ASSERT_EQ(0u, set_text(conn(), "sg_num_map/radius/0x3e9", "A"));
    EXPECT_EQ("0x3e9", last_in(conn(), "sg_num_map/radius/"));
    ASSERT_EQ(0u, set_text(conn(), "sg_num_map/radius/0x3ea", "B"));
    ASSERT_EQ(0u, set_text(conn(), "sg_num_map/tacacs/0xbb9", "C"));
    EXPECT_EQ("0x3ea", last_in(conn(), "sg_num_map/radius/"));
    EXPECT_EQ("0xbb9", last_in(conn(), "sg_num_map/tacacs"));
    EXPECT_EQ("tacacs/", last_in(conn(), "sg_num_map/"));
    for (int i = 1; i <= 20; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "server/0x%x/host", i);
        ASSERT_EQ(0u, set_number(conn(), name, 1));
    }
    EXPECT_EQ("0x14/", last_in(conn(), "server/"));
}

TEST_P(Sysdb, LastTellsTheType) {
    ASSERT_EQ(0u, set_text(conn(), "a", "x"));
    char *name = nullptr;
    uint32_t type = 0;
    ASSERT_EQ(0u, sysdb_directory_get_last(conn(), "", &name, &type, 0));
    EXPECT_EQ(SYSDB_TYPE_STRING, type);
    free(name);
    ASSERT_EQ(0u, set_text(conn(), "b/c", "x"));
    ASSERT_EQ(0u, sysdb_directory_get_last(conn(), "", &name, &type, 0));
    EXPECT_EQ(SYSDB_TYPE_DIRECTORY, type);
    free(name);
}

TEST_P(Sysdb, FindTellsWhetherADirectoryExists) {
    ASSERT_EQ(0u, set_number(conn(), "0x1/10.0.0.1,0x31/key", 1));
    uint32_t count = 77;
    sysdb_list_t list = nullptr;
    EXPECT_EQ(SYSDB_ERR_NOT_FOUND, sysdb_find(conn(), "0x1/10.0.0.2,0x31/", "", &count, &list, 0, 1));
    EXPECT_EQ(SYSDB_ERR_NOT_FOUND, sysdb_find(conn(), "0x1/10.0.0.1,0x31/key/", "", &count, &list, 0, 1));
    EXPECT_EQ(nullptr, list);
    EXPECT_EQ(77u, count);
    EXPECT_EQ(0u, sysdb_find(conn(), "0x1/10.0.0.1,0x31/", "", &count, &list, 0, 1));
    EXPECT_EQ(1u, count);
    sysdb_list_free(list);
    EXPECT_EQ(0u, sysdb_find(conn(), "0x1/", "", nullptr, nullptr, 0, 0));
}

// ---- threads

TEST_P(Sysdb, ThreadsReadWhileOthersWrite) {
    constexpr int kRounds = 200;
    std::atomic<bool> done{false};
    ASSERT_EQ(0u, set_number(conn(), "pair/a", 0));
    ASSERT_EQ(0u, set_number(conn(), "pair/b", 0));
    std::vector<std::thread> threads;
    for (int reader = 0; reader < 3; ++reader) {
        threads.emplace_back([&] {
            while (!done) {
                // b is written after a and read before a: its value is never newer than a's.
                const int64_t b = get_number(conn(), "pair/b");
                const int64_t a = get_number(conn(), "pair/a");
                EXPECT_GE(b, 0);
                EXPECT_LE(b, a);
                EXPECT_EQ((Names{"a", "b"}), names_in(conn(), "pair/"));
                const Bound own(base() + "pair/");
                EXPECT_EQ("b", last_in(own.handle(), ""));
            }
        });
    }
    for (uint32_t i = 1; i <= kRounds; ++i) {
        ASSERT_EQ(0u, set_number(conn(), "pair/a", i));
        ASSERT_EQ(0u, set_number(conn(), "pair/b", i));
    }
    done = true;
    for (std::thread &thread : threads) {
        thread.join();
    }
}

}  // namespace
