// SPDX-License-Identifier: Apache-2.0
//
// Members and agents whose time of day is wrong, and is set while they run. The programs really have it: see
// other_clock.cc.

#include <gtest/gtest.h>

#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "etcd/certificates.hpp"
#include "etcd/load.hpp"
#include "platform/sysdb_changes.h"
#include "support/machine.hpp"

namespace {

using namespace etcd_test;

constexpr std::int64_t kHour = 3600;
constexpr std::int64_t kDay = 24 * kHour;
constexpr std::int64_t kYear = 365 * kDay;

// A member's time of day, less that of the machine, in hours.
std::int64_t hours_ahead(const Cluster &cluster, std::size_t member) {
    const std::int64_t time = cluster.time_of_day(member);
    EXPECT_LE(0, time);
    return (time - std::time(nullptr) + kHour / 2 + 10 * kYear) / kHour - 10 * kYear / kHour;
}

struct Clocks {
    OtherClock right{0};
    OtherClock ahead{kHour};
    OtherClock behind{-kDay};

    std::vector<std::vector<std::string>> before() const {
        return {right.before(), ahead.before(), behind.before()};
    }
};

std::vector<std::unique_ptr<Node>> make_nodes(const Cluster &cluster,
                                              const std::vector<std::string> &settings = {}) {
    std::vector<std::unique_ptr<Node>> nodes;
    for (std::size_t i = 0; i < 3; ++i) {
        std::vector<std::string> all = settings;
        for (std::size_t j = 0; j < 3; ++j) {
            all.push_back("endpoint " + cluster.endpoint((i + j) % 3));
        }
        nodes.push_back(std::make_unique<Node>(cluster, "n" + std::to_string(i), all));
    }
    return nodes;
}

void start(const std::vector<std::unique_ptr<Node>> &nodes) {
    const Ended imported = nodes[0]->import();
    ASSERT_EQ(0, imported.status) << imported.output;
    for (const auto &node : nodes) {
        node->start();
    }
    for (const auto &node : nodes) {
        ASSERT_TRUE(node->wait_until_following()) << node->log();
    }
}

void restart_leader(Cluster &cluster, Load &load) {
    const std::size_t leader = cluster.leader();
    ASSERT_LT(leader, 3u);
    cluster.kill(leader);
    EXPECT_TRUE(load.wait_for_more(20));
    cluster.start(leader);
    EXPECT_TRUE(cluster.wait_until_ready());
}

TEST(SysdbEtcdClock, OfMembersIsWrong) {
    Clocks clocks;
    SKIP_WITHOUT("tracing", clocks.right.works(), "this machine does not let a program have another clock");
    Cluster cluster({.before = clocks.before()});
    cluster.start_all();
    EXPECT_EQ(0, hours_ahead(cluster, 0));
    EXPECT_EQ(1, hours_ahead(cluster, 1));
    EXPECT_EQ(-24, hours_ahead(cluster, 2));
    const auto nodes = make_nodes(cluster);
    ASSERT_NO_FATAL_FAILURE(start(nodes));

    Load load(nodes);
    EXPECT_TRUE(load.wait_for_more(20));
    // Someone sets the clocks.
    clocks.ahead.set(-kYear);
    clocks.behind.set(kDay);
    EXPECT_TRUE(load.wait_for_more(20));
    EXPECT_EQ(24, hours_ahead(cluster, 2));
    ASSERT_NO_FATAL_FAILURE(restart_leader(cluster, load));
    clocks.ahead.set(0);
    clocks.behind.set(0);
    EXPECT_TRUE(load.wait_for_more(20));
    load.finish();
}

TEST(SysdbEtcdClock, OfAgentsIsWrong) {
    Clocks clocks;
    SKIP_WITHOUT("tracing", clocks.right.works(), "this machine does not let a program have another clock");
    Cluster cluster;
    cluster.start_all();
    const auto nodes = make_nodes(cluster);
    nodes[1]->run_by(clocks.ahead.before());
    nodes[2]->run_by(clocks.behind.before());
    ASSERT_NO_FATAL_FAILURE(start(nodes));

    Load load(nodes);
    EXPECT_TRUE(load.wait_for_more(20));
    clocks.ahead.set(-kYear);
    clocks.behind.set(kYear);
    EXPECT_TRUE(load.wait_for_more(20));
    ASSERT_NO_FATAL_FAILURE(restart_leader(cluster, load));
    for (const auto &node : nodes) {
        EXPECT_TRUE(node->wait_until_following()) << node->log();
    }
    load.finish();
}

// Signed tokens have a time at which they end: a member whose clock is ahead takes no other member's.
class SysdbEtcdClockTokens : public ::testing::TestWithParam<const char *> {};

TEST_P(SysdbEtcdClockTokens, OfMembersWithWrongClocks) {
    Clocks clocks;
    SKIP_WITHOUT("tracing", clocks.right.works(), "this machine does not let a program have another clock");
    const Certificates certificates;
    Cluster::Options options = options_with(certificates, "server", false, 3);
    options.before = clocks.before();
    if (std::string(GetParam()) == "signed") {
        const TempDir &files = certificates.files();
        const Ended made = run_program({"openssl", "pkey", "-in", certificates.key("server"), "-pubout",
                                        "-out", files.path("public.pem")});
        ASSERT_EQ(0, made.status) << made.output;
        options.more = {"--auth-token", "jwt,pub-key=" + files.path("public.pem") + ",priv-key=" +
                                            certificates.key("server") + ",sign-method=ES256,ttl=5m"};
    }
    Cluster cluster(options);
    cluster.start_all();
    for (const std::vector<std::string> &words :
         {std::vector<std::string>{"role", "add", "root"},
          {"user", "add", "root:admin"},
          {"user", "grant-role", "root", "root"},
          {"role", "add", "aaa"},
          {"role", "grant-permission", "aaa", "--prefix=true", "readwrite", "/aaa/"},
          {"user", "add", "aaa:secret"},
          {"user", "grant-role", "aaa", "aaa"},
          {"auth", "enable"}}) {
        std::vector<std::string> all = {"--cacert", certificates.ca};
        all.insert(all.end(), words.begin(), words.end());
        const Ended ended = cluster.control(all);
        ASSERT_EQ(0, ended.status) << ended.output;
    }
    const auto nodes = make_nodes(cluster, {"ca-file " + certificates.ca, "user aaa",
                                            "password-file " + certificates.password("secret")});
    ASSERT_NO_FATAL_FAILURE(start(nodes));
    Load load(nodes);
    EXPECT_TRUE(load.wait_for_more(10));
    // All tokens that this member has made are of no more use to it, then those of the others.
    clocks.ahead.set(kDay);
    clocks.right.set(kHour);
    EXPECT_TRUE(load.wait_for_more(10));
    // The agents go to other members, with the tokens that they have.
    for (std::size_t member = 0; member < 3; ++member) {
        cluster.kill(member);
        EXPECT_TRUE(load.wait_for_more(10));
        cluster.start(member);
        EXPECT_TRUE(cluster.wait_until_ready());
    }
    for (const auto &node : nodes) {
        EXPECT_TRUE(node->wait_until_following()) << node->log();
    }
    load.finish();
}

INSTANTIATE_TEST_SUITE_P(Kinds, SysdbEtcdClockTokens, ::testing::Values("simple", "signed"),
                         [](const auto &kind) { return std::string(kind.param); });

}  // namespace
