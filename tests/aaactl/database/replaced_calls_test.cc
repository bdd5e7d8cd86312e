// SPDX-License-Identifier: Apache-2.0
//
// One message for a failure: what the platform reports about it is a part of the command's own sentence.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "aaactl/support/database_fixture.hpp"

namespace {

using aaactl_test::aaactl;

class OneMessage : public aaactl_test::DatabaseTest {
  protected:
    OneMessage() : log_("AAA_LOG", "stderr"), keys_("AAA_MASTER_KEYS", dir().path("master.keys")) {}

    static void expect_one(const std::vector<std::string> &args, const std::string &message, int status = 5) {
        const auto run = aaactl(args, "x");
        EXPECT_EQ(run.status, status);
        EXPECT_EQ(run.err, "aaactl: " + message + "\n");
        auto json_args = args;
        json_args.emplace_back("--json");
        EXPECT_EQ(aaactl(json_args, "x").json()["error"]["message"], message);
    }

  private:
    ScopedEnv log_;
    ScopedEnv keys_;
};

TEST_F(OneMessage, OfMasterKeysNamesTheFileOnceAndTheRemedy) {
    const std::string file = dir().path("master.keys");
    const std::string remedy =
        "there is no such file; restore it from a backup, or if no key is sealed yet: aaactl key new-master";
    expect_one({"key", "seal"}, "the key cannot be sealed with " + file + ": " + remedy);
    expect_one({"key", "masters"}, file + ": Master key file cannot be used: " + remedy);
    dir().write("master.keys", "no keys\n", 0600);
    expect_one(
        {"key", "rotate"},
        file + ": Master key file cannot be used: line 1 is not valid; restore the file from a backup");
}

TEST_F(OneMessage, OfTheDatabaseHasTheReasonInsteadOfAHint) {
    const ScopedEnv cfg("AAA_SYSDB_CFG_DIR", "/proc/none");
    const auto run = aaactl({"sysdb", "set", "/cfg/x", "--type", "u32", "1"});
    EXPECT_EQ(run.status, 5);
    EXPECT_TRUE(
        run.err.starts_with("aaactl: /cfg/: System database cannot read or write its files: directory "
                            "/proc/none cannot be made: "))
        << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
    EXPECT_EQ(run.err.find("(see "), std::string::npos) << "the reason says more than the hint";
}

TEST_F(OneMessage, OfAKeyThatDoesNotOpenIsTheVerdict) {
    ASSERT_EQ(aaactl({"key", "new-master"}).status, 0);
    std::string sealed = aaactl({"key", "seal"}, "hunter2").out;
    sealed[sealed.size() - 2] = sealed[sealed.size() - 2] == '0' ? '1' : '0';
    const auto check = aaactl({"key", "check"}, sealed);
    EXPECT_EQ(check.status, 1);
    EXPECT_EQ(check.err, "");
    put("/cfg/site/key", "string", sealed.substr(0, sealed.size() - 1));
    EXPECT_EQ(aaactl({"lint"}).err, "");
    ASSERT_EQ(aaactl({"sg", "add", "radius", "corp", "192.0.2.20"}).status, 0);
    put("/cfg/gl/aaa/group-server/radius/corp/settings/key", "string", sealed.substr(0, sealed.size() - 1));
    const auto list = aaactl({"sg", "list"});
    EXPECT_EQ(list.err, "");
    EXPECT_NE(list.out.find("[key does not open]"), std::string::npos) << list.out;
}

TEST_F(OneMessage, GoesToTheLogWhereThatWasAskedFor) {
    const ScopedEnv log("AAA_LOG", "none");
    const auto run = aaactl({"key", "masters"});
    EXPECT_EQ(run.err, "aaactl: " + dir().path("master.keys") + ": Master key file cannot be used\n");
}

// A program that writes what looks like a line of the platform is not the platform.
TEST_F(OneMessage, OutputOfTheCommandIsNeverKept) {
    const auto run = aaactl({"err", "%AAA-PLATFORM-3-SYSDB : x"});
    EXPECT_EQ(run.status, 4);
    EXPECT_NE(run.err.find("%AAA-PLATFORM-3-SYSDB : x"), std::string::npos) << run.err;
}

// Symptom: the library's thread made the database in commands that only read.
TEST_F(OneMessage, CommandsThatReadMakeNoDatabase) {
    const ScopedEnv log("AAA_LOG", "");
    for (const std::vector<std::string> &args : {std::vector<std::string>{"lint"},
                                                 {"explain", "authentication", "login"},
                                                 {"sg", "list"},
                                                 {"mlist", "show"},
                                                 {"sysdb", "get", "/cfg/x"},
                                                 {"sysdb", "dump"},
                                                 {"show", "running-config"},
                                                 {"err", "0"},
                                                 {"attr"},
                                                 {"key", "masters"}}) {
        const auto run = aaactl(args);
        EXPECT_EQ(run.err.find('%'), std::string::npos) << args[0] << ": " << run.err;
        EXPECT_FALSE(std::filesystem::exists(dir().path("cfg"))) << args[0];
        EXPECT_FALSE(std::filesystem::exists(dir().path("run"))) << args[0];
    }
}

// Symptom: what the library's thread logged about the database was glued into messages about other things.
TEST_F(OneMessage, OfACommandIsNotAboutTheDatabaseThatItDoesNotUse) {
    std::filesystem::create_directory(dir().path("cfg"));
    dir().write("cfg/cfg.mdb", std::string(8192, 'x'), 0600);
    const std::string remedy =
        "there is no such file; restore it from a backup, or if no key is sealed yet: aaactl key new-master";
    const auto masters = aaactl({"key", "masters"});
    EXPECT_EQ(masters.err,
              "aaactl: " + dir().path("master.keys") + ": Master key file cannot be used: " + remedy + "\n");
    const auto get = aaactl({"sysdb", "get", "/cfg/x"});
    EXPECT_EQ(get.status, 5);
    EXPECT_NE(get.err.find("cfg.mdb"), std::string::npos) << get.err;
    EXPECT_EQ(std::count(get.err.begin(), get.err.end(), '\n'), 1) << get.err;
    EXPECT_EQ(get.err.find('%'), std::string::npos) << get.err;
}

// Symptom: lines that are no errors were printed before the findings of a command.
TEST_F(OneMessage, WarningsAreLeftToTheLog) {
    ASSERT_EQ(aaactl({"sg", "add", "radius", "corp", "192.0.2.20"}).status, 0);
    put("/oper/aaa/gl/group-server/sg_name_map/radius/corp", "string", "x");
    const ScopedEnv log("AAA_LOG", "");
    for (const std::vector<std::string> &args :
         {std::vector<std::string>{"lint"}, {"explain", "authentication", "login"}, {"sg", "list"}}) {
        EXPECT_EQ(aaactl(args).err.find('%'), std::string::npos) << aaactl(args).err;
    }
}

// Only errors were shown: a misspelt setting had no effect, and no one was told.
TEST_F(OneMessage, ASettingThatIsNotUsedIsNamed) {
    const ScopedEnv log("AAA_LOG", "");
    const struct {
        const char *variable, *value, *used;
    } settings[] = {{"AAA_SYSDB_MAP_MIB", "plenty", "; 256 is used\n"},
                    {"AAA_SYSDB_WAIT_MS", "-1", "; 5000 is used\n"},
                    {"AAA_SYSDB_GROUP", "no such group", " the directory above"},
                    {"AAA_SYSDB_GROUP", "4294967296", " the directory above"}};
    for (const auto &[variable, value, used] : settings) {
        const ScopedEnv setting(variable, value);
        for (const std::vector<std::string> &words :
             {std::vector<std::string>{"sysdb", "ls", "/cfg/"}, {"sysdb", "get", "/cfg/nothing"}}) {
            const auto run = aaactl_test::aaactl(words);
            const std::string line = std::string("aaactl: ") + variable + "=" + value + " is n";
            const size_t at = run.err.find(line);
            ASSERT_NE(at, std::string::npos) << run.err;
            EXPECT_NE(run.err.find(used, at), std::string::npos) << run.err;
            EXPECT_EQ(run.err.find(line, at + 1), std::string::npos) << "once: " << run.err;
            EXPECT_EQ(run.err.find('%'), std::string::npos) << run.err;
        }
    }
}

}  // namespace
