// SPDX-License-Identifier: Apache-2.0

#include "store/revert.hpp"

#include <cstdlib>

#include "history/history_fixture.hpp"
#ifndef HISTORY_ON_LMDB
#include "testkit/fake_platform.hpp"
#endif

namespace history_test {
namespace {

using history::Error;

class RevertTest : public HistoryTest {};

TEST_F(RevertTest, ARevertBringsTheBaseBackAndLosesNothing) {
    put("gl/aaa/x", "1");
    put("gl/aaa/only-before", "1");
    const Items base = present().items;
    commit("base");
    put("gl/aaa/x", "2");
    erase("gl/aaa/only-before");
    commit("waiting", history::deadline_after(5, at(0)));
    put("gl/aaa/meanwhile", "3");
    const Items meanwhile = present().items;
    const auto reverted = revert(2);
    ASSERT_TRUE(reverted);
    EXPECT_EQ(present().items, base);
    EXPECT_EQ(reverted->waited, 2u);
    EXPECT_EQ(reverted->outside, 3u);
    EXPECT_EQ(reverted->commit, 4u);
    EXPECT_EQ(store().items(store().commit(3)), meanwhile);
    EXPECT_EQ(store().items(store().commit(4)), base);
    EXPECT_EQ(store().commit(2).ending, history::Ending::reverted);
    EXPECT_EQ(store().commit(4).target, 1u);
    EXPECT_FALSE(store().head().waiting);
}

TEST_F(RevertTest, ARevertHappensOnce) {
    commit("base");
    put("gl/aaa/x", "2");
    commit("waiting", history::deadline_after(5, at(0)));
    EXPECT_TRUE(revert(2));
    put("gl/aaa/x", "3");
    EXPECT_FALSE(revert(2));
    EXPECT_EQ(present().items.at("gl/aaa/x"), history::text_item("3"));
    EXPECT_EQ(store().head().last, 3u);
}

TEST_F(RevertTest, AConfirmedCommitIsNotReverted) {
    commit("base");
    commit("waiting", history::deadline_after(5, at(0)));
    history::change(store(), [&](const Head &head, history::Changes &changes) {
        history::Writing writing(store(), head);
        writing.end_waiting(history::Ending::confirmed, "bob", 5);
        changes = writing.finish();
    });
    EXPECT_FALSE(revert(2));
    EXPECT_EQ(store().commit(2).ending, history::Ending::confirmed);
    EXPECT_EQ(store().commit(2).ended_by, "bob");
}

TEST_F(RevertTest, ADamagedStateIsAnErrorAndChangesNothing) {
    put("gl/aaa/x", "1");
    commit("base");
    put("gl/aaa/x", "2");
    commit("waiting", history::deadline_after(5, at(0)));
    put(".history/commit/0x1/state/0x1", "nonsense");
    EXPECT_FALSE(history::can_revert(store(), *store().head().waiting));
    try {
        revert(2);
        ADD_FAILURE();
    } catch (const Error &error) {
        EXPECT_NE(std::string(error.what()).find("\"aaactl confirm\" ends the waiting"), std::string::npos)
            << error.what();
    }
    EXPECT_EQ(present().items.at("gl/aaa/x"), history::text_item("2"));
    EXPECT_TRUE(store().head().waiting);
    erase(".history/commit/0x1/state/0x1");
    EXPECT_THROW(revert(2), Error);
}

TEST_F(RevertTest, AHeadWithAnImpossibleBaseRevertsNothing) {
    put("gl/aaa/x", "1");
    commit("base");
    commit("waiting", history::deadline_after(5, at(0)));
    put("gl/aaa/x", "2");
    for (const std::uint32_t base : {0u, 2u, 77u}) {
        Head head = store().head();
        head.waiting->base = base;
        const std::string text = history::text_of(head);
        put(".history/head", text);
        EXPECT_FALSE(history::can_revert(store(), *store().head().waiting)) << base;
        EXPECT_THROW(revert(2), Error) << base;
        EXPECT_EQ(present().items.at("gl/aaa/x"), history::text_item("2"));
        EXPECT_EQ(numbers().size(), 2u);
    }
    Head head = store().head();
    head.waiting->base = 1;
    put(".history/head", history::text_of(head));
    EXPECT_TRUE(history::can_revert(store(), *store().head().waiting));
    EXPECT_TRUE(revert(2));
}

#ifndef HISTORY_ON_LMDB

// Each call of the database fails once: a change is made as a whole or not at all.
TEST_F(RevertTest, AnyFailingCallLeavesAWholeState) {
    put("gl/aaa/x", "1");
    commit("base");
    put("gl/aaa/x", "2");
    commit("waiting", history::deadline_after(5, at(0)));
    put("gl/aaa/y", "3");
    const Items before = present().items;
    const Head head = store().head();
    for (const char *function : {"sysdb_item_get", "sysdb_list", "sysdb_apply"}) {
        for (unsigned k = 1;; ++k) {
            fake::fail_call(function, k, SYSDB_ERR_STORAGE);
            bool failed = false;
            std::optional<history::Reverted> reverted;
            try {
                reverted = revert(2);
            } catch (const Error &error) {
                failed = true;
                EXPECT_EQ(error.code(), SYSDB_ERR_STORAGE);
            }
            fake::clear_answers(function);
            if (!failed) {
                ASSERT_TRUE(reverted);
                ASSERT_GT(k, 1u);
                break;
            }
            ASSERT_EQ(present().items, before) << function << " " << k;
            ASSERT_EQ(store().head(), head) << function << " " << k;
            ASSERT_LT(k, 1000u);
        }
        // For the next function.
        put("gl/aaa/x", "2");
        put("gl/aaa/y", "3");
        history::Changes back{
            {SYSDB_CHANGE_PRUNE, ".history/commit/0x3/", {}},
            {SYSDB_CHANGE_PRUNE, ".history/commit/0x4/", {}},
            {SYSDB_CHANGE_SET, ".history/head", history::text_item(history::text_of(head))}};
        std::size_t refused = 0;
        ASSERT_EQ(history::apply(cfg(), back, refused), 0u);
    }
}

TEST_F(RevertTest, AFullDatabaseDoesNotStopARevert) {
    put("gl/aaa/x", "0");
    commit("old");
    put("gl/aaa/x", "1");
    commit("base");
    put("gl/aaa/x", "2");
    commit("waiting", history::deadline_after(5, at(0)));
    const auto room = [&] { return history::read_names(cfg(), history::room_directory()).size(); };
    EXPECT_EQ(room(), 1u);
    fake::fail_call("sysdb_apply", 1, SYSDB_ERR_FULL);
    const auto reverted = revert(3);
    ASSERT_TRUE(reverted);
    EXPECT_EQ(reverted->commit, 4u);
    EXPECT_EQ(present().items.at("gl/aaa/x"), history::text_item("1"));
    EXPECT_EQ(numbers(), (std::vector<std::uint32_t>{1, 2, 3, 4})) << "the room was enough";
    EXPECT_EQ(room(), 0u);
}

// Without room for a record the configuration goes back all the same, and no commit is deleted for it.
TEST_F(RevertTest, WithoutRoomForItsRecordARevertIsMade) {
    put("gl/aaa/x", "1");
    commit("old");
    commit("base");
    put("gl/aaa/x", "2");
    commit("waiting", history::deadline_after(5, at(0)));
    put("gl/aaa/y", "3");
    // The revert, and the deletion of the room.
    fake::answer("sysdb_apply", SYSDB_ERR_FULL, 2);
    const auto reverted = revert(3);
    ASSERT_TRUE(reverted);
    EXPECT_EQ(reverted->commit, 0u);
    EXPECT_NE(history::not_recorded(*reverted), "");
    EXPECT_EQ(present().items, store().items(store().commit(2)));
    EXPECT_EQ(numbers(), (std::vector<std::uint32_t>{1, 2, 3}));
    EXPECT_FALSE(store().head().waiting);
    EXPECT_EQ(store().commit(3).ending, history::Ending::reverted);
    // The next commit goes on from it.
    EXPECT_EQ(commit("next"), 4u);
}

TEST_F(RevertTest, OnlyAsManyCommitsAreDeletedAsNeeded) {
    for (const char *value : {"0", "1", "2"}) {
        put("gl/aaa/x", value);
        commit(value);
    }
    put("gl/aaa/x", "3");
    commit("waiting", history::deadline_after(5, at(0)));
    // The revert, again with the room, without a record; not the deletion of the room, nor that of a commit.
    for (const unsigned call : {1u, 3u, 4u}) {
        fake::fail_call("sysdb_apply", call, SYSDB_ERR_FULL);
    }
    const auto reverted = revert(4);
    ASSERT_TRUE(reverted);
    EXPECT_EQ(present().items.at("gl/aaa/x"), history::text_item("2"));
    EXPECT_EQ(numbers(), (std::vector<std::uint32_t>{2, 3, 4}));
}

#else

class FullDatabaseTest : public HistoryTest {
  protected:
    static void SetUpTestSuite() { setenv("AAA_SYSDB_MAP_MIB", "1", 1); }

