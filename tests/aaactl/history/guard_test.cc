// SPDX-License-Identifier: Apache-2.0
//
// The history against commands that write the database item by item, and what is left of a damaged one.

#include "aaactl/history/history_fixture.hpp"

namespace {

using aaactl_test::aaactl;
using aaactl_test::HistoryCommands;
using aaactl_test::Kinds;

bool contains(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

class Guard : public HistoryCommands {
  protected:
    void SetUp() override {
        load(limit(1));
        done({"commit", "first"});
        load(limit(2));
        done({"commit", "second"});
    }
    // The command between the quotation marks after `before`, run.
    static void run_command_in(const std::string &text, const std::string &before) {
        const size_t begin = text.find(before);
        ASSERT_NE(begin, std::string::npos) << text;
        const size_t first = text.find("aaactl ", begin);
        const std::string command = text.substr(first, text.find_first_of("\"\n", first) - first);
        const auto run = aaactl_test::in_shell(command);
        EXPECT_EQ(run.status, 0) << command << ": " << run.err;
    }
};

TEST_F(Guard, PlainCommandsDoNotWriteIt) {
    const std::string dump = done({"sysdb", "dump", "--all", "--show-secrets"});
    const std::string line = "aaactl-dump 1 /cfg/\n/cfg/.history/head string \"x\"\n# end: 1 items\n";
    for (const std::vector<std::string> &words :
         {std::vector<std::string>{"sysdb", "set", "/cfg/.history/head", "--type", "string", "x"},
          {"sysdb", "set", "/cfg/.history/other/", "--type", "directory"},
          {"sysdb", "set", "/cfg/.history", "--type", "string", "x"},
          {"sysdb", "del", "/cfg/.history/head"},
          {"sysdb", "del", "-r", "/cfg/.history/"},
          {"sysdb", "del", "-r", "/cfg/.history"},
          {"sysdb", "del", "-r", "/cfg/.history/commit/0x1"}}) {
        const auto run = aaactl(words);
        EXPECT_EQ(run.status, 1) << words[1] << " " << words[2] << run.err;
        EXPECT_TRUE(contains(run.err, "the history of the configuration")) << run.err;
        EXPECT_TRUE(contains(run.err, "--force")) << run.err;
    }
    const auto loaded = aaactl({"sysdb", "load", "-"}, line);
    EXPECT_EQ(loaded.status, 3);
    EXPECT_TRUE(contains(loaded.err, "--force")) << loaded.err;
    EXPECT_EQ(done({"sysdb", "dump", "--all", "--show-secrets"}), dump);
    done({"sysdb", "load", "-"}, dump);  // nothing new
    done({"sysdb", "load", "--force", "-"}, line);
    EXPECT_EQ(value_of("/cfg/.history/head"), "x");
}

TEST_F(Guard, ABackupIsNotLoadedOverACommitThatWaits) {
    const std::string dump = done({"sysdb", "dump", "--all", "--show-secrets"});
    load("item /cfg/gl/aaa/history/commits u32 60\n");
    done({"commit", "risky", "--confirm", "5"});
    const auto run = aaactl({"sysdb", "load", "--replace", "-"}, dump);
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(contains(run.err, "commit 3 (risky)")) << run.err;
    for (const std::vector<std::string> &words :
         {std::vector<std::string>{"sysdb", "load", "--replace", "--force", "-"},
          {"sysdb", "load", "--force", "-"}}) {
        const auto forced = aaactl(words, dump);
        EXPECT_EQ(forced.status, 1);
        EXPECT_TRUE(contains(forced.err, "commit 3 (risky)")) << forced.err;
    }
    EXPECT_EQ(history()["waiting"]["commit"].number(), 3);
    done({"confirm"});
    done({"sysdb", "load", "--replace", "-"}, dump);
    EXPECT_EQ(kinds().size(), 2u);
}

TEST_F(Guard, WhatACommitThatWaitsNeedsIsNotDeleted) {
    load(limit(3));
    done({"commit", "risky", "--confirm", "5"});
    const auto refuse = [](const std::string &path) {
        const auto run = aaactl({"sysdb", "del", "--force", "-r", path});
        EXPECT_EQ(run.status, 1) << path;
        EXPECT_TRUE(contains(run.err, "commit 3 (risky) of ")) << run.err;
        EXPECT_TRUE(contains(run.err, "\"aaactl confirm\"")) << run.err;
        EXPECT_TRUE(contains(run.err, "\"aaactl cancel\"")) << run.err;
        EXPECT_TRUE(contains(run.err, "nothing would go back")) << run.err;
    };
    for (const char *path :
         {"/cfg/.history/", "/cfg/.history", "/cfg/.history/commit/", "/cfg/.history/commit/0x2/",
          "/cfg/.history/commit/0x2/state/", "/cfg/.history/commit/0x2/state/0x1/"}) {
        refuse(path);
    }
    EXPECT_EQ(aaactl({"sysdb", "del", "--force", "/cfg/.history/commit/0x2/record"}).status, 1);
    // What going back does not need can be deleted.
    done({"sysdb", "del", "--force", "-r", "/cfg/.history/commit/0x1/"});
    done({"sysdb", "del", "--force", "/cfg/.history/head"});
    EXPECT_EQ(history()["waiting"]["commit"].number(), 3) << "it is made again from the commits";
    EXPECT_EQ(history()["waiting"]["target"].number(), 2);
    refuse("/cfg/.history/commit/0x3/");
    done({"cancel"});
    EXPECT_TRUE(contains(shown(), "limit u32 2"));
    done({"sysdb", "del", "--force", "-r", "/cfg/.history/"});
    EXPECT_EQ(kinds(), Kinds{});
}

TEST_F(Guard, WithoutTheRecordOfACommitThatWaitsItsHeadIsNeeded) {
    load(limit(3));
    done({"commit", "risky", "--confirm", "5"});
    done({"sysdb", "del", "--force", "-r", "/cfg/.history/commit/0x3/"});
    const auto run = aaactl({"sysdb", "del", "--force", "/cfg/.history/head"});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(contains(run.err, "commit 3 ")) << run.err;
    const std::string lint = aaactl({"lint"}).out;
    EXPECT_TRUE(contains(lint, "it names commit 3, which is missing")) << lint;
    EXPECT_TRUE(contains(lint, "end the waiting with \"aaactl confirm\" or \"aaactl cancel\"")) << lint;
    done({"cancel"});
    EXPECT_TRUE(contains(shown(), "limit u32 2"));
}

TEST_F(Guard, WhatCannotGoBackAnyMoreCanBeDeleted) {
    load(limit(3));
    done({"commit", "risky", "--confirm", "5"});
    put("/cfg/.history/commit/0x2/record", "string", "nonsense");
    done({"sysdb", "del", "--force", "-r", "/cfg/.history/commit/0x2/"});
    EXPECT_EQ(aaactl({"sysdb", "del", "--force", "-r", "/cfg/.history/"}).status, 1);
    done({"confirm"});
    done({"sysdb", "del", "--force", "-r", "/cfg/.history/"});
}

TEST_F(Guard, TheLastCommitMayBeMissing) {
    done({"commit", "third"});
    done({"sysdb", "del", "--force", "-r", "/cfg/.history/commit/0x3/"});
    for (const std::vector<std::string> &words :
         {std::vector<std::string>{"diff"}, {"rollback", "last"}, {"show", "commit", "last"}}) {
        const auto run = aaactl(words);
        EXPECT_EQ(run.status, 4) << words[0];
        EXPECT_TRUE(contains(run.err, "commit 3, the last one, is missing")) << run.err;
        EXPECT_TRUE(contains(run.err, "commit 2 (second): name it by its number, 2;")) << run.err;
    }
    const auto lint = aaactl({"lint"});
    EXPECT_TRUE(contains(lint.out, "it names commit 3, which is missing")) << lint.out;
    run_command_in(lint.out, "which is missing");
    EXPECT_FALSE(contains(aaactl({"lint"}).out, "damaged-history"));
    EXPECT_EQ(done({"diff"}), "");
    EXPECT_EQ(history()["commits"][0]["commit"].number(), 4) << "no number is used twice";
    done({"sysdb", "del", "--force", "-r", "/cfg/.history/commit/"});
    const auto run = aaactl({"diff"});
    EXPECT_EQ(run.status, 4);
    run_command_in(run.err, "and there is no other");
    EXPECT_EQ(done({"diff"}), "");
}

TEST_F(Guard, AHeadThatIsDamagedOrMissingIsMadeAgain) {
    for (const bool missing : {false, true}) {
        const size_t before = kinds().size();
        if (missing) {
            done({"sysdb", "del", "--force", "/cfg/.history/head"});
        } else {
            put("/cfg/.history/head", "string", "x");
        }
        EXPECT_TRUE(contains(aaactl({"history"}).err, "/cfg/.history/head: it is damaged or missing"));
        const auto lint = aaactl({"lint"});
        EXPECT_TRUE(contains(lint.out, "/cfg/.history/head: it is damaged or missing")) << lint.out;
        EXPECT_TRUE(contains(lint.out, "[damaged-history]"));
        EXPECT_EQ(done({"diff"}), "");
        EXPECT_EQ(done({"watch-confirm", "--once"}), "");
        EXPECT_EQ(done({"commit", "next"}), "commit " + std::to_string(before + 1) + "\n");
        EXPECT_EQ(kinds().size(), before + 1);
        EXPECT_FALSE(contains(aaactl({"lint"}).out, "damaged-history"));
    }
    done({"rollback", "--force", "first"});
    EXPECT_TRUE(contains(shown(), "limit u32 1"));
}

TEST_F(Guard, ANumberOutOfTheSequenceStopsNothingAndIsNamed) {
    load(limit(3));
    done({"commit", "risky", "--confirm", "5"});
    done({"sysdb", "set", "--force", "/cfg/.history/commit/0xffffffff/", "--type", "directory"});
    done({"cancel"});
    EXPECT_TRUE(contains(shown(), "limit u32 2"));
    EXPECT_EQ(done({"commit", "next"}), "commit 5\n");
    const std::string path = "/cfg/.history/commit/0xffffffff/record";
    const auto lint = aaactl({"lint"});
    EXPECT_TRUE(contains(lint.out, "[damaged-history]")) << lint.out;
    run_command_in(lint.out, path);
    EXPECT_FALSE(contains(aaactl({"lint"}).out, "damaged-history"));
    EXPECT_EQ(kinds().size(), 5u);
}

// The history does not go on from a number that it has not given.
TEST_F(Guard, AHeadWithImpossibleNumbersIsMadeAgain) {
    for (const char *numbers : {"last 99999999", "last 4294967294",
                                "last 2\nwaiting 99999999\nbase 1\nminutes 5\nwall 1700000000"}) {
        const size_t before = kinds().size();
        put("/cfg/.history/head", "string", std::string("form 1\n") + numbers + "\n");
        EXPECT_TRUE(contains(aaactl({"history"}).err, "/cfg/.history/head: it is damaged or missing"))
            << numbers;
        EXPECT_EQ(done({"diff"}), "") << numbers;
        EXPECT_EQ(done({"watch-confirm", "--once"}), "") << numbers;
        EXPECT_EQ(aaactl({"cancel"}).status, 4) << numbers;
        const auto lint = aaactl({"lint"});
        EXPECT_TRUE(contains(lint.out, "[damaged-history]")) << lint.out;
        run_command_in(lint.out, "/cfg/.history/head: it is damaged");
        EXPECT_FALSE(contains(aaactl({"lint"}).out, "damaged-history"));
        EXPECT_EQ(history()["commits"][0]["commit"].number(), static_cast<int64_t>(before + 1));
    }
}

TEST_F(Guard, AHeadThatWaitsForAMissingCommitIsNamed) {
    for (const std::string base : {"1", "9"}) {
        done({"commit", "next"});
        const std::string last = std::to_string(history()["commits"][0]["commit"].number());
        const std::string lost = std::to_string(std::stoi(last) - 1);
        done({"sysdb", "del", "--force", "-r", "/cfg/.history/commit/0x" + lost + "/"});
        put("/cfg/.history/head", "string",
            "form 1\nlast " + last + "\nwaiting " + lost + "\nbase " + base +
                "\nminutes 5\nmachine other\nwall 1900000000\n");
        const auto lint = aaactl({"lint"});
        EXPECT_TRUE(contains(lint.out, "commit " + lost + " waits for its confirmation, but is missing"))
            << lint.out;
        EXPECT_EQ(contains(lint.out, "aaactl cancel"), base == "1") << lint.out;
        run_command_in(lint.out, "but is missing");
        EXPECT_FALSE(contains(aaactl({"lint"}).out, "damaged-history")) << aaactl({"lint"}).out;
    }
}

// Only a confirmation ends the waiting then: nothing else is advised.
TEST_F(Guard, WhereNothingCanGoBackNoneIsAdvised) {
    load(limit(3));
    done({"commit", "risky", "--confirm", "5"});
    put("/cfg/.history/commit/0x2/state/0x1", "bytes:1212765012", "0011");
    const auto waiting = history()["waiting"];
    EXPECT_EQ(waiting["can_revert"].dump(), "false");
    load(limit(4));
    aaactl({"report", "--socket", dir().path("none"), "--output", dir().path("report.html")});
    for (const std::string &text :
         {done({"history"}), aaactl({"commit", "mine"}).err, aaactl({"rollback", "1"}).err,
          aaactl({"load", "--force", "-"}, limit(5)).err, dir().read("report.html")}) {
        EXPECT_FALSE(contains(text, "aaactl cancel")) << text;
        EXPECT_FALSE(contains(text, "in force again")) << text;
        EXPECT_FALSE(contains(text, "is taken back")) << text;
    }
    EXPECT_TRUE(
        contains(done({"history"}), "cannot be reverted, because the state before it is missing or damaged"));
    const auto lint = aaactl({"lint"});
    run_command_in(lint.out, "so nothing can go back");
    run_command_in(aaactl({"lint"}).out, "its state is damaged");
    EXPECT_FALSE(contains(aaactl({"lint"}).out, "damaged-history")) << aaactl({"lint"}).out;
}

// Each member of the group can store records with any text.
TEST_F(Guard, TextsOfARecordAreCutAndEscapedWhereTheyAreShown) {
    const std::string hostile = "\xe2\x80\xae\x1b[2J" + std::string(20'000, 'x') + "\n";
    const std::string stored = "form 1\nnumber 2\ntime 1700000000\nkind commit\nparts 1\nlabel " + hostile +
                               "message " + hostile + "login " + hostile + "from " + hostile;
    put("/cfg/.history/commit/0x2/record", "string", stored);
    for (const std::vector<std::string> &words :
         {std::vector<std::string>{"history"}, {"show", "commit", "2"}, {"diff", "1", "2"}}) {
        const std::string out = aaactl(words).out;  // diff ends with 1: they differ
        EXPECT_FALSE(out.empty()) << words[0];
        EXPECT_LT(out.size(), 20'000u) << words[0];
        EXPECT_FALSE(contains(out, "\x1b[2J")) << words[0];
        EXPECT_FALSE(contains(out, "\xe2\x80\xae")) << words[0];
    }
    EXPECT_TRUE(contains(done({"history"}), "xxx..."));
    EXPECT_EQ(aaactl({"commit", std::string(65, 'x')}).status, 2);
    EXPECT_EQ(aaactl({"commit", "long", "-m", std::string(4097, 'x')}).status, 2);
}

TEST_F(Guard, AllRemediesOfADamagedCommitLoseOnlyThatOne) {
    for (const char *way : {"show", "history", "lint"}) {
        load(limit(9));
        done({"commit", "kept"});
        const Kinds before = kinds();
        done({"commit", "damaged"});
        const std::string number = std::to_string(history()["commits"][0]["commit"].number());
        put("/cfg/.history/commit/0x" + number + "/record", "string", "nonsense");
        const auto show = aaactl({"show", "commit", number});
        EXPECT_EQ(show.status, 3);
        const std::string text = way == std::string("show")      ? show.err
                                 : way == std::string("history") ? aaactl({"history"}).err
                                                                 : aaactl({"lint"}).out;
        run_command_in(text, "/commit/0x" + number + "/record");
        EXPECT_EQ(kinds(), before) << way;
        EXPECT_EQ(aaactl({"history"}).err, "") << way;
    }
}

TEST_F(Guard, ADamagedStateIsFoundByLint) {
    put("/cfg/.history/commit/0x1/state/0x1", "bytes:1212765012", "0011");
    const auto run = aaactl({"lint"});
    EXPECT_TRUE(contains(run.out, "/cfg/.history/commit/0x1/record: its state is damaged")) << run.out;
    run_command_in(run.out, "its state is damaged");
    EXPECT_EQ(kinds(), Kinds{"commit"});
}

}  // namespace
