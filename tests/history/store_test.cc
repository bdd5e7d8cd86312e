// SPDX-License-Identifier: Apache-2.0

#include "store/store.hpp"

#include "history/history_fixture.hpp"
#ifndef HISTORY_ON_LMDB
#include "testkit/fake_platform.hpp"
#endif

namespace history_test {
namespace {

using history::Error;

class StoreTest : public HistoryTest {};

TEST_F(StoreTest, BeginsWithoutCommits) {
    EXPECT_EQ(store().head(), Head{});
    EXPECT_TRUE(store().commits().empty());
    EXPECT_THROW(store().commit(1), Error);
}

TEST_F(StoreTest, ACommitHoldsTheState) {
    put("gl/aaa/x", "1");
    put_directory("gl/aaa/empty/");
    const Items before = present().items;
    EXPECT_EQ(commit("one"), 1u);
    put("gl/aaa/x", "2");
    EXPECT_EQ(commit("two"), 2u);
    EXPECT_EQ(store().head().last, 2u);
    EXPECT_EQ(store().commit(1).label, "one");
    EXPECT_EQ(store().commit(1).items, 2u);
    EXPECT_EQ(store().items(store().commit(1)), before);
    EXPECT_EQ(store().items(store().commit(2)), present().items);
}

TEST_F(StoreTest, AStateOfManyPartsIsWhole) {
    // Texts that cannot be compressed: more than one part.
    std::uint32_t random = 1;
    for (int i = 0; i < 40; ++i) {
        std::string text;
        for (int n = 0; n < 20'000; ++n) {
            random = random * 1'664'525 + 1'013'904'223;
            text += static_cast<char>(' ' + (random >> 24) % 90);
        }
        put("gl/aaa/x" + std::to_string(i), text);
    }
    commit("large");
    EXPECT_GT(store().commit(1).parts, 1u);
    EXPECT_EQ(store().items(store().commit(1)), present().items);
}

TEST_F(StoreTest, KnowsWhetherTheStateIsRecorded) {
    put("gl/aaa/x", "1");
    EXPECT_FALSE(history::Writing(store(), store().head()).is_recorded(present()));
    commit("one");
    EXPECT_TRUE(history::Writing(store(), store().head()).is_recorded(present()));
    put("gl/aaa/x", "2");
    EXPECT_FALSE(history::Writing(store(), store().head()).is_recorded(present()));
}

TEST_F(StoreTest, OfTwoCommitsAtATimeTheSecondIsMadeOnTheFirst) {
    put("gl/aaa/x", "1");
    int tries = 0;
    history::change(store(), [&](const Head &head, history::Changes &changes) {
        if (++tries == 1) {
            commit("the other one");
        }
        history::Writing writing(store(), head);
        writing.add({}, present());
        changes = writing.finish();
    });
    EXPECT_EQ(tries, 2);
    EXPECT_EQ(numbers(), (std::vector<std::uint32_t>{1, 2}));
    EXPECT_EQ(store().commit(1).label, "the other one");
}

TEST_F(StoreTest, TheOldestCommitsGo) {
    put_number("gl/aaa/history/commits", 3);
    for (int i = 1; i <= 6; ++i) {
        put_number("gl/aaa/x", static_cast<std::uint32_t>(i));
        commit(std::to_string(i));
    }
    EXPECT_EQ(numbers(), (std::vector<std::uint32_t>{4, 5, 6}));
    EXPECT_THROW(store().commit(3), Error);
    EXPECT_TRUE(history::read_names(cfg(), ".history/commit/0x3/").empty()) << "its state is gone too";
}

TEST_F(StoreTest, TheOldestCommitsGoWhenTheyAreTooLarge) {
    put_number("gl/aaa/history/kilobytes", 64);
    std::uint32_t random = 1;
    for (int i = 1; i <= 6; ++i) {
        std::string text;
        for (int n = 0; n < 24'000; ++n) {
            random = random * 1'664'525 + 1'013'904'223;
            text += static_cast<char>(' ' + (random >> 24) % 90);
        }
        put("gl/aaa/x", text);
        commit(std::to_string(i));
    }
    const auto left = numbers();
    EXPECT_LT(left.size(), 6u);
    EXPECT_EQ(left.back(), 6u);
    std::uint64_t bytes = 0;
    for (const auto &commit : store().commits()) {
        bytes += commit.bytes;
    }
    EXPECT_LE(bytes, 64u * 1024);
}

TEST_F(StoreTest, TheWaitingCommitAndItsBaseStay) {
    put_number("gl/aaa/history/commits", 2);
    commit("base");
    commit("waiting", history::deadline_after(5, at(0)));
    for (int i = 0; i < 5; ++i) {
        commit("more");
    }
    const auto left = numbers();
    EXPECT_EQ((std::vector<std::uint32_t>{left[0], left[1]}), (std::vector<std::uint32_t>{1, 2}));
    EXPECT_EQ(left.back(), 7u);
}

TEST_F(StoreTest, LimitsOutOfRangeAreTakenToTheNearest) {
    put_number("gl/aaa/history/commits", 0);
    EXPECT_EQ(store().limits().commits, history::kLeastCommits);
    put("gl/aaa/history/commits", "many");
    EXPECT_EQ(store().limits().commits, history::Limits{}.commits);
}

TEST_F(StoreTest, ADamagedRecordIsNamedAndTheOthersAreRead) {
    commit("one");
    commit("two");
    put(".history/commit/0x1/record", "nonsense");
    std::vector<std::string> damaged;
    EXPECT_EQ(store().commits(&damaged).size(), 1u);
    EXPECT_EQ(damaged, std::vector<std::string>{"/cfg/.history/commit/0x1/record"});
    EXPECT_THROW(store().commit(1), Error);
    EXPECT_EQ(commit("three"), 3u);
}

TEST_F(StoreTest, ADamagedHeadIsMadeAgainFromTheCommits) {
    commit("one");
    commit("two");
    for (const char *text : {"nonsense", "form 1\n", ""}) {
        put(".history/head", text);
        const Head head = store().head();
        EXPECT_TRUE(head.rebuilt);
        EXPECT_EQ(head.last, 2u) << text;
        EXPECT_FALSE(head.waiting);
    }
    put_number(".history/head", 7);
    EXPECT_EQ(commit("three"), 3u);
    EXPECT_FALSE(store().head().rebuilt);
    erase(".history/head");
    EXPECT_TRUE(store().head().rebuilt);
    EXPECT_EQ(commit("four"), 4u);
    EXPECT_EQ(numbers(), (std::vector<std::uint32_t>{1, 2, 3, 4}));
}

TEST_F(StoreTest, NoNumberIsUsedTwice) {
    commit("one");
    const history::Item early = *store().head().stored;
    commit("two");
    put(".history/commit/0x9/record", "nonsense");
    put(".history/head", early.bytes.substr(0, early.bytes.size() - 1));
    EXPECT_EQ(store().head().last, 1u);
    EXPECT_EQ(commit("three"), 10u);
    EXPECT_EQ(store().commit(2).label, "two");
    erase(".history/head");
    EXPECT_EQ(store().head().last, 10u);
    EXPECT_EQ(commit("four"), 11u);
}

// Each member of the group can make such a directory.
TEST_F(StoreTest, AnImpossibleNumberStopsNeitherCommitsNorReverts) {
    put("gl/aaa/x", "1");
    commit("base");
    put("gl/aaa/x", "2");
    commit("waiting", history::deadline_after(5, at(0)));
    for (const char *name : {"0xffffffff", "0xfffffffe", "0x80000000"}) {
        put(".history/commit/" + std::string(name) + "/record", "nonsense");
    }
    put_directory(".history/commit/0xfffffffd/");
    const auto reverted = revert(2);
    ASSERT_TRUE(reverted);
    EXPECT_EQ(reverted->commit, 3u);
    EXPECT_EQ(present().items.at("gl/aaa/x"), history::text_item("1"));
    EXPECT_EQ(store().out_of_sequence(store().head()),
              (std::vector<std::uint32_t>{0x80000000, 0xfffffffd, 0xfffffffe, 0xffffffff}));
    EXPECT_EQ(commit("more"), 4u);
    put(".history/head", "nonsense");
    EXPECT_EQ(commit("after the head was lost"), 5u);
}

TEST_F(StoreTest, ACommitWaitsOnWithoutTheHead) {
    put("gl/aaa/x", "1");
    commit("base");
    put("gl/aaa/x", "2");
    commit("waiting", history::deadline_after(5, at(0)));
    erase(".history/head");
    const Head head = store().head();
    ASSERT_TRUE(head.waiting);
    EXPECT_EQ(head.waiting->commit, 2u);
    EXPECT_EQ(head.waiting->base, 1u);
    EXPECT_FALSE(left(head.waiting->deadline, at(0))) << "when it began is not known on this machine";
    ASSERT_TRUE(revert(2));
    EXPECT_EQ(present().items.at("gl/aaa/x"), history::text_item("1"));
    EXPECT_FALSE(store().head().waiting);
}

TEST_F(StoreTest, WhatIsDamagedNamesTheCommandThatDeletesIt) {
    commit("one");
    commit("two");
    put(".history/commit/0x1/record", "nonsense");
    put(".history/commit/0x2/state/0x1", "nonsense");
    const auto text_of = [](const auto &call) -> std::string {
        try {
            call();
        } catch (const Error &error) {
            return error.what();
        }
        return "";
    };
    EXPECT_NE(text_of([&] {
                  store().commit(1);
              }).find("\"aaactl sysdb del --force -r /cfg/.history/commit/0x1/\" deletes that commit only"),
              std::string::npos);
    EXPECT_NE(text_of([&] {
                  store().items(store().commit(2));
              }).find("\"aaactl sysdb del --force -r /cfg/.history/commit/0x2/\" deletes that commit only"),
              std::string::npos);
}

// Each member of the group can store one that the checksum holds for.
TEST_F(StoreTest, AStateWithItemsOutsideOfTheConfigurationIsNotTaken) {
    put("gl/aaa/a", "x");
    const std::uint32_t number = commit("one");
    for (const char *path : {"gl/other/a", ".history/head", "gl/aab"}) {
        const history::Commit stored = store().commit(number);
        std::size_t failed = 0;
        ASSERT_EQ(
            history::apply(cfg(), history::rewritten(stored, {{path, history::text_item("y")}}), failed), 0u);
        try {
            store().items(store().commit(number));
            ADD_FAILURE() << path;
        } catch (const history::Error &error) {
            EXPECT_EQ(error.why(), history::Error::Why::damaged);
            EXPECT_NE(std::string(error.what()).find("aaactl sysdb del --force -r /cfg/.history/commit/0x1/"),
                      std::string::npos)
                << error.what();
        }
    }
}

#ifndef HISTORY_ON_LMDB

TEST_F(StoreTest, APartThatCannotBeReadIsDamaged) {
    put("gl/aaa/x", "1");
    commit("one");
    const history::Commit stored = store().commit(1);
    for (const cerrno code : {SYSDB_ERR_BAD_VALUE, SYSDB_ERR_BAD_PATH}) {
        fake::fail_call("sysdb_item_get", 1, code);
        try {
            store().plain_state(stored);
            ADD_FAILURE() << code;
        } catch (const Error &error) {
            EXPECT_EQ(error.why(), Error::Why::damaged);
            EXPECT_NE(std::string(error.what()).find("aaactl sysdb del --force -r /cfg/.history/commit/0x1/"),
                      std::string::npos)
                << error.what();
        }
        fake::clear_answers("sysdb_item_get");
    }
}

#endif

TEST_F(StoreTest, ACommitCanBeWrittenOtherwise) {
    put("gl/aaa/x", "1");
    commit("one");
    const Items other{{"gl/aaa/x", history::text_item("sealed again")}};
    std::size_t failed = 0;
    ASSERT_EQ(history::apply(cfg(), history::rewritten(store().commit(1), other), failed), 0u);
    EXPECT_EQ(store().items(store().commit(1)), other);
    EXPECT_EQ(store().commit(1).label, "one");
}

// Symptom: "otherwise the state before is in force again" was promised, and could not be kept.
TEST_F(StoreTest, NoCommitWaitsWithoutAStateToGoBackTo) {
    put("gl/aaa/x", "1");
    commit("base");
    put("gl/aaa/x", "2");
    for (const bool is_there : {true, false}) {
        if (is_there) {
            put(".history/commit/0x1/state/0x1", "nonsense");
        } else {
            erase(".history/commit/0x1/");
        }
        try {
            commit("waiting", history::deadline_after(5, at(0)));
            ADD_FAILURE();
        } catch (const Error &error) {
            EXPECT_EQ(error.why(), Error::Why::refused);
            EXPECT_NE(std::string(error.what()).find("make a commit without --confirm first"),
                      std::string::npos)
                << error.what();
        }
        EXPECT_FALSE(store().head().waiting);
    }
    commit("without");
    put("gl/aaa/x", "3");
    EXPECT_EQ(commit("waiting", history::deadline_after(5, at(0))), 3u);
}

}  // namespace
}  // namespace history_test
