// SPDX-License-Identifier: Apache-2.0
//
// show running-config and load, as their users run them.

#include <algorithm>
#include <memory>
#include <set>
#include <string>

#include "aaactl/support/damaged_items.hpp"
#include "aaactl/support/database_fixture.hpp"
#include "aaactl/support/program_started.hpp"

namespace {

using aaactl_test::aaactl;
using aaactl_test::damage;
using aaactl_test::Started;

const char kText[] =
    "aaa group server radius corp\n"
    " server 192.0.2.1 auth-port 1812 acct-port 1813 timeout 3s\n"
    " server-private 192.0.2.2 auth-port 1645 acct-port 1646\n"
    " dead-time 300s\n"
    "!\n"
    "aaa group server tacacs archive\n"
    " server 192.0.2.30 port 4949\n"
    "!\n"
    "radius-server host 192.0.2.9 auth-port 1812 acct-port 1813\n"
    "tacacs-server timeout 2s\n"
    "!\n"
    "aaa authentication login default group corp local\n"
    "aaa accounting exec default start-stop group corp group archive\n"
    "!\n"
    "item /cfg/gl/aaa/history/commits u32 15\n"
    "end\n";

class RunningConfigCommands : public aaactl_test::DatabaseTest {
  protected:
    RunningConfigCommands() : keys_("AAA_MASTER_KEYS", dir().path("master.keys")) {}

    static std::string dump() { return aaactl({"sysdb", "dump", "--show-secrets"}).out; }
    static void load(const std::string &text, std::vector<std::string> options = {}) {
        options.insert(options.begin(), {"load", "-"});
        const auto run = aaactl(options, text);
        ASSERT_EQ(run.status, 0) << run.err;
    }
    static std::string shown() { return aaactl({"show", "running-config"}).out; }
    static void expect_refused(const std::string &text, int status, const std::string &why) {
        const std::string before = dump();
        const auto run = aaactl({"load", "-"}, text);
        EXPECT_EQ(run.status, status) << text;
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err, "aaactl: standard input: " + why +
                               (why.ends_with('?') ? " Nothing was changed\n" : "; nothing was changed\n"));
        EXPECT_EQ(dump(), before);
    }

  private:
    ScopedEnv keys_;
};

TEST_F(RunningConfigCommands, WhatIsShownCanBeLoaded) {
    EXPECT_EQ(shown(), "end\n");
    load(kText);
    EXPECT_EQ(shown(), kText);
    const std::string before = dump();
    EXPECT_EQ(
        aaactl({"sg", "list", "corp"}).out,
        "PROTOCOL  NAME  NUMBER  SERVERS\n"
        "radius    corp  1001    192.0.2.1,1812,1813 [no key] 192.0.2.2,1645,1646 (private) [no key]\n");
    const std::string file = dir().write("saved.conf", shown());
    ASSERT_EQ(aaactl({"sysdb", "del", "-r", "/cfg/gl/aaa/"}).status, 0);
    EXPECT_EQ(aaactl({"load", file}).out, "created 10, changed 0, deleted 0 items\n");
    EXPECT_EQ(dump(), before);
    EXPECT_EQ(aaactl({"load", file}).out, "created 0, changed 0, deleted 0 items\n");
}

TEST_F(RunningConfigCommands, MergesOrReplaces) {
    load(kText);
    put("/cfg/other", "u32", "1");
    load("aaa group server radius corp\n server 192.0.2.1 no timeout\nno aaa accounting exec default\n");
    EXPECT_EQ(value_of("/cfg/gl/aaa/group-server/radius/corp/settings/192.0.2.1,1812,1813/timeout"), "");
    EXPECT_NE(shown().find("server 192.0.2.1 auth-port 1812 acct-port 1813\n"), std::string::npos) << shown();
    EXPECT_EQ(shown().find("accounting"), std::string::npos);
    EXPECT_NE(shown().find("tacacs-server timeout 2s"), std::string::npos);
    load("aaa authentication login default local\nend\n", {"--replace"});
    EXPECT_EQ(shown(), "aaa authentication login default local\nend\n");
    EXPECT_EQ(aaactl({"sg", "list"}).out, "PROTOCOL  NAME  NUMBER  SERVERS\n") << "numbers are withdrawn";
    EXPECT_EQ(value_of("/cfg/other"), "1");
}

