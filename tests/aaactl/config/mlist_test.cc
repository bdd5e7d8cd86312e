// SPDX-License-Identifier: Apache-2.0
//
// mlist show, set and del.

#include "aaactl/support/damaged_items.hpp"
#include "aaactl/support/database_fixture.hpp"

namespace {

using aaactl_test::aaactl;
using aaactl_test::damage;
using Lists = aaactl_test::DatabaseTest;

TEST_F(Lists, AreStoredInTheFormThatIsRead) {
    ASSERT_EQ(aaactl({"sg", "add", "radius", "corp", "192.0.2.20"}).status, 0);
    ASSERT_EQ(aaactl({"mlist", "set", "authentication", "login", "default", "group:corp", "local"}).status,
              0);
    ASSERT_EQ(aaactl({"mlist", "set", "accounting", "exec", "default", "none", "line", "enable", "group:corp",
                      "--force"})
                  .status,
              0);
    EXPECT_EQ(value_of("/cfg/gl/aaa/authentication/login/default"), R"((10, 2, 0, 0, "corp", "", "", ""))");
    EXPECT_EQ(value_of("/cfg/gl/aaa/accounting/exec/default"),
              R"((0, 0, 0, 1, 12, 13, 10, "", "", "", "corp"))");
}

TEST_F(Lists, AreShownWithGroupsResolved) {
    ASSERT_EQ(aaactl({"sg", "add", "tacacs", "corp", "192.0.2.20"}).status, 0);
    put("/cfg/gl/aaa/group-server/radius/new/server/0x1/192.0.2.9,1,2", "u32", "1");
    ASSERT_EQ(aaactl({"mlist", "set", "authentication", "login", "default", "group:corp", "group:new",
                      "group:gone", "local", "--force"})
                  .status,
              0);
    ASSERT_EQ(aaactl({"mlist", "set", "authorization", "commands", "ops", "none"}).status, 0);
    put("/cfg/gl/aaa/accounting/exec/bad", "string", "x");
    put("/cfg/gl/aaa/accounting/exec/short", "tuple", "1,2,3");
    EXPECT_EQ(aaactl({"mlist", "show"}).out,
              "FUNCTION        SERVICE   NAME     METHODS\n"
              "authentication  login     default  group:corp (tacacs, 3001), group:new (radius, not "
              "published), group:gone (no such group), local\n"
              "authorization   commands  ops      none\n"
              "accounting      exec      bad      item of type string\n"
              "accounting      exec      short    tuple of another form\n");
    const auto json = aaactl({"mlist", "show", "authentication", "login", "default", "--json"}).json();
    EXPECT_EQ(
        json["lists"][0]["methods"].dump(),
        R"([{"method":10,"name":"group","group":"corp","protocol":"tacacs","number":3001},)"
        R"({"method":10,"name":"group","group":"new","protocol":"radius","number":null},)"
        R"({"method":10,"name":"group","group":"gone","protocol":null,"number":null},{"method":2,"name":"local"}])");
    EXPECT_EQ(aaactl({"mlist", "show", "authorization"}).out,
              "FUNCTION       SERVICE   NAME  METHODS\nauthorization  commands  ops   none\n");
    EXPECT_EQ(aaactl({"mlist", "show", "authorization", "login"}).status, 4);
    EXPECT_EQ(aaactl({"mlist", "show", "authentication", "login", "other"}).status, 4);
}

TEST_F(Lists, RefuseWhatNothingUses) {
    const auto refused = [](const std::vector<std::string> &args, const std::string &why) {
        const auto run = aaactl(args);
        EXPECT_EQ(run.status, 2) << run.err;
        EXPECT_NE(run.err.find(why), std::string::npos) << run.err;
    };
    refused({"mlist", "set", "authentication", "lgin", "default", "local"},
            "lgin: not a service of authentication; did you mean login?");
    refused({"mlist", "set", "authorization", "comands", "default", "local"}, "did you mean commands?");
    refused({"mlist", "set", "authorization", "mgbl-rpc", "default", "local"},
            "mgbl-rpc: not a service of authorization; use ");
    refused({"mlist", "set", "accounting", "exec", "default", "local"}, "local: not a method for accounting");
    refused({"mlist", "set", "authentication", "login", "default", "syslog"},
            "syslog: not a method for authentication");
    refused({"mlist", "set", "authentication", "login", "default", "lcoal"}, "did you mean local?");
    ASSERT_EQ(aaactl({"sg", "add", "radius", "corp", "192.0.2.20"}).status, 0);
    const auto group = aaactl({"mlist", "set", "authentication", "login", "default", "group:crop"});
    EXPECT_EQ(group.status, 1);
    EXPECT_NE(group.err.find("group:crop: no such server group; did you mean corp?"), std::string::npos)
        << group.err;
    EXPECT_EQ(aaactl({"mlist", "show"}).out, "FUNCTION  SERVICE  NAME  METHODS\n") << "nothing was stored";
    EXPECT_EQ(aaactl({"mlist", "set", "--force", "authentication", "lgin", "default", "syslog"}).status, 0);
    EXPECT_EQ(value_of("/cfg/gl/aaa/authentication/lgin/default"), R"((17, 0, 0, 0, "", "", "", ""))");
}

TEST_F(Lists, SuggestTheListThatWasMeant) {
    ASSERT_EQ(aaactl({"mlist", "set", "authentication", "login", "console", "local"}).status, 0);
    const auto refused = [](const std::vector<std::string> &args, const std::string &why) {
        const auto run = aaactl(args);
        EXPECT_EQ(run.status, 4) << run.err;
        EXPECT_NE(run.err.find(why), std::string::npos) << run.err;
    };
    refused({"mlist", "show", "authentication", "login", "consol"}, "did you mean console?");
    refused({"mlist", "del", "authentication", "login", "consoel"}, "did you mean console?");
    refused({"mlist", "del", "authentication", "logn", "console"}, "did you mean login?");
    const auto explained = aaactl({"explain", "authentication", "login", "--list", "consle"});
    EXPECT_EQ(explained.status, 4);
    EXPECT_NE(explained.out.find("the service has console (did you mean console?)."), std::string::npos)
        << explained.out;
    EXPECT_NE(aaactl({"explain", "authentication", "lgoin"}).err.find("did you mean login?"),
              std::string::npos);
}

TEST_F(Lists, NothingConfiguredIsAnEmptyTable) {
    EXPECT_EQ(aaactl({"mlist", "show"}).out, "FUNCTION  SERVICE  NAME  METHODS\n");
    EXPECT_EQ(aaactl({"mlist", "show", "--json"}).json()["lists"].size(), 0u);
}

TEST_F(Lists, RefuseWhatIsNoMethodOrGroup) {
    const auto unknown =
        aaactl({"mlist", "set", "authentication", "login", "default", "group:none", "local"});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_NE(unknown.err.find("group:none: no such server group"), std::string::npos) << unknown.err;
    const std::vector<std::vector<std::string>> bad{
        {"mlist", "set", "authentication", "login", "default"},
        {"mlist", "set", "authentication", "login", "default", "magic"},
        {"mlist", "set", "authentication", "login", "default", "group:"},
        {"mlist", "set", "authentication", "login", "default", "group:a/b"},
        {"mlist", "set", "authentication", "login", "default", "10"},
        {"mlist", "set", "authentication", "login", "default", "0", "local"},
        {"mlist", "set", "authentication", "login", "default", "18"},
        {"mlist", "set", "authentication", "login", "default", "4294967295"},
        {"mlist", "set", "authentication", "login", "default", "local", "local", "local", "local", "local"},
        {"mlist", "set", "identification", "login", "default", "local"},
        {"mlist", "set", "authentication", "log/in", "default", "local"},
        {"mlist", "set", "authentication", "login", "", "local"},
    };
    for (const auto &args : bad) {
        EXPECT_EQ(aaactl(args).status, 2) << args.back();
    }
    EXPECT_EQ(aaactl({"sysdb", "dump"}).out, "aaactl-dump 1 /cfg/\n# end: 0 items\n") << "nothing was stored";
}

TEST_F(Lists, SuggestTheMethodThatWasMeant) {
    ASSERT_EQ(aaactl({"sg", "add", "radius", "corp", "192.0.2.20"}).status, 0);
    const auto set = [](const std::string &method) {
        const auto run = aaactl({"mlist", "set", "authentication", "login", "default", method, "local"});
        EXPECT_EQ(run.status, 2) << method;
        return run.err;
    };
    EXPECT_EQ(set("corp"), "aaactl: \"corp\" is not a method; did you mean group:corp?\n");
    EXPECT_EQ(set("lokal"), "aaactl: \"lokal\" is not a method; did you mean local?\n");
    EXPECT_EQ(set("magic"),
              "aaactl: \"magic\" is not a method; use group:NAME, local, none, line, enable, ...\n");
}

TEST_F(Lists, ThatOpenLoginsGetANote) {
    const auto set = [](const std::string &service, std::vector<std::string> methods) {
        methods.insert(methods.begin(), {"mlist", "set", "authentication", service, "default"});
        const auto run = aaactl(methods);
        EXPECT_EQ(run.status, 0) << run.err;
        return run.err;
    };
    const std::string list = "aaactl: /cfg/gl/aaa/authentication/login/default: ";
    EXPECT_EQ(set("login", {"none"}),
              list + "\"none\" admits every user without a password; \"local\" asks for one\n");
    EXPECT_EQ(set("login", {"local", "none"}), list +
                                                   "when no method before \"none\" answers, every user is "
                                                   "admitted without a password; \"local\" asks for one\n");
    EXPECT_EQ(set("login", {"local"}), "");
    EXPECT_EQ(set("ppp", {"none"}), "");
}

TEST_F(Lists, AccountingKeepsWhatStandsInFront) {
    put("/cfg/gl/aaa/accounting/exec/default", "tuple", R"(1,2,3,1,0,0,0,"","","","")");
    ASSERT_EQ(aaactl({"mlist", "set", "accounting", "exec", "default", "syslog"}).status, 0);
    EXPECT_EQ(value_of("/cfg/gl/aaa/accounting/exec/default"), R"((1, 2, 3, 17, 0, 0, 0, "", "", "", ""))");
}

TEST_F(Lists, WhatIsNoListIsToldWithTheRest) {
    ASSERT_EQ(aaactl({"mlist", "set", "authentication", "login", "default", "local"}).status, 0);
    ASSERT_EQ(aaactl({"mlist", "set", "accounting", "exec", "default", "syslog"}).status, 0);
    damage(dir(), "/cfg/gl/aaa/authentication/login/cut", SYSDB_TYPE_TUPLE, "TP\x01");
    put("/cfg/gl/aaa/authorization/exec/text", "string", "local");
    const auto text = aaactl({"mlist", "show"});
    EXPECT_EQ(text.status, 3);
    EXPECT_EQ(text.out,
              "FUNCTION        SERVICE  NAME     METHODS\n"
              "authentication  login    cut      value does not fit its type\n"
              "authentication  login    default  local\n"
              "authorization   exec     text     item of type string\n"
              "accounting      exec     default  syslog\n");
    EXPECT_EQ(text.err,
              "aaactl: /cfg/gl/aaa/authentication/login/cut: value does not fit its type\n"
              "aaactl: /cfg/gl/aaa/authorization/exec/text: item of type string\n");
    const auto json = aaactl({"mlist", "show", "authentication", "--json"});
    EXPECT_EQ(json.status, 3);
    EXPECT_EQ(json.json()["lists"][0]["fault"], "value does not fit its type");
    EXPECT_EQ(json.json()["lists"][1]["methods"][0]["name"], "local");
    EXPECT_EQ(aaactl({"mlist", "show", "accounting"}).status, 0) << "no fault there";
}

TEST_F(Lists, ADamagedNumberOfAGroupIsToldWithTheRest) {
    ASSERT_EQ(aaactl({"sg", "add", "radius", "corp", "192.0.2.20"}).status, 0);
    ASSERT_EQ(aaactl({"mlist", "set", "authentication", "login", "default", "group:corp", "local"}).status,
              0);
    const std::string item = "/oper/aaa/gl/group-server/sg_name_map/radius/corp";
    damage(dir(), item, SYSDB_TYPE_U32, "abc");
    const auto run = aaactl({"mlist", "show"});
    EXPECT_EQ(run.status, 3);
    EXPECT_NE(run.out.find("group:corp (value does not fit its type), local\n"), std::string::npos)
        << run.out;
    EXPECT_EQ(run.err, "aaactl: " + item + ": value does not fit its type\n");
    EXPECT_EQ(aaactl({"mlist", "show", "--json"}).json()["lists"][0]["methods"][0]["fault"],
              "value does not fit its type");
}

TEST_F(Lists, NamesThatNoGroupCanHaveHideNoOtherList) {
    put("/cfg/gl/aaa/authentication/login/default", "tuple", R"(10,10,10,2,"","a/b","\x1b","")");
    put("/cfg/gl/aaa/group-server/radius/a/b", "u32", "1");
    ASSERT_EQ(aaactl({"mlist", "set", "accounting", "exec", "default", "syslog"}).status, 0);
    const auto run = aaactl({"mlist", "show"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out,
              "FUNCTION        SERVICE  NAME     METHODS\n"
              "authentication  login    default  group: (no such group), group:a/b (no such group), "
              "group:\\x1b (no such group), local\n"
              "accounting      exec     default  syslog\n");
}

TEST_F(Lists, ADamagedListIsReplaced) {
    ASSERT_EQ(aaactl({"mlist", "set", "accounting", "exec", "default", "syslog"}).status, 0);
    damage(dir(), "/cfg/gl/aaa/accounting/exec/default", SYSDB_TYPE_TUPLE, "TP\x01");
    EXPECT_EQ(aaactl({"mlist", "set", "accounting", "exec", "default", "none"}).status, 0);
    EXPECT_EQ(value_of("/cfg/gl/aaa/accounting/exec/default"), R"((0, 0, 0, 1, 0, 0, 0, "", "", "", ""))");
}

TEST_F(Lists, AreDeleted) {
    ASSERT_EQ(aaactl({"mlist", "set", "authentication", "login", "default", "local"}).status, 0);
    EXPECT_EQ(aaactl({"mlist", "del", "authentication", "login", "other"}).status, 4);
    EXPECT_EQ(aaactl({"mlist", "del", "authentication", "login", "default"}).status, 0);
    EXPECT_EQ(aaactl({"mlist", "show", "authentication"}).status, 4);
}

}  // namespace
