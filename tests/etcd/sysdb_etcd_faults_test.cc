// SPDX-License-Identifier: Apache-2.0
//
// Faults of a cluster of three, with four writers on three nodes: no acknowledged change is
// lost, all nodes are equal at the end, and watchers see the changes in their order.
//
// AAA_ETCD_ROUNDS repeats each fault (1 by default).

#include <grp.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "etcd/load.hpp"
#include "platform/sysdb_changes.h"
#include "support/machine.hpp"

namespace {

using namespace etcd_test;

unsigned rounds() {
    return repetitions("AAA_ETCD_ROUNDS", 1);
}

// Members and nodes, which many tests share: they begin with a sound cluster and leave one.
struct Site {
    Cluster cluster;
    std::vector<std::unique_ptr<Node>> nodes;

    explicit Site(Cluster::Options options = {}) : cluster(std::move(options)) {
        cluster.start_all();
        for (std::size_t i = 0; i < 3; ++i) {
            // Each asks another server first.
            std::vector<std::string> settings;
            for (std::size_t j = 0; j < cluster.size(); ++j) {
                settings.push_back("endpoint " + cluster.endpoint((i + j) % cluster.size()));
            }
            nodes.push_back(std::make_unique<Node>(cluster, "n" + std::to_string(i), settings));
        }
        const Ended imported = nodes[0]->import();
        EXPECT_EQ(0, imported.status) << imported.output;
        for (const auto &node : nodes) {
            node->start();
        }
        for (const auto &node : nodes) {
            EXPECT_TRUE(node->wait_until_following()) << node->log();
        }
    }
};

class SysdbEtcdFaults : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { site_ = new Site; }
    static void TearDownTestSuite() {
        delete site_;
        site_ = nullptr;
    }

    static Cluster &cluster() { return site_->cluster; }
    static const std::vector<std::unique_ptr<Node>> &nodes() { return site_->nodes; }
    static Node &node(std::size_t i) { return *site_->nodes[i]; }

    static inline Site *site_ = nullptr;
};

TEST_F(SysdbEtcdFaults, LeaderIsKilled) {
    Load load(nodes());
    ASSERT_TRUE(load.wait_for_more(5));
    for (unsigned i = 0; i < rounds(); ++i) {
        const std::size_t leader = cluster().leader();
        ASSERT_LT(leader, cluster().size());
        cluster().kill(leader);
        EXPECT_TRUE(load.wait_for_more(20));
        cluster().start(leader);
        EXPECT_TRUE(cluster().wait_until_ready());
    }
    load.finish();
}

// The connections to it stay, and nothing comes from it.
TEST_F(SysdbEtcdFaults, MemberIsStopped) {
    Load load(nodes());
    ASSERT_TRUE(load.wait_for_more(5));
    for (std::size_t i = 0; i < 3 * rounds(); ++i) {
        cluster().stop(i % 3);
        EXPECT_TRUE(load.wait_for_more(10));
        cluster().go_on(i % 3);
        EXPECT_TRUE(cluster().wait_until_ready());
    }
    load.finish();
}

TEST_F(SysdbEtcdFaults, TwoOfThreeAreKilled) {
    Load load(nodes());
    ASSERT_TRUE(load.wait_for_more(5));
    for (unsigned i = 0; i < rounds(); ++i) {
        cluster().kill(0);
        cluster().kill(1);
        on_node(node(2), [] {
            setenv("AAA_SYSDB_WAIT_MS", "1000", 1);
            const Bound bound("/cfg/work/");
            EXPECT_LT(0, get_number(bound.handle(), "order/2")) << "reading goes on";
            const cerrno rc = set_number(bound.handle(), "refused", 1);
            EXPECT_TRUE(rc == SYSDB_ERR_NO_MAJORITY || rc == SYSDB_ERR_OUTCOME_UNKNOWN) << std::hex << rc;
        });
        cluster().start(0);
        cluster().start(1);
        EXPECT_TRUE(cluster().wait_until_ready());
        EXPECT_TRUE(load.wait_for_more(10));
    }
    load.finish();
}

TEST_F(SysdbEtcdFaults, AgentIsKilledUnderLoad) {
    Load load(nodes());
    ASSERT_TRUE(load.wait_for_more(5));
    for (unsigned i = 0; i < 3 * rounds(); ++i) {
        node(0).kill();
        EXPECT_TRUE(load.wait_for_more(5, {1, 2})) << "the others go on";
        node(0).start();
        EXPECT_TRUE(load.wait_for_more(5));
    }
    load.finish();
}