// What a full disk or a failed command leaves of a text.
TEST_F(RunningConfigCommands, ReplaceRefusesATextThatMayBeCut) {
    load(kText);
    const std::string before = dump();
    const std::string text = shown();
    for (const size_t size : {text.size() - 2, text.size() - 4, text.size() - 5, text.size() / 2}) {
        const auto run = aaactl({"load", "--replace", "-"}, text.substr(0, size));
        EXPECT_EQ(run.status, 3) << text.substr(0, size);
        EXPECT_EQ(dump(), before);
    }
    EXPECT_EQ(
        aaactl({"load", "--replace", "-"}, "! end\ntacacs-server timeout 2s\n").err,
        "aaactl: standard input: the last line is not \"end\", so the text may be cut, and --replace would "
        "delete what it lacks; if it is whole, add the line \"end\"; nothing was changed\n");
    for (const char *option : {"--force", "--dry-run"}) {
        const auto empty = aaactl({"load", "--replace", option, "-"}, "\n");
        EXPECT_EQ(empty.status, 3);
        EXPECT_EQ(
            empty.err,
            "aaactl: standard input: the text is empty, and --replace would delete everything; to delete "
            "everything, load the line \"end\"; nothing was changed\n");
    }
    EXPECT_EQ(dump(), before);
    load("! all of it\n end \r\n! a remark", {"--replace"});
    EXPECT_EQ(shown(), "end\n");
}

// As "mlist set".
TEST_F(RunningConfigCommands, AListIsOfAServiceThatIsUsed) {
    const std::string before = dump();
    const std::string text = "! logins\naaa authentication lgin default local\n";
    const auto wrong = aaactl({"load", "-"}, text);
    EXPECT_EQ(wrong.status, 3);
    EXPECT_EQ(wrong.err,
              "aaactl: standard input: line 2: lgin: not a service of authentication; did you mean login? "
              "(--force stores it all the same); nothing was changed\n");
    EXPECT_EQ(aaactl({"load", "-"}, "aaa authentication login default syslog\n").status, 3);
    EXPECT_EQ(dump(), before);
    load(text, {"--force"});
    load(text);  // it is stored already
    load("no aaa authentication lgin default\n");
    EXPECT_EQ(dump(), before);
}

TEST_F(RunningConfigCommands, AGroupMayMoveToAnotherProtocol) {
    load(kText);
    load("aaa group server tacacs corp\n server 192.0.2.1\nend\n", {"--replace"});
    EXPECT_EQ(aaactl({"sg", "list"}).out,
              "PROTOCOL  NAME  NUMBER  SERVERS\n"
              "tacacs    corp  3001    192.0.2.1 [no key]\n");
}

TEST_F(RunningConfigCommands, OneWrongLineChangesNothing) {
    load(kText);
    expect_refused("tacacs-server timeout 9s\naaa authentcation login x local\n", 3,
                   "line 2: \"authentcation\" is not a kind of configuration; did you mean "
                   "authentication?");
    expect_refused(
        "tacacs-server timeout 9s\nno aaa group server radius corp\n", 1,
        "line 2: server group corp is named by the method list /cfg/gl/aaa/accounting/exec/default; "
        "change or delete that list too");
    expect_refused("tacacs-server timeout 9s\naaa authorization exec x group none\n", 1,
                   "line 2: group none: no such server group; add \"aaa group server PROTOCOL none\", or use "
                   "--force");
    expect_refused("tacacs-server timeout 9s\nno aaa authorization exec x\n", 4,
                   "line 2: authorization list exec x does not exist, so \"no\" has nothing to delete");
    expect_refused("tacacs-server timeout 9s\naaa group server radius tacacs\n", 1,
                   "line 2: server group tacacs: refused: Bad server group name");
    expect_refused(
        "tacacs-server timeout 9s\nitem /cfg/gl/aaa//x u32 1\n", 3,
        "line 2: /cfg/gl/aaa//x: Path is not one of the system database (use an absolute path below "
        "/cfg/ or /oper/ without an empty component)");
    EXPECT_EQ(aaactl({"load", dir().path("none")}).status, 4);
    EXPECT_EQ(aaactl({"load", dir().path("")}).status, 3);
}

