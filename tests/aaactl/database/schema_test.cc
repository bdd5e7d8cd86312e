// SPDX-License-Identifier: Apache-2.0
//
// What sysdb set and load store below /cfg/gl/aaa/, and that the manual page and the service know the same
// settings.

#include "database/schema.hpp"

#include <fstream>
#include <map>
#include <regex>
#include <sstream>

#include "aaactl/support/database_fixture.hpp"

namespace {

using aaactl_test::aaactl;

class Schema : public aaactl_test::DatabaseTest {
  protected:
    static aaactl_test::Run set(const std::string &path, const std::string &type, const std::string &value) {
        return aaactl({"sysdb", "set", kRoot + path, "--type", type}, value);
    }
    static void accepted(const std::string &path, const std::string &type, const std::string &value) {
        const auto run = set(path, type, value);
        EXPECT_EQ(run.status, 0) << path << " " << value << ": " << run.err;
    }
    static void refused(const std::string &path, const std::string &type, const std::string &value,
                        const std::string &why) {
        const std::string before = value_of(kRoot + path);
        const auto run = set(path, type, value);
        EXPECT_EQ(run.status, 3) << path << " " << value;
        EXPECT_NE(run.err.find(why), std::string::npos) << run.err;
        EXPECT_NE(run.err.find(" (--force stores it all the same)\n"), std::string::npos) << run.err;
        EXPECT_EQ(value_of(kRoot + path), before) << "it was stored";
    }
    static void directory(const std::string &path, bool is_read) {
        EXPECT_EQ(aaactl({"sysdb", "set", kRoot + path}).status, is_read ? 0 : 3) << path;
    }

