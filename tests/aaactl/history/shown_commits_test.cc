// SPDX-License-Identifier: Apache-2.0
//
// What is said of commits: who made them, what came of those that waited, and the way back.

#include <cctype>

#include "aaactl/history/history_fixture.hpp"
#include "aaactl/support/program_started.hpp"

namespace {

using aaactl_test::aaactl;
using aaactl_test::HistoryCommands;
using aaactl_test::Started;

bool contains(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

class ShownCommits : public HistoryCommands {
  protected:
    // What a person at a terminal sees of the command.
    static std::string on_terminal(const std::vector<std::string> &words) {
        Started run(words, Started::On::terminal);
        EXPECT_EQ(run.wait(), 0) << run.shown();
        return run.shown();
    }
    std::string file(const std::string &text) const { return dir().write("text.conf", text); }
};

TEST_F(ShownCommits, WhatWasChangedOutsideHasAFinder) {
    load(limit(1));
    done({"load", "--force", "--label", "mine", file(limit(2))});
    const auto commits = history()["commits"];
    const std::string name = commits[1]["found_by"].text();
    EXPECT_TRUE(contains(name, commits[1]["user"].text()));
    EXPECT_FALSE(commits[0].contains("found_by"));
    const std::string list = done({"history"});
    EXPECT_TRUE(contains(list, "  found by " + name + "  ")) << list;
    EXPECT_EQ(list.find("found by"), list.rfind("found by")) << list;
    EXPECT_TRUE(contains(done({"show", "commit", "1"}), " UTC, found by " + name));
    EXPECT_TRUE(contains(done({"show", "commit", "2"}), " UTC by " + name));
    EXPECT_TRUE(aaactl({"show", "commit", "1", "--json"}).json().contains("found_by"));
    aaactl({"report", "--socket", dir().path("none"), "--output", dir().path("report.html")});
    EXPECT_TRUE(contains(dir().read("report.html"), ", found by " + name));
}

// The head alone knows whether a commit waits.
TEST_F(ShownCommits, ARecordThatWaitsWithoutTheHeadIsNotSaidToWait) {
    load(limit(1));
    done({"commit", "base"});
    done({"load", "--force", "--confirm", "5", "--label", "risky", file(limit(2))});
    EXPECT_EQ(history()["commits"][0]["confirmation"].text(), "waiting");
    put("/cfg/.history/head", "string", "form 1\nlast 2\n");
    EXPECT_EQ(history()["commits"][0]["confirmation"].text(), "unknown");
    EXPECT_TRUE(contains(done({"history"}), "load, end unknown")) << done({"history"});
    EXPECT_TRUE(contains(done({"show", "commit", "2"}),
                         "\n! it does not wait any more, and whether it was confirmed is not recorded\n"));
    EXPECT_EQ(aaactl({"show", "commit", "2", "--json"}).json()["confirmation"].text(), "unknown");
    aaactl({"report", "--socket", dir().path("none"), "--output", dir().path("report.html")});
    EXPECT_TRUE(contains(dir().read("report.html"), "; it does not wait any more"));
    EXPECT_EQ(done({"commit", "next"}), "commit 3\n");
}

// Symptom: on a full disk the same reason was told twice, and of numbers that no group needed.
TEST_F(ShownCommits, NumbersThatCannotBeStoredAreToldOnce) {
    load(limit(1));
    done({"commit", "limit"});
    load("aaa group server radius corp\n server 192.0.2.1 auth-port 1812 acct-port 1813\n");
    done({"commit", "group"});
    done({"rollback", "--force", "limit"});
    load(limit(2));
    done({"commit", "other"});
    const ScopedEnv run("AAA_SYSDB_RUN_DIR", file("") + "/run");  // no directory can be made there
    const auto other = aaactl({"rollback", "--force", "limit"});
    EXPECT_EQ(other.status, 0);
    EXPECT_EQ(other.err, "");
    const auto group = aaactl({"rollback", "--force", "group"});
    EXPECT_EQ(group.status, 0);
    EXPECT_TRUE(contains(group.err, "everything is stored, but /oper/aaa/gl/group-server/: ")) << group.err;
    EXPECT_TRUE(contains(group.err, "; to number the groups, say: aaactl sg publish")) << group.err;
    EXPECT_EQ(group.err.find("/oper/"), group.err.rfind("/oper/")) << group.err;
}

TEST_F(ShownCommits, TheWayBackIsTold) {
    load(limit(1));
    EXPECT_TRUE(
        contains(on_terminal({"commit", "one"}), "to come back to this state: aaactl rollback 1\r\n"));
    EXPECT_TRUE(
        contains(on_terminal({"load", "--force", file(limit(2))}), "to go back: aaactl rollback 1\r\n"));
    EXPECT_FALSE(contains(on_terminal({"load", "--force", file(limit(3))}), "back"))
        << "no commit has the state before";
    const std::string loaded = on_terminal({"load", "--force", "-m", "why", file(limit(4))});
    EXPECT_TRUE(contains(loaded, "to go back: aaactl rollback 2\r\n")) << loaded;
    const std::string back = on_terminal({"rollback", "--force", "2"});
    EXPECT_TRUE(contains(back, "to go back: aaactl rollback 3\r\n")) << back;
    EXPECT_TRUE(contains(shown(), "limit u32 3"));
    done({"rollback", "--force", "3"});
    EXPECT_TRUE(contains(shown(), "limit u32 4"));
    setenv("EDITOR", "sed -i 's/u32 4/u32 5/'", 1);
    const std::string edited = on_terminal({"edit", "--yes", "--force"});
    unsetenv("EDITOR");
    EXPECT_TRUE(contains(edited, "to go back: aaactl rollback 5\r\n")) << edited;
    // Not where nobody reads it, nor where another command goes back.
    EXPECT_EQ(aaactl({"commit", "two"}).err, "");
    EXPECT_FALSE(contains(on_terminal({"--json", "commit", "three"}), "rollback"));
    EXPECT_FALSE(contains(on_terminal({"load", "--force", "--confirm", "5", file(limit(6))}), "rollback"));
}

}  // namespace