TEST_F(SysdbEtcdFaults, AgentIsStoppedUnderLoad) {
    Load load(nodes());
    ASSERT_TRUE(load.wait_for_more(5));
    node(1).send(SIGSTOP);
    EXPECT_TRUE(load.wait_for_more(10, {0, 2, 3}));
    node(1).send(SIGCONT);
    EXPECT_TRUE(load.wait_for_more(10));
    load.finish();
}

// What happens while its agent is away comes to the watchers of a node as soon as it is back.
class Away {
  public:
    // Watches "/cfg/away/" on a node, in a process of its own that counts what it hears.
    explicit Away(const Node &node)
        : process_([this, &node] {
              node.use();
              const Bound bound("/cfg/");
              Names names;
              uint64_t notification = 0;
              EXPECT_EQ(0u, _sysdb_register_notification(
                                bound.handle(), "away/", SYSDB_EVENT_SET | SYSDB_EVENT_DELETE,
                                SYSDB_NOTIFY_CHANGES, heard, &names, 0, nullptr, 0, &notification));
              begun_.put();
              while (names.empty() || names.back() != "3end") {
                  if (!wait_readable(channel_of(bound.handle()), 30000)) {
                      break;
                  }
                  EXPECT_EQ(0u, sysdb_dispatch(bound.handle()));
              }
              EXPECT_EQ((Names{"3b", "4c", "2d", "3end"}), names);
          }) {
        EXPECT_TRUE(begun_.take());
    }
    void expect_all() { EXPECT_EQ(0, process_.wait()); }

  private:
    using Names = std::vector<std::string>;

    static int32_t heard(const void *record, void *self, void *) {
        const auto &change = *static_cast<const sysdb_notification_t *>(record);
        const std::string path = change.path;
        static_cast<Names *>(self)->push_back(std::to_string(change.operation) +
                                              path.substr(path.find('/') + 1));
        return 0;
    }

    Pipe begun_;
    ForkedProcess process_;
};

class SysdbEtcdAway : public SysdbEtcdFaults {
  protected:
    static void set_and_leave() {
        on_node(node(0), [] {
            const Bound bound("/cfg/");
            sysdb_item_delete(bound.handle(), "away/", SYSDB_DELETE_TREE);
            EXPECT_EQ(0u, set_number(bound.handle(), "away/a", 1));
            EXPECT_EQ(0u, set_number(bound.handle(), "away/c", 1));
            EXPECT_EQ(0u, set_number(bound.handle(), "away/d", 1));
        });
        ASSERT_TRUE(eventually([] { return contents(node(2)) == contents(node(0)); }));
    }
    static void change_all() {
        on_node(node(0), [] {
            const Bound bound("/cfg/");
            EXPECT_EQ(0u, set_number(bound.handle(), "away/b", 1));
            EXPECT_EQ(0u, sysdb_item_delete(bound.handle(), "away/c", 0));
            EXPECT_EQ(0u, set_number(bound.handle(), "away/d", 2));
            EXPECT_EQ(0u, set_number(bound.handle(), "away/end", 1));
        });
    }
};

TEST_F(SysdbEtcdAway, ChangesComeByRevision) {
    set_and_leave();
    Away away(node(2));
    EXPECT_EQ(0, node(2).stop());
    change_all();
    node(2).start();
    away.expect_all();
    EXPECT_EQ(contents(node(0)), contents(node(2)));
}

TEST_F(SysdbEtcdAway, ChangesComeAfterCompaction) {
    set_and_leave();
    Away away(node(2));
    node(2).kill();
    change_all();
    const std::string status = node(0).status();
    const auto at = status.find("\"revision\":", status.find("\"prefix\""));
    ASSERT_NE(std::string::npos, at) << status;
    const std::string revision = std::to_string(std::stoull(status.substr(at + 11)));
    const Ended compacted = cluster().control({"compact", revision});
    ASSERT_EQ(0, compacted.status) << compacted.output;
    node(2).start();
    away.expect_all();
    EXPECT_EQ(contents(node(0)), contents(node(2)));
    EXPECT_NE(std::string::npos, node(2).log().find("does not have revision")) << node(2).log();
}

