// SPDX-License-Identifier: Apache-2.0
//
// Nodes that join at the same time, or twice, or where they must not.

#include <algorithm>
#include <random>

#include "aaactl/cluster/machine.hpp"

namespace {

using namespace cluster_test;

class JoiningNodes : public ClusterCommands {
  protected:
    // A configuration that takes an import several transactions.
    static void fill(const Machine &node, const std::string &mine, unsigned items = 400) {
        std::string dump = "aaactl-dump 1 /cfg/site/\n";
        for (unsigned i = 0; i < items; ++i) {
            dump += "/cfg/site/" + mine + std::to_string(i) + " string \"" + mine + "\"\n";
        }
        node.directory().write("dump", dump + "/cfg/site/owner string \"" + mine +
                                           "\"\n# end: " + std::to_string(items + 1) + " items\n");
        const auto loaded = node.run({"sysdb", "load", node.directory().path("dump")});
        ASSERT_EQ(0, loaded.status) << loaded.err;
    }
    // Those of all claims.
    static void end_leases() {
        const std::string out = cluster().control({"lease", "list"}).output;
        for (size_t at = out.find('\n'); at != std::string::npos && at + 17 <= out.size();
             at = out.find('\n', at + 1)) {
            cluster().control({"lease", "revoke", out.substr(at + 1, 16)});
        }
    }
    // The keys of the cluster's items below a prefix that begin with a word.
    static size_t keys(const std::string &prefix, const std::string &begin) {
        const std::string out =
            cluster().control({"get", "--prefix", "--keys-only", prefix + "/cfg/site/" + begin}).output;
        size_t count = 0;
        for (size_t at = 0; (at = out.find("/cfg/site/", at)) != std::string::npos; ++at) {
            ++count;
        }
        return count;
    }
};

TEST_F(JoiningNodes, OneOfTwoImportsAtOnceIsMade) {
    constexpr size_t kItems = 400;
    for (unsigned round = 1; round <= repetitions("AAA_CLUSTER_IMPORTS", 20); ++round) {
        const std::string place = prefix() + std::to_string(round);
        Machine nodes[] = {Machine("first"), Machine("second")};
        Program joins[2];
        for (Machine &node : nodes) {
            fill(node, node.name(), kItems);
        }
        for (int i = 0; i < 2; ++i) {
            nodes[i].start_join(joins[i], {all(), "--prefix", place, "--import"});
        }
        const int status[] = {joins[0].wait(), joins[1].wait()};
        const std::string said[] = {nodes[0].directory().read("join"), nodes[1].directory().read("join")};
        ASSERT_EQ(1, (status[0] == 0) + (status[1] == 0)) << round << said[0] << said[1];
        const size_t winner = status[0] == 0 ? 0 : 1;
        Machine &loser = nodes[1 - winner];
        EXPECT_EQ(1, status[1 - winner]) << said[1 - winner];
        EXPECT_NE(std::string::npos, said[1 - winner].find("node " + nodes[winner].name() + " "))
            << said[1 - winner];
        EXPECT_NE(std::string::npos, said[1 - winner].find("--replace")) << said[1 - winner];
        EXPECT_EQ(kItems, keys(place, nodes[winner].name())) << round;
        EXPECT_EQ(0u, keys(place, loser.name())) << round;
        // The other one has changed nothing, also on itself.
        EXPECT_EQ(loser.name() + "\n", loser.get("/cfg/site/owner"));
        loser.set("/cfg/site/more", "own");
        EXPECT_FALSE(loser.cluster({"--json", "status"}).json()["joined"].truth()) << said[1 - winner];
        ASSERT_EQ(0, loser.join({all(), "--prefix", place, "--replace"}).status);
        loser.start();
        const auto again = loser.cluster({"join"});
        EXPECT_EQ(0, again.status) << again.err << loser.log();
        EXPECT_EQ(nodes[winner].name() + "\n", loser.get("/cfg/site/owner"));
    }
}

// Its claim ends with its lease. Until then no other node imports; the same node goes on at once.
TEST_F(JoiningNodes, AnImportThatIsKilledIsTakenOver) {
    std::random_device seed;
    std::mt19937 random(seed());
    for (unsigned round = 1; round <= repetitions("AAA_CLUSTER_IMPORTS", 20); ++round) {
        const std::string place = prefix() + std::to_string(round);
        Machine first("first"), second("second");
        fill(first, "first", 1500);
        fill(second, "second", 200);
        Program import;
        first.start_import(import, all(), place);
        usleep(static_cast<useconds_t>(random() % 150'000));  // any moment is the right one
        import.end();
        if (round % 2 == 0) {
            EXPECT_EQ(0, first.join({all(), "--prefix", place, "--import"}).status);
        } else {
            const auto early = second.join({all(), "--prefix", place, "--import"});
            if (early.status != 0) {
                EXPECT_EQ(1, early.status) << early.err;
                EXPECT_NE(std::string::npos, early.err.find("node first ")) << early.err;
            }
            end_leases();
            const auto late = second.join({all(), "--prefix", place, "--import"});
            EXPECT_TRUE(late.status == 0 || keys(place, "first") == 1500) << late.err;
        }
        const size_t of_first = keys(place, "first");
        const size_t of_second = keys(place, "second");
        EXPECT_TRUE((of_first == 1500 && of_second == 0) || (of_first == 0 && of_second == 200))
            << round << ": " << of_first << ", " << of_second;
        if (of_first == 0) {
            // What the first one had is its own: not replaced by an agent, and not lost.
            EXPECT_EQ("first\n", first.get("/cfg/site/owner"));
            first.start();
            EXPECT_EQ(0, first.wait());
            EXPECT_EQ("first\n", first.get("/cfg/site/owner"));
            expect_said(first.join({all(), "--prefix", place}), 1, "--replace takes the cluster's");
            EXPECT_EQ(0, first.cluster({"leave"}).status);
            first.set("/cfg/site/owner", "still first");
        }
    }
}

TEST_F(JoiningNodes, AnImportThatLastsIsSaid) {
    Machine node("n1");
    node.set("/cfg/site/name", "own");
    const std::string claim = R"({"node":"n9","machine":"x","attempt":"1","time":5,"complete":false})";
    ASSERT_EQ(0, cluster().control({"put", prefix() + "/import", claim}).status);
    for (const char *word : {"--import", "--replace"}) {
        const auto refused = node.join({all(), "--prefix", prefix(), word});
        expect_said(refused, 1, "node n9 imports its configuration below " + prefix() + " at present");
        EXPECT_NE(0, access(node.settings().c_str(), F_OK));
    }
    node.set("/cfg/site/name", "still own");
    EXPECT_EQ(0u, keys(prefix(), "name"));
}

TEST_F(JoiningNodes, TwoMachinesOfOneNameAreRefused) {
    Machine first("n1"), second("n1");
    first_node(first);
    const auto refused = second.join({all(), "--prefix", prefix()});
    expect_said(refused, 1, "another machine is the node n1 of this cluster");
    expect_said(refused, 1, "--node NAME");
    expect_said(refused, 1, "--take-name");
    EXPECT_NE(0, access(second.settings().c_str(), F_OK));
    // The machine was installed again.
    EXPECT_EQ(0, second.join({all(), "--prefix", prefix(), "--take-name"}).status);
    expect_said(first.cluster({"join"}), 1, "another machine is the node n1");
    EXPECT_EQ(0, first.cluster({"join", "--no-wait", "--node", "n2"}).status);
    // A node that leaves gives its name back.
    EXPECT_EQ(0, second.cluster({"leave"}).status);
    Machine third("n1");
    EXPECT_EQ(0, third.join({all(), "--prefix", prefix()}).status);
}

TEST_F(JoiningNodes, AnAgentFindsItsNameTaken) {
    Machine node("n1");
    first_node(node);
    ASSERT_EQ(0, cluster().control({"put", prefix() + "/nodes/n1/machine", "other"}).status);
    node.stop();
    node.start();
    EXPECT_TRUE(eventually([&] {
        const auto status = node.cluster({"status"});
        return status.status == 1 && status.out.find("another machine is the node n1") != std::string::npos;
    })) << node.cluster({"status"}).out;
    EXPECT_EQ(0, cluster().control({"del", prefix() + "/nodes/n1/machine"}).status);
}

TEST_F(JoiningNodes, PrefixesWithinOthersAreRefused) {
    Machine outer("n1"), inner("n2"), sibling("n3"), above("n4");
    first_node(outer);
    const auto refused = inner.join({all(), "--prefix", prefix() + "/site1", "--import"});
    expect_said(refused, 1, prefix() + "/site1 is within the configuration below " + prefix());
    expect_said(inner.join({all(), "--prefix", prefix() + "/cfg/site1", "--import"}), 1, "is within");
    const std::string deep = prefix() + "-sites/a/b";
    ASSERT_EQ(0, sibling.join({all(), "--prefix", deep, "--import"}).status);
    for (const char *word : {"-sites/a", "-sites"}) {
        expect_said(above.join({all(), "--prefix", prefix() + word, "--import"}), 1,
                    "the configuration below " + deep + " is within " + prefix() + word);
    }
    EXPECT_EQ(0, above.join({all(), "--prefix", prefix() + "-sites/a/c", "--import"}).status);
    EXPECT_EQ(0, outer.cluster({"join"}).status) << "a node that has joined may repeat it";
}

// Symptom: the node was a mirror again, and what it had set as its own was lost.
TEST_F(JoiningNodes, AnAgentEndsWhenItsNodeHasLeft) {
    Machine first("n1"), second("n2");
    first_node(first);
    ASSERT_EQ(0, second.join({all(), "--prefix", prefix(), "--replace"}).status);
    second.start();
    ASSERT_EQ(0, second.cluster({"join"}).status) << second.log();
    std::filesystem::remove_all(second.directory().path("run"));  // so that no command finds the agent
    expect_said(second.cluster({"leave"}), 0, "has left the cluster");
    second.set("/cfg/site/name", "own");
    first.set("/cfg/site/name", "changed");
    EXPECT_EQ(0, second.wait()) << second.log();
    EXPECT_EQ("own\n", second.get("/cfg/site/name"));
    EXPECT_FALSE(second.cluster({"--json", "status"}).json()["joined"].truth());
}

TEST_F(JoiningNodes, NoProcessIsNamedThatIsNotTheAgent) {
    Machine node("n1");
    first_node(node);
    expect_said(node.cluster({"leave"}), 1, "end it first: kill " + std::to_string(node.pid()) + ";");
    node.send(SIGSTOP);  // so that it does not say which process it is
    const auto refused = node.cluster({"leave"});
    expect_said(refused, 1, "pgrep -x aaa-sysdb-agent");
    EXPECT_EQ(std::string::npos, refused.err.find("kill")) << refused.err;
    const auto changed = node.cluster({"join", "--no-wait", "--node", "other"});
    EXPECT_EQ(std::string::npos, changed.err.find("process 0")) << changed.err;
    node.send(SIGCONT);
}

// Symptom: a prefix that was changed by hand replaced the node's configuration with what is below it.
TEST_F(JoiningNodes, APrefixThatIsChangedByHandIsRefused) {
    Machine node("node");
    ASSERT_NO_FATAL_FAILURE(first_node(node));
    node.stop();
    std::string text = node.directory().read("agent.conf");
    const std::string line = "prefix " + prefix();
    ASSERT_NE(std::string::npos, text.find(line)) << text;
    text.replace(text.find(line), line.size(), "prefix /other");
    node.directory().write("agent.conf", text);
    node.start();
    EXPECT_EQ(1, node.wait());
    EXPECT_NE(std::string::npos, node.log().find("has joined the configuration below " + prefix()))
        << node.log();
    expect_said(node.cluster({"status"}), 5, "set it back");
    EXPECT_EQ("first\n", node.get("/cfg/site/name"));
    text.replace(text.find("prefix /other"), 13, line);
    node.directory().write("agent.conf", text);
    node.start();
    EXPECT_TRUE(eventually([&] { return node.cluster({"status"}).status == 0; })) << node.log();
}

}  // namespace
