// SPDX-License-Identifier: Apache-2.0
//
// show running-config and load, as their users run them.

#include <algorithm>
#include <memory>
#include <set>
#include <string>

#include "aaactl/running_config/running_config_fixture.hpp"
#include "aaactl/support/damaged_items.hpp"

namespace {

using aaactl_test::aaactl;
using aaactl_test::damage;
using aaactl_test::kText;
using aaactl_test::RunningConfigCommands;

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

}  // namespace
