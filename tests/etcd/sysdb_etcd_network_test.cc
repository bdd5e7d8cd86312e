// SPDX-License-Identifier: Apache-2.0
//
// Members in network namespaces of their own: partitions of the network between them, in both
// directions and in one; and a member whose disk is full. Needs root. AAA_ETCD_ROUNDS: see
// sysdb_etcd_faults_test.cc.

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "etcd/load.hpp"
#include "platform/private_mounts.hpp"
#include "platform/sysdb_changes.h"
#include "support/machine.hpp"

namespace {

using namespace etcd_test;

bool ip(const std::string &words) {
    std::vector<std::string> arguments = {"ip"};
    for (std::size_t at = 0; at < words.size();) {
        const std::size_t end = std::min(words.find(' ', at), words.size());
        arguments.push_back(words.substr(at, end - at));
        at = end + 1;
    }
    const Ended ended = run_program(arguments);
    if (ended.status != 0) {
        std::fprintf(stderr, "ip %s: %s", words.c_str(), ended.output.c_str());
    }
    return ended.status == 0;
}

std::string name(std::size_t member) {
    return "m" + std::to_string(member);
}

std::string address(std::size_t member) {
    return "10.99.0." + std::to_string(member + 1);
}

// Nothing of it is left when this process and its programs have ended.
bool make_network() {
    bool made = enter_private_mounts() && unshare(CLONE_NEWNET) == 0;
    (void)mkdir("/run/netns", 0755);
    made = made && mount_memory("/run/netns", "mode=0755") && ip("link set lo up") &&
           ip("link add br0 type bridge") && ip("addr add 10.99.0.254/24 dev br0") && ip("link set br0 up");
    for (std::size_t i = 0; i < 3 && made; ++i) {
        const std::string inside = "-n " + name(i) + " ";
        made = ip("netns add " + name(i)) &&
               ip("link add v" + name(i) + " type veth peer name eth0 netns " + name(i)) &&
               ip("link set v" + name(i) + " master br0 up") && ip(inside + "link set lo up") &&
               ip(inside + "addr add " + address(i) + "/24 dev eth0") && ip(inside + "link set eth0 up");
    }
    return made;
}

// What the member sends to others of the members is lost.
void cut(std::size_t from, std::size_t to) {
    EXPECT_TRUE(ip("-n " + name(from) + " route add blackhole " + address(to) + "/32"));
}
void heal(std::size_t from, std::size_t to) {
    EXPECT_TRUE(ip("-n " + name(from) + " route del blackhole " + address(to) + "/32"));
}

class SysdbEtcdNetwork : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        if (geteuid() != 0 || !make_network()) {
            return;
        }
        Cluster::Options options;
        // One that does not hear the others asks before it makes an election.
        options.more = {"--pre-vote"};
        for (std::size_t i = 0; i < 3; ++i) {
            options.hosts.push_back(address(i));
            options.before.push_back({"ip", "netns", "exec", name(i)});
        }
        disk_ = new TempDir;
        options.directories[2] = disk_->path("disk");
        (void)mkdir(disk_->path("disk").c_str(), 0700);
        EXPECT_TRUE(mount_memory(disk_->path("disk"), "size=600m,mode=0700"));
        cluster_ = new Cluster(options);
        cluster_->start_all();
        nodes_ = new std::vector<std::unique_ptr<Node>>;
        for (std::size_t i = 0; i < 3; ++i) {
            std::vector<std::string> settings;
            for (std::size_t j = 0; j < 3; ++j) {
                settings.push_back("endpoint " + cluster_->endpoint((i + j) % 3));
            }
            nodes_->push_back(std::make_unique<Node>(*cluster_, "n" + std::to_string(i), settings));
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
        if (disk_ != nullptr) {
            umount2(disk_->path("disk").c_str(), MNT_DETACH);
        }
        delete disk_;
    }
    void SetUp() override {
        SKIP_WITHOUT_ROOT("needs root to make network namespaces");
        SKIP_WITHOUT("mounts", cluster_ != nullptr, "cannot make a bridge of network namespaces");
    }

    static inline Cluster *cluster_ = nullptr;
    static inline std::vector<std::unique_ptr<Node>> *nodes_ = nullptr;
    static inline TempDir *disk_ = nullptr;
};

