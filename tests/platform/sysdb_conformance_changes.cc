// SPDX-License-Identifier: Apache-2.0
//
// Several changes in one call: the conformance tests of sysdb_apply(). A provider
// without it passes if every call returns the code for that.

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <thread>
#include <vector>

#include "platform/sysdb_changes.h"
#include "support/sysdb.hpp"
#include "sysdb_conformance.hpp"

namespace {

using Names = std::vector<std::string>;

const uint32_t kNumbers[] = {0, 1, 2, 3};

sysdb_change_t set(const char *path, uint32_t number) {
    return {SYSDB_CHANGE_SET, SYSDB_TYPE_U32, path, &kNumbers[number], sizeof(uint32_t)};
}
sysdb_change_t expect(const char *path, uint32_t number) {
    return {SYSDB_CHANGE_EXPECT, SYSDB_TYPE_U32, path, &kNumbers[number], sizeof(uint32_t)};
}
sysdb_change_t absent(const char *path) {
    return {SYSDB_CHANGE_EXPECT, SYSDB_TYPE_ANY, path, nullptr, 0};
}
sysdb_change_t erase(const char *path) {
    return {SYSDB_CHANGE_DELETE, 0, path, nullptr, 0};
}
sysdb_change_t prune(const char *path) {
    return {SYSDB_CHANGE_PRUNE, 0, path, nullptr, 0};
}

class SysdbChanges : public ::testing::TestWithParam<const char *> {
  protected:
    SysdbChanges() : bound_(unique_base()) { EXPECT_EQ(0u, bound_.code()); }

    void SetUp() override {
        if (sysdb_apply(conn(), nullptr, 0, nullptr) == SYSDB_ERR_NOT_SUPPORTED) {
            GTEST_SKIP() << "the provider makes one change at a time";
        }
    }

    static std::string unique_base() {
        static int count = 0;
        return std::string(GetParam()) + "changes" + std::to_string(++count) + "x/";
    }
    sysdb_conn_t conn() const { return bound_.handle(); }

    // The code, and "@" and the index when it is not 0.
    std::string apply(std::initializer_list<sysdb_change_t> changes) const {
        uint32_t failed = 4711;
        const std::vector<sysdb_change_t> copy(changes);
        const cerrno rc = sysdb_apply(conn(), copy.data(), static_cast<uint32_t>(copy.size()), &failed);
        if (rc == 0) {
            EXPECT_EQ(4711u, failed) << "written on success";
            return "0";
        }
        char text[32];
        std::snprintf(text, sizeof text, "%08x@%u", rc, failed);
        return text;
    }
    // Item and number, in listing order.
    std::string items(const std::string &directory = "") const {
        std::string text;
        for (const std::string &name : names_in(conn(), directory)) {
            text += (text.empty() ? "" : " ") + name;
            text += name.ends_with('/') ? "" : "=" + std::to_string(get_number(conn(), directory + name));
        }
        return text;
    }

  private:
    Bound bound_;
};

INSTANTIATE_TEST_SUITE_P(Trees, SysdbChanges, ::testing::Values("/cfg/", "/oper/"),
                         [](const auto &tree) { return std::string(tree.index == 0 ? "cfg" : "oper"); });

TEST_P(SysdbChanges, AreMadeInTheirOrder) {
    ASSERT_EQ("0", apply({set("a", 1), set("b", 1), set("a", 2), erase("b"), set("d/e", 3)}));
    EXPECT_EQ("a=2 d/", items());
    EXPECT_EQ("e=3", items("d/"));
    EXPECT_EQ("0", apply({}));
}

TEST_P(SysdbChanges, AreNotMadeWhenOneIsRefused) {
    ASSERT_EQ("0", apply({set("a", 1)}));
    EXPECT_EQ("40818600@2", apply({set("a", 2), set("b", 2), erase("c"), set("d", 2)}));
    EXPECT_EQ("8081a400@1", apply({set("a", 2), set("b//c", 2)}));
    EXPECT_EQ("8081a400@1", apply({set("a", 2), set("b/", 2)}));
    const std::string too_long(longest_path(), 'x');
    EXPECT_EQ("80819600@1", apply({set("a", 2), set(too_long.c_str(), 2)}));
    const std::vector<char> large(1024 * 1024 + 1);
    EXPECT_EQ(
        "8081aa00@1",
        apply({set("a", 2), {SYSDB_CHANGE_SET, 99, "b", large.data(), static_cast<uint32_t>(large.size())}}));
    EXPECT_EQ("8081a600@1", apply({set("a", 2), {SYSDB_CHANGE_SET, SYSDB_TYPE_U32, "b", "abc", 3}}));
    EXPECT_EQ("8081a600@1", apply({set("a", 2), {SYSDB_CHANGE_SET, SYSDB_TYPE_STRING, "b", "abc", 3}}));
    EXPECT_EQ("80819000@1", apply({set("a", 2), {SYSDB_CHANGE_SET, SYSDB_TYPE_ANY, "b", "abc", 3}}));
    EXPECT_EQ("80819000@1", apply({set("a", 2), {5, 99, "b", "abc", 3}}));
    EXPECT_EQ("80819000@1", apply({set("a", 2), {0, 99, "b", "abc", 3}}));
    EXPECT_EQ("80819000@1", apply({set("a", 2), set(nullptr, 1)}));
    EXPECT_EQ("a=1", items());
}

TEST_P(SysdbChanges, RefusesStaleHandlesAndNulls) {
    const sysdb_change_t change = set("a", 1);
    uint32_t failed = 0;
    EXPECT_EQ(SYSDB_ERR_BAD_HANDLE, sysdb_apply(0, &change, 1, &failed));
    EXPECT_EQ(1u, failed) << "none of the changes";
    EXPECT_EQ(SYSDB_ERR_BAD_HANDLE, sysdb_apply(0xdeadbeefcafeu, &change, 1, nullptr));
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_apply(conn(), nullptr, 1, nullptr));
    EXPECT_EQ("", items());
}

