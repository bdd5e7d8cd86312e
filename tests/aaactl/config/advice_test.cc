// SPDX-License-Identifier: Apache-2.0
//
// The commands that findings advise, run by a shell as they are printed: each succeeds, and the finding is
// gone after it.

#include <unistd.h>

#include "aaactl/config/aaa_config_fixture.hpp"
#include "aaactl/support/damaged_items.hpp"
#include "platform/control.h"

namespace {

using aaactl_test::in_shell;

class Advice : public aaactl_test::AaaConfigTest {
  protected:
    // A configuration without faults.
    void SetUp() override {
        groups();
        list("authentication/login/default", R"(10, 2, 0, 0, "corp", "", "", "")");
    }

    // The remedies of lint, or of another command with findings, by code and path.
    static std::map<std::string, std::string> remedies(std::vector<std::string> command = {"lint"}) {
        command.push_back("--json");
        std::map<std::string, std::string> all;
        for (const auto &finding : run(command).json()["findings"]) {
            all[finding["code"].text() + " " + finding["path"].text()] = finding["remedy"].text();
        }
        return all;
    }
    // "" when the remedy has no command.
    static std::string command_of(const std::string &remedy) {
        for (const char *start : {": aaactl ", ": key="}) {
            if (const size_t at = remedy.find(start); at != std::string::npos) {
                return remedy.substr(at + 2);
            }
        }
        return "";
    }
    // Runs the command that is advised for the code, which must be the only one of its findings.
    std::string follow(const std::string &code) {
        std::string command;
        std::string key;
        for (const auto &[finding, remedy] : remedies()) {
            if (finding.starts_with(code + " ")) {
                key = finding;
                command = command_of(remedy);
                EXPECT_NE(command, "") << remedy;
            }
        }
        EXPECT_NE(key, "") << "no finding " << code;
        const auto result = in_shell("cd '" + dir().path(".") + "' && { " + command + "\n}");
        EXPECT_EQ(result.status, 0) << command << ": " << result.err;
        EXPECT_FALSE(remedies().contains(key)) << command << " does not mend it";
        return command;
    }
    std::string with_list(const std::string &fields, const std::string &code) {
        list("authentication/login/default", fields);
        return follow(code);
    }

