// SPDX-License-Identifier: Apache-2.0

#include "store/presence.hpp"

#include <unistd.h>

#include "history/history_fixture.hpp"

namespace history_test {
namespace {

TEST(Presence, IsSeenWhileTheProcessLives) {
    const Sandbox sandbox;
    const Bound oper("/oper/");
    EXPECT_FALSE(history::is_watched(oper.handle()));
    {
        const history::Presence presence("test");
        EXPECT_TRUE(history::is_watched(oper.handle()));
    }
    EXPECT_FALSE(history::is_watched(oper.handle()));
    EXPECT_FALSE(history::is_watched(0));
}

TEST(Presence, OfAKilledProcessIsNotBelievedAndIsRemoved) {
    const Sandbox sandbox;
    Pipe ready;
    ForkedProcess process([&] {
        const history::Presence presence("test");
        ready.put();
        pause();
    });
    ASSERT_TRUE(ready.take());
    const Bound oper("/oper/");
    EXPECT_TRUE(history::is_watched(oper.handle()));
    process.kill_now();
    EXPECT_FALSE(history::is_watched(oper.handle()));
    EXPECT_EQ(names_in(oper.handle(), "aaa/history/watcher/").size(), 1u);
    const history::Presence other("test");
    EXPECT_EQ(names_in(oper.handle(), "aaa/history/watcher/").size(), 1u) << "only that of this process";
}

TEST(Presence, ANumberThatAnotherProcessHasNowIsNotBelieved) {
    const Sandbox sandbox;
    const Bound oper("/oper/");
    ASSERT_EQ(set_text(oper.handle(), "aaa/history/watcher/" + std::to_string(getpid()), "1 test"), 0u);
    EXPECT_FALSE(history::is_watched(oper.handle()));
}

}  // namespace
}  // namespace history_test
