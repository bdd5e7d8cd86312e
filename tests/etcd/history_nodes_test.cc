// SPDX-License-Identifier: Apache-2.0
//
// The history of the configuration on many nodes: what is too much for one transaction, and commits that
// watchers on all nodes go back from.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "etcd/load.hpp"
#include "store/watcher.hpp"
#include "support/sysdb.hpp"

namespace {

using namespace etcd_test;

constexpr std::int64_t kMinute = 60'000;
constexpr int kFailed = 100;

bool contains(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

class HistoryNodes : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        cluster_ = new Cluster;
        cluster_->start_all();
        nodes_ = new std::vector<std::unique_ptr<Node>>;
        for (const char *name : {"n0", "n1", "n2"}) {
            nodes_->push_back(std::make_unique<Node>(*cluster_, name));
        }
        EXPECT_EQ(0, (*nodes_)[0]->import().status);
        for (const auto &node : *nodes_) {
            node->start();
            EXPECT_TRUE(node->wait_until_following()) << node->log();
        }
    }
    static void TearDownTestSuite() {
        delete nodes_;
        delete cluster_;
    }

    static Ended aaactl(std::size_t node, std::vector<std::string> words) {
        words.insert(words.begin(), AAACTL_PROGRAM);
        std::map<std::string, std::string> environment = (*nodes_)[node]->environment();
        environment["AAA_LOG"] = "none";
        return run_program(words, environment);
    }
    static std::string done(std::size_t node, const std::vector<std::string> &words) {
        const Ended ended = aaactl(node, words);
        EXPECT_EQ(0, ended.status) << words[0] << ": " << ended.output;
        return ended.output;
    }
    // A file with groups, each of a server and a setting.
    std::string groups(int first, int count) {
        std::string text;
        for (int i = first; i < first + count; ++i) {
            text += "aaa group server radius g" + std::to_string(i) + "\n server 192.0.2." +
                    std::to_string(i % 250 + 1) + " auth-port 1812 acct-port 1813 timeout 3s\n";
        }
        return files_.write("groups" + std::to_string(first), text + "end\n");
    }
    static int reverts() {
        const std::string text = done(0, {"history", "--json"});
        int count = 0;
        for (std::size_t at = 0; (at = text.find("\"kind\": \"revert\"", at)) != std::string::npos; ++at) {
            ++count;
        }
        return count;
    }
    // Of all commits after this one.
    static std::vector<std::string> states_after(int commit) {
        std::vector<std::string> states;
        for (;;) {
            const Ended shown = aaactl(0, {"show", "commit", std::to_string(++commit)});
            if (shown.status != 0) {
                return states;
            }
            states.push_back(shown.output);
        }
    }
    // The lines of a configuration but those of items that nothing reads, and what separates groups.
    static std::string without_items(const std::string &text) {
        std::string rest;
        for (std::size_t at = 0; at < text.size();) {
            const std::size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
            const std::string line = text.substr(at, end - at);
            rest += line.starts_with("item ") || line == "!\n" ? "" : line;
            at = end;
        }
        return rest;
    }
    static void wait_for_waiting(std::size_t node, bool waits) {
        EXPECT_TRUE(eventually([&] {
            return contains(aaactl(node, {"history"}).output, "waits for its confirmation") == waits;
        }));
    }

    static inline Cluster *cluster_ = nullptr;
    static inline std::vector<std::unique_ptr<Node>> *nodes_ = nullptr;
    TempDir files_;
};

// What one watcher does from the time when it sees the commit until nothing waits: how many times it has gone
// back, or kFailed. Only the node of the commit may do it before `grace` is over.
int watch(const Node &node, bool of_the_commit, int ready, int go) {
    node.use();
    history::Now now = history::system_now();
    now.machine += of_the_commit ? "" : node.name();
    int reverted = 0;
    history::Watcher::Reports reports;
    reports.reverted = [&](const history::Reverted &) { ++reverted; };
    history::Watcher watcher(history::program("test"), reports, [&] { return now; });
    try {
        if (!watcher.look()) {
            return kFailed;
        }
        if (!of_the_commit) {
            now.since_boot += kMinute + kMinute / 2;
            const auto left = watcher.look();
            if (!left || *left < 10'000 || reverted != 0) {
                return kFailed;
            }
        }
        char c = 0;
        if (write(ready, "r", 1) != 1 || read(go, &c, 1) != 0) {
            return kFailed;
        }
        now.since_boot += 10 * kMinute;
        while (watcher.look()) {
        }
    } catch (const history::Error &error) {
        std::fprintf(stderr, "%s: %s\n", node.name().c_str(), error.what());
        return kFailed;
    }
    return reverted;
}

TEST_F(HistoryNodes, TooMuchForOneTransactionIsRefusedAsAWhole) {
    const Ended load = aaactl(1, {"load", "--label", "large", groups(1000, 100)});
    EXPECT_NE(0, load.status);
    EXPECT_TRUE(contains(load.output, "--max-txn-ops")) << load.output;
    EXPECT_TRUE(contains(load.output, "nothing was changed")) << load.output;
    EXPECT_FALSE(contains(done(1, {"show", "running-config"}), "g1000"));
    EXPECT_FALSE(contains(done(1, {"sg", "list"}), "g1000"));
    EXPECT_FALSE(contains(aaactl(1, {"history"}).output, "large"));
}

