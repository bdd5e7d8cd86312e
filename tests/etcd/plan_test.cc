// SPDX-License-Identifier: Apache-2.0
//
// What changes mean for the cluster. The mirror has a=1 at revision 5, d/x=1 at 6, d/y=2 at 7.

#include "keys/plan.hpp"

#include <gtest/gtest.h>

#include "platform/sysdb.h"

namespace {

using namespace sysdb_etcd;

std::string number(char value) {
    return {value, 0, 0, 0};
}

const std::map<std::string, Stored> kItems = {{"/cfg/a", {5, SYSDB_TYPE_U32, number(1)}},
                                              {"/cfg/d/x", {6, SYSDB_TYPE_U32, number(1)}},
                                              {"/cfg/d/y", {7, SYSDB_TYPE_U32, number(2)}}};

ItemChange set(const char *path, char value) {
    return {SYSDB_CHANGE_SET, SYSDB_TYPE_U32, path, number(value)};
}
ItemChange expect(const char *path, char value) {
    return {SYSDB_CHANGE_EXPECT, SYSDB_TYPE_U32, path, number(value)};
}
ItemChange absent(const char *path) {
    return {SYSDB_CHANGE_EXPECT, SYSDB_TYPE_ANY, path, ""};
}
ItemChange erase(const char *path) {
    return {SYSDB_CHANGE_DELETE, 0, path, ""};
}
ItemChange prune(const char *path) {
    return {SYSDB_CHANGE_PRUNE, 0, path, ""};
}
ItemChange erase_tree(const char *path) {
    return {kDeleteTree, 0, path, ""};
}

Plan planned(const std::vector<ItemChange> &changes) {
    MirrorView view;
    view.revision = 9;
    view.find = [](const std::string &path, std::optional<Stored> &item) {
        const auto found = kItems.find(path);
        item = found != kItems.end() ? std::optional(found->second) : std::nullopt;
        return true;
    };
    view.below = [](const std::string &directory, const std::function<void(const std::string &)> &call) {
        for (const auto &[path, item] : kItems) {
            if (path.starts_with(directory)) {
                call(path);
            }
        }
    };
    Plan plan;
    plan_changes(changes, view, plan);
    return plan;
}

using Expected = std::map<std::string, std::uint64_t>;
using Writes = std::map<std::string, std::optional<std::string>>;
using Paths = std::vector<std::string>;

std::string stored(char value) {
    return cluster_value(SYSDB_TYPE_U32, number(value));
}

// A provider sends no others.
TEST(EtcdPlan, ChangesAreChecked) {
    const std::string large(1024 * 1024 + 1, 'x');
    std::uint32_t at = 0;
    EXPECT_EQ(0u,
              check_changes({set("/cfg/a", 1), prune("/cfg/d/"), expect("/cfg/a", 1), erase("/cfg/a")}, at));
    EXPECT_EQ(0u, check_changes({erase_tree("/cfg/d/")}, at));
    EXPECT_EQ(0u, check_changes({}, at));
    for (const ItemChange &change : {set("/oper/a", 1), set("/cfg/", 1), set("/cfg/a/", 1), prune("/cfg/a"),
                                     erase_tree("/cfg/a"), erase("/cfg/"), set("", 1)}) {
        EXPECT_EQ(SYSDB_ERR_BAD_PATH, check_changes({set("/cfg/a", 1), change}, at)) << change.path;
        EXPECT_EQ(1u, at);
    }
    EXPECT_EQ(SYSDB_ERR_VALUE_TOO_LARGE, check_changes({{SYSDB_CHANGE_SET, 99, "/cfg/a", large}}, at));
}

// The item would be neither set nor refused.
TEST(EtcdPlan, TreeIsDeletedAlone) {
    std::uint32_t at = 0;
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, check_changes({erase_tree("/cfg/d/"), set("/cfg/d/x", 1)}, at));
    EXPECT_EQ(0u, at);
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, check_changes({set("/cfg/d/x", 1), erase_tree("/cfg/d/")}, at));
    EXPECT_EQ(1u, at);
}