TEST_F(RunningConfigCommands, AllWrongLinesAreNamed) {
    load(kText);
    const std::vector<std::pair<std::string, int>> texts{
        {"aaa authentcation login x local\n%s\ntacacs-server tmeout 9s\n", 3},  // words
        {"no aaa authorization exec x\n%s\nno tacacs-server host 192.0.2.77\n", 4},
        {"aaa authorization exec y group none\n%s\naaa authorization exec z group none\n", 1},
        {"item /cfg/gl/aaa//x u32 1\n%s\nitem /cfg/gl/aaa/nothing-reads-this u32 1\n", 3},
    };
    const std::string before = dump();
    for (auto [text, status] : texts) {
        text.replace(text.find("%s"), 2, "tacacs-server timeout 9s");
        const auto run = aaactl({"load", "-"}, text);
        EXPECT_EQ(run.status, status) << run.err;
        EXPECT_TRUE(run.err.starts_with("aaactl: standard input: line 1: ")) << run.err;
        EXPECT_NE(run.err.find("\n  line 3: "), std::string::npos) << run.err;
        EXPECT_EQ(run.err.find("line 2: "), std::string::npos) << run.err;
        EXPECT_EQ(dump(), before);
    }
}

// The lines of a group are not wrong because the line that begins it is.
TEST_F(RunningConfigCommands, AWrongGroupIsNamedOnce) {
    const auto run = aaactl({"load", "-"},
                            "aaa group server radios corp\n server 192.0.2.1\n timeout 3s\n"
                            "tacacs-server timeout x\n server 192.0.2.1\n");
    EXPECT_EQ(run.status, 3);
    EXPECT_NE(run.err.find("line 1: "), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("line 4: "), std::string::npos) << run.err;
    EXPECT_EQ(run.err.find("line 2: "), std::string::npos) << run.err;
    EXPECT_EQ(run.err.find("line 3: "), std::string::npos) << run.err;
}

TEST_F(RunningConfigCommands, OfManyWrongLinesTwentyAreNamed) {
    std::string text;
    for (int i = 0; i < 25; ++i) {
        text += "nonsense\n";
    }
    const auto run = aaactl({"load", "-"}, text);
    EXPECT_EQ(run.status, 3);
    EXPECT_NE(run.err.find("line 20: "), std::string::npos) << run.err;
    EXPECT_EQ(run.err.find("line 21: "), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("\n  and 5 more; nothing was changed\n"), std::string::npos) << run.err;
}

TEST_F(RunningConfigCommands, LinesMayEndAsOnOtherSystems) {
    load("item /cfg/gl/aaa/site/ directory\r\nitem /cfg/gl/aaa/site2/limit u32 5\r\nend\r\n", {"--force"});
    EXPECT_EQ(shown(), "item /cfg/gl/aaa/site/ directory\nitem /cfg/gl/aaa/site2/limit u32 5\nend\n");
}

TEST_F(RunningConfigCommands, DryRunShowsAndChangesNothing) {
    load(kText);
    const std::string before = dump();
    const auto run =
        aaactl({"load", "--dry-run", "-"}, "no radius-server host 192.0.2.9\ntacacs-server timeout 3s\n");
    EXPECT_EQ(run.out,
              "- /cfg/gl/aaa/radius/host/0x1/192.0.2.9,1812,1813 u32 1\n"
              "- /cfg/gl/aaa/tacacs/settings/timeout u32 2000\n"
              "+ /cfg/gl/aaa/tacacs/settings/timeout u32 3000\n"
              "would be created 0, changed 1, deleted 1 items\n");
    EXPECT_EQ(dump(), before);
    const auto json = aaactl({"load", "--json", "--dry-run", "-"}, "no tacacs-server timeout\n").json();
    EXPECT_EQ(json["statements"], 1);
    EXPECT_EQ(json["deleted"], 1);
    EXPECT_EQ(json["loaded"], false);
    EXPECT_EQ(json["differences"][0]["change"], "removed");
}

TEST_F(RunningConfigCommands, GroupsThatDoNotExistNeedForce) {
    load("aaa authentication login x group away\n", {"--force"});
    EXPECT_EQ(shown(), "aaa authentication login x group away\nend\n");
    load(shown(), {"--replace"});
    EXPECT_EQ(shown(), "aaa authentication login x group away\nend\n");
}

TEST_F(RunningConfigCommands, ClearKeysAreSealed) {
    expect_refused("radius-server key 0 hunter2\n", 5,
                   "line 1: the key cannot be sealed with " + dir().path("master.keys"));
}