// A program that was started before the node joined still has the embedded provider.
TEST_F(SysdbEtcdFaults, EmbeddedProviderDoesNotWriteTheMirror) {
    on_node(node(1), [] {
        setenv("AAA_SYSDB_PROVIDER", LMDB_PROVIDER, 1);
        const Bound bound("/cfg/work/");
        EXPECT_EQ(SYSDB_ERR_READ_ONLY, set_number(bound.handle(), "alone", 1));
        EXPECT_EQ(SYSDB_ERR_READ_ONLY, sysdb_item_delete(bound.handle(), "", SYSDB_DELETE_TREE));
        const Bound oper("/oper/work/");
        EXPECT_EQ(0u, set_number(oper.handle(), "alone", 1));
    });
}

// A second agent would write into the same turns.
TEST_F(SysdbEtcdFaults, SecondAgentOfANodeDoesNotStart) {
    const Ended second =
        run_program({ETCD_AGENT, "--foreground", "--config", node(0).configuration()}, node(0).environment());
    EXPECT_EQ(1, second.status);
    EXPECT_NE(std::string::npos, second.output.find("another agent runs")) << second.output;
}

// An administrator's mistake, or an attacker's work, must not empty the configuration of all nodes.
TEST_F(SysdbEtcdFaults, RemovedPrefixLeavesTheNodesTheirConfiguration) {
    on_node(node(0), [] {
        const Bound bound("/cfg/");
        EXPECT_EQ(0u, set_number(bound.handle(), "kept", 1));
    });
    ASSERT_TRUE(eventually([] { return contents(node(2)) == contents(node(0)); }));
    const std::string before = contents(node(0));
    const Ended removed = cluster().control({"del", "--prefix", "/aaa/"});
    ASSERT_EQ(0, removed.status) << removed.output;
    for (const auto &each : nodes()) {
        EXPECT_TRUE(eventually([&] { return each->status().find("no configuration") != std::string::npos; }))
            << each->status();
        EXPECT_EQ(before, contents(*each));
    }
    on_node(node(1), [] {
        const Bound bound("/cfg/");
        EXPECT_EQ(SYSDB_ERR_NO_AGENT, set_number(bound.handle(), "kept", 2));
    });
    const Ended imported = node(1).import();
    EXPECT_EQ(0, imported.status) << imported.output;
    for (const auto &each : nodes()) {
        EXPECT_TRUE(each->wait_until_following()) << each->log();
        EXPECT_EQ(before, contents(*each));
    }
}

// The agent writes for others. They may through it what they may without.
TEST_F(SysdbEtcdFaults, OtherUsersMayNotChangeByWayOfTheAgent) {
    SKIP_WITHOUT_ROOT("needs root to become another user");
    const std::string directory = node(0).directory();
    for (const char *each : {"", "run", "cfg"}) {
        ASSERT_EQ(0, chmod((directory + each).c_str(), 0711));
    }
    ASSERT_EQ(0, chmod(node(0).socket().c_str(), 0666));
    const std::string change = *sysdb_etcd::pack_request(
        {sysdb_etcd::Ask::kChange, UINT64_MAX, {{SYSDB_CHANGE_SET, 99, "/cfg/stolen", "x"}}});
    const std::string status = *sysdb_etcd::pack_request({sysdb_etcd::Ask::kStatus, 0, {}});
    const auto as_nobody = [&](const std::function<void()> &body) {
        run_forked([&] {
            ASSERT_EQ(0, setgroups(0, nullptr));
            ASSERT_EQ(0, setresgid(65534, 65534, 65534));
            ASSERT_EQ(0, setresuid(65534, 65534, 65534));
            body();
        });
    };
    as_nobody([&] {
        const auto refused = node(0).ask(change);
        ASSERT_TRUE(refused);
        EXPECT_EQ(SYSDB_ERR_READ_ONLY, refused->code);
        EXPECT_EQ(1u, refused->failed);
        EXPECT_EQ(0u, node(0).ask(status)->code);
    });
    ASSERT_EQ(0, chmod((directory + "cfg").c_str(), 0700));
    as_nobody([&] {
        EXPECT_EQ(SYSDB_ERR_ACCESS, node(0).ask(change)->code);
        EXPECT_EQ(SYSDB_ERR_ACCESS, node(0).ask(status)->code);
    });
    EXPECT_EQ(std::string::npos, contents(node(0)).find("stolen"));
    EXPECT_EQ(0u, node(0).ask(change)->code) << "root may";
}