    static inline const std::string kSet = "aaactl mlist set authentication login default ";
    static inline const std::string kGroups = "/cfg/gl/aaa/group-server/";
};

TEST_F(Advice, ForMethodListsSetsTheCorrectedList) {
    EXPECT_EQ(with_list(R"(2, 0, 0, "", "", "", "")", "malformed-list"), kSet + "local");
    EXPECT_EQ(with_list(R"(0, 0, 0, 0, "", "", "", "")", "empty-list"), kSet + "local");
    EXPECT_EQ(with_list(R"(10, 0, 13, 2, "corp", "", "", "")", "hidden-method"),
              kSet + "group:corp enable local");
    EXPECT_EQ(with_list(R"(10, 8, 2, 0, "corp", "", "", "")", "unknown-method"), kSet + "group:corp local");
    EXPECT_EQ(with_list(R"(4711, 0, 0, 0, "", "", "", "")", "unknown-method"), kSet + "local");
    EXPECT_EQ(with_list(R"(10, 10, 2, 2, "corp", "corp", "", "")", "repeated-method"),
              kSet + "group:corp local");
    EXPECT_EQ(with_list(R"(10, 2, 0, 0, "gone", "", "", "")", "dangling-group"), kSet + "local");
    EXPECT_EQ(with_list(R"(10, 2, 0, 0, "", "", "", "")", "dangling-group"), kSet + "local");
    EXPECT_EQ(with_list(R"(10, 2, 0, 0, "gone", "", "", "")", "lock-out"), kSet + "local");
    EXPECT_EQ(with_list(R"(10, 1, 2, 0, "corp", "", "", "")", "unreachable-method"),
              kSet + "group:corp none");
    EXPECT_EQ(with_list(R"(10, 1, 0, 0, "corp", "", "", "")", "open-login"), kSet + "group:corp local");
    EXPECT_EQ(with_list(R"(2, 1, 0, 0, "", "", "", "")", "open-login"), kSet + "local");
    EXPECT_EQ(with_list(R"(1, 0, 0, 0, "", "", "", "")", "open-login"), kSet + "local");
    EXPECT_EQ(with_list(R"(10, 0, 0, 0, "corp", "", "", "")", "no-fallback"), kSet + "group:corp local");
    EXPECT_EQ(with_list(R"(10, 10, 10, 10, "corp", "archive", "corp", "archive")", "no-fallback"),
              kSet + "group:corp group:archive group:corp local");
}

TEST_F(Advice, ForListsThatNothingUses) {
    list("accounting/exec/default", R"(0, 0, 0, 10, 2, 0, 0, "corp", "", "", "")");
    EXPECT_EQ(follow("unsuitable-method"), "aaactl mlist set accounting exec default group:corp");
    list("authentication/lgin/default", R"(0, 0, 0, 0, "", "", "", "")");
    EXPECT_EQ(follow("empty-list"), "aaactl mlist set --force authentication lgin default local");
    EXPECT_EQ(follow("unused-service"), "aaactl sysdb del /cfg/gl/aaa/authentication/lgin/default");
}

TEST_F(Advice, ForAListWithAnotherFaultSetsNothingThatIsRefused) {
    EXPECT_EQ(with_list(R"(10, 10, 2, 2, "gone", "gone", "", "")", "repeated-method"), kSet + "local");
    EXPECT_EQ(with_list(R"(10, 8, 1, 0, "gone", "", "", "")", "open-login"), kSet + "local");
}

TEST_F(Advice, NamesTheListOfTheFinding) {
    list("accounting/exec/ops", R"(10, 0, 0, 0, "corp", "", "", "")");
    EXPECT_EQ(follow("malformed-list"), "aaactl mlist set accounting exec ops group:corp");
    EXPECT_EQ(follow("no-default-list"), "aaactl mlist set accounting exec default syslog");
    ASSERT_EQ(run({"sysdb", "del", "/cfg/gl/aaa/authentication/login/default"}).status, 0);
    EXPECT_EQ(follow("no-default-list"), kSet + "local");
    aaactl_test::damage(dir(), "/cfg/gl/aaa/authentication/login/default", SYSDB_TYPE_TUPLE, "TP");
    EXPECT_EQ(follow("malformed-list"), kSet + "local");
}

// A name is what its author chose, and may be anything that a shell would act on.
TEST_F(Advice, QuotesNamesForTheShell) {
    for (const std::string name :
         {"it's", "$(touch marker)", "two words", "-x", "--force", ";'; touch marker #"}) {
        list("authentication/login/" + name, R"(0, 0, 0, 0, "", "", "", "")");
        const std::string command = follow("empty-list");
        EXPECT_EQ(run({"mlist", "show", "authentication", "login"}).status, 0) << command;
    }
    EXPECT_NE(access(dir().path("marker").c_str(), F_OK), 0);
    server("radius/o'dd $HOME", "0x1/192.0.2.40,1812,1813");
    EXPECT_EQ(follow("unnumbered-group"), "aaactl sg publish");
    EXPECT_TRUE(contains(run({"sg", "list"}).out, "o'dd $HOME  1002"));
    list("authentication/login/default", R"(10, 0, 0, 0, "o'dd $HOME", "", "", "")");
    EXPECT_EQ(follow("no-fallback"), kSet + R"('group:o'\''dd $HOME' local)");
}

TEST_F(Advice, HasNoCommandForNamesThatCommandsRefuse) {
    list("authentication/login/gr\xc3\xbc\xc3\x9f", R"(0, 0, 0, 0, "", "", "", "")");
    const auto all = remedies();
    const auto found = all.find("empty-list /cfg/gl/aaa/authentication/login/gr\xc3\xbc\xc3\x9f");
    ASSERT_NE(found, all.end());
    EXPECT_EQ(command_of(found->second), "") << found->second;
    EXPECT_TRUE(contains(found->second, "under another name")) << found->second;
}

// "sg publish" changes no value that it cannot read, and was advised.
TEST_F(Advice, ForNumbersOfAnotherTypeEndsTheLockOut) {
    put(kMaps + "sg_name_map/radius/corp", "string", "abc");
    const auto explained = remedies({"explain", "authentication", "login"});
    const auto found = explained.find("lock-out /cfg/gl/aaa/authentication/login/default");
    ASSERT_NE(found, explained.end());
    const std::string command = follow("lock-out");
    EXPECT_EQ(command_of(found->second), command);
    EXPECT_EQ(remedies().size(), 0u);
    put(kMaps + "sg_name_map/radius/corp", "string", "abc");
    put(kMaps + "sg_num_map/radius/0x3e9", "u32", "7");
    follow("lock-out");
    EXPECT_EQ(remedies().size(), 0u);
    char number[16];
    std::snprintf(number, sizeof number, "0x%lx",
                  std::strtoul(value_of(kMaps + "sg_name_map/radius/corp").c_str(), nullptr, 10));
    put(kMaps + "sg_num_map/radius/" + number, "u32", "7");
    follow("contradicting-number");
    EXPECT_EQ(remedies().size(), 0u);
    EXPECT_EQ(run({"explain", "authentication", "login"}).status, 0);
}

// The remedy deleted the number, and then found that no other one was free.
TEST_F(Advice, ForAGroupWithoutItsNumberTakesNothingFromIt) {
    put(kMaps + "sg_num_map/radius/0x7cf", "string", "ghost");
    put(kMaps + "sg_num_map/radius/0x3e9", "string", "other");
    EXPECT_EQ(follow("contradicting-number"), "aaactl sg publish");
    EXPECT_TRUE(remedies().empty());
    EXPECT_EQ(run({"sg", "add", "radius", "branch", "192.0.2.77"}).status, 0);
}

TEST_F(Advice, ForGroupsKeepsTheirServers) {
    const std::string servers = run({"sg", "list", "--json"}).out;
    put(kMaps + "sg_num_map/radius/0x3e9", "string", "other");
    EXPECT_EQ(follow("contradicting-number"), "aaactl sg publish");
    aaactl_test::damage(dir(), kMaps + "sg_name_map/tacacs/archive", SYSDB_TYPE_U32, "abcde");
    EXPECT_EQ(follow("unreadable-number"), "aaactl sg publish");
    EXPECT_TRUE(contains(run({"sg", "list"}).out, "192.0.2.20,1812,1813")) << servers;
    ASSERT_EQ(run({"sysdb", "del", kMaps + "sg_name_map/radius/corp"}).status, 0);
    EXPECT_EQ(follow("unnumbered-group"), "aaactl sg publish");
    ASSERT_EQ(run({"sysdb", "del", "-r", "/oper/aaa"}).status, 0);
    EXPECT_EQ(follow("lock-out"), "aaactl sg publish");
    number("diameter", "gone", 3002);
    EXPECT_EQ(follow("stale-number"), "aaactl sg del diameter gone");
    EXPECT_TRUE(remedies().empty());
}

TEST_F(Advice, DeletesItemsThatNoProgramCanRead) {
    ASSERT_EQ(run({"lint"}).status, 0);
    using aaactl_test::damage;
    damage(dir(), "/cfg/gl/aaa/site/it's", SYSDB_TYPE_STRING, "without its NUL");
    EXPECT_EQ(follow("unreadable-item"), R"(aaactl sysdb del '/cfg/gl/aaa/site/it'\''s')");
    damage(dir(), "/cfg/gl/aaa/site//nameless", SYSDB_TYPE_U32, "abcd");
    EXPECT_TRUE(contains(follow("unreadable-item"), "load --replace"));
    damage(dir(), "/cfg/gl/aaa/site/b\x01", SYSDB_TYPE_U32, "abc");
    EXPECT_TRUE(contains(follow("unreadable-item"), "load --replace"));
    EXPECT_TRUE(remedies().empty()) << "the rest is still there";
}

TEST_F(Advice, SealsAClearKey) {
    const std::string path = kGroups + "radius/corp/key";
    put(path, "string", "hunter two");
    const auto without = remedies();
    const std::string command = command_of(without.at("clear-key " + path));
    EXPECT_NE(in_shell(command).status, 0) << "no master keys";
    EXPECT_EQ(run({"sysdb", "get", "--show-secrets", path}).out, "hunter two\n") << "the key was lost";
    ASSERT_EQ(aaa_platform_master_keys_create(dir().path("master.keys").c_str()), 0u);
    follow("clear-key");
    const auto opened =
        in_shell("aaactl sysdb get --show-secrets " + path + " | aaactl key check --show-secrets");
    EXPECT_TRUE(contains(opened.out, "\nhunter two\n")) << opened.out << opened.err;
}

// "sysdb get" prints this key with escapes, which would be sealed instead of it.
TEST_F(Advice, HasNoCommandForAKeyThatIsPrintedOtherwise) {
    const std::string path = kGroups + "radius/corp/key";
    put(path, "string", "back\\slash");
    EXPECT_EQ(command_of(remedies().at("clear-key " + path)), "");
}

TEST_F(Advice, OfExplainWorksToo) {
    const std::vector<std::string> explain{"explain", "authentication", "login"};
    size_t followed = 0;
    const auto follow_all = [&] {
        for (const auto &[finding, remedy] : remedies(explain)) {
            if (const std::string command = command_of(remedy); !command.empty()) {
                EXPECT_EQ(in_shell(command).status, 0) << command;
                EXPECT_FALSE(remedies(explain).contains(finding)) << command;
                ++followed;
            }
        }
    };
    list("authentication/login/default", R"(10, 1, 0, 0, "gone", "", "", "")");
    follow_all();
    EXPECT_GT(followed, 0u);
    ASSERT_EQ(run({"sysdb", "del", "/cfg/gl/aaa/authentication/login/default"}).status, 0);
    follow_all();
}

}  // namespace