    static inline const std::string kRoot = "/cfg/gl/aaa/";
    static inline const std::string kSettings = "group-server/radius/corp/settings/";
    static inline const std::string kRadius = "radius/settings/";
    static inline const std::string kTacacs = "tacacs/settings/";
    static inline const std::string kSealed = "01" + std::string(100, 'a');
};

std::string content(const std::string &file) {
    std::ifstream stream(AAA_SOURCE_DIR "/" + file);
    std::stringstream text;
    text << stream.rdbuf();
    EXPECT_FALSE(text.str().empty()) << file;
    return text.str();
}

TEST_F(Schema, TakesMethodLists) {
    ASSERT_EQ(aaactl({"sg", "add", "radius", "corp"}).status, 0);
    accepted("authentication/login/default", "tuple", R"(10,2,0,0,"corp","","","")");
    accepted("accounting/exec/default", "tuple", R"(0,0,1,17,0,0,0,"","","","")");
    accepted("authorization_nacm/exec/default", "tuple", R"(2,0,0,0,"","","","")");
    refused("authentication/login/no", "tuple", R"(3999,2,0,0,"","","","")",
            "3999 is the number of a server group, and numbers do not survive a reboot; name the group");
    refused("authentication/login/" + std::string(50, 'n'), "tuple", R"(2,0,0,0,"","","","")",
            "is not a valid name; use 1 to 49 printable characters without '/'");
    refused("authentication/login/caf\xc3\xa9", "tuple", R"(2,0,0,0,"","","","")", "is not a valid name");
    const std::string form = "is a tuple of ";
    refused("authentication/login/no", "string", "local", "it is of type string, but tuple is read here");
    refused("authentication/login/no", "tuple", "2,0,0", form + "four methods and four names");
    refused("authentication/login/no", "tuple", R"(0,0,0,2,0,0,0,"","","","")", form);
    refused("authentication/login/no", "tuple", R"(2,0,0,"","","","",0)", form);
    refused("accounting/exec/no", "tuple", R"(17,0,0,0,"","","","")", form + "three integers, four methods");
    refused("authentication/login/no", "tuple", R"(18,0,0,0,"","","","")", "18 is not a method");
    refused("authentication/login/no", "tuple", R"(-1,0,0,0,"","","","")", "-1 is not a method");
    refused("authentication/login/no", "tuple", R"(10,0,0,0,"","","","")", "a server group has no name");
    refused("authentication/login", "u32", "1", "a method list is at FUNCTION/SERVICE/NAME");
    refused("authentication/login/a/b", "tuple", R"(2,0,0,0,"","","","")", "FUNCTION/SERVICE/NAME");
    refused("authentication/login/no", "tuple", R"(0,0,0,0,"","","","")", "the list has no method");
    refused("authentication/login/no", "tuple", R"(2,0,1,0,"","","","")",
            "method 1 at place 3 follows a 0, which ends the list, so it is never asked; close the gap");
    refused("authentication/login/no", "tuple", R"(17,0,0,0,"","","","")",
            "method 17 (syslog) answers no request of authentication");
    refused("authentication/lgin/default", "tuple", R"(2,0,0,0,"","","","")",
            "\"lgin\" is not a service of authentication; did you mean login?");
    refused("accounting/exex/default", "tuple", R"(0,0,0,17,0,0,0,"","","","")", "did you mean exec?");
    directory("authentication/lgin/", false);
    directory("authentication/login/", true);
    directory("authentication/login/default/", false);
}

TEST_F(Schema, TakesServers) {
    accepted("group-server/radius/corp/server/0x1/192.0.2.20,1812,1813", "u32", "1");
    accepted("group-server/radius/corp/server-private/0x1f/2001:db8::1,1,2", "u32", "1");
    accepted("group-server/tacacs/old/server/0x1/192.0.2.30", "u32", "1");
    accepted("radius/host/0x1/192.0.2.20,1812,1813", "u32", "1");
    directory("group-server/tacacs/old/server/0x2/192.0.2.30,0x31/", true);
    directory("group-server/diameter/third/server/", true);
    directory("group-server/radius/corp/sevrer/", false);
    const std::string servers = "group-server/radius/corp/server/";
    refused(servers + "0x2/192.0.2.300,1,2", "u32", "1", "\"192.0.2.300\" is not an address");
    refused(servers + "0x2/192.0.2.3,1,0", "u32", "1", "\"0\" is not a port");
    refused(servers + "0x2/192.0.2.3,1,2,3", "u32", "1", "it has more than 2 port(s)");
    refused(servers + "2/192.0.2.3,1,2", "u32", "1", "\"2\" is not an ordinal of a server");
    refused(servers + "0x2/192.0.2.3", "u32", "1", "a RADIUS server has two ports: 192.0.2.3,1812,1813");
    directory(servers + "0x2/192.0.2.3,1,2/", false);
    for (const std::string odd : {"0x0", "0x02", "0xA", "0x"}) {
        refused(servers + odd + "/192.0.2.3,1,2", "u32", "1",
                "\"" + odd + "\" is not an ordinal of a server");
    }
    refused("group-server/radius/default/server/0x1/192.0.2.3,1,2", "u32", "1",
            "\"default\" is a keyword of methods and cannot name a server group");
    directory("group-server/radius/tacacs+/", false);
    directory("group-server/radius/" + std::string(50, 'g') + "/", false);
    refused(servers + "0x2", "u32", "1", "an ordinal is a directory");
    refused(servers + "0x2/192.0.2.3,1,2", "string", "1", "but u32 is read here");
    refused(servers + "0x2/192.0.2.3,1,2/key", "string", kSealed, "its settings are below settings/");
    refused(servers + "0x2/192.0.2.3,1,2", "u32", "2", "the value of a server is 1");
    refused("group-server/tacacs/old/server/0x3/192.0.2.31,0x31", "u32", "1",
            "a server with a port is a directory here, without a value: end the path with '/'");
    refused("tacacs/host/0x1/192.0.2.31,49", "u32", "1", "a server with a port is a directory here");
    refused("group-server/radius/new", "u32", "1", "a server group is a directory");
    refused("group-server/radus/new/server/0x1/192.0.2.3,1,2", "u32", "1", "did you mean radius?");
    refused("group-server/radius/corp/timeout", "u32", "500",
            "timeout is a setting: store it below settings/");
    refused("radius/hsot/0x1/192.0.2.20,1812,1813", "u32", "1", "did you mean host/?");
}

TEST_F(Schema, TakesSettings) {
    ASSERT_EQ(aaactl({"sg", "add", "radius", "corp", "192.0.2.20"}).status, 0);
    accepted(kSettings + "key", "string", kSealed);
    accepted(kSettings + "timeout", "u32", "10");
    accepted(kSettings + "192.0.2.20,1812,1813/timeout", "u32", "60000");
    accepted(kSettings + "transport", "string", "tls");
    accepted(kSettings + "source", "string", "2001:db8::1");
    accepted(kSettings + "vendor-map", "string", "/etc/aaa/vendors");
    accepted(kTacacs + "transport", "string", "tcp");
    accepted(kTacacs + "port", "u32", "65535");
    directory(kSettings + "192.0.2.20,1812,1813/", true);
    directory(kSettings + "server/", false);
    refused(kSettings + "tries", "u32", "0", "tries is a number from 1 to 10");
    refused(kSettings + "tries", "u32", "11", "tries is a number from 1 to 10");
    refused(kSettings + "tries", "string", "3", "it is of type string, but u32 is read here");
    refused(kSettings + "trise", "u32", "3", "\"trise\" is not a setting; did you mean tries?");
    refused(kSettings + "nothing-like-it", "u32", "3", "is not a setting; use key, timeout, ");
    refused(kSettings + "pap", "u32", "1", "pap is not a setting of RADIUS");
    refused(kTacacs + "legacy", "u32", "1", "legacy is not a setting of TACACS+");
    refused("diameter/settings/timeout", "u32", "100", "timeout is not a setting of Diameter");
    refused(kTacacs + "transport", "string", "udp", "transport is tcp or tls");
    refused(kSettings + "source", "string", "eth0", "source is an IPv4 or IPv6 address");
    refused(kSettings + "ca-file", "string", "ca.pem", "ca-file is the path of a file, from the root on");
    refused(kSettings + "vrf", "string", "a-name-of-sixteen", "vrf is 1 to 15 bytes");
    refused(kSettings + "nas-identifier", "string", "a\nb", "it holds a control character");
    refused(kSettings + "192.0.2.999/tries", "u32", "3", "\"192.0.2.999\" is not an address");
    refused(kSettings + "192.0.2.20,1812,1813/extra/tries", "u32", "3",
            "settings/NAME or settings/SERVER/NAME");
}

TEST_F(Schema, ShowsNoKeyThatItRefuses) {
    for (const char *name : {"key", "192.0.2.20,1812,1813/key"}) {
        const auto run = set(kSettings + name, "string", "hunter2");
        EXPECT_EQ(run.status, 3);
        EXPECT_NE(run.err.find("the key is not sealed"), std::string::npos) << run.err;
        EXPECT_EQ(run.err.find("hunter2"), std::string::npos) << run.err;
    }
}

TEST_F(Schema, EveryTreeOfTheServiceIsKnown) {
    refused("foo", "u32", "1", "\"foo\" is not read here; use group-server, history, authentication, ");
    refused("site/limit", "u32", "1", "\"site\" is not read here; use group-server, ");
    refused("authentcation/login/default", "tuple", R"(2,0,0,0,"","","","")", "did you mean authentication?");
    directory("foo/", false);
    EXPECT_EQ(aaactl({"sysdb", "set", "/cfg/site/authentication", "--type", "u32", "1"}).status, 0);
    EXPECT_EQ(aaactl({"sysdb", "set", kRoot}).status, 0);
}

TEST_F(Schema, ForceStoresAnything) {
    const std::string path = kRoot + kRadius + "tries";
    EXPECT_EQ(aaactl({"sysdb", "set", path, "--type", "u32", "99", "--force"}).status, 0);
    EXPECT_EQ(value_of(path), "99");
}

TEST_F(Schema, ALoadIsCheckedAsAWholeBeforeAnythingIsStored) {
    const std::string dump = "aaactl-dump 1 /cfg/gl/aaa/\n" + kRoot + kRadius + "timeout u32 500\n" + kRoot +
                             kRadius + "tries u32 99\n" + kRoot + kRadius + "trise u32 3\n";
    for (const std::vector<std::string> &options : std::vector<std::vector<std::string>>{{}, {"--dry-run"}}) {
        std::vector<std::string> args{"sysdb", "load", "-"};
        args.insert(args.end(), options.begin(), options.end());
        const auto run = aaactl(args, dump);
        EXPECT_EQ(run.status, 3);
        EXPECT_EQ(run.err, "aaactl: standard input: line 3: " + kRoot + kRadius +
                               "tries: tries is a number from 1 to 10\n"
                               "aaactl: standard input: line 4: " +
                               kRoot + kRadius +
                               "trise: \"trise\" is not a setting; did you mean tries? Nothing was loaded "
                               "(--force loads it "
                               "all the same)\n");
        EXPECT_EQ(aaactl({"sysdb", "dump"}).out, "aaactl-dump 1 /cfg/\n# end: 0 items\n");
    }
    const auto json = aaactl({"sysdb", "load", "-", "--json"}, dump).json();
    EXPECT_EQ(json["faults"].size(), 2u) << json;
    EXPECT_EQ(json["faults"][0]["path"], kRoot + kRadius + "tries");
    EXPECT_EQ(aaactl({"sysdb", "load", "--force", "-"}, dump).status, 0);
    EXPECT_EQ(aaactl({"sysdb", "load", "-"}, dump).status, 0) << "it is stored already";
}

// The command works for the keys of groups and of single servers.
TEST_F(Schema, AClearKeyIsRefusedWithACommandThatStoresIt) {
    const ScopedEnv masters("AAA_MASTER_KEYS", dir().path("master.keys"));
    ASSERT_EQ(aaactl({"key", "new-master"}).status, 0);
    ASSERT_EQ(aaactl({"sg", "add", "radius", "my group", "192.0.2.1"}).status, 0);
    for (const std::string path : {"group-server/radius/my group/settings/key", "radius/settings/key"}) {
        const auto run = set(path, "string", "hunter2");
        EXPECT_EQ(run.status, 3);
        const size_t begin = run.err.find("store it with \"") + 15;
        const std::string command =
            "printf hunter2 | " + run.err.substr(begin, run.err.find('"', begin) - begin);
        const auto stored = aaactl_test::in_shell(command);
        EXPECT_EQ(stored.status, 0) << command << stored.err;
        EXPECT_EQ(aaactl({"key", "check", "--show-secrets"}, value_of(kRoot + path)).out,
                  "valid, generation 01, the newest\nhunter2\n");
    }
}

// ---- one table

TEST_F(Schema, TheManualPageHasTheSameSettings) {
    const std::string page = content("docs/man/sysdb.5.in");
    const std::regex row(R"(\.It ([a-z-]+) Ta (text|number) Ta ([^\n]*))");
    std::vector<std::string> names;
    for (std::sregex_iterator at(page.begin(), page.end(), row), end; at != end; ++at) {
        const size_t number = names.size();
        names.push_back((*at)[1]);
        ASSERT_LT(number, aaactl::settings().size());
        const aaactl::Setting &setting = aaactl::settings()[number];
        EXPECT_EQ(names.back(), setting.name) << "the order is that of the table";
        EXPECT_EQ((*at)[2], setting.type() == SYSDB_TYPE_U32 ? "number" : "text") << setting.name;
        if (setting.form == aaactl::SettingForm::number) {
            const std::string text = (*at)[3];
            const std::string range =
                setting.most == 1 ? "otherwise "
                                  : std::to_string(setting.least) + " to " + std::to_string(setting.most);
            EXPECT_NE(text.find(range), std::string::npos) << setting.name << ": " << text;
        }
    }
    EXPECT_EQ(names.size(), aaactl::settings().size());
}

TEST_F(Schema, TheServiceReadsTheSameSettings) {
    const std::string source = content("service/config/database_servers.cc");
    const std::regex call(R"re(\.(number|text|take)\("([a-z-]+)")re");
    std::map<std::string, bool> read;  // whether it is a number
    for (std::sregex_iterator at(source.begin(), source.end(), call), end; at != end; ++at) {
        read[(*at)[2]] = (*at)[1] == "number";
    }
    EXPECT_EQ(read.size(), aaactl::settings().size());
    for (const aaactl::Setting &setting : aaactl::settings()) {
        ASSERT_TRUE(read.contains(setting.name)) << setting.name;
        EXPECT_EQ(read[setting.name], setting.type() == SYSDB_TYPE_U32) << setting.name;
    }
}

}  // namespace
