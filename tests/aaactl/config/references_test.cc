// SPDX-License-Identifier: Apache-2.0
//
// What items refer to, as sysdb set and load check it, and everything wrong with a dump at once.

#include "aaactl/support/database_fixture.hpp"

namespace {

using aaactl_test::aaactl;

constexpr char kLogin[] = "/cfg/gl/aaa/authentication/login/";
constexpr char kCorp[] = "/cfg/gl/aaa/group-server/radius/corp/";

class References : public aaactl_test::DatabaseTest {
  protected:
    void SetUp() override { ASSERT_EQ(aaactl({"sg", "add", "radius", "corp", "192.0.2.20"}).status, 0); }

    static aaactl_test::Run set(const std::string &path, const std::string &type, const std::string &value,
                                const std::vector<std::string> &more = {}) {
        std::vector<std::string> args{"sysdb", "set", path, "--type", type};
        args.insert(args.end(), more.begin(), more.end());
        return aaactl(args, value);
    }
    static void refused(const std::string &path, const std::string &type, const std::string &value,
                        const std::string &why) {
        const auto run = set(path, type, value);
        EXPECT_EQ(run.status, 1) << path;
        EXPECT_EQ(run.err, "aaactl: " + path + ": " + why + " (--force stores it all the same)\n");
        EXPECT_EQ(value_of(path), "") << "it was stored";
        EXPECT_EQ(set(path, type, value, {"--force"}).status, 0);
    }
    static aaactl_test::Run load(const std::string &lines, const std::vector<std::string> &more = {},
                                 const std::string &directory = "/cfg/") {
        std::vector<std::string> args{"sysdb", "load", "-"};
        args.insert(args.end(), more.begin(), more.end());
        const auto number = std::count(lines.begin(), lines.end(), '\n');
        return aaactl(args, "aaactl-dump 1 " + directory + "\n" + lines + "# end: " + std::to_string(number) +
                                " items\n");
    }
    static std::string group_list(const std::string &name, const std::string &group) {
        return kLogin + name + " tuple (10, 2, 0, 0, \"" + group + "\", \"\", \"\", \"\")\n";
    }
    static std::string dump() { return aaactl({"sysdb", "dump", "--show-secrets"}).out; }
};

TEST_F(References, AListNamesGroupsThatExist) {
    EXPECT_EQ(set(std::string(kLogin) + "a", "tuple", R"(10,2,0,0,"corp","","","")").status, 0);
    refused(std::string(kLogin) + "b", "tuple", R"(10,2,0,0,"crop","","","")",
            "no server group \"crop\" exists, and the service skips it; did you mean corp?");
    refused(std::string(kLogin) + "c", "tuple", R"(2,10,0,0,"","elsewhere","","")",
            "no server group \"elsewhere\" exists, and the service skips it; use corp");
    refused("/cfg/gl/aaa/accounting/exec/default", "tuple", R"(0,0,0,10,0,0,0,"crop","","","")",
            "no server group \"crop\" exists, and the service skips it; did you mean corp?");
    EXPECT_EQ(set(std::string(kLogin) + "d", "tuple", R"(2,0,0,0,"crop","","","")").status, 0)
        << "a name without a method is not read";
}

TEST_F(References, AGroupThatIsOnlyPublishedExists) {
    put("/oper/aaa/gl/group-server/sg_name_map/radius/lab", "u32", "1500");
    EXPECT_EQ(set(std::string(kLogin) + "a", "tuple", R"(10,2,0,0,"lab","","","")").status, 0);
}

TEST_F(References, SettingsAreOfServersThatExist) {
    const std::string settings = std::string(kCorp) + "settings/";
    EXPECT_EQ(set(settings + "192.0.2.20,1812,1813/tries", "u32", "3").status, 0);
    EXPECT_EQ(set(settings + "tries", "u32", "3").status, 0);
    refused(settings + "192.0.2.21,1812,1813/tries", "u32", "3",
            "no server \"192.0.2.21,1812,1813\" exists in " + std::string(kCorp) +
                ", so nothing reads its settings; did you mean 192.0.2.20,1812,1813?");
    refused("/cfg/gl/aaa/tacacs/settings/192.0.2.21/tries", "u32", "3",
            "no server \"192.0.2.21\" exists in /cfg/gl/aaa/tacacs/, so nothing reads its settings; add the "
            "server first");
    put("/cfg/gl/aaa/tacacs/host/0x1/192.0.2.30,0x31/", "directory", "");
    EXPECT_EQ(set("/cfg/gl/aaa/tacacs/settings/192.0.2.30,0x31/tries", "u32", "3").status, 0);
    ASSERT_EQ(aaactl({"sg", "add", "radius", "settings", "192.0.2.9"}).status, 0);
    const std::string odd = "/cfg/gl/aaa/group-server/radius/settings/settings/";
    EXPECT_EQ(set(odd + "192.0.2.9,1812,1813/tries", "u32", "3").status, 0) << "a group of this name";
    refused(odd + "192.0.2.8,1812,1813/tries", "u32", "3",
            "no server \"192.0.2.8,1812,1813\" exists in /cfg/gl/aaa/group-server/radius/settings/, so "
            "nothing reads its settings; did you mean 192.0.2.9,1812,1813?");
}

TEST_F(References, SettingsAloneMakeNoGroup) {
    refused("/cfg/gl/aaa/group-server/radius/crop/settings/tries", "u32", "3",
            "no server group \"crop\" of radius exists, so nothing reads its settings; create it with "
            "\"aaactl sg add radius crop\"");
    put("/cfg/gl/aaa/group-server/radius/lab/", "directory", "");
    EXPECT_EQ(set("/cfg/gl/aaa/group-server/radius/lab/settings/tries", "u32", "3").status, 0);
}

TEST_F(References, AGroupHasANameThatNoOtherProtocolHas) {
    refused("/cfg/gl/aaa/group-server/tacacs/corp/server/0x1/192.0.2.3", "u32", "1",
            "a server group of radius has the name \"corp\" already; programs would not find both");
}

// The order of the lines does not count.
TEST_F(References, ADumpMayBringWhatItRefersTo) {
    const std::string lab = "/cfg/gl/aaa/group-server/radius/lab/";
    EXPECT_EQ(load(group_list("default", "lab") + lab + "settings/192.0.2.1,1,2/tries u32 3\n" + lab +
                   "server/0x1/192.0.2.1,1,2 u32 1\n")
                  .status,
              0);
    const auto missing = load(group_list("x", "lba") + group_list("y", "corp"));
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err,
              "aaactl: standard input: line 2: " + std::string(kLogin) +
                  "x: no server group \"lba\" exists, and the service skips it; did you mean lab? "
                  "Nothing was loaded (--force loads it all the same)\n");
    EXPECT_EQ(load(group_list("x", "lba"), {"--force"}).status, 0);
    EXPECT_EQ(load(group_list("x", "lba")).status, 0) << "it is stored already";
}

