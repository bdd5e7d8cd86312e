// SPDX-License-Identifier: Apache-2.0
//
// sg: numbers, indexes, keys, and the reasons of refusals.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>

#include "aaactl/support/damaged_items.hpp"
#include "aaactl/support/database_fixture.hpp"
#include "aaactl/support/program_started.hpp"
#include "platform/cipher.h"

namespace {

using aaactl_test::aaactl;
using aaactl_test::damage;

class Groups : public aaactl_test::DatabaseTest {
  protected:
    static void expect_refused(const std::vector<std::string> &args, const std::string &reason) {
        const auto run = aaactl(args);
        EXPECT_EQ(run.status, 1) << run.err;
        EXPECT_NE(run.err.find(reason), std::string::npos) << run.err;
        EXPECT_EQ(run.out, "");
    }
};

TEST_F(Groups, AddGivesNumbersAndIndexes) {
    EXPECT_EQ(
        aaactl({"sg", "add", "radius", "corp", "192.0.2.20", "192.0.2.21,1645", "192.0.2.21,1700,1800"}).out,
        "radius corp 1001: 192.0.2.20,1812,1813 192.0.2.21,1645,1646 192.0.2.21,1700,1800\n");
    EXPECT_EQ(aaactl({"sg", "add", "tacacs", "archive", "192.0.2.30", "::1,4949"}).status, 0);
    EXPECT_EQ(aaactl({"sg", "add", "diameter", "third"}).status, 0);
    EXPECT_EQ(aaactl({"sg", "add", "radius", "corp", "192.0.2.22"}).status, 0);
    EXPECT_EQ(aaactl({"sg", "add", "radius", "corp", "192.0.2.23", "--private"}).status, 0);
    EXPECT_EQ(aaactl({"sysdb", "dump", "/cfg/gl/aaa/group-server"}).out,
              "aaactl-dump 1 /cfg/gl/aaa/group-server/\n"
              "/cfg/gl/aaa/group-server/diameter/third/server/ directory\n"
              "/cfg/gl/aaa/group-server/radius/corp/server-private/0x1/192.0.2.23,1812,1813 u32 1\n"
              "/cfg/gl/aaa/group-server/radius/corp/server/0x1/192.0.2.20,1812,1813 u32 1\n"
              "/cfg/gl/aaa/group-server/radius/corp/server/0x2/192.0.2.21,1645,1646 u32 1\n"
              "/cfg/gl/aaa/group-server/radius/corp/server/0x3/192.0.2.21,1700,1800 u32 1\n"
              "/cfg/gl/aaa/group-server/radius/corp/server/0x4/192.0.2.22,1812,1813 u32 1\n"
              "/cfg/gl/aaa/group-server/tacacs/archive/server/0x1/192.0.2.30 u32 1\n"
              "/cfg/gl/aaa/group-server/tacacs/archive/server/0x2/::1,0x1355/ directory\n"
              "# end: 8 items\n");
    EXPECT_EQ(aaactl({"sysdb", "dump", "/oper/aaa/gl/group-server"}).out,
              "aaactl-dump 1 /oper/aaa/gl/group-server/\n"
              "/oper/aaa/gl/group-server/sg_name_map/diameter/third u32 3001\n"
              "/oper/aaa/gl/group-server/sg_name_map/radius/corp u32 1001\n"
              "/oper/aaa/gl/group-server/sg_name_map/tacacs/archive u32 3001\n"
              "/oper/aaa/gl/group-server/sg_num_map/diameter/0xbb9 string \"third\"\n"
              "/oper/aaa/gl/group-server/sg_num_map/radius/0x3e9 string \"corp\"\n"
              "/oper/aaa/gl/group-server/sg_num_map/tacacs/0xbb9 string \"archive\"\n"
              "# end: 6 items\n");
}

TEST_F(Groups, ListShowsConfiguredAndPublished) {
    ASSERT_EQ(aaactl({"sg", "add", "radius", "corp", "192.0.2.20"}).status, 0);
    ASSERT_EQ(aaactl({"sg", "add", "tacacs", "archive", "::1,4949"}).status, 0);
    put("/cfg/gl/aaa/group-server/radius/new/server/0x1/192.0.2.9,1,2", "u32", "1");
    put("/oper/aaa/gl/group-server/sg_name_map/radius/old", "u32", "1009");
    EXPECT_EQ(aaactl({"sg", "list"}).out,
              "PROTOCOL  NAME     NUMBER  SERVERS\n"
              "radius    corp     1001    192.0.2.20,1812,1813 [no key]\n"
              "radius    new      -       192.0.2.9,1,2 [no key]\n"
              "radius    old      1009    (published, not configured)\n"
              "tacacs    archive  3001    ::1,4949 [no key]\n");
    const auto json = aaactl({"sg", "list", "--protocol", "tacacs", "--json"}).json();
    EXPECT_EQ(json.dump(),
              R"({"groups":[{"protocol":"tacacs","name":"archive","number":3001,"configured":true,)"
              R"("servers":[{"index":1,"address":"::1","ports":[4949],"private":false,"key":"missing"}]}]})");
    EXPECT_EQ(aaactl({"sg", "list", "new", "--json"}).json()["groups"][0]["number"], nullptr);
    EXPECT_EQ(aaactl({"sg", "list", "none"}).status, 4);
    EXPECT_NE(aaactl({"sg", "list", "crop"}).err.find("; did you mean corp?"), std::string::npos);
    EXPECT_NE(aaactl({"sg", "delete", "radius", "crop"}).err.find("; did you mean corp?"), std::string::npos);
    EXPECT_EQ(aaactl({"sg", "list", "corp", "--protocol", "tacacs"}).status, 4);
}

// lint reports the fault; the other groups are listed as usual.
TEST_F(Groups, ANumberThatIsNoneHidesNoOtherGroup) {
    ASSERT_EQ(aaactl({"sg", "add", "radius", "corp", "192.0.2.20"}).status, 0);
    put("/oper/aaa/gl/group-server/sg_name_map/radius/bad", "string", "x");
    const auto run = aaactl({"sg", "list"});
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(
        run.out,
        "PROTOCOL  NAME  NUMBER  SERVERS\n"
        "radius    bad   -       (published, not configured) (number: it is of type string, not a u32)\n"
        "radius    corp  1001    192.0.2.20,1812,1813 [no key]\n");
    ASSERT_EQ(
        aaactl({"mlist", "set", "authentication", "login", "default", "group:bad", "group:corp", "--force"})
            .status,
        0);
    EXPECT_NE(aaactl({"mlist", "show"}).out.find("group:corp (radius, 1001)"), std::string::npos);
}

TEST_F(Groups, ADamagedNumberIsToldWithTheRest) {
    ASSERT_EQ(aaactl({"sg", "add", "radius", "corp", "192.0.2.20"}).status, 0);
    ASSERT_EQ(aaactl({"sg", "add", "radius", "whole", "192.0.2.21"}).status, 0);
    const std::string item = "/oper/aaa/gl/group-server/sg_name_map/radius/corp";
    damage(dir(), item, SYSDB_TYPE_U32, "abc");
    const auto text = aaactl({"sg", "list"});
    EXPECT_EQ(text.status, 3);
    EXPECT_EQ(text.out,
              "PROTOCOL  NAME   NUMBER  SERVERS\n"
              "radius    corp   -       192.0.2.20,1812,1813 [no key] (number: value does not fit its type)\n"
              "radius    whole  1002    192.0.2.21,1812,1813 [no key]\n");
    EXPECT_EQ(text.err, "aaactl: " + item + ": value does not fit its type\n");
    const auto json = aaactl({"sg", "list", "--json"});
    EXPECT_EQ(json.status, 3);
    EXPECT_EQ(json.json()["groups"][0]["fault"], "value does not fit its type");
    EXPECT_FALSE(json.json()["groups"][1].contains("fault"));
    EXPECT_EQ(aaactl({"sg", "list", "whole"}).status, 0) << "this group has no fault";
}

TEST_F(Groups, AGroupWithADamagedNumberIsDeletedAndCreatedAnew) {
    ASSERT_EQ(aaactl({"sg", "add", "radius", "corp", "192.0.2.20"}).status, 0);
    damage(dir(), "/oper/aaa/gl/group-server/sg_name_map/radius/corp", SYSDB_TYPE_U32, "abc");
    const auto run = aaactl({"sg", "del", "radius", "corp"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(aaactl({"sysdb", "dump", "/oper/"}).out, "aaactl-dump 1 /oper/\n# end: 0 items\n");
    EXPECT_EQ(aaactl({"sg", "add", "radius", "corp", "192.0.2.20"}).out,
              "radius corp 1001: 192.0.2.20,1812,1813\n");
}

TEST_F(Groups, RefusesForTheLibrarysReasons) {
    expect_refused({"sg", "add", "tacacs", "local"}, "Bad server group name");
    ASSERT_EQ(aaactl({"sg", "add", "radius", "corp", "192.0.2.20"}).status, 0);
    expect_refused({"sg", "add", "tacacs", "corp"}, "Server group name already defined for RADIUS");
    expect_refused({"sg", "add", "radius", "corp", "192.0.2.21", "192.0.2.20"},
                   "192.0.2.20: refused: Host or server group index is in use already");
    EXPECT_EQ(aaactl({"sg", "list"}).out,
              "PROTOCOL  NAME  NUMBER  SERVERS\nradius    corp  1001    192.0.2.20,1812,1813 [no key]\n");
    ASSERT_EQ(aaactl({"mlist", "set", "authentication", "login", "default", "group:corp"}).status, 0);
    ASSERT_EQ(aaactl({"sg", "add", "tacacs", "archive", "192.0.2.30"}).status, 0);
    expect_refused({"sg", "add", "tacacs", "archive", "192.0.2.30,50"}, "the group has it already");
}

// A group that lists need: which lists, what becomes of their requests, and how to do it all the same.
TEST_F(Groups, OfListsAreNotDeletedByMistake) {
    ASSERT_EQ(aaactl({"sg", "add", "radius", "corp", "192.0.2.20", "192.0.2.21"}).status, 0);
    ASSERT_EQ(aaactl({"mlist", "set", "authentication", "login", "default", "group:corp", "local"}).status,
              0);
    ASSERT_EQ(aaactl({"mlist", "set", "authentication", "login", "vty", "group:corp"}).status, 0);
    const std::string before = aaactl({"sysdb", "dump"}).out;
    const std::string lists =
        "aaactl: method list authentication login default: without corp requests are left to local\n"
        "aaactl: method list authentication login vty: without corp it has no method that can work: every "
        "login that uses it is refused\n";
    const std::string remedy =
        ": 2 method lists name it; change these lists first with \"aaactl mlist set\", or use --force\n";
    const auto group = aaactl({"sg", "del", "radius", "corp"});
    EXPECT_EQ(group.status, 1);
    EXPECT_EQ(group.err, lists + "aaactl: server group corp is not deleted" + remedy);
    const auto both = aaactl({"sg", "del", "radius", "corp", "192.0.2.20", "192.0.2.21"});
    EXPECT_EQ(both.status, 1);
    EXPECT_EQ(both.err, lists + "aaactl: server group corp is not left without a server" + remedy);
    EXPECT_EQ(aaactl({"sysdb", "dump"}).out, before);
    EXPECT_EQ(aaactl({"sg", "del", "radius", "corp", "192.0.2.20"}).err, "") << "another one remains";
    EXPECT_EQ(aaactl({"sg", "del", "radius", "corp", "192.0.2.21"}).status, 1);
    const auto json = aaactl({"sg", "del", "radius", "corp", "--json"}).json();
    EXPECT_EQ(json["lists"][0].dump(),
              R"({"function":"authentication","service":"login","name":"default","methods_left":["local"]})");

    const auto last = aaactl({"sg", "del", "radius", "corp", "192.0.2.21", "--force"});
    EXPECT_EQ(last.status, 0);
    EXPECT_EQ(last.err, lists) << "also then";
    EXPECT_EQ(aaactl({"sg", "del", "radius", "corp", "--force"}).status, 0);
    EXPECT_EQ(aaactl({"sg", "list", "corp"}).status, 4);
    EXPECT_EQ(aaactl({"sysdb", "dump", "/oper/"}).out, "aaactl-dump 1 /oper/\n# end: 0 items\n");
}

// A server that gets the address later must not find a key that was meant for another.
TEST_F(Groups, ADeletedServerTakesItsSettingsAlong) {
    ASSERT_EQ(aaactl({"sg", "add", "radius", "corp", "192.0.2.20", "192.0.2.21"}).status, 0);
    const std::string settings = "/cfg/gl/aaa/group-server/radius/corp/settings/";
    put(settings + "tries", "u32", "2");
    put(settings + "192.0.2.20,1812,1813/tries", "u32", "3");
    put(settings + "192.0.2.21,1812,1813/tries", "u32", "4");
    ASSERT_EQ(aaactl({"sg", "del", "radius", "corp", "192.0.2.20"}).status, 0);
    EXPECT_EQ(value_of(settings + "192.0.2.20,1812,1813/tries"), "");
    EXPECT_EQ(value_of(settings + "192.0.2.21,1812,1813/tries"), "4");
    EXPECT_EQ(value_of(settings + "tries"), "2");
    const auto wrong = aaactl({"sg", "del", "radius", "corp", "192.0.2.2l"});
    EXPECT_EQ(wrong.status, 4);
    EXPECT_EQ(wrong.err, "aaactl: server group corp has no server 192.0.2.2l\n");
}

TEST_F(Groups, RefusesNamesAndServersThatAreNone) {
    for (const char *name :
         {"", "a/b", "a\tb", "gr\xc3\xbc", "fifty characters fifty characters fifty characters!"}) {
        EXPECT_EQ(aaactl({"sg", "add", "radius", name}).status, 2) << name;
    }
    for (const char *server : {"", ",1", "::1,", "::1,0", "::1,65535", "::1,65536", "::1,x", "::1,1,2,3",
                               "::1,-1", "::1/64", "h", "192.0.2", "192.0.2.1 "}) {
        EXPECT_EQ(aaactl({"sg", "add", "radius", "corp", server}).status, 2) << server;
    }
    EXPECT_EQ(aaactl({"sg", "add", "tacacs", "corp", "::1,1,2"}).status, 2);
    EXPECT_EQ(aaactl({"sg", "add", "tacacs", "corp", "::1", "::1,1"}).status, 2) << "twice";
    EXPECT_EQ(aaactl({"sg", "add", "ldap", "corp"}).status, 2);
    EXPECT_EQ(aaactl({"sg", "list"}).out, "PROTOCOL  NAME  NUMBER  SERVERS\n");
}

// Two entries of one server would be asked one after the other.
TEST_F(Groups, AnAddressHasOneSpelling) {
    const std::string servers = "/cfg/gl/aaa/group-server/radius/six/server/";
    ASSERT_EQ(aaactl({"sg", "add", "radius", "six", "2001:0DB8:0:0::1"}).status, 0);
    EXPECT_EQ(value_of(servers + "0x1/2001:db8::1,1812,1813"), "1");
    EXPECT_EQ(aaactl({"sg", "add", "radius", "six", "2001:db8:0::3", "2001:DB8::3"}).status, 2)
        << "given twice";
    EXPECT_EQ(aaactl({"sg", "add", "radius", "six", "2001:db8:0::1"}).status, 1);
    // As other programs, and older versions, have stored it.
    put(servers + "0x2/2001:DB8::2,1812,1813", "u32", "1");
    const auto refused = aaactl({"sg", "add", "radius", "six", "2001:db8::2"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.err.find("the group has it already, as 2001:DB8::2,1812,1813"), std::string::npos)
        << refused.err;
    EXPECT_EQ(aaactl({"sg", "add", "radius", "six", "2001:db8::2,1645"}).status, 0) << "another port";
    EXPECT_EQ(aaactl({"sg", "del", "radius", "six", "2001:0db8::2,1812,1813"}).status, 0);
    EXPECT_EQ(value_of(servers + "0x2/2001:DB8::2,1812,1813"), "");
}

TEST_F(Groups, AStaleEntryOfTheHighestNumberBlocksNoGroup) {
    put("/oper/aaa/gl/group-server/sg_num_map/radius/0x7cf", "string", "last");
    const auto run = aaactl({"sg", "add", "radius", "corp", "192.0.2.20"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(value_of("/oper/aaa/gl/group-server/sg_name_map/radius/corp"), "1001");
    EXPECT_EQ(value_of("/oper/aaa/gl/group-server/sg_num_map/radius/0x7cf"), "");
}

TEST_F(Groups, NumbersRunOut) {
    std::string dump = "aaactl-dump 1 /oper/\n";
    for (int number = 1000; number <= 1999; ++number) {
        dump += "/oper/aaa/gl/group-server/sg_name_map/radius/g" + std::to_string(number) + " u32 " +
                std::to_string(number) + "\n";
    }
    ASSERT_EQ(aaactl({"sysdb", "load", "-"}, dump).status, 0);
    const auto run = aaactl({"sg", "add", "radius", "corp", "192.0.2.20"});
    EXPECT_EQ(run.status, 6) << run.err;
    EXPECT_NE(run.err.find("every number of its protocol belongs to a group"), std::string::npos) << run.err;
    EXPECT_EQ(aaactl({"sg", "list", "corp"}).status, 4) << "nothing is half done";
}

// A reboot empties the maps.
TEST_F(Groups, PublishNumbersAllGroupsAgain) {
    EXPECT_EQ(aaactl({"sg", "publish"}).out, "PROTOCOL  NAME  NUMBER\n") << "there are none";
    ASSERT_EQ(aaactl({"sg", "add", "radius", "corp", "192.0.2.20"}).status, 0);
    ASSERT_EQ(aaactl({"sg", "add", "radius", "lab", "192.0.2.21"}).status, 0);
    ASSERT_EQ(aaactl({"sg", "add", "tacacs", "archive", "192.0.2.30"}).status, 0);
    const std::string before = aaactl({"sysdb", "dump", "/oper/"}).out;
    ASSERT_EQ(aaactl({"sysdb", "del", "-r", "/oper/aaa"}).status, 0);
    const auto run = aaactl({"sg", "publish"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out,
              "PROTOCOL  NAME     NUMBER\n"
              "radius    corp     1001    new\n"
              "radius    lab      1002    new\n"
              "tacacs    archive  3001    new\n");
    EXPECT_EQ(aaactl({"sysdb", "dump", "/oper/"}).out, before);
    const auto json = aaactl({"sg", "publish", "--json"}).json();
    EXPECT_EQ(json["groups"][0].dump(), R"({"protocol":"radius","name":"corp","number":1001,"new":false})");
    EXPECT_FALSE(json.contains("faults"));
    ASSERT_EQ(aaactl({"sysdb", "del", "/oper/aaa/gl/group-server/sg_num_map/radius/0x3e9"}).status, 0);
    EXPECT_EQ(aaactl({"sg", "publish"}).status, 0);
    EXPECT_EQ(aaactl({"sysdb", "dump", "/oper/"}).out, before) << "the entry of the number is made again";
}

TEST_F(Groups, AGroupThatIsRefusedKeepsNoOtherFromItsNumber) {
    put("/cfg/gl/aaa/group-server/radius/corp/server/0x1/192.0.2.9,1,2", "u32", "1");
    put("/cfg/gl/aaa/group-server/radius/local/server/0x1/192.0.2.9,1,2", "u32", "1");
    put("/cfg/gl/aaa/group-server/tacacs/archive/server/0x1/192.0.2.9", "u32", "1");
    put("/cfg/gl/aaa/group-server/tacacs/corp/server/0x1/192.0.2.9", "u32", "1");
    const auto run = aaactl({"sg", "publish"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out,
              "PROTOCOL  NAME     NUMBER\n"
              "radius    corp     1001    new\n"
              "tacacs    archive  3001    new\n");
    EXPECT_EQ(run.err,
              "aaactl: server group local: refused: Bad server group name\n"
              "aaactl: server group corp: refused: Server group name already defined for RADIUS\n");
    EXPECT_EQ(aaactl({"sg", "publish", "--json"}).json()["faults"].size(), 2u);
}

// Symptom: groups that were added at the same time got one number, and servers one ordinal.
TEST_F(Groups, ProcessesAtOnceGetDifferentNumbersAndOrdinals) {
    constexpr int kRounds = 20;
    constexpr int kProcesses = 8;
    // On a busy machine the one that holds the database may not run for longer than the usual 5 s.
    const ScopedEnv wait("AAA_SYSDB_WAIT_MS", "120000");
    for (int round = 0; round < kRounds; ++round) {
        std::vector<std::unique_ptr<aaactl_test::Started>> started;
        for (int i = 0; i < kProcesses; ++i) {
            const std::string server = "192.0." + std::to_string(round) + "." + std::to_string(i);
            // Every other one adds a server to one group, which the first of them creates.
            const std::string name =
                i % 2 == 0 ? "g" + std::to_string(round) + "-" + std::to_string(i) : "shared";
            started.push_back(std::make_unique<aaactl_test::Started>(
                std::vector<std::string>{"sg", "add", "radius", name, server}));
        }
        for (const auto &process : started) {
            EXPECT_EQ(process->wait(), 0) << process->shown();
        }
    }
    std::map<uint64_t, std::string> names;
    const auto groups = aaactl({"sg", "list", "--json"}).json()["groups"];
    ASSERT_EQ(groups.size(), 1u + kRounds * kProcesses / 2);
    for (const auto &group : groups) {
        const std::string name = group["name"].text();
        const uint64_t number = group["number"].number();
        EXPECT_TRUE(names.emplace(number, name).second) << name << " and " << names[number];
        char entry[96];
        std::snprintf(entry, sizeof entry, "/oper/aaa/gl/group-server/sg_num_map/radius/0x%x",
                      static_cast<unsigned>(number));
        EXPECT_EQ(value_of(entry), name);
        std::set<uint64_t> ordinals;
        for (const auto &server : group["servers"]) {
            EXPECT_TRUE(ordinals.insert(server["index"].number()).second) << name;
        }
        EXPECT_EQ(ordinals.size(), name == "shared" ? size_t{kRounds * kProcesses / 2} : 1u);
    }
}

TEST_F(Groups, PublishSeparatesGroupsThatShareANumber) {
    ASSERT_EQ(aaactl({"sg", "add", "radius", "corp", "192.0.2.20"}).status, 0);
    ASSERT_EQ(aaactl({"sg", "add", "radius", "lab", "192.0.2.21"}).status, 0);
    const std::string maps = "/oper/aaa/gl/group-server/";
    put(maps + "sg_name_map/radius/lab", "u32", "1001");
    ASSERT_EQ(aaactl({"sysdb", "del", maps + "sg_num_map/radius/0x3ea"}).status, 0);
    EXPECT_NE(aaactl({"lint"}).out.find("maps to number 1001"), std::string::npos);
    const auto run = aaactl({"sg", "publish"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out,
              "PROTOCOL  NAME  NUMBER\n"
              "radius    corp  1001\n"
              "radius    lab   1002    new\n");
    EXPECT_EQ(value_of(maps + "sg_num_map/radius/0x3e9"), "corp");
    EXPECT_EQ(value_of(maps + "sg_num_map/radius/0x3ea"), "lab");
    EXPECT_EQ(aaactl({"lint"}).out.find("maps to number"), std::string::npos);
}

// An entry that a deleted group has left does not take the number from the group that has it.
TEST_F(Groups, PublishMendsAnEntryThatNamesNoGroup) {
    ASSERT_EQ(aaactl({"sg", "add", "radius", "corp", "192.0.2.20"}).status, 0);
    const std::string entry = "/oper/aaa/gl/group-server/sg_num_map/radius/0x3e9";
    put(entry, "string", "gone");
    EXPECT_EQ(aaactl({"sg", "publish"}).out, "PROTOCOL  NAME  NUMBER\nradius    corp  1001\n");
    EXPECT_EQ(value_of(entry), "corp");
}

// ---- keys

class GroupKeys : public Groups {
  protected:
    GroupKeys() : masters_("AAA_MASTER_KEYS", dir().path("master.keys")) {}
    void SetUp() override {
        ASSERT_EQ(aaactl({"key", "new-master"}).status, 0);
        ASSERT_EQ(aaactl({"sg", "add", "radius", "corp", "192.0.2.20", "192.0.2.21"}).status, 0);
    }
    // The key as it is stored, opened.
    static std::string opened(const std::string &path) {
        const auto json =
            aaactl({"key", "check", "--show-secrets", "--json"}, value_of(kSettings + path)).json();
        return json.contains("key") ? json["key"].text() : "(not opened)";
    }
    static std::string states() {
        std::string all;
        const auto groups = aaactl({"sg", "list", "--json"}).json()["groups"];
        for (const auto &server : groups[0]["servers"]) {
            all += (all.empty() ? "" : ", ") + server["key"].text();
        }
        return all;
    }
    static inline const std::string kSettings = "/cfg/gl/aaa/group-server/radius/corp/settings/";

  private:
    ScopedEnv masters_;
};

TEST_F(GroupKeys, AreSealedAndStored) {
    EXPECT_EQ(states(), "missing, missing");
    const auto one = aaactl({"sg", "key", "radius", "corp", "192.0.2.20"}, "own key\n");
    EXPECT_EQ(one.status, 0) << one.err;
    EXPECT_EQ(one.out,
              "stored, sealed with master key generation 01: " + kSettings + "192.0.2.20,1812,1813/key\n");
    EXPECT_EQ(opened("192.0.2.20,1812,1813/key"), "own key");
    EXPECT_EQ(states(), "opens, missing");
    const auto all = aaactl({"sg", "key", "radius", "corp"}, "shared key");
    EXPECT_EQ(all.status, 0) << all.err;
    EXPECT_EQ(all.err,
              "aaactl: 192.0.2.20,1812,1813 keeps its own key: " + kSettings + "192.0.2.20,1812,1813/key\n");
    EXPECT_EQ(opened("key"), "shared key");
    EXPECT_EQ(opened("192.0.2.20,1812,1813/key"), "own key");
    EXPECT_EQ(states(), "opens, opens");
    EXPECT_EQ(aaactl({"sg", "list"}).out,
              "PROTOCOL  NAME  NUMBER  SERVERS\n"
              "radius    corp  1001    192.0.2.20,1812,1813 [key] 192.0.2.21,1812,1813 [key]\n");
    const auto json =
        aaactl({"sg", "key", "radius", "corp", "192.0.2.21,1812,1813", "--json"}, "third").json();
    EXPECT_EQ(json["generation"], 1);
    EXPECT_EQ(json["stored"][0], kSettings + "192.0.2.21,1812,1813/key");
}

TEST_F(GroupKeys, AreTypedTwiceOnATerminalWithoutEcho) {
    aaactl_test::Started started({"sg", "key", "radius", "corp"}, aaactl_test::Started::On::terminal);
    ASSERT_TRUE(started.wait_shown("Key: "));
    started.type("hunter2\n");
    ASSERT_TRUE(started.wait_shown("Repeat the key: "));
    started.type("hunter3\n");
    EXPECT_EQ(started.wait(), 3);
    EXPECT_NE(started.shown().find("the two keys differ"), std::string::npos) << started.shown();
    EXPECT_EQ(started.shown().find("hunter"), std::string::npos) << started.shown();
    EXPECT_EQ(states(), "missing, missing");
}

TEST_F(GroupKeys, AreNotStoredWhereNoServerIsMeant) {
    const auto group = aaactl({"sg", "key", "radius", "crop"}, "key");
    EXPECT_EQ(group.status, 4);
    EXPECT_NE(group.err.find("crop: no such server group of radius; did you mean corp?"), std::string::npos);
    EXPECT_EQ(aaactl({"sg", "key", "tacacs", "corp"}, "key").status, 4);
    EXPECT_EQ(aaactl({"sg", "key", "radius", "corp", "192.0.2.22"}, "key").status, 4);
    EXPECT_EQ(aaactl({"sg", "key", "diameter", "corp"}, "key").status, 2);
    EXPECT_EQ(aaactl({"sg", "key", "radius", "corp"}, "").status, 2) << "no key";
    ASSERT_EQ(unlink(dir().path("master.keys").c_str()), 0);
    EXPECT_EQ(aaactl({"sg", "key", "radius", "corp"}, "key").status, 5) << "no master key";
    EXPECT_EQ(states(), "missing, missing");
}

TEST_F(GroupKeys, ThatDoNotOpenAreToldByList) {
    put(kSettings + "key", "string", "in clear");
    EXPECT_EQ(states(), "unusable, unusable");
    ASSERT_EQ(aaactl({"sg", "key", "radius", "corp"}, "shared key").status, 0);
    EXPECT_EQ(states(), "opens, opens");
    ASSERT_EQ(unlink(dir().path("master.keys").c_str()), 0);
    EXPECT_EQ(states(), "unusable, unusable");
    ASSERT_EQ(aaactl({"key", "new-master"}).status, 0);
    EXPECT_EQ(states(), "unusable, unusable") << "another master key";
    EXPECT_NE(aaactl({"sg", "list"}).out.find("192.0.2.20,1812,1813 [key does not open]"), std::string::npos);
    put(kSettings + "192.0.2.20,1812,1813/transport", "string", "tls");
    ASSERT_EQ(aaactl({"sysdb", "del", kSettings + "key"}).status, 0);
    EXPECT_EQ(states(), "not needed, missing");
}

// aaad uses a key that earlier versions sealed; other programs may refuse it.
TEST_F(GroupKeys, ThatAreNotPrintableAreRefusedAndToldByList) {
    const auto refused = aaactl({"sg", "key", "radius", "corp"}, "p\xc3\xa4ss\n");
    EXPECT_EQ(refused.status, 3);
    EXPECT_EQ(refused.err, "aaactl: the key has characters that are not printable ASCII\n");
    EXPECT_EQ(aaactl({"sg", "key", "radius", "corp"}, "one\ntwo\n").status, 3);
    EXPECT_EQ(states(), "missing, missing");
    ASSERT_EQ(aaactl({"sg", "key", "radius", "corp"}, "hunter2\r\n").status, 0);
    EXPECT_EQ(opened("key"), "hunter2");
    const std::unique_ptr<char, decltype(&std::free)> sealed(pw_encrypt("p\xc3\xa4ss", 7), &std::free);
    ASSERT_NE(sealed, nullptr);
    put(kSettings + "key", "string", sealed.get());
    EXPECT_EQ(states(), "unprintable, unprintable");
    EXPECT_NE(aaactl({"sg", "list"}).out.find("[key not printable]"), std::string::npos);
    EXPECT_NE(aaactl({"lint"}).out.find("the key has characters that are not printable ASCII [sealed-key]"),
              std::string::npos);
}

TEST_F(GroupKeys, AddSaysThatTheyAreMissing) {
    const auto run = aaactl({"sg", "add", "tacacs", "archive", "192.0.2.30"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "aaactl: no key is stored for some of its servers: aaactl sg key tacacs archive\n");
    ASSERT_EQ(aaactl({"sg", "key", "tacacs", "archive"}, "key").status, 0);
    EXPECT_EQ(aaactl({"sg", "add", "tacacs", "archive", "192.0.2.31"}).err, "");
}

// ---- delete

TEST_F(Groups, DeletesServersAndGroups) {
    ASSERT_EQ(aaactl({"sg", "add", "radius", "corp", "192.0.2.20", "192.0.2.21", "192.0.2.22,1,2"}).status,
              0);
    ASSERT_EQ(aaactl({"sg", "add", "tacacs", "archive", "::1,4949", "::2"}).status, 0);
    EXPECT_EQ(aaactl({"sg", "del", "radius", "corp", "192.0.2.20", "192.0.2.99"}).status, 4);
    EXPECT_EQ(aaactl({"sg", "del", "radius", "corp", "192.0.2.20", "192.0.2.22,1,2"}).status, 0);
    EXPECT_EQ(aaactl({"sg", "del", "tacacs", "archive", "::1"}).status, 0);
    const auto left = aaactl({"sg", "del", "tacacs", "archive", "::2", "--json"}).json();
    EXPECT_EQ(left["group"]["servers"].size(), 0u);
    EXPECT_EQ(aaactl({"sg", "list"}).out,
              "PROTOCOL  NAME     NUMBER  SERVERS\n"
              "radius    corp     1001    192.0.2.21,1812,1813 [no key]\n"
              "tacacs    archive  3001\n");
    EXPECT_EQ(aaactl({"sg", "del", "tacacs", "corp"}).status, 4) << "another protocol";
    EXPECT_EQ(aaactl({"sg", "del", "radius", "corp"}).status, 0);
    EXPECT_EQ(aaactl({"sg", "del", "radius", "corp"}).status, 4);
    EXPECT_EQ(aaactl({"sysdb", "dump", "/oper/"}).out.find("corp"), std::string::npos);
    EXPECT_EQ(aaactl({"sysdb", "dump", "/cfg/"}).out.find("corp"), std::string::npos);
}

TEST_F(Groups, WhatIsNoServerIsShownAsSuchAndCanBeDeleted) {
    ASSERT_EQ(aaactl({"sg", "add", "radius", "corp", "192.0.2.20"}).status, 0);
    put("/cfg/gl/aaa/group-server/radius/corp/server/0x2/192.0.2.21,1812x", "u32", "1");
    put("/cfg/gl/aaa/group-server/radius/corp/server/three/192.0.2.22,1,2", "u32", "1");
    EXPECT_EQ(aaactl({"sg", "list"}).out,
              "PROTOCOL  NAME  NUMBER  SERVERS\n"
              "radius    corp  1001    192.0.2.20,1812,1813 [no key] 192.0.2.21 (not usable: \"1812x\" is "
              "not a port) "
              "three (not usable: \"three/\" is not an ordinal of a server)\n");
    const auto servers = aaactl({"sg", "list", "--json"}).json()["groups"][0]["servers"];
    EXPECT_FALSE(servers[0].contains("defect"));
    EXPECT_EQ(servers[1]["defect"], "\"1812x\" is not a port");
    EXPECT_EQ(aaactl({"sg", "del", "radius", "corp", "192.0.2.21,1812x", "three"}).status, 0);
    EXPECT_EQ(aaactl({"sysdb", "dump", "/cfg/"}).out,
              "aaactl-dump 1 /cfg/\n"
              "/cfg/gl/aaa/group-server/radius/corp/server/0x1/192.0.2.20,1812,1813 u32 1\n"
              "# end: 1 items\n");
}

TEST_F(Groups, DeletesServersAsTheyAreListed) {
    ASSERT_EQ(aaactl({"sg", "add", "tacacs", "archive", "::1,4949", "::2"}).status, 0);
    EXPECT_EQ(aaactl({"sg", "del", "tacacs", "archive", "::1,4949"}).status, 0);
    EXPECT_EQ(aaactl({"sg", "list"}).out,
              "PROTOCOL  NAME     NUMBER  SERVERS\ntacacs    archive  3001    ::2 [no key]\n");
}

TEST_F(Groups, DeletionThatEndedHalfWayIsFinishedByTheNext) {
    put("/oper/aaa/gl/group-server/sg_name_map/radius/old", "u32", "1009");
    put("/oper/aaa/gl/group-server/sg_num_map/radius/0x3f1", "string", "old");
    EXPECT_EQ(aaactl({"sg", "del", "radius", "old"}).status, 0);
    EXPECT_EQ(aaactl({"sysdb", "dump", "/oper/"}).out, "aaactl-dump 1 /oper/\n# end: 0 items\n");
}

}  // namespace