// Symptom: a caller that printed the index of the refused change printed what its variable held before.
TEST_P(SysdbChanges, NullChangesAreNoneThatWasRefused) {
    uint32_t failed = 99;
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, sysdb_apply(conn(), nullptr, 3, &failed));
    EXPECT_EQ(3u, failed);
}

TEST_P(SysdbChanges, ExpectationsDecide) {
    ASSERT_EQ("0", apply({set("a", 1)}));
    EXPECT_EQ("0", apply({expect("a", 1), absent("b"), set("b", 2)}));
    EXPECT_EQ("8081ae00@1", apply({set("a", 3), expect("b", 1)})) << "another value";
    EXPECT_EQ("8081ae00@1", apply({set("a", 3), expect("c", 1)})) << "absent";
    EXPECT_EQ("8081ae00@1", apply({set("a", 3), absent("b")})) << "present";
    EXPECT_EQ("8081ae00@1", apply({set("a", 3), {SYSDB_CHANGE_EXPECT, 99, "b", &kNumbers[2], 4}}))
        << "another type";
    EXPECT_EQ("a=1 b=2", items());
    EXPECT_EQ("0", apply({set("a", 3), expect("a", 3), erase("a"), absent("a")}))
        << "sees what was done before";
    EXPECT_EQ("b=2", items());
}

TEST_P(SysdbChanges, ExpectNothingInADirectory) {
    ASSERT_EQ("0", apply({set("0x2/a", 1), set("d/e/f", 1), set("d0", 1), set("d-", 1)}));
    EXPECT_EQ("0", apply({absent("0x1/"), absent("0x20/"), absent("c/"), absent("d/e/f/"), set("0x1/b", 1)}));
    EXPECT_EQ("8081ae00@1", apply({set("0x3/a", 1), absent("0x2/")}));
    EXPECT_EQ("8081ae00@0", apply({absent("d/"), set("d/x", 1)})) << "something further below";
    EXPECT_EQ("8081ae00@1", apply({set("n/a", 1), absent("n/")})) << "sees what was done before";
    EXPECT_EQ("0", apply({prune("d/"), absent("d/"), set("d/y", 2)}));
    EXPECT_EQ("8081a400@0", apply({absent("d//")}));
    const sysdb_change_t made = {SYSDB_CHANGE_SET, SYSDB_TYPE_DIRECTORY, "made/", nullptr, 0};
    EXPECT_EQ("8081ae00@1", apply({made, absent("made/")}));
    EXPECT_EQ("0x1/ 0x2/ d-=1 d/ d0=1", items());
}

TEST_P(SysdbChanges, PruneKeepsWhatTheCallNames) {
    for (const char *path : {"d/a", "d/b", "d/c", "d/e/f", "d/e/g", "d", "d0", "d-"}) {
        ASSERT_EQ(0u, set_number(conn(), path, 1));
    }
    EXPECT_EQ("0", apply({prune("d/"), set("d/a", 2), expect("d/b", 1), set("d/e/g", 1), set("d/h", 3),
                          absent("d/x")}));
    EXPECT_EQ("a=2 b=1 e/ h=3", items("d/"));
    EXPECT_EQ("g=1", items("d/e/"));
    EXPECT_EQ("d=1 d-=1 d/ d0=1", items()) << "nothing beside the directory";
    EXPECT_EQ("0", apply({prune("nowhere/"), prune("d/e"), absent("d/e/g")}));
    EXPECT_EQ("0", apply({set("d-", 2), prune("")}));
    EXPECT_EQ("d-=2", items());
}

