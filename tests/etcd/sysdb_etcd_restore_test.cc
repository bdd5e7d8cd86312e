// SPDX-License-Identifier: Apache-2.0
//
// A cluster whose servers are restored from a backup while a node does not reach them.

#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <string>

#include "etcd/cluster.hpp"
#include "etcd/load.hpp"
#include "support/sysdb.hpp"

namespace {

using namespace etcd_test;

std::uint64_t revision_of(const Node &node) {
    const std::string status = node.status();
    const std::size_t at = status.find("\"revision\":", status.find("\"prefix\""));
    EXPECT_NE(std::string::npos, at) << status;
    return at == std::string::npos ? 0 : std::stoull(status.substr(at + 11));
}

// A node that has changed something which the backup does not have, then does not run for a while.
class SysdbEtcdRestore : public ::testing::Test {
  protected:
    void SetUp() override {
        cluster_.start_all();
        const Ended imported = away_.import();
        ASSERT_EQ(0, imported.status) << imported.output;
        away_.start();
        ASSERT_TRUE(away_.wait_until_following()) << away_.log();
        change(away_, "kept", 1);
        change(away_, "changed", 1);
        const Ended saved = cluster_.control({"snapshot", "save", files_.path("backup")});
        ASSERT_EQ(0, saved.status) << saved.output;
    }
    void TearDown() override { away_.send(SIGCONT); }

    static void change(const Node &node, const std::string &name, std::uint32_t value) {
        on_node(node, [&] {
            const Bound bound("/cfg/site/");
            EXPECT_EQ(0u, set_number(bound.handle(), name, value));
        });
    }

    // With the same names and addresses, so that it is the same cluster by its number.
    void restore() {
        cluster_.kill(0);
        std::filesystem::remove_all(cluster_.directory(0));
        const std::string peer = cluster_.peer(0);
        const Ended restored = run_program(
            {"etcdctl", "snapshot", "restore", files_.path("backup"), "--name", "m0", "--initial-cluster",
             "m0=" + peer, "--initial-advertise-peer-urls", peer, "--data-dir", cluster_.directory(0)},
            {{"ETCDCTL_API", "3"}});
        ASSERT_EQ(0, restored.status) << restored.output;
        cluster_.start(0);
        ASSERT_TRUE(cluster_.wait_until_ready());
    }

    // Until the restored cluster has a revision that the node has seen before, with other changes.
    void go_past(std::uint64_t revision) {
        other_.start();
        ASSERT_TRUE(other_.wait_until_following()) << other_.log();
        for (std::uint32_t i = 1; revision_of(other_) <= revision + 3; ++i) {
            change(other_, "later", i);
        }
    }

    void expect_equal() {
        EXPECT_TRUE(eventually([&] { return contents(away_) == contents(other_); }))
            << contents(away_) << "\nand on the other node\n"
            << contents(other_) << '\n'
            << away_.log();
    }

    const TempDir files_;
    Cluster cluster_{{.members = 1}};
    Node away_{cluster_, "away"};
    Node other_{cluster_, "other"};
};

// Symptom: the node went on from the revision that it had, and kept what the cluster did not have any more.
TEST_F(SysdbEtcdRestore, ANodeThatWasAwayTakesWhatTheClusterHas) {
    change(away_, "changed", 2);
    change(away_, "lost", 1);
    const std::uint64_t revision = revision_of(away_);
    away_.send(SIGSTOP);
    ASSERT_NO_FATAL_FAILURE(restore());
    ASSERT_NO_FATAL_FAILURE(go_past(revision));
    away_.send(SIGCONT);
    expect_equal();
    EXPECT_NE(std::string::npos, away_.log().find("another history")) << away_.log();
    EXPECT_TRUE(away_.wait_until_following()) << away_.log();
    change(away_, "changed", 3);
    expect_equal();
}

TEST_F(SysdbEtcdRestore, ANodeThatIsStartedTakesWhatTheClusterHas) {
    change(away_, "changed", 2);
    change(away_, "lost", 1);
    const std::uint64_t revision = revision_of(away_);
    away_.kill();
    ASSERT_NO_FATAL_FAILURE(restore());
    ASSERT_NO_FATAL_FAILURE(go_past(revision));
    away_.start();
    expect_equal();
}

// Without a restored backup nothing is read again: a server that ends and starts is nothing unusual.
TEST_F(SysdbEtcdRestore, ARestartedServerIsNoReasonToCompareAll) {
    change(away_, "changed", 2);
    cluster_.kill(0);
    cluster_.start(0);
    ASSERT_TRUE(cluster_.wait_until_ready());
    ASSERT_TRUE(away_.wait_until_following()) << away_.log();
    change(away_, "changed", 3);
    EXPECT_EQ(std::string::npos, away_.log().find("history")) << away_.log();
    EXPECT_EQ(std::string::npos, away_.log().find("comparing")) << away_.log();
}

}  // namespace
