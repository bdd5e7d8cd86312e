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
    done({"confirm"});
    done({"sysdb", "load", "--replace", "-"}, dump);
    EXPECT_EQ(kinds().size(), 2u);
}

TEST_F(Guard, DeletingACommitThatWaitsSaysSo) {
    load(limit(3));
    done({"commit", "risky", "--confirm", "5"});
    const auto head = aaactl({"sysdb", "del", "--force", "/cfg/.history/head"});
    EXPECT_EQ(head.status, 0);
    EXPECT_EQ(head.err, "") << "the commit waits on";
    EXPECT_EQ(history()["waiting"]["commit"].number(), 3);
    EXPECT_EQ(history()["waiting"]["target"].number(), 2);
    const auto all = aaactl({"sysdb", "del", "--force", "-r", "/cfg/.history/"});
    EXPECT_EQ(all.status, 0);
    EXPECT_TRUE(contains(all.err, "commit 3 waited for its confirmation: nothing goes back")) << all.err;
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
    done({"rollback", "first"});
    EXPECT_TRUE(contains(shown(), "limit u32 1"));
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
