// SPDX-License-Identifier: Apache-2.0
//
// load: several at once, and interruptions.

#include <sys/wait.h>

#include <csignal>
#include <memory>
#include <set>
#include <string>

#include "aaactl/running_config/running_config_fixture.hpp"
#include "aaactl/support/program_started.hpp"
#include "support/database_table.hpp"

namespace {

using aaactl_test::aaactl;
using aaactl_test::kText;
using aaactl_test::RunningConfigCommands;
using aaactl_test::Started;

// Symptom: each load numbered its groups by itself, and two at once gave one number to two groups.
TEST_F(RunningConfigCommands, LoadsAtOnceGetDifferentNumbersAndOrdinals) {
    constexpr int kRounds = 5;
    constexpr int kLoads = 4;
    std::string all_shown;
    for (int round = 0; round < kRounds; ++round) {
        std::vector<std::unique_ptr<Started>> started;
        for (int i = 0; i < kLoads; ++i) {
            const std::string own = std::to_string(round) + "-" + std::to_string(i);
            std::string text = "aaa group server tacacs shared\n server 192.0." + std::to_string(round) +
                               "." + std::to_string(i) + "\n";
            for (const char *name : {"a", "b", "c"}) {
                text +=
                    std::string("aaa group server tacacs ") + name + own + "\n server-private 192.0.2.1\n";
            }
            started.push_back(std::make_unique<Started>(
                std::vector<std::string>{"load", dir().write(own + ".conf", text + "end\n")}));
        }
        for (const auto &load : started) {
            EXPECT_EQ(load->wait(), 0) << load->shown();
            all_shown += load->shown();
        }
    }
    std::set<uint64_t> numbers;
    const auto groups = aaactl({"sg", "list", "--json"}).json()["groups"];
    for (const auto &group : groups) {
        ASSERT_FALSE(group["number"].is_null()) << group.dump() << "\nThe loads printed:\n" << all_shown;
        numbers.insert(group["number"].number());
        std::set<uint64_t> ordinals;
        for (const auto &server : group["servers"]) {
            ordinals.insert(server["index"].number());
        }
        EXPECT_EQ(ordinals.size(), group["servers"].size()) << group.dump();
    }
    EXPECT_EQ(groups.size(), size_t{1 + 3 * kRounds * kLoads});
    EXPECT_EQ(numbers.size(), groups.size());
    EXPECT_EQ(aaactl({"lint"}).out.find("number"), std::string::npos) << all_shown;
}

// A load that is stopped where it waits for the lock of a tree's writers, while others change the database.
class StoppedLoad : public RunningConfigCommands {
  protected:
    StoppedLoad() : wait_("AAA_SYSDB_WAIT_MS", "600000") {}

    void SetUp() override {
        put("/cfg/gl/aaa/history/commits", "u32", "10");
        put("/oper/site/x", "u32", "1");
    }
    // Goes on, if it was stopped before, until it shows the text and waits for the lock.
    void run_until(Started &load, const std::string &database, const std::string &shown) const {
        const aaatest::DatabaseTable lock(dir().path(database), "items");
        aaatest::send_signal(load.pid(), SIGCONT);
        EXPECT_TRUE(load.wait_shown(shown)) << load.shown();
        stop(load);
    }
    static void stop(const Started &load) {
        aaatest::send_signal(load.pid(), SIGSTOP);
        int status = 0;
        EXPECT_EQ(waitpid(load.pid(), &status, WUNTRACED), load.pid());
        EXPECT_TRUE(WIFSTOPPED(status));
    }
    std::unique_ptr<Started> load_until_stored(const std::string &text) const {
        const aaatest::DatabaseTable lock(dir().path("cfg/cfg.mdb"), "items");
        auto load = std::make_unique<Started>(std::vector<std::string>{"load", dir().write("one.conf", text)},
                                              Started::On::terminal);
        EXPECT_TRUE(load->wait_shown("changes as one")) << load->shown();
        stop(*load);
        return load;
    }
    static void expect_done(Started &load) {
        aaatest::send_signal(load.pid(), SIGCONT);
        EXPECT_EQ(load.wait(), 0) << load.shown();
        EXPECT_TRUE(is_numbered()) << load.shown();
    }
    static bool is_numbered() {
        return !aaactl({"sg", "list", "--json"}).json()["groups"][0]["number"].is_null() &&
               aaactl({"lint"}).out.find("number") == std::string::npos;
    }