// Symptom: an agent that was stopped for longer than its clients wait made their changes when it went on,
// after others that the same clients had made since.
TEST_F(SysdbEtcdFaults, ChangeOfASenderWhoHasGivenUpIsNotMade) {
    const auto answer = node(0).ask(
        *sysdb_etcd::pack_request({sysdb_etcd::Ask::kChange, 1, {{SYSDB_CHANGE_SET, 99, "/cfg/late", "x"}}}));
    ASSERT_TRUE(answer);
    EXPECT_EQ(SYSDB_ERR_NO_MAJORITY, answer->code);
    EXPECT_EQ(std::string::npos, contents(node(0)).find("late"));
}

TEST_F(SysdbEtcdFaults, MalformedRequestsHarmNoOne) {
    std::string long_one(4, '\xff');
    std::string with_rest = *sysdb_etcd::pack_request({sysdb_etcd::Ask::kStatus, 0, {}}) + "x";
    EXPECT_FALSE(node(0).ask(long_one));
    EXPECT_FALSE(node(0).ask(with_rest));
    std::string odd = *sysdb_etcd::pack_request({sysdb_etcd::Ask::kStatus, 0, {}});
    odd[5] = 9;
    EXPECT_EQ(SYSDB_ERR_INVALID_ARG, node(0).ask(odd)->code);
    const std::pair<sysdb_etcd::ItemChange, cerrno> changes[] = {
        {{SYSDB_CHANGE_SET, 99, "/oper/a", ""}, SYSDB_ERR_BAD_PATH},
        {{SYSDB_CHANGE_SET, 99, "/cfg/a/", ""}, SYSDB_ERR_BAD_PATH},
        {{SYSDB_CHANGE_SET, 99, "/cfg/../a//b", ""}, SYSDB_ERR_BAD_PATH},
        {{SYSDB_CHANGE_SET, SYSDB_TYPE_DIRECTORY, "/cfg/", ""}, SYSDB_ERR_BAD_PATH},
        {{SYSDB_CHANGE_SET, 99, "/cfg/" + std::string(600, 'x'), ""}, SYSDB_ERR_BAD_PATH},
        {{SYSDB_CHANGE_PRUNE, 0, "/cfg/a", ""}, SYSDB_ERR_BAD_PATH},
        {{SYSDB_CHANGE_SET, 99, "/cfg/a", std::string((1 << 20) + 1, 'x')}, SYSDB_ERR_VALUE_TOO_LARGE},
        {{77, 99, "/cfg/a", ""}, SYSDB_ERR_INVALID_ARG}};
    for (const auto &[change, code] : changes) {
        const auto answer =
            node(0).ask(*sysdb_etcd::pack_request({sysdb_etcd::Ask::kChange, UINT64_MAX, {change}}));
        ASSERT_TRUE(answer);
        EXPECT_EQ(code, answer->code) << change.path.substr(0, 20);
    }
    on_node(node(0), [] {
        const Bound bound("/cfg/work/");
        EXPECT_EQ(0u, set_number(bound.handle(), "after", 1));
    });
}

// Someone has emptied /run.
TEST_F(SysdbEtcdFaults, RemovedSocketIsMadeAgain) {
    ASSERT_EQ(0, unlink(node(1).socket().c_str()));
    on_node(node(1), [] {
        const Bound bound("/cfg/work/");
        EXPECT_EQ(SYSDB_ERR_NO_AGENT, set_number(bound.handle(), "socket", 1));
        EXPECT_TRUE(eventually([&] { return set_number(bound.handle(), "socket", 1) == 0; }));
    });
}

TEST_F(SysdbEtcdFaults, NodeThatLeavesKeepsItsData) {
    Node &leaving = node(2);
    on_node(node(0), [] {
        const Bound bound("/cfg/work/");
        EXPECT_EQ(0u, set_number(bound.handle(), "before", 1));
    });
    ASSERT_TRUE(eventually([&] { return contents(leaving) == contents(node(0)); }));
    EXPECT_EQ(0, leaving.stop());
    const std::string before = contents(leaving);
    const Ended left = leaving.leave();
    EXPECT_EQ(0, left.status) << left.output;
    EXPECT_EQ(before, contents(leaving));
    on_node(leaving, [] {
        setenv("AAA_SYSDB_PROVIDER", LMDB_PROVIDER, 1);
        const Bound bound("/cfg/work/");
        EXPECT_EQ(0u, set_number(bound.handle(), "own", 1));
    });
    // Joined again, it has what the cluster has.
    leaving.start();
    EXPECT_TRUE(leaving.wait_until_following()) << leaving.log();
    EXPECT_EQ(contents(node(0)), contents(leaving));
}