TEST(EtcdPlan, SetComparesAndWrites) {
    const Plan plan = planned({set("/cfg/a", 2), set("/cfg/b", 3)});
    EXPECT_EQ(0u, plan.refusal);
    EXPECT_EQ(2u, plan.failed);
    EXPECT_EQ((Expected{{"/cfg/a", 5}, {"/cfg/b", 0}}), plan.as_expected);
    EXPECT_EQ((Writes{{"/cfg/a", stored(2)}, {"/cfg/b", stored(3)}}), plan.writes);
}

TEST(EtcdPlan, WhatIsThereAlreadyIsComparedOnly) {
    const Plan plan = planned({set("/cfg/a", 1)});
    EXPECT_EQ((Expected{{"/cfg/a", 5}}), plan.as_expected);
    EXPECT_TRUE(plan.writes_nothing());
    EXPECT_TRUE(planned({set("/cfg/a", 2), set("/cfg/a", 1)}).writes_nothing());
    EXPECT_TRUE(planned({set("/cfg/b", 2), erase("/cfg/b")}).writes_nothing());
}

TEST(EtcdPlan, RefusalsNameTheChangeAndWhatTheyDependOn) {
    Plan plan = planned({set("/cfg/a", 2), erase("/cfg/b"), set("/cfg/c", 1)});
    EXPECT_EQ(SYSDB_ERR_NOT_FOUND, plan.refusal);
    EXPECT_EQ(1u, plan.failed);
    EXPECT_EQ((Expected{{"/cfg/a", 5}, {"/cfg/b", 0}}), plan.as_expected);
    plan = planned({expect("/cfg/a", 2)});
    EXPECT_EQ(SYSDB_ERR_CONFLICT, plan.refusal);
    EXPECT_EQ((Expected{{"/cfg/a", 5}}), plan.as_expected);
    EXPECT_EQ(SYSDB_ERR_CONFLICT, planned({absent("/cfg/a")}).refusal);
    EXPECT_EQ(SYSDB_ERR_CONFLICT, planned({expect("/cfg/b", 1)}).refusal);
    EXPECT_EQ(0u, planned({expect("/cfg/a", 1), absent("/cfg/b")}).refusal);
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, planned({{77, 0, "/cfg/a", ""}}).refusal);
}

TEST(EtcdPlan, ChangesSeeThoseBefore) {
    EXPECT_EQ(0u, planned({erase("/cfg/a"), absent("/cfg/a")}).refusal);
    EXPECT_EQ(SYSDB_ERR_NOT_FOUND, planned({erase("/cfg/a"), erase("/cfg/a")}).refusal);
    EXPECT_EQ(0u, planned({set("/cfg/b", 2), expect("/cfg/b", 2), erase("/cfg/b")}).refusal);
    EXPECT_EQ((Writes{{"/cfg/a", std::nullopt}}), planned({set("/cfg/a", 3), erase("/cfg/a")}).writes);
}

// Also what others make below it meanwhile.
TEST(EtcdPlan, PruneOfAllDeletesTheRange) {
    const Plan plan = planned({prune("/cfg/d/"), absent("/cfg/d/x"), set("/cfg/a", 2)});
    EXPECT_EQ(0u, plan.refusal);
    EXPECT_EQ((Paths{"/cfg/d/"}), plan.erased);
    EXPECT_EQ((Expected{{"/cfg/a", 5}}), plan.as_expected);
    EXPECT_EQ((Writes{{"/cfg/a", stored(2)}}), plan.writes);
    EXPECT_TRUE(plan.unchanged_since.empty());
}

TEST(EtcdPlan, PruneThatKeepsDeletesOneByOne) {
    const Plan plan = planned({prune("/cfg/d/"), set("/cfg/d/y", 2), set("/cfg/d/z", 1)});
    EXPECT_EQ((Paths{"/cfg/d/"}), plan.unchanged_since) << "nothing is made meanwhile";
    EXPECT_TRUE(plan.erased.empty());
    EXPECT_EQ((Writes{{"/cfg/d/x", std::nullopt}, {"/cfg/d/z", stored(1)}}), plan.writes);
    EXPECT_EQ((Expected{{"/cfg/d/y", 7}, {"/cfg/d/z", 0}}), plan.as_expected);
}