TEST_F(RunningConfigCommands, KeysAreShownSealed) {
    ASSERT_EQ(aaactl({"key", "new-master"}).status, 0);
    expect_refused("radius-server timeout 3s\nradius-server key 0 p\xc3\xa4ss\n", 3,
                   "line 2: the key has characters that are not printable ASCII");
    load("radius-server key 0 hunter2\n");
    const std::string text = shown();
    EXPECT_EQ(text.rfind("radius-server key 7 01", 0), 0u) << text;
    EXPECT_EQ(text.find("hunter2"), std::string::npos);
    const std::string sealed = value_of("/cfg/gl/aaa/radius/settings/key");
    EXPECT_EQ(aaactl({"key", "check", "--show-secrets"}, sealed).out,
              "valid, generation 01, the newest\nhunter2\n");
    ASSERT_EQ(aaactl({"sysdb", "del", "-r", "/cfg/gl/aaa/"}).status, 0);
    load(text);
    EXPECT_EQ(value_of("/cfg/gl/aaa/radius/settings/key"), sealed);
}

// A key that someone stored in clear text.
TEST_F(RunningConfigCommands, ClearTextOfASecretIsMaskedAndKept) {
    put("/cfg/gl/aaa/radius/settings/key", "string", "hunter2");
    const auto run = aaactl({"show", "running-config"});
    EXPECT_EQ(run.out, "item /cfg/gl/aaa/radius/settings/key string ********\nend\n");
    EXPECT_EQ(run.err, "aaactl: masked values of keys and passwords: 1 (--show-secrets writes them)\n");
    load(run.out, {"--replace"});
    EXPECT_EQ(value_of("/cfg/gl/aaa/radius/settings/key"), "hunter2");
    EXPECT_EQ(aaactl({"show", "running-config", "--show-secrets"}).out,
              "item /cfg/gl/aaa/radius/settings/key string \"hunter2\"\nend\n");
    const auto dry = aaactl({"load", "--dry-run", "-"}, "no item /cfg/gl/aaa/radius/settings/key\n");
    EXPECT_EQ(dry.out.find("hunter2"), std::string::npos) << dry.out;
}

TEST_F(RunningConfigCommands, WhatCannotBeReadIsReportedAndStays) {
    load("tacacs-server timeout 2s\n");
    damage(dir(), "/cfg/gl/aaa/site/bad", SYSDB_TYPE_U32, "x");
    const auto run = aaactl({"show", "running-config"});
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.out,
              "tacacs-server timeout 2s\n! /cfg/gl/aaa/site/bad: value does not fit its type\nend\n");
    EXPECT_EQ(run.err, "aaactl: /cfg/gl/aaa/site/bad: value does not fit its type; it is not in the text\n");
    load("tacacs-server timeout 3s\n");
    EXPECT_EQ(aaactl({"show", "running-config"}).status, 3);
    const auto json = aaactl({"show", "running-config", "--json"});
    EXPECT_EQ(json.json()["faults"][0]["path"], "/cfg/gl/aaa/site/bad");
    EXPECT_EQ(json.json()["lines"][0], "tacacs-server timeout 3s");
    load("item /cfg/gl/aaa/site/bad u32 1\n", {"--force"});
    EXPECT_EQ(aaactl({"show", "running-config"}).status, 0);
}

// An item of the wrong type in place of the list of logins locked everyone out.
TEST_F(RunningConfigCommands, ItemsAreWhatTheServiceReads) {
    const std::string root = "/cfg/gl/aaa/";
    load("aaa group server radius corp\n server 192.0.2.1\naaa authentication login default local\n");
    const std::string before = dump();
    const std::vector<std::pair<std::string, std::string>> wrong{
        {"authentication/login/default u32 7", "it is of type u32, but tuple is read here"},
        {"group-server/radius/corp/settings/key string \"plain\"", "the key is not sealed"},
        {"group-server/radius/corp/settings/trise u32 3", "did you mean tries?"},
        {"group-server/radius/corp/server/0x02/192.0.2.7,1,2 u32 1", "is not an ordinal of a server"},
        {"site/limit u32 15", "\"site\" is not read here"}};
    for (const auto &[item, why] : wrong) {
        const std::string text = "tacacs-server timeout 3s\nitem " + root + item + "\n";
        const auto run = aaactl({"load", "-"}, text);
        EXPECT_EQ(run.status, 3) << item;
        EXPECT_NE(run.err.find("standard input: line 2: " + root), std::string::npos) << run.err;
        EXPECT_NE(run.err.find(why), std::string::npos) << run.err;
        EXPECT_NE(run.err.find("(--force loads it all the same)"), std::string::npos) << run.err;
        EXPECT_EQ(run.err.find("plain"), std::string::npos) << run.err;
    }
    const std::string list =
        "item " + root + "authentication/login/vty tuple (10, 0, 0, 0, \"crop\", \"\", \"\", \"\")\n";
    const auto reference = aaactl({"load", "-"}, list);
    EXPECT_EQ(reference.status, 1) << reference.err;
    EXPECT_NE(reference.err.find("no server group \"crop\" exists"), std::string::npos) << reference.err;
    EXPECT_EQ(dump(), before);
    load(list, {"--force"});
    load(list);  // it is stored already
    load("item " + root + "history/commits u32 15\n");
}

