// SPDX-License-Identifier: Apache-2.0
//
// Processes that commit, go back and revert are killed at random moments: the history and the configuration
// are always of one moment. AAA_HISTORY_KILLS sets how many are killed; 20 without it.

#include <unistd.h>

#include <random>

#include "history/history_fixture.hpp"

namespace history_test {
namespace {

using history::Changes;
using history::Commit;

// A state in which every item holds the same number.
Items state_of(unsigned number) {
    Items items;
    for (unsigned i = 0; i < 30 + number % 7; ++i) {
        items["gl/aaa/group/" + std::to_string(number % 3) + "/" + std::to_string(i)] =
            history::text_item(std::to_string(number));
    }
    return items;
}

void one_change(const Store &store, std::mt19937 &random) {
    const Head head = store.head();
    if (head.waiting) {
        history::revert(store, head.waiting->commit, history::program("test"), "", at(0));
        return;
    }
    history::change(store, [&](const Head &present, Changes &changes) {
        history::Writing writing(store, present);
        const State now = history::read_state(store.connection(), history::kConfiguration);
        const Items wanted = present.last > 1 && random() % 3 == 0
                                 ? store.items(store.commit(present.last - 1))
                                 : state_of(static_cast<unsigned>(random() % 1000));
        const std::uint32_t number = writing.add({}, {wanted, {}});
        if (present.last != 0 && random() % 3 == 0) {
            writing.wait(number, present.last, history::deadline_after(1, at(0)));
        }
        changes = writing.finish();
        const Changes items = history::changes_between(now, wanted);
        changes.insert(changes.end(), items.begin(), items.end());
    });
}

void check(const Store &store) {
    const Head head = store.head();
    if (head.last == 0) {
        return;
    }
    std::vector<std::string> damaged;
    const std::vector<Commit> commits = store.commits(&damaged);
    ASSERT_TRUE(damaged.empty()) << damaged.front();
    ASSERT_FALSE(commits.empty());
    EXPECT_EQ(commits.back().number, head.last);
    for (const Commit &commit : commits) {
        EXPECT_EQ(store.items(commit).size(), commit.items) << commit.number;
    }
    EXPECT_EQ(history::read_state(store.connection(), history::kConfiguration).items,
              store.items(commits.back()));
}

TEST(Killed, NeverLeavesHalfACommit) {
    const Sandbox sandbox;
    const unsigned kills = repetitions("AAA_HISTORY_KILLS", 20);
    std::random_device seed;
    std::mt19937 random(seed());
    for (unsigned i = 0; i < kills; ++i) {
        Pipe begun;
        ForkedProcess process([&, own = seed()] {
            std::mt19937 mine(own);
            const Bound cfg("/cfg/");
            const Store store(cfg.handle());
            begun.put();
            for (;;) {
                one_change(store, mine);
            }
        });
        ASSERT_TRUE(begun.take());
        usleep(static_cast<useconds_t>(random() % 20'000));  // any moment is the right one
        process.kill_now();
        run_forked([] {
            const Bound cfg("/cfg/");
            check(Store(cfg.handle()));
        });
        ASSERT_FALSE(testing::Test::HasFailure()) << "after kill " << i;
    }
}

}  // namespace
}  // namespace history_test