TEST(EtcdPlan, PruneTakesWhatTheCallMadeAndDoesNotKeep) {
    const Plan plan = planned({set("/cfg/d/x", 3), prune("/cfg/"), expect("/cfg/d/x", 3)});
    EXPECT_EQ(0u, plan.refusal);
    EXPECT_EQ((Writes{{"/cfg/a", std::nullopt}, {"/cfg/d/x", stored(3)}, {"/cfg/d/y", std::nullopt}}),
              plan.writes);
    EXPECT_EQ(SYSDB_ERR_NOT_FOUND, planned({prune("/cfg/d/"), erase("/cfg/d/x")}).refusal);
}

TEST(EtcdPlan, TreeToDeleteMustHoldSomething) {
    Plan plan = planned({erase_tree("/cfg/d/")});
    EXPECT_EQ(0u, plan.refusal);
    EXPECT_EQ((Paths{"/cfg/d/"}), plan.erased);
    EXPECT_EQ((Expected{{"/cfg/d/x", 6}}), plan.as_expected);
    EXPECT_TRUE(plan.writes.empty());
    plan = planned({erase_tree("/cfg/none/")});
    EXPECT_EQ(SYSDB_ERR_NOT_FOUND, plan.refusal);
    EXPECT_EQ((Paths{"/cfg/none/"}), plan.empty);
    EXPECT_TRUE(plan.erased.empty());
}

TEST(EtcdPlan, NothingInADirectoryIsComparedAsAWhole) {
    Plan plan = planned({absent("/cfg/e/"), set("/cfg/e/x", 1)});
    EXPECT_EQ(0u, plan.refusal);
    EXPECT_EQ(Paths{"/cfg/e/"}, plan.empty);

    plan = planned({set("/cfg/e/x", 1), absent("/cfg/d/")});
    EXPECT_EQ(SYSDB_ERR_CONFLICT, plan.refusal);
    EXPECT_EQ(1u, plan.failed);
    EXPECT_EQ(6u, plan.as_expected.at("/cfg/d/x"));  // holds as long as this one is there

    plan = planned({set("/cfg/e/x", 1), absent("/cfg/e/")});
    EXPECT_EQ(SYSDB_ERR_CONFLICT, plan.refusal);

    plan = planned({erase("/cfg/d/x"), erase("/cfg/d/y"), absent("/cfg/d/")});
    EXPECT_EQ(0u, plan.refusal);
    EXPECT_EQ(Paths{"/cfg/d/"}, plan.unchanged_since);  // others may have made something meanwhile

    plan = planned({prune("/cfg/d/"), absent("/cfg/d/"), set("/cfg/d/z", 1)});
    EXPECT_EQ(0u, plan.refusal);
}

TEST(EtcdPlan, DatabaseThatCannotBeReadIsNoReasonToWrite) {
    MirrorView view;
    view.failure = SYSDB_ERR_STORAGE;
    view.find = [](const std::string &, std::optional<Stored> &) { return false; };
    view.below = [](const std::string &, const std::function<void(const std::string &)> &) {};
    Plan plan;
    plan_changes({set("/cfg/a", 1)}, view, plan);
    EXPECT_EQ(SYSDB_ERR_STORAGE, plan.refusal);
}

TEST(EtcdPlan, ValuesHaveTheirTypeInFront) {
    EXPECT_EQ(std::string("\xfd\xff\xff\xff", 4), cluster_value(SYSDB_TYPE_DIRECTORY, ""));
    std::uint32_t type = 0;
    std::string_view value;
    const std::string bytes("\x03\0\0\0ab\0", 7);
    ASSERT_TRUE(parse_cluster_value(bytes, type, value));
    EXPECT_EQ(SYSDB_TYPE_STRING, type);
    EXPECT_EQ(std::string_view("ab\0", 3), value);
    EXPECT_FALSE(parse_cluster_value("abc", type, value));
}

}  // namespace