    // Until not even an item of this size is taken.
    void fill(std::size_t size) {
        const std::string value(size, 'x');
        for (;; ++filled_) {
            const std::string path = "fill/" + std::to_string(filled_);
            const cerrno rc = sysdb_item_set(cfg(), path.c_str(), SYSDB_TYPE_STRING, value.c_str(),
                                             static_cast<std::uint32_t>(size + 1), 0);
            if (rc == SYSDB_ERR_FULL) {
                return;
            }
            ASSERT_EQ(rc, 0u);
        }
    }

    unsigned filled_ = 0;
};

// Symptom: all commits were deleted for it, and the commit was not reverted.
TEST_F(FullDatabaseTest, ACommitIsRevertedAndNothingIsLost) {
    for (const char *value : {"a", "b", "c"}) {
        for (int i = 0; i < 400; ++i) {
            put("gl/aaa/group/" + std::to_string(i), value + std::string(50, 'v'));
        }
        commit(value);
    }
    const Items base = present().items;
    erase("gl/aaa/group/");
    put("gl/aaa/x", "risky");
    commit("waiting", history::deadline_after(5, at(0)));
    put("gl/aaa/y", "meanwhile");
    for (const std::size_t size : {20'000u, 3'000u, 100u}) {
        fill(size);
    }
    const auto reverted = revert(4);
    ASSERT_TRUE(reverted);
    EXPECT_EQ(present().items, base);
    EXPECT_EQ(reverted->outside, 5u);
    EXPECT_EQ(reverted->commit, 6u);
    EXPECT_EQ(numbers(), (std::vector<std::uint32_t>{1, 2, 3, 4, 5, 6}));
}

TEST_F(FullDatabaseTest, WithoutRoomToGoBackNoCommitWaits) {
    put("gl/aaa/x", "1");
    commit("base");
    fill(3'000);
    try {
        commit("waiting", history::deadline_after(5, at(0)));
        ADD_FAILURE();
    } catch (const Error &error) {
        EXPECT_EQ(error.code(), SYSDB_ERR_FULL);
    }
    EXPECT_FALSE(store().head().waiting);
}

#endif

}  // namespace
}  // namespace history_test
