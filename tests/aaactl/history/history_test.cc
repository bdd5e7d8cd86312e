// SPDX-License-Identifier: Apache-2.0
//
// commit, history, show commit, diff, rollback, confirm, cancel and watch-confirm, as their users run them.

#include "aaactl/history/history_fixture.hpp"
#include "aaactl/support/damaged_items.hpp"
#include "aaactl/support/program_started.hpp"

namespace {

using aaactl_test::aaactl;
using aaactl_test::HistoryCommands;
using aaactl_test::Kinds;
using aaactl_test::Started;

const char kText[] =
    "aaa group server radius corp\n"
    " server-private 192.0.2.1 auth-port 1812 acct-port 1813\n"
    "aaa authentication login default group corp local\n";

bool contains(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

TEST_F(HistoryCommands, IsEmptyAtFirst) {
    const auto none = aaactl({"history"});
    EXPECT_EQ(none.status, 4);
    EXPECT_EQ(none.out, "");
    EXPECT_TRUE(contains(none.err, "there is no system database yet, and so no commit; ")) << none.err;
    EXPECT_EQ(aaactl({"history", "--json"}).status, 4);
    EXPECT_TRUE(contains(aaactl({"diff"}).err, "there is no system database yet")) << none.err;
    load(limit(1));
    EXPECT_EQ(done({"history"}), "there is no commit yet; \"aaactl commit LABEL\" makes one\n");
    for (const std::vector<std::string> &words : {std::vector<std::string>{"show", "commit", "1"},
                                                  {"diff"},
                                                  {"rollback", "1"},
                                                  {"confirm"},
                                                  {"cancel"}}) {
        EXPECT_EQ(aaactl(words).status, 4) << words[0];
    }
    EXPECT_EQ(history().dump(), "{\"commits\":[],\"waiting\":null}");
}

TEST_F(HistoryCommands, ACommitSaysWhoMadeItWhenAndWhy) {
    const ScopedEnv ssh("SSH_CONNECTION", "192.0.2.7 50000 192.0.2.1 22");
    load(kText);
    EXPECT_EQ(done({"commit", "first", "-m", "two\nlines"}), "commit 1\n");
    const auto commit = history()["commits"][0];
    EXPECT_EQ(commit["commit"].number(), 1);
    EXPECT_EQ(commit["kind"].text(), "commit");
    EXPECT_EQ(commit["label"].text(), "first");
    EXPECT_EQ(commit["message"].text(), "two\\nlines");
    EXPECT_EQ(commit["uid"].number(), static_cast<int64_t>(getuid()));
    EXPECT_EQ(commit["from"].text(), "192.0.2.7");
    EXPECT_EQ(commit["items"].number(), 2);
    EXPECT_GT(commit["time"].number(), 1'700'000'000);
    const std::string text = done({"show", "commit", "first"});
    EXPECT_EQ(text.find("! commit 1 (first) of 20"), 0u);
    EXPECT_TRUE(
        contains(text, " from 192.0.2.7: commit\n!   two\n!   lines\n!\naaa group server radius corp\n"));
    EXPECT_TRUE(text.ends_with("end\n"));
    EXPECT_EQ(done({"load", "--replace", "-"}, text), "created 0, changed 0, deleted 0 items\n");
}

TEST_F(HistoryCommands, CommitsAreFoundByNumberLabelAndLast) {
    done({"commit", "one"});
    load(limit(2));
    done({"commit", "two"});
    for (const char *word : {"2", "two", "last"}) {
        EXPECT_TRUE(contains(done({"show", "commit", word}), "limit u32 2")) << word;
    }
    const auto unknown = aaactl({"show", "commit", "tow"});
    EXPECT_EQ(unknown.status, 4);
    EXPECT_TRUE(contains(unknown.err, "did you mean two?")) << unknown.err;
    EXPECT_TRUE(contains(unknown.err, "1 to 2")) << unknown.err;
    EXPECT_EQ(aaactl({"show", "commit", "3"}).status, 4);
    // The newest of two with the same label.
    load(limit(3));
    done({"commit", "two"});
    EXPECT_TRUE(contains(done({"show", "commit", "two"}), "limit u32 3"));
}

TEST_F(HistoryCommands, LabelsThatMeanSomethingElseAreRefused) {
    for (const std::string &label : Kinds{"", "7", "running", "last", "a\nb", std::string(65, 'x')}) {
        EXPECT_EQ(aaactl({"commit", label}).status, 2) << label;
    }
    EXPECT_EQ(aaactl({"load", "--label", "", "-"}, limit(1)).status, 2);
    EXPECT_EQ(aaactl({"rollback", "--label", "", "1"}).status, 2);
    EXPECT_EQ(shown(), "end\n");
    EXPECT_EQ(aaactl({"commit", "x", "--confirm", "0"}).status, 2);
    EXPECT_EQ(aaactl({"commit", "x", "-m", "bell \a"}).status, 2);
    EXPECT_EQ(kinds(), Kinds{});
}

TEST_F(HistoryCommands, DiffIsInTheWordsOfTheConfiguration) {
    load(kText);
    done({"commit", "first"});
    EXPECT_EQ(done({"diff"}), "");
    load("aaa group server radius corp\n dead-time 300s\nno aaa authentication login default\n");
    const auto run = aaactl({"diff"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out,
              "--- commit 1 (first)\n"
              "+++ the running configuration\n"
              "  aaa group server radius corp\n"
              "+  dead-time 300s\n"
              "- aaa authentication login default group corp local\n");
    const auto json = aaactl({"diff", "--json"}).json();
    EXPECT_EQ(json["from"].text(), "1");
    EXPECT_EQ(json["to"].text(), "running");
    EXPECT_EQ(
        json["lines"].dump(),
        "[{\"change\":\"added\",\"line\":\"dead-time 300s\",\"group\":\"aaa group server radius corp\"},"
        "{\"change\":\"removed\",\"line\":\"aaa authentication login default group corp local\"}]");
    done({"commit", "second"});
    EXPECT_EQ(aaactl({"diff", "first", "second"}).status, 1);
    EXPECT_EQ(aaactl({"diff", "second", "2"}).status, 0);
}

TEST_F(HistoryCommands, DiffShowsColoursWhenAsked) {
    done({"commit", "first"});
    load(limit(1));
    EXPECT_TRUE(contains(aaactl({"--color", "always", "diff"}).out, "\033["));
}

TEST_F(HistoryCommands, DiffMasksSecretsAndStillShowsThatTheyDiffer) {
    load("item /cfg/gl/aaa/site/password string \"hunter2\"\n");
    done({"commit", "first"});
    load("item /cfg/gl/aaa/site/password string \"hunter3\"\n");
    const auto run = aaactl({"diff"});
    EXPECT_EQ(run.status, 1);
    EXPECT_FALSE(contains(run.out, "hunter"));
    EXPECT_TRUE(contains(run.out, "- item /cfg/gl/aaa/site/password string ********\n+ item"));
    EXPECT_TRUE(contains(aaactl({"diff", "--show-secrets"}).out, "hunter3"));
    EXPECT_FALSE(contains(done({"show", "commit", "1"}), "hunter"));
}

TEST_F(HistoryCommands, RollbackGoesBackAndCanBeUndone) {
    load(kText);
    const std::string first = shown();
    done({"commit", "first"});
    done({"sg", "add", "tacacs", "t1", "192.0.2.9"});
    const std::string second = shown();
    EXPECT_TRUE(contains(done({"rollback", "--dry-run", "first"}), "- aaa group server tacacs t1\n"));
    EXPECT_EQ(shown(), second);
    EXPECT_EQ(kinds(), Kinds{"commit"});
    EXPECT_TRUE(contains(done({"rollback", "first"}),
                         "commit 2: changes that were made without a commit\ncommit 3\n"));
    EXPECT_EQ(shown(), first);
    EXPECT_EQ(kinds(), (Kinds{"rollback", "outside", "commit"}));
    EXPECT_FALSE(contains(done({"sg", "list"}), "t1")) << "its number has gone too";
    done({"rollback", "2"});
    EXPECT_EQ(shown(), second);
    EXPECT_TRUE(contains(done({"sg", "list"}), "t1    300")) << "the group has a number";
    EXPECT_EQ(history()["commits"][0]["target"].number(), 2);
}

TEST_F(HistoryCommands, RollbackToThePresentStateMakesNoCommit) {
    load(limit(1));
    done({"commit", "first"});
    load(limit(2));
    done({"commit", "second"});
    const Kinds before = kinds();
    for (const std::vector<std::string> &words : {std::vector<std::string>{"rollback", "last"},
                                                  {"rollback", "second", "--confirm", "5"},
                                                  {"rollback", "--dry-run", "second"}}) {
        const auto run = aaactl(words);
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.out,
                  "nothing to change: the configuration is that of commit 2 (second) already; no commit was "
                  "made\n");
        EXPECT_EQ(run.err, "");
    }
    const auto json = aaactl({"--json", "rollback", "second"}).json();
    EXPECT_FALSE(json["rolled_back"].truth());
    EXPECT_FALSE(json.contains("commit"));
    load(limit(1));  // as it was before the second commit, which is recorded already
    EXPECT_TRUE(contains(done({"rollback", "first"}), "nothing to change"));
    EXPECT_EQ(kinds(), before);
    EXPECT_TRUE(history()["waiting"].is_null());
    done({"rollback", "--force", "second"});
    EXPECT_TRUE(contains(shown(), "limit u32 2"));
}

TEST_F(HistoryCommands, RollbackChecksAsLoadDoes) {
    load(limit(1) + "item /cfg/gl/aaa/site/kept u32 1\naaa authentication login default group gone local\n");
    done({"commit", "odd"});
    done({"sysdb", "del", "/cfg/gl/aaa/site/limit"});
    done({"mlist", "del", "authentication", "login", "default"});
    const std::string now = shown();
    for (const bool dry_run : {true, false}) {
        const auto run = aaactl(dry_run ? std::vector<std::string>{"rollback", "--dry-run", "odd"}
                                        : std::vector<std::string>{"rollback", "odd"});
        EXPECT_EQ(run.status, 3);
        EXPECT_TRUE(contains(run.err, "/cfg/gl/aaa/authentication/login/default: ")) << run.err;
        EXPECT_TRUE(contains(run.err, "/cfg/gl/aaa/site/limit: ")) << run.err;
        EXPECT_TRUE(contains(run.err, "nothing was changed (--force goes back all the same)")) << run.err;
        EXPECT_FALSE(contains(run.err, "kept")) << "it is stored: " << run.err;
    }
    EXPECT_EQ(shown(), now);
    EXPECT_EQ(kinds(), Kinds{"commit"});
    done({"rollback", "--force", "odd"});
    EXPECT_TRUE(contains(shown(), "site/limit u32 1"));
    EXPECT_TRUE(contains(shown(), "group gone local"));
}

// A group of the commit is gone, and a list made since names it.
TEST_F(HistoryCommands, RollbackToListsOfMissingGroupsIsNegative) {
    load("aaa authentication login default group gone local\n");
    done({"commit", "odd"});
    done({"mlist", "del", "authentication", "login", "default"});
    const auto run = aaactl({"rollback", "odd"});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(contains(run.err, "gone")) << run.err;
}

// Going back must work without a user who says --force.
TEST_F(HistoryCommands, CancelChecksNothing) {
    load(limit(1));
    done({"commit", "odd"});
    done({"sysdb", "del", "/cfg/gl/aaa/site/limit"});
    done({"commit", "risky", "--confirm", "5"});
    done({"cancel"});
    EXPECT_TRUE(contains(shown(), "site/limit u32 1"));
}

TEST_F(HistoryCommands, LoadMakesACommitWhenAsked) {
    load(kText);
    EXPECT_EQ(kinds(), Kinds{});
    EXPECT_EQ(done({"load", "--force", "--label", "limits", "-"}, limit(5)),
              "created 1, changed 0, deleted 0 items\n"
              "commit 1: changes that were made without a commit\n"
              "commit 2\n");
    EXPECT_EQ(kinds(), (Kinds{"load", "outside"}));
    EXPECT_EQ(aaactl({"load", "--dry-run", "--confirm", "3", "-"}, limit(6)).status, 2);
    EXPECT_EQ(aaactl({"load", "--label", "bad", "-"}, "nonsense\n").status, 3);
    EXPECT_EQ(kinds().size(), 2u);
    const auto json = aaactl({"--json", "load", "--force", "-m", "why", "-"}, limit(7)).json();
    EXPECT_EQ(json["commit"].number(), 3);
}

TEST_F(HistoryCommands, AConfirmedCommitStays) {
    load(limit(1));
    done({"commit", "base"});
    load(limit(2));
    const auto made = aaactl({"commit", "risky", "--confirm", "5"});
    EXPECT_TRUE(contains(made.out, "run \"aaactl confirm\" until "));
    EXPECT_TRUE(contains(made.err, "neither aaad nor \"aaactl watch-confirm\" runs"));
    EXPECT_EQ(history()["waiting"]["commit"].number(), 2);
    EXPECT_TRUE(contains(done({"history"}), "commit 2 waits for its confirmation until "));
    EXPECT_EQ(done({"confirm"}), "commit 2 is confirmed\n");
    EXPECT_EQ(history()["commits"][0]["confirmation"].text(), "confirmed");
    EXPECT_TRUE(history()["waiting"].is_null());
    EXPECT_EQ(aaactl({"confirm"}).status, 4);
    EXPECT_TRUE(contains(shown(), "limit u32 2"));
}

TEST_F(HistoryCommands, WhileACommitWaitsOthersAreRefusedByName) {
    load(limit(1));
    done({"commit", "base"});
    load(limit(2));
    done({"commit", "risky", "--confirm", "5"});
    const std::string user = history()["commits"][0]["user"].text();
    for (const std::vector<std::string> &words : {std::vector<std::string>{"commit", "mine"},
                                                  {"rollback", "base"},
                                                  {"load", "--force", "--label", "x", "-"},
                                                  {"edit", "--yes"}}) {
        const auto run = aaactl(words, limit(9));
        EXPECT_EQ(run.status, 1) << words[0];
        EXPECT_TRUE(contains(run.err, "commit 2 (risky) of ")) << run.err;
        EXPECT_TRUE(contains(run.err, user)) << run.err;
        EXPECT_TRUE(contains(run.err, "\"aaactl confirm\"")) << run.err;
    }
    EXPECT_TRUE(contains(shown(), "limit u32 2"));
    load(limit(3));  // what needs no commit is not hindered
}

TEST_F(HistoryCommands, ChangesWhileACommitWaitsSayThatTheyGoBackToo) {
    load(limit(1));
    done({"commit", "base"});
    const std::vector<std::vector<std::string>> all = {
        {"load", "--force", "-"},
        {"sg", "add", "radius", "corp", "192.0.2.1"},
        {"mlist", "set", "authentication", "login", "default", "group:corp", "local"},
        {"sysdb", "set", "/cfg/gl/aaa/history/commits", "--type", "u32", "60"},
        {"sysdb", "del", "/cfg/gl/aaa/history/commits"},
        {"mlist", "del", "authentication", "login", "default"},
        {"sg", "del", "radius", "corp"},
    };
    for (const bool waits : {false, true}) {
        if (waits) {
            done({"commit", "risky", "--confirm", "5"});
        }
        for (const std::vector<std::string> &words : all) {
            const auto run = aaactl(words, limit(waits ? 3 : 2));
            EXPECT_EQ(run.status, 0) << words[1] << run.err;
            EXPECT_EQ(contains(run.err, "commit 2 (risky) of "), waits) << words[1] << run.err;
            EXPECT_EQ(contains(run.err, "this change is taken back too"), waits) << words[1] << run.err;
        }
    }
    EXPECT_EQ(aaactl({"load", "--force", "-"}, limit(3)).err, "") << "nothing was changed";
    EXPECT_EQ(aaactl({"sysdb", "set", "/cfg/site", "--type", "u32", "1"}).err, "")
        << "commits do not have it";
}

TEST_F(HistoryCommands, ALoadThatOpensLoginsSaysSo) {
    const std::string text = "aaa authentication login default none\n";
    for (const std::vector<std::string> &words :
         {std::vector<std::string>{"load", "--dry-run", "-"}, {"load", "-"}}) {
        const auto run = aaactl(words, text);
        EXPECT_EQ(run.status, 0);
        EXPECT_TRUE(contains(run.err, "/cfg/gl/aaa/authentication/login/default: ")) << run.err;
        EXPECT_TRUE(contains(run.err, "\"local\" asks for one")) << run.err;
    }
    EXPECT_EQ(aaactl({"load", "-"}, text).err, "") << "it was so before";
}

TEST_F(HistoryCommands, WhenTheOutputIsLostTheChangeIsSaidToBeStored) {
    const std::string file = dir().write("text", limit(7));
    for (const std::vector<std::string> &words :
         {std::vector<std::string>{"load", "--force", file},
          {"commit", "first"},
          {"mlist", "set", "authentication", "login", "default", "local"},
          {"sg", "add", "radius", "corp", "192.0.2.1"},
          {"rollback", "--force", "first"},
          {"sysdb", "del", "-r", "/cfg/gl/aaa/site/"}}) {
        Started run(words, Started::On::full_disk);
        EXPECT_EQ(run.wait(), words[0] == "sysdb" ? 0 : 6) << words[0];
        EXPECT_EQ(contains(run.shown(), "; the change is stored"), words[0] != "sysdb") << run.shown();
    }
    EXPECT_EQ(kinds().size(), 3u);
    for (const std::vector<std::string> &words : {std::vector<std::string>{"history"},
                                                  {"rollback", "--force", "--dry-run", "1"},
                                                  {"load", "--force", "--dry-run", file}}) {
        Started run(words, Started::On::full_disk);
        EXPECT_EQ(run.wait(), 6) << words[0];
        EXPECT_FALSE(contains(run.shown(), "is stored")) << run.shown();
    }
}

TEST_F(HistoryCommands, CancelGoesBackAndLosesNothing) {
    load(limit(1));
    done({"commit", "base"});
    done({"load", "--force", "--confirm", "5", "-"}, limit(2) + kText);
    load(limit(3));
    EXPECT_EQ(done({"cancel"}),
              "commit 3: what was changed without a commit meanwhile\n"
              "commit 4: the state of commit 1 is in force again; commit 2 is canceled\n");
    EXPECT_EQ(shown(), limit(1) + "end\n");
    EXPECT_FALSE(contains(done({"sg", "list"}), "corp"));
    EXPECT_TRUE(contains(done({"show", "commit", "3"}), "limit u32 3"));
    EXPECT_EQ(aaactl({"cancel"}).status, 4);
}

TEST_F(HistoryCommands, TheFirstCommitHasNothingToGoBackTo) {
    const auto run = aaactl({"commit", "x", "--confirm", "5"});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(contains(run.err, "no earlier commit")) << run.err;
    EXPECT_EQ(kinds(), Kinds{});
    // A load has: the state before it.
    const auto loaded = aaactl({"load", "--force", "--confirm", "5", "-"}, limit(2));
    EXPECT_EQ(loaded.status, 0);
    EXPECT_TRUE(contains(loaded.err, "neither aaad nor \"aaactl watch-confirm\" runs")) << loaded.err;
    done({"cancel"});
    EXPECT_EQ(shown(), "end\n");
}

// The deadline, as another boot of the machine would find it.
class Overdue : public HistoryCommands {
  protected:
    void SetUp() override {
        load(limit(1));
        done({"commit", "base"});
        load(kText + limit(2));
        done({"commit", "risky", "--confirm", "5"});
        std::string head = done({"sysdb", "get", "/cfg/.history/head"});
        // The text form of the command escapes line feeds.
        std::string stored;
        for (size_t i = 0; i < head.size(); ++i) {
            const bool feed = head.compare(i, 2, "\\n") == 0;
            stored += feed ? '\n' : head[i];
            i += feed ? 1 : 0;
        }
        stored.pop_back();
        stored.replace(stored.find("boot "), stored.find('\n', stored.find("boot ")) - stored.find("boot "),
                       "boot another");
        stored.replace(stored.find("wall "), stored.find('\n', stored.find("wall ")) - stored.find("wall "),
                       "wall 1700000000");
        put("/cfg/.history/head", "string", stored);
    }
};

TEST_F(Overdue, WithoutTheStateBeforeItIsConfirmedAtAnyTime) {
    put("/cfg/.history/commit/0x1/record", "string", "nonsense");
    for (const std::vector<std::string> &words :
         {std::vector<std::string>{"cancel"}, {"watch-confirm", "--once"}}) {
        const auto run = aaactl(words);
        EXPECT_NE(run.status, 0);
        EXPECT_TRUE(contains(run.err, "\"aaactl confirm\" ends the waiting")) << run.err;
    }
    EXPECT_TRUE(contains(done({"confirm"}), "is confirmed"));
    EXPECT_EQ(aaactl({"confirm"}).status, 4);
}

TEST_F(Overdue, AConfirmationThatIsTooLateIsRefused) {
    const auto run = aaactl({"confirm"});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(contains(run.err, "too late")) << run.err;
    EXPECT_EQ(history()["commits"][0]["confirmation"].text(), "waiting");
    EXPECT_TRUE(contains(done({"history"}), "not reverted yet"));
    const auto other = aaactl({"commit", "mine"});
    EXPECT_EQ(other.status, 1);
    EXPECT_TRUE(contains(other.err, "\"aaactl cancel\"")) << other.err;
}

TEST_F(Overdue, WatchConfirmRevertsIt) {
    const auto run = aaactl({"--json", "watch-confirm", "--once"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.json()["event"].text(), "reverted");
    EXPECT_EQ(shown(), limit(1) + "end\n");
    EXPECT_EQ(kinds(), (Kinds{"revert", "commit", "commit"}));
    EXPECT_FALSE(contains(done({"sg", "list"}), "corp"));
    EXPECT_EQ(done({"watch-confirm", "--once"}), "");
}

TEST_F(Overdue, OfManyWatchersOneReverts) {
    std::vector<std::unique_ptr<Started>> watchers;
    for (int i = 0; i < 4; ++i) {
        watchers.push_back(std::make_unique<Started>(std::vector<std::string>{"watch-confirm", "--once"}));
    }
    int reverted = 0;
    for (const auto &watcher : watchers) {
        EXPECT_EQ(watcher->wait(), 0);
        reverted += contains(watcher->shown(), "was not confirmed in time") ? 1 : 0;
    }
    EXPECT_EQ(reverted, 1);
    EXPECT_EQ(kinds(), (Kinds{"revert", "commit", "commit"}));
}

TEST_F(HistoryCommands, WatchConfirmIsKnownWhileItRuns) {
    done({"commit", "base"});
    load(limit(1));
    Started watcher({"watch-confirm"});
    done({"commit", "risky", "--confirm", "5"});
    ASSERT_TRUE(watcher.wait_shown("commit 2 waits"));
    done({"confirm"});
    ASSERT_TRUE(watcher.wait_shown("no commit waits"));
    load(limit(2));
    EXPECT_EQ(aaactl({"commit", "again", "--confirm", "5"}).err, "");
    EXPECT_EQ(watcher.end(SIGTERM), 0);
}

TEST_F(HistoryCommands, TheOldestCommitsGo) {
    load("item /cfg/gl/aaa/history/commits u32 3\n");
    for (int i = 1; i <= 5; ++i) {
        load(limit(i));
        done({"commit", "c" + std::to_string(i)});
    }
    EXPECT_EQ(history()["commits"].size(), 3u);
    EXPECT_EQ(aaactl({"show", "commit", "1"}).status, 4);
    EXPECT_EQ(done({"--json", "history", "-n", "1"}).find("\"c4\""), std::string::npos);
}

TEST_F(HistoryCommands, TheSettingsHaveRanges) {
    EXPECT_EQ(aaactl({"sysdb", "set", "/cfg/gl/aaa/history/commits", "--type", "u32", "50"}).status, 0);
    for (const std::vector<std::string> &words : {std::vector<std::string>{"commits", "u32", "1"},
                                                  {"commits", "string", "50"},
                                                  {"kilobytes", "u32", "1"},
                                                  {"commit", "u32", "50"}}) {
        const auto run =
            aaactl({"sysdb", "set", "/cfg/gl/aaa/history/" + words[0], "--type", words[1], words[2]});
        EXPECT_EQ(run.status, 3) << words[0] << " " << words[2] << run.err;
    }
}

// ---- what other commands see of it

TEST_F(HistoryCommands, IsHiddenUnlessAsked) {
    load(kText);
    const std::string dump = done({"sysdb", "dump"});
    const std::string lint = aaactl({"lint"}).out;
    done({"commit", "first"});
    EXPECT_EQ(done({"sysdb", "dump"}), dump);
    EXPECT_EQ(aaactl({"lint"}).out, lint);
    for (const char *command : {"ls", "tree"}) {
        EXPECT_FALSE(contains(done({"sysdb", command, "/cfg/"}), ".history")) << command;
        EXPECT_TRUE(contains(done({"sysdb", command, "--all", "/cfg/"}), ".history")) << command;
    }
    EXPECT_FALSE(contains(done({"sysdb", "tree", "/"}), ".history"));
    EXPECT_EQ(done({"sysdb", "ls", "/cfg/.history/"}), "commit/\nhead\n");
    EXPECT_TRUE(contains(done({"sysdb", "dump", "--all"}), "/cfg/.history/head string"));
    EXPECT_FALSE(contains(done({"show", "running-config"}), "history"));
}

TEST_F(HistoryCommands, ItsStatesAreMasked) {
    load("item /cfg/gl/aaa/site/password string \"hunter2\"\n");
    done({"commit", "first"});
    EXPECT_TRUE(contains(done({"sysdb", "dump", "--all"}),
                         "/cfg/.history/commit/0x1/state/0x1 bytes:1212765012 "
                         "********\n"));
}

TEST_F(HistoryCommands, AReplacingLoadOfTheTreeKeepsIt) {
    put("/cfg/site", "u32", "1");
    load(kText);
    const std::string dump = done({"sysdb", "dump", "--show-secrets"});
    done({"commit", "first"});
    put("/cfg/other", "u32", "1");
    put("/cfg/deep/other", "u32", "1");
    done({"sysdb", "load", "--replace", "-"}, dump);
    EXPECT_EQ(done({"sysdb", "dump", "--show-secrets"}), dump);
    EXPECT_EQ(kinds(), Kinds{"commit"});
    // A dump of everything brings everything back.
    const std::string all = done({"sysdb", "dump", "--show-secrets", "--all"});
    done({"commit", "second"});
    done({"sysdb", "load", "--replace", "-"}, all);
    EXPECT_EQ(kinds(), Kinds{"commit"});
    EXPECT_EQ(done({"sysdb", "diff", "-"}, all), "");
}

TEST_F(HistoryCommands, DeletingTheTreeKeepsIt) {
    put("/cfg/site", "u32", "1");
    load(kText);
    const std::string before = shown();
    done({"commit", "first"});
    done({"sysdb", "del", "-r", "/cfg/"});
    EXPECT_EQ(value_of("/cfg/site"), "");
    done({"rollback", "first"});
    EXPECT_EQ(shown(), before);
}

TEST_F(HistoryCommands, WatchDoesNotShowIt) {
    put("/cfg/site", "u32", "1");
    Started watch({"sysdb", "watch", "-n", "1", "--initial", "/cfg/"});
    EXPECT_EQ(watch.wait(), 0);
    Started changes({"sysdb", "watch", "-n", "2", "--json", "/cfg/"});
    Started all({"sysdb", "watch", "--all", "--json", "/cfg/"});
    // Both watch when they have shown an item that was set.
    for (int i = 2; !contains(all.shown(), "/cfg/site"); ++i) {
        put("/cfg/site", "u32", std::to_string(i));
        all.read_some(100);
    }
    done({"commit", "first"});
    ASSERT_TRUE(all.wait_shown("/cfg/.history/head"));
    put("/cfg/last", "u32", "1");
    while (!changes.has_ended(100)) {
        done({"sysdb", "del", "/cfg/last"});
        put("/cfg/last", "u32", "1");
    }
    EXPECT_FALSE(contains(changes.shown(), ".history")) << changes.shown();
    EXPECT_EQ(all.end(SIGTERM), 0);
}

TEST_F(HistoryCommands, DamageIsNamedAndTheRestIsThere) {
    load(kText);
    done({"commit", "first"});
    done({"commit", "second"});
    put("/cfg/.history/commit/0x1/record", "string", "nonsense");
    put("/cfg/.history/commit/0x2/state/0x1", "bytes:1212765012", "0011");
    const auto run = aaactl({"history"});
    EXPECT_EQ(run.status, 3);
    EXPECT_TRUE(contains(run.out, "second"));
    EXPECT_TRUE(contains(run.err, "/cfg/.history/commit/0x1/record: it is not a record"));
    const auto rollback = aaactl({"rollback", "second"});
    EXPECT_EQ(rollback.status, 3);
    EXPECT_TRUE(contains(rollback.err, "commit 2: the stored state is damaged")) << rollback.err;
    EXPECT_EQ(done({"commit", "third"}), "commit 3\n");
}

TEST_F(HistoryCommands, ItemsThatCannotBeReadStay) {
    load(limit(1));
    aaactl_test::damage(dir(), "/cfg/gl/aaa/site/cut", SYSDB_TYPE_STRING, "x");
    const auto run = aaactl({"commit", "first"});
    EXPECT_EQ(run.status, 0);
    EXPECT_TRUE(contains(run.err, "items that cannot be read are not in the commit: 1")) << run.err;
    load(limit(2));
    EXPECT_EQ(aaactl({"rollback", "--force", "first"}).status, 0);
    EXPECT_TRUE(contains(aaactl({"sysdb", "ls", "/cfg/gl/aaa/site/"}).out, "cut"));
}

// ---- keys

TEST_F(HistoryCommands, KeysOfOldGenerationsLiveOnInIt) {
    done({"key", "new-master"});
    load("aaa group server radius corp\n server 192.0.2.1 auth-port 1812 acct-port 1813 key 0 hunter2\n");
    const std::string before = shown();
    done({"commit", "first"});
    load("aaa group server radius corp\n server 192.0.2.1 auth-port 1812 acct-port 1813 key 0 hunter3\n");
    done({"commit", "second"});
    done({"key", "rotate", "--reseal", "/cfg/gl/"});
    const auto needed = aaactl({"key", "retire", "1"});
    EXPECT_EQ(needed.status, 1);
    EXPECT_TRUE(contains(needed.err, "commit 1 (first) of the history, commit 2 (second) of the history"))
        << needed.err;
    EXPECT_TRUE(contains(needed.err, "aaactl key reseal /cfg/"));
    EXPECT_EQ(done({"key", "reseal", "/cfg/"}),
              "commit 1 (first): sealed again\ncommit 2 (second): sealed again\n");
    done({"key", "retire", "1"});
    done({"rollback", "first"});
    EXPECT_EQ(aaactl({"lint"}).out.find("sealed-key"), std::string::npos) << "it can be opened";
}

TEST_F(HistoryCommands, KeysThatAreSealedAgainStayEqual) {
    done({"key", "new-master"});
    load("aaa group server radius corp\n server 192.0.2.1 auth-port 1812 acct-port 1813 key 0 hunter2\n");
    done({"commit", "first"});
    load(limit(1));
    done({"commit", "second"});
    done({"key", "rotate", "--reseal", "/cfg/"});
    EXPECT_EQ(done({"diff"}), "") << "the last commit is still what is stored";
    EXPECT_EQ(aaactl({"diff", "first", "second"}).out,
              "--- commit 1 (first)\n+++ commit 2 (second)\n+ item /cfg/gl/aaa/site/limit u32 1\n");
}

TEST_F(HistoryCommands, KeysInItThatCannotBeOpenedHinderNothing) {
    done({"key", "new-master"});
    load("aaa group server radius corp\n server 192.0.2.1 auth-port 1812 acct-port 1813 key 0 hunter2\n");
    done({"commit", "first"});
    load("no aaa group server radius corp\n");
    done({"key", "rotate"});
    done({"key", "retire", "--force", "1"});
    const auto run = aaactl({"key", "rotate", "--reseal", "/cfg/"});
    EXPECT_EQ(run.status, 0);
    EXPECT_TRUE(contains(run.err, "commit 1 (first): a key in it cannot be opened")) << run.err;
}

}  // namespace