TEST_F(References, ReplaceLeavesNoListWithoutItsGroup) {
    ASSERT_EQ(aaactl({"mlist", "set", "authentication", "login", "default", "group:corp"}).status, 0);
    const std::string before = dump();
    const std::string list =
        std::string(kLogin) + "default tuple (10, 0, 0, 0, \"corp\", \"\", \"\", \"\")\n";
    const auto same = load(list, {"--replace"});
    EXPECT_EQ(same.status, 1) << same.err;
    EXPECT_NE(same.err.find("line 2: " + std::string(kLogin) + "default: no server group \"corp\" exists"),
              std::string::npos)
        << same.err;
    const auto elsewhere = load("", {"--replace"}, "/cfg/gl/aaa/group-server/");
    EXPECT_EQ(elsewhere.status, 1) << elsewhere.err;
    EXPECT_NE(elsewhere.err.find("in the database: " + std::string(kLogin) + "default: no server group"),
              std::string::npos)
        << elsewhere.err;
    EXPECT_EQ(dump(), before);
    EXPECT_EQ(load("", {"--replace", "--force"}, "/cfg/gl/aaa/group-server/").status, 0);
}

TEST_F(References, AllProblemsOfADumpAreReportedInItsOrder) {
    const std::string before = dump();
    const auto run =
        load("/cfg/gl/aaa/foo u32 1\n" + group_list("x", "crop") + "hunter2\n/cfg/site/key string " +
             "********\n/cfg/n u32 x\n" + kCorp + "settings/trise u32 1\n");
    EXPECT_EQ(run.status, 3);
    std::vector<std::string> lines;
    for (size_t at = 0; at < run.err.size(); at = run.err.find('\n', at) + 1) {
        lines.push_back(run.err.substr(at, run.err.find('\n', at) - at));
    }
    const std::vector<std::string> expected{
        "line 2: /cfg/gl/aaa/foo: \"foo\" is not read here; ",
        "line 3: " + std::string(kLogin) + "x: no server group \"crop\" exists",
        "line 4: PATH TYPE VALUE is expected",
        "line 5: /cfg/site/key: the value is masked, and no value of its type is stored",
        "line 6: \"x\" is not a number",
        "line 7: " + std::string(kCorp) +
            "settings/trise: \"trise\" is not a setting; did you mean tries? "
            "Nothing was loaded"};
    ASSERT_EQ(lines.size(), expected.size()) << run.err;
    for (size_t i = 0; i < lines.size(); ++i) {
        EXPECT_TRUE(lines[i].starts_with("aaactl: standard input: " + expected[i])) << lines[i];
    }
    EXPECT_EQ(run.err.find("hunter2"), std::string::npos) << "a word without a path may be a secret";
    EXPECT_EQ(run.err.find("--force"), std::string::npos) << "it does not load these lines";
    EXPECT_EQ(dump(), before);
}

}  // namespace