TEST_P(SysdbChanges, PruneManagesManyItems) {
    std::vector<std::string> paths;
    for (int i = 0; i < 3000; ++i) {
        paths.push_back("many/" + std::to_string(i) + "/with a rather long name/item");
    }
    std::vector<sysdb_change_t> changes;
    for (const std::string &path : paths) {
        changes.push_back(set(path.c_str(), 1));
    }
    ASSERT_EQ(0u, sysdb_apply(conn(), changes.data(), static_cast<uint32_t>(changes.size()), nullptr));
    EXPECT_EQ(3000u, names_in(conn(), "many/").size());
    changes = {prune("many/")};
    for (size_t i = 0; i < paths.size(); i += 3) {
        changes.push_back(set(paths[i].c_str(), 2));
    }
    ASSERT_EQ(0u, sysdb_apply(conn(), changes.data(), static_cast<uint32_t>(changes.size()), nullptr));
    EXPECT_EQ(1000u, names_in(conn(), "many/").size());
    for (size_t i = 0; i < paths.size(); i += 3) {
        EXPECT_EQ(2, get_number(conn(), paths[i]));
    }
}

TEST_P(SysdbChanges, DirectoriesMadeByHand) {
    const sysdb_change_t made = {SYSDB_CHANGE_SET, SYSDB_TYPE_DIRECTORY, "made/", nullptr, 0};
    EXPECT_EQ("0", apply({made}));
    EXPECT_EQ("made/", items());
    EXPECT_EQ("8081a400@0", apply({{SYSDB_CHANGE_SET, SYSDB_TYPE_DIRECTORY, "made", nullptr, 0}}));
    EXPECT_EQ("0", apply({{SYSDB_CHANGE_EXPECT, SYSDB_TYPE_DIRECTORY, "made/", nullptr, 0}, erase("made/")}));
    EXPECT_EQ("", items());
    EXPECT_EQ("0", apply({made, prune("made/")})) << "the call names it";
    EXPECT_EQ("made/", items());
    EXPECT_EQ("0", apply({prune("made/")}));
    EXPECT_EQ("", items());
}

// ---- notifications of watchers

struct Watcher {
    Names calls;
    uint64_t notification = 0;

    static int32_t called(const void *record, void *self, void *) {
        const auto &change = *static_cast<const sysdb_notification_t *>(record);
        static_cast<Watcher *>(self)->calls.push_back(std::to_string(change.operation) + change.path);
        return 0;
    }
};

TEST_P(SysdbChanges, NotifyOfDifferencesAlone) {
    ASSERT_EQ("0", apply({set("d/a", 1), set("d/b", 1), set("d/c", 1)}));
    Watcher watcher;
    ASSERT_EQ(0u, _sysdb_register_notification(conn(), "d/", SYSDB_EVENT_SET | SYSDB_EVENT_DELETE,
                                               SYSDB_NOTIFY_CHANGES, Watcher::called, &watcher, 0, nullptr, 0,
                                               &watcher.notification));
    EXPECT_EQ("8081ae00@1", apply({set("d/a", 2), absent("d/b")}));
    ASSERT_EQ("0", apply({prune("d/"), set("d/a", 1), set("d/b", 2), set("d/e", 3)}));
    ASSERT_TRUE(wait_readable(channel_of(conn()), 20000));
    EXPECT_EQ(0u, sysdb_dispatch(conn()));
    EXPECT_EQ((Names{"2d/b", "4d/c", "3d/e"}), watcher.calls);
    EXPECT_EQ(0u, sysdb_notification_unregister(conn(), watcher.notification));
}

// Two writers that each move a number from one item to the other. Each may have changed the value that
// the other expects.
TEST_P(SysdbChanges, ExpectationsHoldBetweenThreads) {
    ASSERT_EQ("0", apply({set("count", 0)}));
    constexpr uint32_t kRounds = 200;
    const auto add = [this] {
        for (uint32_t i = 0; i < kRounds; ++i) {
            cerrno rc;
            do {
                const auto now = static_cast<uint32_t>(get_number(conn(), "count"));
                const uint32_t next = now + 1;
                const sysdb_change_t changes[] = {
                    {SYSDB_CHANGE_EXPECT, SYSDB_TYPE_U32, "count", &now, sizeof now},
                    {SYSDB_CHANGE_SET, SYSDB_TYPE_U32, "count", &next, sizeof next}};
                rc = sysdb_apply(conn(), changes, 2, nullptr);
            } while (rc == SYSDB_ERR_CONFLICT);
            ASSERT_EQ(0u, rc);
        }
    };
    std::thread other(add);
    add();
    other.join();
    EXPECT_EQ(2 * kRounds, get_number(conn(), "count"));
}

}  // namespace
