// SPDX-License-Identifier: Apache-2.0

#include "store/record.hpp"

#include <gtest/gtest.h>

namespace {

using history::Commit;
using history::Head;

Commit full_commit() {
    Commit commit;
    commit.number = 7;
    commit.time = 1'700'000'000;
    commit.kind = history::Kind::rollback;
    commit.label = "before upgrade";
    commit.message = "two lines\nwith a \\ and a \t and a \x01";
    commit.author = {1000, "root", "alice", "192.0.2.7", "pts/0"};
    commit.target = 3;
    commit.minutes = 10;
    commit.ending = history::Ending::confirmed;
    commit.ended_by = "bob (as root)";
    commit.ended = 1'700'000'300;
    commit.items = 5000;
    commit.left_out = 1;
    commit.plain_bytes = 400'000;
    commit.bytes = 80'000;
    commit.parts = 2;
    return commit;
}

TEST(Record, ACommitComesBackAsItWas) {
    const Commit commit = full_commit();
    EXPECT_EQ(history::commit_from(history::text_of(commit)), commit);
    Commit least;
    least.number = 1;
    EXPECT_EQ(history::commit_from(history::text_of(least)), least);
}

TEST(Record, EveryKindAndEndingHasAWordOfItsOwn) {
    for (int kind = 0; kind <= static_cast<int>(history::Kind::revert); ++kind) {
        Commit commit = full_commit();
        commit.kind = static_cast<history::Kind>(kind);
        for (int ending = 0; ending <= static_cast<int>(history::Ending::reverted); ++ending) {
            commit.ending = static_cast<history::Ending>(ending);
            EXPECT_EQ(history::commit_from(history::text_of(commit)), commit);
        }
    }
}

TEST(Record, ALineFeedInAMessageAddsNoLine) {
    Commit commit = full_commit();
    commit.message = "x\nnumber 9\n";
    EXPECT_EQ(history::commit_from(history::text_of(commit))->number, 7u);
}

TEST(Record, TheHeadComesBackAsItWas) {
    Head head;
    EXPECT_EQ(history::head_from(history::text_of(head)), head);
    head.last = 7;
    head.waiting = history::Waiting{7, 6, {"machine", "boot", 123'456, 1'700'000'300, 10}};
    EXPECT_EQ(history::head_from(history::text_of(head)), head);
}

TEST(Record, NamesOfLaterVersionsAreSkipped) {
    EXPECT_EQ(history::commit_from(history::text_of(full_commit()) + "colour green\n"), full_commit());
}

// Times and sizes are added and multiplied: what a member of the group stored must not overflow.
TEST(Record, NumbersThatCannotBeCalculatedWithAreRefused) {
    const auto with = [](const std::string &text, const char *name, const char *value) {
        return text + name + " " + value + "\n";  // the last line of a name counts
    };
    const std::string commit = history::text_of(full_commit());
    EXPECT_TRUE(history::commit_from(with(commit, "time", "-1"))) << "a clock that was not set";
    for (const char *name : {"time", "ended", "items", "left-out", "plain-bytes", "bytes"}) {
        EXPECT_FALSE(history::commit_from(with(commit, name, "9223372036854775807"))) << name;
        EXPECT_FALSE(history::commit_from(with(commit, name, "-9223372036854775808"))) << name;
    }
    EXPECT_FALSE(history::commit_from(with(commit, "minutes", "4294967295")));
    Head head;
    head.last = 7;
    head.waiting = history::Waiting{7, 6, {"machine", "boot", 123'456, 1'700'000'300, 10}};
    for (const char *name : {"since-boot", "wall"}) {
        EXPECT_FALSE(history::head_from(with(history::text_of(head), name, "9223372036854775807"))) << name;
        EXPECT_FALSE(history::head_from(with(history::text_of(head), name, "-9223372036854775808"))) << name;
    }
    EXPECT_FALSE(history::head_from(with(history::text_of(head), "minutes", "4294967295")));
}

TEST(Record, WhatIsNoRecordIsRefused) {
    const std::string good = history::text_of(full_commit());
    for (const char *text :
         {"", "form 2\nnumber 7\n", "number 7\nkind commit\n", "form 1\nkind commit\n", "form 1\nnumber 7\n",
          "form 1\nnumber 7\nkind dance\n", "form 1\nnumber x\nkind commit\n",
          "form 1\nnumber 99999999999\nkind commit\n"}) {
        EXPECT_FALSE(history::commit_from(text)) << text;
    }
    EXPECT_FALSE(history::head_from("last 7\n"));
    EXPECT_FALSE(history::head_from("form 1\nlast seven\n"));
    EXPECT_TRUE(history::commit_from(good));
}

}  // namespace