TEST_F(SysdbEtcdFaults, ImportDoesNotReplaceAConfiguration) {
    const Ended second = node(1).import();
    EXPECT_EQ(3, second.status);
    EXPECT_NE(std::string::npos, second.output.find("has imported its configuration below /aaa at "))
        << second.output;
    EXPECT_EQ(contents(node(0)), contents(node(1)));
}

// Someone else's program writes below the prefix.
TEST_F(SysdbEtcdFaults, OddKeysAndValuesAreNotUsed) {
    on_node(node(0), [] {
        const Bound bound("/cfg/odd/");
        EXPECT_EQ(0u, set_number(bound.handle(), "item", 1));
    });
    for (const std::vector<std::string> &put :
         {std::vector<std::string>{"put", "/aaa/cfg/odd//x", "abcdefgh"},
          {"put", "/aaa/cfg/odd/item", "abc"},
          {"put", "/aaa/cfg/odd/" + std::string(600, 'x'), "abcdefgh"},
          {"put", "/aaa/cfg/odd/\x01", "abcdefgh"},
          {"put", "/aaa/cfgx", "abcdefgh"}}) {
        ASSERT_EQ(0, cluster().control(put).status);
    }
    on_node(node(0), [] {
        const Bound bound("/cfg/odd/");
        EXPECT_TRUE(eventually([&] { return existence(bound.handle(), "item") == SYSDB_ERR_NOT_FOUND; }));
        EXPECT_EQ(std::vector<std::string>{}, names_in(bound.handle(), ""));
        EXPECT_EQ(0u, set_number(bound.handle(), "item", 2)) << "it can be mended";
        EXPECT_EQ(2, get_number(bound.handle(), "item"));
    });
}

TEST_F(SysdbEtcdFaults, TooManyChangesAreRefusedAsAWhole) {
    on_node(node(0), [] {
        const Bound bound("/cfg/many/");
        std::vector<std::string> paths;
        for (int i = 0; i < 200; ++i) {
            paths.push_back(std::to_string(i));
        }
        const uint32_t one = 1;
        std::vector<sysdb_change_t> changes;
        for (const std::string &path : paths) {
            changes.push_back({SYSDB_CHANGE_SET, SYSDB_TYPE_U32, path.c_str(), &one, sizeof one});
        }
        uint32_t failed = 0;
        EXPECT_EQ(SYSDB_ERR_TOO_MANY_CHANGES, sysdb_apply(bound.handle(), changes.data(), 200, &failed));
        EXPECT_EQ(200u, failed);
        EXPECT_EQ(std::vector<std::string>{}, names_in(bound.handle(), ""));
        EXPECT_EQ(0u, sysdb_apply(bound.handle(), changes.data(), 100, &failed));
    });
}

// Servers refuse those of 1.5 MiB themselves; larger ones than 2 MiB do not reach them.
TEST_F(SysdbEtcdFaults, TooLargeChangesAreRefusedAsAWhole) {
    on_node(node(0), [] {
        const Bound bound("/cfg/large/");
        const std::string value(300'000, 'x');
        for (const std::uint32_t count : {6u, 20u}) {
            std::vector<std::string> paths;
            for (std::uint32_t i = 0; i < count; ++i) {
                paths.push_back(std::to_string(i));
            }
            std::vector<sysdb_change_t> changes;
            for (const std::string &path : paths) {
                changes.push_back({SYSDB_CHANGE_SET, SYSDB_TYPE_TUPLE + 2, path.c_str(), value.data(),
                                   static_cast<std::uint32_t>(value.size())});
            }
            uint32_t failed = 0;
            EXPECT_EQ(SYSDB_ERR_TOO_MANY_CHANGES,
                      sysdb_apply(bound.handle(), changes.data(), count, &failed));
            EXPECT_EQ(count, failed);
            EXPECT_EQ(std::vector<std::string>{}, names_in(bound.handle(), ""));
        }
    });
}

}  // namespace