TEST_F(RunningConfigCommands, ADumpIsRefusedWithTheRightCommand) {
    expect_refused("aaactl-dump 1 /cfg/\n", 3,
                   "line 1: this is a dump of the database; load it with \"aaactl sysdb load\"");
}

TEST_F(RunningConfigCommands, WithoutADatabaseNothingIsShown) {
    const ScopedEnv cfg("AAA_SYSDB_CFG_DIR", dir().write("file", "") + "/below");
    EXPECT_EQ(aaactl({"show", "running-config"}).status, 5);
    EXPECT_EQ(aaactl({"load", "-"}, "tacacs-server timeout 2s\n").status, 5);
}

// ---- several at once, and interruptions

// Symptom: each load numbered its groups by itself, and two at once gave one number to two groups.
TEST_F(RunningConfigCommands, LoadsAtOnceGetDifferentNumbersAndOrdinals) {
    constexpr int kRounds = 5;
    constexpr int kLoads = 4;
    std::string all_shown;
    for (int round = 0; round < kRounds; ++round) {
        std::vector<std::unique_ptr<Started>> started;
        for (int i = 0; i < kLoads; ++i) {
            const std::string own = std::to_string(round) + "-" + std::to_string(i);
            std::string text = "aaa group server tacacs shared\n server 192.0." + std::to_string(round) +
                               "." + std::to_string(i) + "\n";
            for (const char *name : {"a", "b", "c"}) {
                text +=
                    std::string("aaa group server tacacs ") + name + own + "\n server-private 192.0.2.1\n";
            }
            started.push_back(std::make_unique<Started>(
                std::vector<std::string>{"load", dir().write(own + ".conf", text + "end\n")}));
        }
        for (const auto &load : started) {
            EXPECT_EQ(load->wait(), 0) << load->shown();
            all_shown += load->shown();
        }
    }
    std::set<uint64_t> numbers;
    const auto groups = aaactl({"sg", "list", "--json"}).json()["groups"];
    for (const auto &group : groups) {
        ASSERT_FALSE(group["number"].is_null()) << group.dump() << "\nThe loads printed:\n" << all_shown;
        numbers.insert(group["number"].number());
        std::set<uint64_t> ordinals;
        for (const auto &server : group["servers"]) {
            ordinals.insert(server["index"].number());
        }
        EXPECT_EQ(ordinals.size(), group["servers"].size()) << group.dump();
    }
    EXPECT_EQ(groups.size(), size_t{1 + 3 * kRounds * kLoads});
    EXPECT_EQ(numbers.size(), groups.size());
    EXPECT_EQ(aaactl({"lint"}).out.find("number"), std::string::npos) << all_shown;
}

// A load that is stopped where it waits for the lock of a tree's writers, while others change the database.
class StoppedLoad : public RunningConfigCommands {
  protected:
    StoppedLoad() : wait_("AAA_SYSDB_WAIT_MS", "600000") {}

