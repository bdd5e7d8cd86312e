// SPDX-License-Identifier: Apache-2.0
//
// Completion in bash: the script is run by bash, with words as bash splits them.

#include "aaactl/completion/offers.hpp"
#include "aaactl/support/database_fixture.hpp"

namespace {

using aaactl_test::aaactl;
using aaactl_test::has;
using aaactl_test::in_shell;
using aaactl_test::kOfPositions;
using aaactl_test::Lines;
using aaactl_test::sorted_lines;

class BashCompletion : public aaactl_test::DatabaseTest {
  protected:
    BashCompletion() {
        dir().write("aaactl.bash", aaactl({"completion", "bash"}).out);
        dir().write("message.bin", "");
    }

    static void add(const std::vector<std::string> &args) {
        const auto run = aaactl(args);
        ASSERT_EQ(run.status, 0) << run.err;
    }

    // What bash offers for the last of these words, sorted.
    Lines offered(const std::string &words) const {
        // The number of words is counted by bash, because it splits them.
        dir().write("ask.bash", "cd " + dir().path("") + "\nsource ./aaactl.bash\nCOMP_WORDS=(aaactl " +
                                    words +
                                    ")\nCOMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n_aaactl\n"
                                    "printf '%s\\n' \"${COMPREPLY[@]}\"\n");
        const auto run = in_shell("bash --norc " + dir().path("ask.bash") + " 2>&1");
        EXPECT_EQ(run.status, 0) << run.out;
        return sorted_lines(run.out);
    }
};

TEST_F(BashCompletion, KnowsPositions) {
    for (const auto &[words, fits] : kOfPositions) {
        EXPECT_EQ(offered(words), Lines{fits}) << words;
    }
}

TEST_F(BashCompletion, CompletesPathsOfTheDatabase) {
    put("/cfg/site/limit", "u32", "1");
    put("/cfg/site/with blank", "u32", "1");
    put("/cfg/site/sub/x", "u32", "1");
    EXPECT_EQ(offered("sysdb get \"\""), (Lines{"/cfg/", "/oper/"}));
    EXPECT_EQ(offered("sysdb get /c"), Lines{"/cfg/"});
    EXPECT_EQ(offered("sysdb get /cfg/s"), Lines{"/cfg/site/"});
    EXPECT_EQ(offered("sysdb --json ls /cfg/site/"),
              (Lines{"/cfg/site/limit", "/cfg/site/sub/", "/cfg/site/with blank"}));
    EXPECT_EQ(offered("sysdb del '/cfg/site/with\\ b'"), Lines{"/cfg/site/with blank"});
    EXPECT_EQ(offered("key reseal /cfg/site/limit /cfg/site/su"), Lines{"/cfg/site/sub/"});
    EXPECT_EQ(offered("sysdb diff mess"), Lines{"message.bin"}) << "the first argument is a file";
}

TEST_F(BashCompletion, CompletesGroupsListsAndServers) {
    add({"sg", "add", "radius", "corp", "192.0.2.20", "192.0.2.21"});
    add({"sg", "add", "radius", "core"});
    add({"sg", "add", "tacacs", "my group"});
    add({"mlist", "set", "authentication", "login", "console", "local"});
    EXPECT_EQ(offered("sg list co"), (Lines{"core", "corp"}));
    EXPECT_EQ(offered("sg list my"), Lines{"my group"});
    for (const std::string command : {"sg del", "sg delete", "sg rm", "sg key"}) {
        EXPECT_EQ(offered(command + " tacacs co"), Lines{}) << command;
        EXPECT_EQ(offered(command + " tacacs m"), Lines{"my group"}) << command;
        EXPECT_EQ(offered(command + " radius co"), (Lines{"core", "corp"})) << command;
        EXPECT_EQ(offered(command + " radius corp 192.0.2."), (Lines{"192.0.2.20", "192.0.2.21"})) << command;
    }
    EXPECT_EQ(offered("mlist del authentication login c"), Lines{"console"});
    // Bash splits "group:co" at the colon, and replaces only what follows it.
    EXPECT_EQ(offered("mlist set authentication login x group : co"), (Lines{"core", "corp"}));
    EXPECT_TRUE(has(offered("mlist set authentication login x group"), "group:corp"));
}

TEST_F(BashCompletion, CompletesCommits) {
    add({"commit", "before-upgrade"});
    add({"commit", "with blank"});
    add({"mlist", "set", "authentication", "login", "default", "local"});
    add({"rollback", "2"});  // and a commit of the change
    for (const std::string &word : Lines{"4", "before-upgrade", "last", "with blank"}) {
        EXPECT_EQ(offered("rollback " + word.substr(0, 1)), Lines{word});
    }
    EXPECT_EQ(offered("show commit be"), Lines{"before-upgrade"});
    EXPECT_EQ(offered("diff be"), Lines{"before-upgrade"});
    EXPECT_EQ(offered("diff before-upgrade ru"), Lines{"running"});
}

TEST_F(BashCompletion, CompletesValuesOfOptions) {
    EXPECT_EQ(offered("decode --kind = li"), Lines{"list"});
    EXPECT_EQ(offered("decode --input bin"), Lines{"binary"});
    EXPECT_EQ(offered("sg --color never list --protocol ra"), Lines{"radius"});
    EXPECT_EQ(offered("encode -o mess"), Lines{"message.bin"});
}

// Nobody can read what appears in the line that is being typed.
TEST_F(BashCompletion, IsSilentWithoutADatabase) {
    const ScopedEnv cfg("AAA_SYSDB_CFG_DIR", dir().write("file", "") + "/below");
    const ScopedEnv log("AAA_LOG", "stderr");
    EXPECT_EQ(offered("sysdb get /cfg/s"), Lines{});
    EXPECT_EQ(offered("sg list co"), Lines{});
    EXPECT_EQ(offered("mlist set authentication login d"), Lines{"default"});
}

// A name may be one that a shell would run.
TEST_F(BashCompletion, RunsNoName) {
    put("/cfg/site/$(touch ran)", "u32", "1");
    put("/cfg/site/`touch ran`", "u32", "1");
    EXPECT_EQ(offered("sysdb get /cfg/site/").size(), 2u);
    EXPECT_EQ(offered("sysdb get '/cfg/site/$(touch ran)' ''"), offered("sysdb get x ''"));
    EXPECT_FALSE(has(offered("decode r"), "ran"));
}

}  // namespace