  private:
    ScopedEnv wait_;
};

const char kShared[] = "aaa group server tacacs shared\n server 192.0.2.";

// Symptom: a load that was refused withdrew the number of a group that another one had configured meanwhile.
TEST_F(StoppedLoad, LeavesTheNumberOfAGroupThatAnotherLoadHasConfigured) {
    const auto one = load_until_stored(std::string(kShared) + "1\n");
    load(std::string(kShared) + "2\n");
    expect_done(*one);
}

TEST_F(StoppedLoad, LeavesTheNumberOfAGroupThatIsConfiguredWhileItIsWithdrawn) {
    const auto one = load_until_stored(std::string(kShared) + "1\nitem /cfg/gl/aaa/history/commits u32 11\n");
    put("/cfg/gl/aaa/history/commits", "u32", "12");  // it is refused, and the group does not exist
    run_until(*one, "run/oper.mdb", "Withdrawing");
    load(std::string(kShared) + "2\n");
    EXPECT_TRUE(is_numbered());
    expect_done(*one);
}

TEST_F(StoppedLoad, LeavesTheNumberOfAGroupThatIsConfiguredAfterItHasDeletedIt) {
    load(std::string(kShared) + "1\n");
    const auto one = load_until_stored("no aaa group server tacacs shared\n");
    run_until(*one, "run/oper.mdb", "Withdrawing");
    load(std::string(kShared) + "2\n");
    EXPECT_TRUE(is_numbered());
    expect_done(*one);
}

// The group is there again, by a load that has found it there.
TEST_F(StoppedLoad, NumbersAGroupThatWasDeletedMeanwhile) {
    load(std::string(kShared) + "1\n");
    const auto one = load_until_stored(std::string(kShared) + "2\n");
    ASSERT_EQ(aaactl({"sg", "del", "tacacs", "shared"}).status, 0);
    expect_done(*one);
}

// Holds the lock of a tree's writers, so that a load waits where the test wants it to.
class InterruptedLoad : public RunningConfigCommands {
  protected:
    void SetUp() override {
        put("/cfg/site/x", "u32", "1");
        put("/oper/site/x", "u32", "1");
        file_ = dir().write("new.conf", kText);
    }
    // The load, which was interrupted when it had shown the text and waited for the lock.
    std::unique_ptr<Started> interrupted(const std::string &database, const std::string &shown) {
        const aaatest::DatabaseTable lock(dir().path(database), "items");
        auto load = std::make_unique<Started>(std::vector<std::string>{"load", file_}, Started::On::terminal);
        EXPECT_TRUE(load->wait_shown(shown)) << load->shown();
        aaatest::send_signal(load->pid(), SIGINT);
        return load;
    }
    static std::string everything() { return aaactl({"sysdb", "dump", "/"}).out; }

  private:
    std::string file_;
};

TEST_F(InterruptedLoad, ChangesNothingBeforeTheItemsAreStored) {
    const std::string before = everything();
    const auto load = interrupted("run/oper.mdb", "Numbering 2 groups as one change");
    EXPECT_EQ(load->wait(), 6);
    EXPECT_NE(load->shown().find("new.conf: interrupted before the items were stored (to load them, "
                                 "say again: aaactl load "),
              std::string::npos)
        << load->shown();
    EXPECT_EQ(everything(), before);
}

TEST_F(InterruptedLoad, IsDoneWhenTheItemsAreStored) {
    const auto load = interrupted("cfg/cfg.mdb", "changes as one");
    EXPECT_EQ(load->wait(), 0) << load->shown();
    EXPECT_NE(load->shown().find("created 10, changed 0, deleted 0 items"), std::string::npos)
        << load->shown();
    EXPECT_EQ(shown(), kText);
    EXPECT_EQ(aaactl({"lint"}).out.find("number"), std::string::npos);
}

}  // namespace
