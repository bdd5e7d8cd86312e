// SPDX-License-Identifier: Apache-2.0

#include "store/items.hpp"

#include <random>

#include "history/history_fixture.hpp"

namespace history_test {
namespace {

class ItemsTest : public HistoryTest {
  protected:
    // Makes the changes, which must be accepted.
    void become(const Items &wanted) const {
        std::size_t failed = 0;
        const history::Changes changes = history::changes_between(present(), wanted);
        ASSERT_EQ(history::apply(cfg(), changes, failed), 0u)
            << (failed < changes.size() ? changes[failed].path : "");
    }
};

TEST_F(ItemsTest, AnEmptyDatabaseHasNoItems) {
    EXPECT_TRUE(present().items.empty());
}

TEST_F(ItemsTest, ReadsItemsAndEmptyDirectories) {
    put("gl/aaa/one", "1");
    put_number("gl/aaa/deep/er/two", 2);
    put_directory("gl/aaa/empty/");
    put("site/other", "elsewhere");
    const State state = present();
    ASSERT_EQ(state.items.size(), 3u);
    EXPECT_EQ(state.items.at("gl/aaa/one"), history::text_item("1"));
    EXPECT_EQ(state.items.at("gl/aaa/deep/er/two").type, SYSDB_TYPE_U32);
    EXPECT_EQ(state.items.at("gl/aaa/empty/").type, SYSDB_TYPE_DIRECTORY);
    EXPECT_TRUE(state.unreadable.empty());
}

TEST_F(ItemsTest, NoChangeIsNeededForTheSameState) {
    put("gl/aaa/one", "1");
    EXPECT_TRUE(history::changes_between(present(), present().items).empty());
}

TEST_F(ItemsTest, ADirectoryMadeByHandVanishesWithItsItems) {
    put_directory("gl/aaa/group/");
    put("gl/aaa/group/server", "x");
    become({});
    EXPECT_TRUE(present().items.empty());
}

TEST_F(ItemsTest, AnItemBecomesADirectoryAndBack) {
    put("gl/aaa/x/y", "1");
    const Items below = present().items;
    become({{"gl/aaa/x", history::text_item("2")}});
    EXPECT_EQ(present().items, (Items{{"gl/aaa/x", history::text_item("2")}}));
    become(below);
    EXPECT_EQ(present().items, below);
}

// A directory of its own for every state that a configuration can come from and go to.
TEST_F(ItemsTest, AnyStateCanFollowAnyOther) {
    std::mt19937 random(7);
    const auto random_state = [&] {
        Items items;
        for (auto i = random() % 12; i > 0; --i) {
            std::string path = "gl/aaa/";
            for (auto depth = random() % 3; depth > 0; --depth) {
                path += std::string(1, static_cast<char>('a' + random() % 2)) + "/";
            }
            path += std::string(1, static_cast<char>('a' + random() % 3));
            items[path] = history::text_item(std::to_string(random() % 3));
        }
        return items;
    };
    for (int round = 0; round < 60; ++round) {
        if (round % 3 == 0) {
            put_directory("gl/aaa/a/");
            put_directory("gl/aaa/b/b/");
        }
        const Items wanted = random_state();
        become(wanted);
        ASSERT_EQ(present().items, wanted) << round;
    }
}

TEST_F(ItemsTest, AStateWithEmptyDirectoriesComesBack) {
    put_directory("gl/aaa/list/");
    put("gl/aaa/x", "1");
    const Items wanted = present().items;
    put("gl/aaa/list/0x1/server", "s");
    become(wanted);
    EXPECT_EQ(present().items, wanted);
    erase("gl/aaa/list/");
    become(wanted);
    EXPECT_EQ(present().items, wanted);
}

TEST_F(ItemsTest, WhatOthersChangedMeanwhileIsNotOverwritten) {
    put("gl/aaa/changed", "1");
    put("gl/aaa/deleted", "1");
    const State now = present();
    const std::vector<Items> wanted{{{"gl/aaa/changed", history::text_item("2")}},
                                    {{"gl/aaa/new", history::text_item("2")},
                                     {"gl/aaa/changed", history::text_item("1")},
                                     {"gl/aaa/deleted", history::text_item("1")}}};
    put("gl/aaa/changed", "3");
    put("gl/aaa/new", "3");
    const Items others = present().items;
    for (const Items &one : wanted) {
        std::size_t failed = 0;
        EXPECT_EQ(history::apply(cfg(), history::changes_between(now, one), failed), SYSDB_ERR_CONFLICT);
        EXPECT_EQ(present().items, others);
    }
}

TEST_F(ItemsTest, UnreadableItemsStay) {
    put("gl/aaa/x/y", "1");
    State now = present();
    now.unreadable.insert("gl/aaa/x/bad");
    put("gl/aaa/x/bad", "left alone");
    std::size_t failed = 0;
    ASSERT_EQ(history::apply(cfg(), history::changes_between(now, {}), failed), 0u);
    EXPECT_EQ(present().items, (Items{{"gl/aaa/x/bad", history::text_item("left alone")}}));
}

TEST_F(ItemsTest, AnErrorNamesThePathAndTheCode) {
    try {
        history::fail("gl/aaa/x", SYSDB_ERR_FULL);
        FAIL();
    } catch (const history::Error &error) {
        EXPECT_EQ(error.code(), SYSDB_ERR_FULL);
        EXPECT_EQ(std::string(error.what()).rfind("/cfg/gl/aaa/x: ", 0), 0u) << error.what();
    }
}

}  // namespace
}  // namespace history_test
