// SPDX-License-Identifier: Apache-2.0
//
// Completion in zsh and fish: each shell completes a line. Zsh does it only while a line is edited, so it
// runs on a terminal of its own.

#include "aaactl/completion/offers.hpp"
#include "aaactl/support/database_fixture.hpp"

namespace {

using aaactl_test::aaactl;
using aaactl_test::has;
using aaactl_test::in_shell;
using aaactl_test::kOfPositions;
using aaactl_test::Lines;
using aaactl_test::sorted_lines;

// What compadd takes of its words is noted, as the line editor would show it.
constexpr char kZshSetup[] = R"(compdef() { }
_files() { compadd -- *(N) }
source ./aaactl.zsh
compadd() {
    local -a hits
    builtin compadd -O hits "$@"
    (( $#hits )) && print -rl -- "${hits[@]}" >>hits
    builtin compadd "$@"
}
capture() {
    _aaactl
    compstate[insert]=
    compstate[list]=
    print -n 'ALL-''OFFERED'
}
zle -C capture complete-word capture
bindkey '^I' capture
precmd() { print -n 'SHELL-''READY' }
)";
constexpr char kZshAsk[] = R"zsh(zmodload zsh/zpty
: >hits
zpty z zsh -f -i
zpty -w z 'source ./setup.zsh'
zpty -r z out '*SHELL-READY*'
zpty -w -n z "$(<line)"$'\t'
zpty -r z out '*ALL-OFFERED*'
zpty -d z
print -rn -- "$(<hits)"
)zsh";

class Completion : public aaactl_test::DatabaseTest, public testing::WithParamInterface<const char *> {
  protected:
    void SetUp() override {
        const std::string shell = GetParam();
        if (in_shell("command -v " + shell).status != 0) {
            GTEST_SKIP() << shell << " is not installed";
        }
        dir().write("aaactl." + shell, aaactl({"completion", shell}).out);
        dir().write("setup.zsh", kZshSetup);
        dir().write("ask.zsh", kZshAsk);
        dir().write("message.bin", "");
    }

    // What the shell offers at the end of the line, sorted.
    Lines offered(const std::string &words) const {
        const bool zsh = std::string(GetParam()) == "zsh";
        dir().write("line", "aaactl " + words);
        const auto run =
            in_shell("cd '" + dir().path(".") + "' && HOME=$PWD TERM=dumb " +
                     (zsh ? "zsh -f ask.zsh"
                          : "fish -N -c 'source aaactl.fish; complete -C (cat line | string collect)'"));
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.err, "");
        return sorted_lines(run.out);
    }
};

INSTANTIATE_TEST_SUITE_P(Shells, Completion, testing::Values("zsh", "fish"),
                         [](const auto &shell) { return std::string(shell.param); });

TEST_P(Completion, OffersCommandsOptionsAndValues) {
    const Lines commands = offered("");
    EXPECT_TRUE(has(commands, "decode"));
    EXPECT_FALSE(has(commands, "get"));
    EXPECT_EQ(offered("enc"), Lines{"encode"});
    EXPECT_EQ(offered("--json sysdb du"), Lines{"dump"});
    EXPECT_EQ(offered("decode --ki"), Lines{"--kind"});
    EXPECT_EQ(offered("decode --kind server-"), (Lines{"server-connect", "server-disconnect"}));
    EXPECT_EQ(offered("decode --input bin"), Lines{"binary"});
    EXPECT_EQ(offered("--color "), (Lines{"always", "auto", "never"}));
    EXPECT_EQ(offered("sg --color never list --protocol ra"), Lines{"radius"});
    const Lines joined = offered("decode --kind=li");
    EXPECT_TRUE(joined == Lines{"list"} || joined == Lines{"--kind=list"}) << joined.size();
    EXPECT_EQ(offered("nothing --no-such"), Lines{});
}

TEST_P(Completion, OffersFilesWhereNothingElseFits) {
    EXPECT_EQ(offered("decode mess"), Lines{"message.bin"});
    EXPECT_EQ(offered("encode -o mess"), Lines{"message.bin"});
    EXPECT_EQ(offered("sysdb diff mess"), Lines{"message.bin"});
}