// The changes since the commit before are more than the cluster takes as one, as when they were made in
// parts.
TEST_F(HistoryNodes, WatchersOnAllNodesGoBackOnce) {
    done(0, {"load", groups(0, 10)});
    done(0, {"commit", "base"});
    const std::string before = done(0, {"show", "running-config"});
    for (int round = 1; round <= 3; ++round) {
        for (int part = 1; part <= 5; ++part) {
            done(0, {"load", groups(part * 20, 20)});
        }
        done(0, {"commit", "risky", "--confirm", "1"});
        std::array<int, 2> ready{};
        std::array<int, 2> go{};
        ASSERT_EQ(0, pipe(ready.data()));
        ASSERT_EQ(0, pipe(go.data()));
        std::vector<pid_t> watchers;
        for (std::size_t i = 0; i < nodes_->size(); ++i) {
            wait_for_waiting(i, true);
            const pid_t pid = fork();
            ASSERT_GE(pid, 0);
            if (pid == 0) {
                close(go[1]);
                _exit(watch(*(*nodes_)[i], i == 0, ready[1], go[0]));
            }
            watchers.push_back(pid);
        }
        close(ready[1]);
        char c = 0;
        for (std::size_t i = 0; i < watchers.size(); ++i) {
            EXPECT_EQ(1, read(ready[0], &c, 1)) << "a watcher has failed";
        }
        close(go[1]);  // the time is over, for all of them at once
        int reverted = 0;
        for (const pid_t pid : watchers) {
            int status = 0;
            EXPECT_EQ(pid, waitpid(pid, &status, 0));
            EXPECT_TRUE(WIFEXITED(status));
            reverted += WEXITSTATUS(status);
        }
        close(ready[0]);
        close(go[0]);
        EXPECT_EQ(1, reverted);
        EXPECT_EQ(round, reverts());
        EXPECT_EQ(before, done(0, {"show", "running-config"}));
    }
}

std::string item_of(int round, int number) {
    return "gl/aaa/site/r" + std::to_string(round) + "w" + std::to_string(number);
}

// Sets one new item after the other, with a byte for each, until no one reads them any more: how many it has
// set, or kFailed.
int write_items(const Node &node, int round, int report) {
    constexpr int kMost = kFailed - 1;
    node.use();
    signal(SIGPIPE, SIG_IGN);
    const Bound cfg("/cfg/");
    for (int number = 1; number <= kMost; ++number) {
        if (set_number(cfg.handle(), item_of(round, number), 1) != 0) {
            return kFailed;
        }
        if (write(report, "w", 1) != 1) {
            return number;
        }
    }
    return kMost;
}

// Others set items while a revert is made in steps. Each of them is in force at the end, or in a commit: none
// is lost, and all else is as it was.
TEST_F(HistoryNodes, WhatOthersChangeBetweenTheStepsOfARevertIsNotLost) {
    done(0, {"load", groups(0, 10)});
    // Directories that the state before does not have are pruned with all that is in them.
    done(0, {"sysdb", "set", "--force", "/cfg/" + item_of(0, 0), "--type", "u32", "1"});
    done(0, {"commit", "steps"});
    const std::string before = done(0, {"show", "running-config"});
    int between = 0;
    for (int round = 0; round < 20 && between == 0; ++round) {
        for (int part = 1; part <= 5; ++part) {
            done(0, {"load", groups(part * 20, 20)});
        }
        const std::string made = done(0, {"commit", "risky", "--confirm", "5"});
        const int waiting = std::stoi(made.substr(made.find("commit ") + 7));
        wait_for_waiting(1, true);
        std::array<int, 2> report{};
        ASSERT_EQ(0, pipe(report.data()));
        const pid_t writer = fork();
        ASSERT_GE(writer, 0);
        if (writer == 0) {
            close(report[0]);
            _exit(write_items(*(*nodes_)[1], round, report[1]));
        }
        close(report[1]);
        char c = 0;
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(1, read(report[0], &c, 1)) << "the writer has failed";
        }
        done(0, {"cancel"});
        close(report[0]);  // ends the writer, after the item that it writes
        int status = 0;
        EXPECT_EQ(writer, waitpid(writer, &status, 0));
        ASSERT_TRUE(WIFEXITED(status));
        const int written = WEXITSTATUS(status);
        ASSERT_LT(written, kFailed);
        const std::vector<std::string> commits = states_after(waiting);
        EXPECT_GE(commits.size(), 2u) << "what was changed before the first step, and the revert";
        between += static_cast<int>(commits.size()) - 2;
        const std::string now = done(0, {"show", "running-config"});
        EXPECT_EQ(without_items(before), without_items(now));
        for (int number = 1; number <= written; ++number) {
            const std::string item = "/cfg/" + item_of(round, number) + " ";
            EXPECT_TRUE(contains(now, item) ||
                        std::any_of(commits.begin(), commits.end(),
                                    [&](const std::string &state) { return contains(state, item); }))
                << item << "is lost, of " << written;
        }
        done(0, {"rollback", "--force", "steps"});
    }
    EXPECT_GT(between, 0) << "no change was made between two steps";
}

}  // namespace