// The member still answers the agents, and has no majority.
TEST_F(SysdbEtcdNetwork, LeaderIsCutOffInBothDirections) {
    Load load(*nodes_);
    ASSERT_TRUE(load.wait_for_more(5));
    const std::size_t alone = cluster_->leader();
    ASSERT_LT(alone, 3u);
    for (std::size_t other = 0; other < 3; ++other) {
        if (other != alone) {
            cut(alone, other);
            cut(other, alone);
        }
    }
    EXPECT_TRUE(load.wait_for_more(20));
    for (std::size_t other = 0; other < 3; ++other) {
        if (other != alone) {
            heal(alone, other);
            heal(other, alone);
        }
    }
    EXPECT_TRUE(cluster_->wait_until_ready());
    EXPECT_TRUE(load.wait_for_more(10));
    load.finish();
}

TEST_F(SysdbEtcdNetwork, LeaderIsNotHeardByTheOthers) {
    Load load(*nodes_);
    ASSERT_TRUE(load.wait_for_more(5));
    const std::size_t mute = cluster_->leader();
    ASSERT_LT(mute, 3u);
    for (std::size_t other = 0; other < 3; ++other) {
        if (other != mute) {
            cut(mute, other);
        }
    }
    EXPECT_TRUE(load.wait_for_more(20));
    for (std::size_t other = 0; other < 3; ++other) {
        if (other != mute) {
            heal(mute, other);
        }
    }
    EXPECT_TRUE(cluster_->wait_until_ready());
    load.finish();
}

TEST_F(SysdbEtcdNetwork, LeaderDoesNotHearTheOthers) {
    Load load(*nodes_);
    ASSERT_TRUE(load.wait_for_more(5));
    const std::size_t deaf = cluster_->leader();
    ASSERT_LT(deaf, 3u);
    for (std::size_t other = 0; other < 3; ++other) {
        if (other != deaf) {
            cut(other, deaf);
        }
    }
    EXPECT_TRUE(load.wait_for_more(20));
    for (std::size_t other = 0; other < 3; ++other) {
        if (other != deaf) {
            heal(other, deaf);
        }
    }
    EXPECT_TRUE(cluster_->wait_until_ready());
    load.finish();
}

// Nothing says that a connection is of no use any more.
TEST_F(SysdbEtcdNetwork, MemberIsUnpluggedFromAll) {
    Load load(*nodes_);
    ASSERT_TRUE(load.wait_for_more(5));
    for (std::size_t i = 0; i < repetitions("AAA_ETCD_ROUNDS", 1); ++i) {
        ASSERT_TRUE(ip("link set v" + name(i % 3) + " down"));
        EXPECT_TRUE(load.wait_for_more(10));
        ASSERT_TRUE(ip("link set v" + name(i % 3) + " up"));
        EXPECT_TRUE(cluster_->wait_until_ready());
    }
    load.finish();
}

// The member ends, and comes back when there is room again.
TEST_F(SysdbEtcdNetwork, DiskOfAMemberIsFull) {
    Load load(*nodes_);
    ASSERT_TRUE(load.wait_for_more(5));
    const std::string filler = disk_->path("disk/filler");
    {
        std::ofstream file(filler, std::ios::binary);
        const std::string block(1 << 20, 'x');
        while (file.write(block.data(), static_cast<std::streamsize>(block.size())).flush()) {
        }
    }
    // More than what the member has reserved; beside the configuration, so that the agents need not read it.
    const std::string request =
        disk_->write("request", R"({"key":"YQ==","value":")" + std::string(1400000, 'a') + "\"}");
    for (int i = 0; i < 70 && cluster_->output(2).find("no space left") == std::string::npos; ++i) {
        run_program({"curl", "-s", "-m", "5", "-d", "@" + request, cluster_->endpoint(0) + "/v3/kv/put"});
    }
    EXPECT_NE(std::string::npos, cluster_->output(2).find("no space left")) << cluster_->output(2);
    EXPECT_TRUE(load.wait_for_more(10));
    EXPECT_EQ(0, unlink(filler.c_str()));
    cluster_->kill(2);
    cluster_->start(2);
    EXPECT_TRUE(cluster_->wait_until_ready());
    EXPECT_TRUE(load.wait_for_more(10));
    load.finish();
}

}  // namespace