TEST_P(Completion, KnowsPositions) {
    for (const auto &[words, fits] : kOfPositions) {
        EXPECT_EQ(offered(words), Lines{fits}) << words;
    }
}

TEST_P(Completion, CompletesPathsOfTheDatabase) {
    put("/cfg/site/limit", "u32", "1");
    put("/cfg/site/sub/x", "u32", "1");
    put("/cfg/site/with blank", "u32", "1");
    EXPECT_EQ(offered("sysdb get "), (Lines{"/cfg/", "/oper/"}));
    EXPECT_EQ(offered("sysdb get /c"), Lines{"/cfg/"});
    EXPECT_EQ(offered("sysdb get /cfg/s"), Lines{"/cfg/site/"});
    EXPECT_EQ(offered("sysdb --json ls /cfg/site/"),
              (Lines{"/cfg/site/limit", "/cfg/site/sub/", "/cfg/site/with blank"}));
    EXPECT_EQ(offered("key reseal /cfg/site/limit /cfg/site/su"), Lines{"/cfg/site/sub/"});
}

TEST_P(Completion, CompletesGroupsListsAndServers) {
    ASSERT_EQ(aaactl({"sg", "add", "radius", "corp", "192.0.2.20", "192.0.2.21"}).status, 0);
    ASSERT_EQ(aaactl({"sg", "add", "radius", "core"}).status, 0);
    ASSERT_EQ(aaactl({"sg", "add", "tacacs", "my group", "192.0.2.30"}).status, 0);
    ASSERT_EQ(aaactl({"mlist", "set", "authentication", "login", "console", "local"}).status, 0);
    EXPECT_EQ(offered("sg list co"), (Lines{"core", "corp"}));
    EXPECT_EQ(offered("sg list my"), Lines{"my group"});
    for (const std::string command : {"sg del", "sg rm", "sg key"}) {
        EXPECT_EQ(offered(command + " radius co"), (Lines{"core", "corp"})) << command;
        EXPECT_EQ(offered(command + " radius corp 192.0.2."), (Lines{"192.0.2.20", "192.0.2.21"})) << command;
        EXPECT_EQ(offered(command + " tacacs my\\ group 192"), Lines{"192.0.2.30"}) << command;
    }
    EXPECT_EQ(offered("mlist del authentication login c"), Lines{"console"});
    EXPECT_EQ(offered("mlist set authentication login x group:co"), (Lines{"group:core", "group:corp"}));
}

TEST_P(Completion, CompletesCommits) {
    ASSERT_EQ(aaactl({"commit", "before-upgrade"}).status, 0);
    ASSERT_EQ(aaactl({"mlist", "set", "authentication", "login", "default", "local"}).status, 0);
    ASSERT_EQ(aaactl({"rollback", "1"}).status, 0);
    EXPECT_EQ(offered("rollback 3"), Lines{"3"});
    EXPECT_EQ(offered("show commit be"), Lines{"before-upgrade"});
    EXPECT_EQ(offered("diff before-upgrade ru"), Lines{"running"});
    EXPECT_EQ(offered("rollback l"), Lines{"last"});
}

// Nobody can read what appears in the line that is being typed.
TEST_P(Completion, IsSilentWithoutADatabase) {
    const ScopedEnv cfg("AAA_SYSDB_CFG_DIR", dir().write("file", "") + "/below");
    const ScopedEnv log("AAA_LOG", "stderr");
    EXPECT_EQ(offered("sysdb get /cfg/none"), Lines{});
    EXPECT_EQ(offered("sg list co"), Lines{});
    EXPECT_EQ(offered("mlist set authentication login d"), Lines{"default"});
}

// A name may be one that a shell would run.
TEST_P(Completion, RunsNoName) {
    put("/cfg/site/$(touch ran)", "u32", "1");
    put("/cfg/site/(touch ran)", "u32", "1");
    put("/cfg/site/`touch ran`", "u32", "1");
    EXPECT_EQ(offered("sysdb get /cfg/site/").size(), 3u);
    offered("sysdb get '/cfg/site/$(touch ran)' ");
    EXPECT_EQ(offered("decode ra"), Lines{});
}

}  // namespace