    void SetUp() override {
        put("/cfg/gl/aaa/history/commits", "u32", "10");
        put("/oper/site/x", "u32", "1");
    }
    // Goes on, if it was stopped before, until it shows the text and waits for the lock.
    void run_until(Started &load, const std::string &database, const std::string &shown) const {
        const aaatest::DatabaseTable lock(dir().path(database), "items");
        aaatest::send_signal(load.pid(), SIGCONT);
        EXPECT_TRUE(load.wait_shown(shown)) << load.shown();
        stop(load);
    }
    static void stop(const Started &load) {
        aaatest::send_signal(load.pid(), SIGSTOP);
        int status = 0;
        EXPECT_EQ(waitpid(load.pid(), &status, WUNTRACED), load.pid());
        EXPECT_TRUE(WIFSTOPPED(status));
    }
    std::unique_ptr<Started> load_until_stored(const std::string &text) const {
        const aaatest::DatabaseTable lock(dir().path("cfg/cfg.mdb"), "items");
        auto load = std::make_unique<Started>(std::vector<std::string>{"load", dir().write("one.conf", text)},
                                              Started::On::terminal);
        EXPECT_TRUE(load->wait_shown("changes as one")) << load->shown();
        stop(*load);
        return load;
    }
    static void expect_done(Started &load) {
        aaatest::send_signal(load.pid(), SIGCONT);
        EXPECT_EQ(load.wait(), 0) << load.shown();
        EXPECT_TRUE(is_numbered()) << load.shown();
    }
    static bool is_numbered() {
        return !aaactl({"sg", "list", "--json"}).json()["groups"][0]["number"].is_null() &&
               aaactl({"lint"}).out.find("number") == std::string::npos;
    }

  private:
    ScopedEnv wait_;
};

const char kShared[] = "aaa group server tacacs shared\n server 192.0.2.";

// Symptom: a load that was refused withdrew the number of a group that another one had configured meanwhile.
TEST_F(StoppedLoad, LeavesTheNumberOfAGroupThatAnotherLoadHasConfigured) {
    const auto one = load_until_stored(std::string(kShared) + "1\n");
    load(std::string(kShared) + "2\n");
    expect_done(*one);
}

TEST_F(StoppedLoad, LeavesTheNumberOfAGroupThatIsConfiguredWhileItIsWithdrawn) {
    const auto one = load_until_stored(std::string(kShared) + "1\nitem /cfg/gl/aaa/history/commits u32 11\n");
    put("/cfg/gl/aaa/history/commits", "u32", "12");  // it is refused, and the group does not exist
    run_until(*one, "run/oper.mdb", "Withdrawing");
    load(std::string(kShared) + "2\n");
    EXPECT_TRUE(is_numbered());
    expect_done(*one);
}

TEST_F(StoppedLoad, LeavesTheNumberOfAGroupThatIsConfiguredAfterItHasDeletedIt) {
    load(std::string(kShared) + "1\n");
    const auto one = load_until_stored("no aaa group server tacacs shared\n");
    run_until(*one, "run/oper.mdb", "Withdrawing");
    load(std::string(kShared) + "2\n");
    EXPECT_TRUE(is_numbered());
    expect_done(*one);
}

// Holds the lock of a tree's writers, so that a load waits where the test wants it to.
class InterruptedLoad : public RunningConfigCommands {
  protected:
    void SetUp() override {
        put("/cfg/site/x", "u32", "1");
        put("/oper/site/x", "u32", "1");
        file_ = dir().write("new.conf", kText);
    }
    // The load, which was interrupted when it had shown the text and waited for the lock.
    std::unique_ptr<Started> interrupted(const std::string &database, const std::string &shown) {
        const aaatest::DatabaseTable lock(dir().path(database), "items");
        auto load = std::make_unique<Started>(std::vector<std::string>{"load", file_}, Started::On::terminal);
        EXPECT_TRUE(load->wait_shown(shown)) << load->shown();
        aaatest::send_signal(load->pid(), SIGINT);
        return load;
    }
    static std::string everything() { return aaactl({"sysdb", "dump", "/"}).out; }

  private:
    std::string file_;
};

TEST_F(InterruptedLoad, ChangesNothingBeforeTheItemsAreStored) {
    const std::string before = everything();
    const auto load = interrupted("run/oper.mdb", "Numbering 2 groups as one change");
    EXPECT_EQ(load->wait(), 6);
    EXPECT_NE(load->shown().find("new.conf: interrupted before the items were stored (to load them, "
                                 "say again: aaactl load "),
              std::string::npos)
        << load->shown();
    EXPECT_EQ(everything(), before);
}

TEST_F(InterruptedLoad, IsDoneWhenTheItemsAreStored) {
    const auto load = interrupted("cfg/cfg.mdb", "changes as one");
    EXPECT_EQ(load->wait(), 0) << load->shown();
    EXPECT_NE(load->shown().find("created 10, changed 0, deleted 0 items"), std::string::npos)
        << load->shown();
    EXPECT_EQ(shown(), kText);
    EXPECT_EQ(aaactl({"lint"}).out.find("number"), std::string::npos);
}

}  // namespace
