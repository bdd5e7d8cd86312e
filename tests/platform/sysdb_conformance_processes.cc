// SPDX-License-Identifier: Apache-2.0
//
// Several processes on one database: the part of the conformance tests for
// providers whose processes share their contents. The database of the test
// kit, for example, is in the memory of one process, and others cannot read it.

#include <gtest/gtest.h>

#include <string>

#include "sysdb_conformance_watching.hpp"

namespace {

class SysdbProcesses : public SysdbWatching {};

INSTANTIATE_TEST_SUITE_P(Trees, SysdbProcesses, ::testing::Values("/cfg/", "/oper/"),
                         [](const auto &tree) { return std::string(tree.index == 0 ? "cfg" : "oper"); });

TEST_P(SysdbProcesses, ChildGoesOnWithTheConnectionsItInherits) {
    ASSERT_EQ(0u, set_number(conn(), "from the parent", 1));
    run_forked([this] {
        EXPECT_EQ(1, get_number(conn(), "from the parent"));
        EXPECT_EQ(0u, set_number(conn(), "from the child", 2));
        const Bound own(base());
        EXPECT_EQ(2, get_number(own.handle(), "from the child"));
    });
    EXPECT_EQ(2, get_number(conn(), "from the child"));
    EXPECT_EQ(0u, set_number(conn(), "from the parent", 3));
}

TEST_P(SysdbProcesses, ChangeByAnotherProcessIsReported) {
    Watcher watcher;
    ASSERT_EQ(0u, watcher.watch(conn(), "a"));
    run_forked([this] {
        const Bound own(base());
        EXPECT_EQ(0u, set_number(own.handle(), "a", 42));
    });
    EXPECT_EQ(Texts{"create a=42"}, dispatched(watcher));
}

TEST_P(SysdbProcesses, ChildInheritsNoNotificationsAndMayHaveItsOwn) {
    Watcher watcher;
    ASSERT_EQ(0u, watcher.watch(conn(), "a"));
    ASSERT_GE(channel_of(conn()), 0);
    run_forked([this, &watcher] {
        EXPECT_EQ(0u, set_number(conn(), "a", 1));
        EXPECT_EQ(0u, sysdb_dispatch(conn()));
        EXPECT_EQ(Texts{}, watcher.take());
        EXPECT_EQ(SYSDB_ERR_BAD_HANDLE, sysdb_notification_unregister(conn(), watcher.notification));
        Watcher own;
        EXPECT_EQ(0u, own.watch(conn(), "a"));
        EXPECT_EQ(0u, set_number(conn(), "a", 2));
        EXPECT_TRUE(wait_readable(channel_of(conn()), kPatience));
        EXPECT_EQ(0u, sysdb_dispatch(conn()));
        EXPECT_EQ(Texts{"set a=2"}, own.take());
    });
    EXPECT_EQ(Texts{"create a=2"}, dispatched(watcher));
    ASSERT_EQ(0u, set_number(writer(), "a", 3));
    EXPECT_EQ(Texts{"set a=3"}, dispatched(watcher));
}

TEST_P(SysdbProcesses, NothingIsLostBetweenReadAndWatch) {
    // Another process counts up without a pause; a process that registers and then reads gets the last value.
    // Each round registers once, at the beginning.
    constexpr uint32_t kLast = 150;
    for (int round = 0; round < 5; ++round) {
        ASSERT_EQ(0u, set_number(writer(), "counter", 0));
        ForkedProcess counting([this] {
            const Bound own(base());
            for (uint32_t i = 1; i <= kLast; ++i) {
                EXPECT_EQ(0u, set_number(own.handle(), "counter", i));
            }
        });
        const Bound own(base());
        Watcher watcher;
        ASSERT_EQ(0u, watcher.watch(own.handle(), "counter"));
        std::string seen = "set counter=" + std::to_string(get_number(own.handle(), "counter"));
        const std::string last = "set counter=" + std::to_string(kLast);
        while (seen != last && wait_readable(channel_of(own.handle()), kPatience)) {
            ASSERT_EQ(0u, sysdb_dispatch(own.handle()));
            for (const std::string &text : watcher.take()) {
                seen = text;
            }
        }
        EXPECT_EQ(last, seen);
        EXPECT_EQ(0, counting.wait());
    }
}

}  // namespace
