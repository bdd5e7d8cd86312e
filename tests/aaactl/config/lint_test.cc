// SPDX-License-Identifier: Apache-2.0
//
// lint: a correct configuration, and each possible fault.

#include <sys/stat.h>
#include <unistd.h>

#include "aaactl/config/aaa_config_fixture.hpp"
#include "aaactl/support/damaged_items.hpp"
#include "platform/cipher.h"
#include "platform/control.h"

namespace {

using Result = aaactl_test::Run;
using Lines = std::vector<std::string>;

class Lint : public aaactl_test::AaaConfigTest {
  protected:
    // A configuration without faults.
    void SetUp() override {
        groups();
        list("authentication/login/default", R"(10, 2, 0, 0, "corp", "", "", "")");
        list("authorization/commands/default", R"(10, 1, 0, 0, "archive", "", "", "")");
        list("accounting/exec/default", R"(0, 0, 0, 10, 0, 0, 0, "corp", "", "", "")");
    }

    static Lines lint() { return found(run({"lint", "--json"})); }
    static Lines with_list(const std::string &path, const std::string &fields) {
        list(path, fields);
        return lint();
    }
    static inline const std::string kLogin = "/cfg/gl/aaa/authentication/login/default";
    static inline const std::string kGroups = "/cfg/gl/aaa/group-server/";
};

TEST_F(Lint, ACompleteConfigurationHasNoFindings) {
    const Result text = run({"lint", "--strict"});
    EXPECT_EQ(text.status, 0) << text.out << text.err;
    EXPECT_EQ(text.out, "3 method lists and 2 server groups checked: 0 errors, 0 warnings\n");
    const auto json = run({"lint", "--json"}).json();
    EXPECT_EQ(json.dump(), R"({"method_lists":3,"server_groups":2,"errors":0,"warnings":0,"findings":[]})");
}

TEST_F(Lint, ErrorsAndStrictWarningsDecideTheExitStatus) {
    list("authentication/login/default", R"(10, 0, 0, 0, "corp", "", "", "")");
    EXPECT_EQ(run({"lint"}).status, 0);
    EXPECT_EQ(run({"lint", "--strict"}).status, 1);
    const Result text = run({"lint"});
    EXPECT_TRUE(contains(text.out, "warning: " + kLogin + ": all of its methods need servers")) << text.out;
    EXPECT_TRUE(contains(text.out, "[no-fallback]\n    end the list with")) << text.out;
    EXPECT_TRUE(contains(text.out, "0 errors, 1 warning\n")) << text.out;
    list("authentication/login/default", R"(0, 0, 0, 0, "", "", "", "")");
    EXPECT_EQ(run({"lint"}).status, 1);
}

TEST_F(Lint, AnEmptyDatabaseLacksOnlyLogins) {
    ASSERT_EQ(run({"sysdb", "del", "-r", "/cfg/gl"}).status, 0);
    ASSERT_EQ(run({"sysdb", "del", "-r", "/oper/aaa"}).status, 0);
    EXPECT_EQ(lint(), Lines{"error no-default-list " + kLogin});
    // The service answers with its fallback.
    const std::string text = run({"lint"}).out;
    EXPECT_TRUE(contains(text, "or the fallback of aaad.conf [no-default-list]")) << text;
    EXPECT_FALSE(contains(text, "no one can log in")) << text;
    EXPECT_EQ(run({"lint"}).status, 1);
    const auto explained = run({"explain", "authentication", "login", "--json"});
    EXPECT_EQ(explained.status, 1);
    EXPECT_EQ(explained.json()["findings"][0]["severity"], "error");
}

// ---- method lists

TEST_F(Lint, FindsWhatIsWrongWithAList) {
    const std::string path = "authentication/login/default";
    EXPECT_EQ(with_list(path, R"(10, 2, 0, 0, "gone", "", "", "")"),
              (Lines{"error lock-out " + kLogin, "error dangling-group " + kLogin}));
    EXPECT_EQ(with_list(path, R"(10, 2, 0, 0, "", "", "", "")"),
              (Lines{"error lock-out " + kLogin, "error dangling-group " + kLogin}));
    EXPECT_EQ(with_list(path, R"(0, 0, 0, 0, "", "", "", "")"), Lines{"error empty-list " + kLogin});
    EXPECT_EQ(with_list(path, R"(10, 0, 0, 0, "gone", "", "", "")"),
              (Lines{"error lock-out " + kLogin, "error dangling-group " + kLogin,
                     "error ends-in-nothing " + kLogin}));
    EXPECT_EQ(with_list(path, R"(2, 0, 12, 0, "", "", "", "")"), Lines{"warning hidden-method " + kLogin});
    EXPECT_EQ(with_list(path, R"(2, 8, 0, 0, "", "", "", "")"), Lines{"error unknown-method " + kLogin});
    EXPECT_EQ(with_list(path, R"(2, 4711, 0, 0, "", "", "", "")"), Lines{"error unknown-method " + kLogin});
    EXPECT_EQ(with_list(path, R"(10, 10, 2, 0, "corp", "corp", "", "")"),
              Lines{"warning repeated-method " + kLogin});
    EXPECT_EQ(with_list(path, R"(10, 10, 2, 0, "corp", "archive", "", "")"), Lines{}) << "two groups";
    EXPECT_EQ(with_list(path, R"(2, 1, 0, 0, "", "", "", "")"), Lines{"warning open-login " + kLogin});
    EXPECT_EQ(with_list(path, R"(1, 0, 0, 0, "", "", "", "")"), Lines{"warning open-login " + kLogin});
    EXPECT_EQ(with_list(path, R"(1, 2, 0, 0, "", "", "", "")"),
              (Lines{"warning unreachable-method " + kLogin, "warning open-login " + kLogin}));
    put("/cfg/gl/aaa/authentication/ppp/default", "tuple", R"(2, 1, 0, 0, "", "", "", "")");
    EXPECT_EQ(with_list(path, R"(2, 0, 0, 0, "", "", "", "")"),
              Lines{"warning open-fallback /cfg/gl/aaa/authentication/ppp/default"});
    EXPECT_EQ(run({"sysdb", "del", "/cfg/gl/aaa/authentication/ppp/default"}).status, 0);
    EXPECT_EQ(with_list(path, R"(3, 2, 0, 0, "", "", "", "")"),
              Lines{"error no-servers /cfg/gl/aaa/radius/host/"});
    put("/cfg/gl/aaa/radius/host/0x1/192.0.2.1,1812,1813", "u32", "1");
    EXPECT_EQ(lint(), Lines{"error no-key /cfg/gl/aaa/radius/host/0x1/192.0.2.1,1812,1813"});
    put("/cfg/gl/aaa/radius/settings/transport", "string", "tls");
    EXPECT_EQ(lint(), Lines{});
}

TEST_F(Lint, FindsWhatIsNoList) {
    put(kLogin, "u32", "1");
    const Lines malformed{"error lock-out " + kLogin, "error malformed-list " + kLogin};
    EXPECT_EQ(lint(), malformed);
    EXPECT_EQ(with_list("authentication/login/default", R"(2, 0, 0, "", "", "", "")"), malformed);
    EXPECT_EQ(with_list("authentication/login/default", R"(2, 0, 0, 0, "", "", "")"), malformed);
    EXPECT_EQ(with_list("authentication/login/default", R"(2, 0, 0, 0, "", 5, "", "", "")"), malformed);
    list("authentication/login/default", R"(2, 0, 0, 0, "", "", "", "")");
    EXPECT_EQ(with_list("accounting/exec/default", R"(10, 0, 0, 0, "corp", "", "", "")"),
              Lines{"error malformed-list /cfg/gl/aaa/accounting/exec/default"});
}

TEST_F(Lint, FindsWhatNothingUses) {
    EXPECT_EQ(with_list("authentication/lgin/default", R"(2, 0, 0, 0, "", "", "", "")"),
              Lines{"warning unused-service /cfg/gl/aaa/authentication/lgin/default"});
    EXPECT_TRUE(contains(
        run({"lint"}).out,
        "\"lgin\" is not a service of authentication: no request uses the list; did you mean login?"));
    ASSERT_EQ(run({"sysdb", "del", "-r", "/cfg/gl/aaa/authentication/lgin"}).status, 0);
    const std::string exec = "/cfg/gl/aaa/accounting/exec/default";
    EXPECT_EQ(with_list("accounting/exec/default", R"(0, 0, 0, 10, 2, 0, 0, "corp", "", "", "")"),
              Lines{"warning unsuitable-method " + exec});
    EXPECT_EQ(with_list("accounting/exec/default", R"(0, 0, 0, 2, 0, 0, 0, "", "", "", "")"),
              (Lines{"warning unsuitable-method " + exec, "error ends-in-nothing " + exec}));
}

TEST_F(Lint, FindsServicesWithoutADefaultList) {
    list("authorization/exec/ops", R"(2, 0, 0, 0, "", "", "", "")");
    EXPECT_EQ(lint(), Lines{"warning no-default-list /cfg/gl/aaa/authorization/exec/default"});
    list("authorization/exec/default", R"(2, 0, 0, 0, "", "", "", "")");
    EXPECT_EQ(lint(), Lines{});
}

TEST_F(Lint, LooksAtEveryFunction) {
    list("authorization_nacm/exec/default", R"(0, 0, 0, 0, "", "", "", "")");
    EXPECT_EQ(lint(), Lines{"error empty-list /cfg/gl/aaa/authorization_nacm/exec/default"});
}

TEST_F(Lint, FindsNamesThatNobodyCanType) {
    list("authentication/login/gr\xc3\xbc\xc3\x9f", R"(2, 0, 0, 0, "", "", "", "")");
    EXPECT_EQ(lint(), Lines{"warning invalid-name /cfg/gl/aaa/authentication/login/gr\xc3\xbc\xc3\x9f"});
}

// ---- groups

TEST_F(Lint, FindsGroupsWithoutServers) {
    put(kGroups + "radius/hollow/server/", "directory", "");
    number("radius", "hollow", 1002);
    EXPECT_EQ(lint(), Lines{"warning empty-group " + kGroups + "radius/hollow/"}) << "no list needs it";
    list("authentication/login/default", R"(10, 2, 0, 0, "hollow", "", "", "")");
    EXPECT_EQ(lint(), Lines{"error empty-group " + kGroups + "radius/hollow/"});
    list("authentication/login/default", R"(10, 0, 0, 0, "hollow", "", "", "")");
    EXPECT_EQ(lint(),
              (Lines{"error ends-in-nothing " + kLogin, "error empty-group " + kGroups + "radius/hollow/"}));
}

TEST_F(Lint, FindsNumbersThatAreMissingStaleOrContradictEachOther) {
    ASSERT_EQ(run({"sysdb", "del", kMaps + "sg_name_map/radius/corp"}).status, 0);
    EXPECT_EQ(lint(), (Lines{"error lock-out " + kLogin, "error lock-out /cfg/gl/aaa/accounting/exec/default",
                             "error ends-in-nothing /cfg/gl/aaa/accounting/exec/default",
                             "error unnumbered-group " + kGroups + "radius/corp/"}));
    number("radius", "corp", 1001);
    put(kMaps + "sg_num_map/radius/0x3e9", "string", "other");
    EXPECT_EQ(lint(),
              (Lines{"error wrong-number " + kLogin, "error wrong-number /cfg/gl/aaa/accounting/exec/default",
                     "error contradicting-number " + kMaps}));
    number("radius", "corp", 1001);
    number("diameter", "gone", 3002);
    EXPECT_EQ(lint(), Lines{"warning stale-number " + kMaps + "sg_name_map/diameter/gone"});
}

TEST_F(Lint, FindsNamesThatLeadElsewhere) {
    server("tacacs/corp", "0x1/192.0.2.31");
    EXPECT_EQ(lint(), Lines{"error ambiguous-group " + kGroups + "tacacs/corp/"});
    ASSERT_EQ(run({"sysdb", "del", "-r", kGroups + "tacacs/corp"}).status, 0);
    server("tacacs/local", "0x1/192.0.2.31");
    number("tacacs", "local", 3002);
    EXPECT_EQ(lint(), Lines{"error reserved-name " + kGroups + "tacacs/local/"});
}

// The remedies named no command, or one that was refused.
TEST_F(Lint, RemediesOfNamesAndMissingServersAreCommandsThatWork) {
    const auto follow = [](const std::string &code) {
        std::string command;
        const auto document = run({"lint", "--json"}).json();
        for (const auto &finding : document["findings"]) {
            const std::string remedy = finding["remedy"].text();
            if (finding["code"] == code) {
                command = remedy.substr(remedy.rfind(": ") + 2);
            }
        }
        const std::string program = AAACTL_PROGRAM;
        const std::string shell =
            "PATH=" + program.substr(0, program.rfind('/')) + ":$PATH; AAA_LOG=none; export PATH AAA_LOG; " +
            "AAA_SYSDB_PROVIDER=" AAACTL_PROVIDER "; export AAA_SYSDB_PROVIDER; " + command + " >/dev/null";
        EXPECT_EQ(system(shell.c_str()), 0) << command;
        return command;
    };
    server("tacacs/corp", "0x1/192.0.2.31");
    put(kGroups + "tacacs/corp/server-private/0x2/192.0.2.32", "u32", "1");
    EXPECT_EQ(lint(), Lines{"error ambiguous-group " + kGroups + "tacacs/corp/"});
    EXPECT_EQ(follow("ambiguous-group"),
              "aaactl sg add tacacs corp-tacacs 192.0.2.31 && aaactl sg add --private tacacs corp-tacacs "
              "192.0.2.32 && aaactl sg del --force tacacs corp");
    put(kGroups + "tacacs/corp-tacacs/settings/transport", "string", "tls");
    EXPECT_EQ(lint(), Lines{});
    server("tacacs/local", "0x1/192.0.2.31");
    number("tacacs", "local", 3777);
    EXPECT_EQ(follow("reserved-name"),
              "aaactl sg add tacacs local-tacacs 192.0.2.31 && aaactl sg del --force tacacs local");
    put(kGroups + "tacacs/local-tacacs/settings/transport", "string", "tls");
    EXPECT_EQ(lint(), Lines{});
    list("authentication/login/default", R"(3, 2, 0, 0, "", "", "", "")");
    EXPECT_EQ(lint(), Lines{"error no-servers /cfg/gl/aaa/radius/host/"});
    EXPECT_EQ(follow("no-servers"), "aaactl mlist set authentication login default local");
    EXPECT_EQ(lint(), Lines{});
}

TEST_F(Lint, FindsAServerInTwoSpellings) {
    const std::string servers = kGroups + "radius/corp/server/";
    server("radius/corp", "0x3/2001:0DB8:0::21,1645,1646");  // 0x2 is 2001:db8::21
    EXPECT_EQ(lint(), Lines{"warning duplicate-server " + servers + "0x3/2001:0DB8:0::21,1645,1646"});
    const auto document = run({"lint", "--json"}).json();
    EXPECT_EQ(document["findings"][0]["remedy"].text(),
              "delete one of the entries: aaactl sysdb del " + servers + "0x3/2001:0DB8:0::21,1645,1646");
    EXPECT_NE(document["findings"][0]["text"].text().find(" already, as 2001:db8::21,1645,1646"),
              std::string::npos);
}

TEST_F(Lint, FindsServersThatAreNoneOrTwice) {
    const std::string servers = kGroups + "radius/corp/server/";
    server("radius/corp", "0x3/192.0.2.20,1812,1813");
    EXPECT_EQ(lint(), Lines{"warning duplicate-server " + servers + "0x3/192.0.2.20,1812,1813"});
    ASSERT_EQ(run({"sysdb", "del", "-r", servers + "0x3"}).status, 0);
    server("radius/corp", "0x3/192.0.2.20,1645,1646");
    EXPECT_EQ(lint(), Lines{}) << "another service of the same machine";
    server("radius/corp", "0x3/192.0.2.22,1645,1646");
    EXPECT_EQ(lint(), Lines{"warning shared-ordinal " + servers + "0x3/192.0.2.22,1645,1646"});
    server("radius/corp", "0x3/192.0.2.23,1645,1646");
    server("radius/corp", "0x3/192.0.2.24,1645,1646");
    EXPECT_EQ(lint(), Lines{"warning shared-ordinal " + servers + "0x3/192.0.2.22,1645,1646"}) << "once";
    EXPECT_TRUE(contains(run({"lint"}).out,
                         "192.0.2.20,1645,1646, 192.0.2.23,1645,1646 and 192.0.2.24,1645,1646 have the same "
                         "ordinal"));
    ASSERT_EQ(run({"sysdb", "del", "-r", servers + "0x3"}).status, 0);
    for (const char *entry : {"0x3/192.0.2.300,1812,1813", "0x3/192.0.2.22,99999,1813",
                              "0x3/192.0.2.22,1,2,3", "0x3/192.0.2.22,,1", "three/192.0.2.22"}) {
        server("radius/corp", entry);
        const Lines lines = lint();
        ASSERT_EQ(lines.size(), 1u) << entry;
        EXPECT_TRUE(lines[0].starts_with("error malformed-server " + servers)) << lines[0];
        ASSERT_EQ(
            run({"sysdb", "del", "-r", servers + std::string(entry).substr(0, std::string(entry).find('/'))})
                .status,
            0);
    }
    put(kGroups + "tacacs/archive/server/0x2/192.0.2.31,0x31/", "directory", "");
    EXPECT_EQ(lint(), Lines{}) << "stored as a directory";
}

// ---- settings of servers

TEST_F(Lint, FindsSettingsThatNothingReads) {
    const std::string settings = kGroups + "radius/corp/settings/";
    put(settings + "timeout", "u32", "2000");
    put(settings + "192.0.2.20,1812,1813/tries", "u32", "3");
    EXPECT_EQ(lint(), Lines{});
    put(settings + "tiemout", "u32", "2000");
    put(settings + "legacy", "u32", "2");
    put("/cfg/gl/aaa/tacacs/settings/transport", "string", "udp");
    EXPECT_EQ(lint(), (Lines{"error malformed-setting " + settings + "legacy",
                             "error malformed-setting " + settings + "tiemout",
                             "error malformed-setting /cfg/gl/aaa/tacacs/settings/transport"}));
    EXPECT_TRUE(contains(run({"lint"}).out, "\"tiemout\" is not a setting; did you mean timeout?"));
}

// ---- lines

TEST_F(Lint, FindsRowsThatLeadNowhere) {
    list("authentication/login/vty", R"(2, 0, 0, 0, "", "", "", "")");
    dir().write("lines.conf", "# rows\npts/* authentication vty\n");
    EXPECT_EQ(lint(), Lines{});
    const std::string file = dir().write(
        "lines.conf", "pts/* authentication gone\nhalf row\n\nconsole authorization vty\ntty* * vty\n");
    EXPECT_EQ(lint(), (Lines{"error unknown-list " + file + ":1", "error malformed-row " + file + ":2",
                             "error unknown-list " + file + ":4", "error unknown-list " + file + ":5",
                             "error unknown-list " + file + ":5"}));
    dir().write("lines.conf", "", 0666);
    EXPECT_EQ(lint(), Lines{"error unusable-file " + file});
}

// ---- keys

TEST_F(Lint, FindsServersWithoutAKey) {
    without_tls("tacacs/archive");
    EXPECT_EQ(lint(), Lines{"error no-key " + kGroups + "tacacs/archive/"}) << "none of its servers has one";
    EXPECT_TRUE(contains(run({"lint"}).out, "store it: aaactl sg key tacacs archive\n"));
    put(kGroups + "radius/corp/settings/192.0.2.20,1812,1813/transport", "string", "tls");
    without_tls("radius/corp");
    put(kGroups + "tacacs/archive/settings/transport", "string", "tls");
    EXPECT_EQ(lint(), Lines{"error no-key " + kGroups + "radius/corp/server/0x2/2001:db8::21,1645,1646"});
    list("authentication/login/default", R"(2, 0, 0, 0, "", "", "", "")");
    list("accounting/exec/default", R"(0, 0, 0, 17, 0, 0, 0, "", "", "", "")");
    EXPECT_EQ(lint(), Lines{"warning no-key " + kGroups + "radius/corp/server/0x2/2001:db8::21,1645,1646"})
        << "no list needs it";
}

std::string sealed(const std::string &text) {
    char *key = pw_encrypt(text.c_str(), 7);
    const std::string result = key != nullptr ? key : "";
    std::free(key);
    return result;
}

TEST_F(Lint, FindsKeysThatDoNotDecrypt) {
    const std::string path = kGroups + "radius/corp/server/0x1/key";
    const std::string keys = dir().path("master.keys");
    ASSERT_EQ(aaa_platform_master_keys_create(keys.c_str()), 0u);
    const std::string first = sealed("hunter2");
    ASSERT_GT(first.size(), 80u);
    put("/cfg/gl/aaa/tacacs/settings/key", "string", first);
    EXPECT_EQ(lint(), Lines{});

    std::string changed = first;
    changed.back() = changed.back() == '0' ? '1' : '0';
    put("/cfg/gl/aaa/tacacs/settings/key", "string", changed);
    EXPECT_EQ(lint(), Lines{"error sealed-key /cfg/gl/aaa/tacacs/settings/key"});
    EXPECT_TRUE(contains(run({"lint"}).out, "it was changed after it was sealed"));

    uint32_t generation = 0;
    ASSERT_EQ(aaa_platform_master_keys_rotate(keys.c_str(), &generation), 0u);
    put("/cfg/gl/aaa/tacacs/settings/key", "string", sealed("hunter2"));
    EXPECT_EQ(lint(), Lines{});
    ASSERT_EQ(unlink(keys.c_str()), 0);
    EXPECT_TRUE(contains(run({"lint"}).out, "the key cannot be opened: " + keys));
    ASSERT_EQ(aaa_platform_master_keys_create(keys.c_str()), 0u);
    const Result other = run({"lint"});
    EXPECT_EQ(other.status, 1);
    EXPECT_TRUE(contains(other.out, "sealed with master key generation 02, which is not in " + keys))
        << other.out;

    put("/cfg/gl/aaa/tacacs/settings/key", "string", "hunter2");
    EXPECT_EQ(lint(), Lines{"warning clear-key /cfg/gl/aaa/tacacs/settings/key"});
    for (const char *form : {"--color=never", "--json", "--show-secrets"}) {
        EXPECT_FALSE(contains(run({"lint", form}).out, "hunter2"));
    }
}

TEST_F(Lint, FindsAFileOfMasterKeysThatIsDamagedOrCannotBeChecked) {
    const std::string keys = dir().path("master.keys");
    ASSERT_EQ(aaa_platform_master_keys_create(keys.c_str()), 0u);
    EXPECT_EQ(lint(), Lines{});
    const std::string whole = dir().read("master.keys");
    const size_t check = whole.find("#check");
    dir().write("master.keys", whole.substr(0, check) + whole.substr(whole.find('\n', check) + 1));
    EXPECT_EQ(lint(), Lines{"warning unchecked-file " + keys});
    dir().write("master.keys", whole.substr(0, whole.find("\n01 ") + 1));
    EXPECT_EQ(lint(), Lines{"error unusable-file " + keys});
}

// Earlier versions left such files when a rotation was killed.
TEST_F(Lint, FindsMasterKeysThatAreNotUsed) {
    const std::string keys = dir().path("master.keys");
    ASSERT_EQ(aaa_platform_master_keys_create(keys.c_str()), 0u);
    const std::string whole = dir().read("master.keys");
    dir().write("master.keys.notes", "no keys");
    dir().write("other", whole);
    ASSERT_EQ(mkdir(dir().path("master.keys.d").c_str(), 0700), 0);
    EXPECT_EQ(lint(), Lines{});
    dir().write("master.keys.a8Fk2x", whole);
    EXPECT_EQ(lint(), Lines{"warning other-keys " + keys + ".a8Fk2x"});
    ASSERT_EQ(unlink((keys + ".a8Fk2x").c_str()), 0);
    dir().write("master.keys.unfinished", whole);
    EXPECT_EQ(lint(), Lines{"warning other-keys " + keys + ".unfinished"});
    uint32_t generation = 0;
    ASSERT_EQ(aaa_platform_master_keys_rotate(keys.c_str(), &generation), 0u);
    EXPECT_EQ(lint(), Lines{});
}

// "key" accepts keys anywhere in the database, and rotates the master keys for all of them.
TEST_F(Lint, FindsKeysThatDoNotDecryptOutsideOfTheConfiguration) {
    const std::string keys = dir().path("master.keys");
    ASSERT_EQ(aaa_platform_master_keys_create(keys.c_str()), 0u);
    const std::string good = sealed("hunter2");
    const std::string lost = "07" + good.substr(2);
    put("/cfg/site/good/key", "string", good);
    put("/cfg/site/clear/key", "string", "hunter2");
    put("/cfg/site/fingerprint", "string", lost);
    EXPECT_EQ(lint(), Lines{});
    put("/cfg/site/key", "string", lost);
    put("/oper/site/key", "string", lost);
    EXPECT_EQ(lint(), (Lines{"error sealed-key /cfg/site/key", "error sealed-key /oper/site/key"}));
}

// Whatever "sysdb set" refuses is found when an earlier version or --force has stored it.
TEST_F(Lint, EverythingThatNothingReadsIsAFinding) {
    ASSERT_EQ(run({"lint"}).status, 0);
    put(kGroups + "radius/corp/settings/192.0.2.99,1812,1813/tries", "u32", "3");
    put(kGroups + "radius/corp/server/0x1/192.0.2.20,1812,1813", "u32", "2");
    put(kGroups + "radius/corp/sevrer/0x1/192.0.2.20,1812,1813", "u32", "1");
    put("/cfg/gl/aaa/authorization/exec", "u32", "7");
    put("/cfg/gl/aaa/site/limit", "u32", "7");
    put("/cfg/gl/aaa/site/empty/", "directory", "");
    const Result result = run({"lint", "--json"});
    EXPECT_EQ(result.status, 1) << result.err;
    const Lines all = found(result);
    for (const std::string &line :
         Lines{"error malformed-item /cfg/gl/aaa/authorization/exec",
               "error malformed-item " + kGroups + "radius/corp/server/0x1/192.0.2.20,1812,1813",
               "error malformed-item " + kGroups + "radius/corp/sevrer/0x1/192.0.2.20,1812,1813",
               "warning dangling-reference " + kGroups + "radius/corp/settings/192.0.2.99,1812,1813/tries",
               "warning unread-item /cfg/gl/aaa/site/empty/", "warning unread-item /cfg/gl/aaa/site/limit"}) {
        EXPECT_EQ(std::count(all.begin(), all.end(), line), 1) << line << "\n" << result.out;
    }
    EXPECT_EQ(all.size(), 6u) << result.out;
    EXPECT_TRUE(contains(run({"lint"}).out, "aaactl sysdb del -r /cfg/gl/aaa/site/empty/"));
    EXPECT_EQ(run({"sysdb", "del", "-r", "/cfg/gl/aaa/site/empty/"}).status, 0);
}

TEST_F(Lint, DamagedItemsAreFindings) {
    ASSERT_EQ(run({"lint"}).status, 0);
    list("authentication/login/broken", R"(0, 0, 0, 0, "", "", "", "")");
    EXPECT_EQ(lint(), Lines{"error empty-list /cfg/gl/aaa/authentication/login/broken"});
    using aaactl_test::damage;
    damage(dir(), kLogin, SYSDB_TYPE_TUPLE, "TP");
    damage(dir(), "/cfg/gl/aaa/site/key", SYSDB_TYPE_STRING, "without its NUL");
    damage(dir(), "/cfg/gl/aaa/site/typeless", "abc");
    damage(dir(), "/cfg/gl/aaa/site//nameless", SYSDB_TYPE_U32, "abcd");
    damage(dir(), "/cfg/gl/aaa/site/b\x01", SYSDB_TYPE_U32, "abcd");
    damage(dir(), kMaps + "sg_name_map/tacacs/archive", SYSDB_TYPE_U32, "abcde");
    damage(dir(), "/cfg/elsewhere", SYSDB_TYPE_U32, "abc");
    const Result result = run({"lint", "--json"});
    EXPECT_EQ(result.status, 1) << result.err;
    const Lines all = found(result);
    EXPECT_EQ(Lines(all.begin(), all.begin() + 3),
              (Lines{"error empty-list /cfg/gl/aaa/authentication/login/broken", "error lock-out " + kLogin,
                     "error malformed-list " + kLogin}));
    EXPECT_NE(std::find(all.begin(), all.end(), "error unreadable-number " + kGroups + "tacacs/archive/"),
              all.end());
    ASSERT_GE(all.size(), 5u);
    EXPECT_EQ(
        Lines(all.end() - 5, all.end()),
        (Lines{"error unreadable-item /cfg/gl/aaa/site//", "error unreadable-item /cfg/gl/aaa/site/b\\x01",
               "error unreadable-item /cfg/gl/aaa/site/key",
               "error unreadable-item /cfg/gl/aaa/site/typeless",
               "error unreadable-item " + kMaps + "sg_name_map/tacacs/archive"}));
    EXPECT_FALSE(contains(result.out, "without its NUL"));
    EXPECT_TRUE(contains(run({"lint"}).out, "value does not fit its type"));
}

TEST_F(Lint, EscapesWhatTheDatabaseHolds) {
    list("authentication/login/default", R"(10, 2, 0, 0, "\x1b[31m", "", "", "")");
    for (const char *form : {"--color=never", "--json"}) {
        const Result result = run({"lint", form});
        EXPECT_TRUE(contains(result.out, "x1b[31m")) << result.out;
        EXPECT_FALSE(contains(result.out, "\x1b")) << result.out;
    }
}

TEST_F(Lint, WithoutADatabaseItSaysSo) {
    ASSERT_EQ(run({"lint"}).status, 0);
    const ScopedEnv provider("AAA_SYSDB_PROVIDER", dir().path("absent.so"));
    const Result result = run({"lint"});
    EXPECT_EQ(result.status, 5) << result.out;
    EXPECT_NE(result.err, "");
}

}  // namespace
