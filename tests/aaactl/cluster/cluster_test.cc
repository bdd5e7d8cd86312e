// SPDX-License-Identifier: Apache-2.0
//
// The commands of an administrator who sets up three nodes, and what they say when something is
// wrong: with a cluster of three members, and agents that the test starts as a service manager does.

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "aaactl/cluster/machine.hpp"

namespace {

using namespace cluster_test;

TEST_F(ClusterCommands, ThreeNodesShareOneConfiguration) {
    Machine first("n1"), second("n2"), third("n3");
    first_node(first);
    for (Machine *node : {&second, &third}) {
        const auto joined = node->join({all(), "--prefix", prefix()});
        EXPECT_EQ(0, joined.status) << joined.err;
        node->start();
        const auto waited = node->cluster({"join"});
        EXPECT_EQ(0, waited.status) << waited.err << node->log();
        EXPECT_EQ("first\n", node->get("/cfg/site/name"));
    }
    third.set("/cfg/site/name", "of the third");
    EXPECT_TRUE(eventually([&] { return first.get("/cfg/site/name") == "of the third\n"; }));
    EXPECT_TRUE(eventually([&] {
        const std::string text = first.cluster({"status"}).out;
        return text.find("n2") != std::string::npos && text.find("n3") != std::string::npos;
    }));
    const auto status = first.cluster({"--json", "status"});
    EXPECT_EQ(0, status.status) << status.out;
    EXPECT_EQ("following", status.json()["state"].text());
    EXPECT_EQ(3u, status.json()["servers"].size());
}

TEST_F(ClusterCommands, JoinChangesNothingWhenItRefuses) {
    Machine node("n1");
    node.set("/cfg/site/name", "own");
    expect_said(node.join({}), 2, "no server of the cluster is named");
    expect_said(node.join({"http://127.0.0.1:1"}), 5, "see on the server whether etcd runs");
    for (const auto &[url, fault] : {std::pair("127.0.0.1:1", "it begins with neither https:// nor http://"),
                                     std::pair("http://127.0.0.1", "the port is missing"),
                                     std::pair("http://127.0.0.1:1/v3", "nothing comes after the port"),
                                     std::pair("http://::1:1", "an IPv6 address is in brackets"),
                                     std::pair("http://[::1:1", "the host is neither a name nor an address"),
                                     std::pair("http://u:p@127.0.0.1:1", "a user has settings of its own"),
                                     std::pair("http://127.0.0.1:0", "the port is not a number")}) {
        const auto refused = node.join({url});
        expect_said(refused, 3, std::string("is not of the form https://HOST:PORT: ") + fault);
        EXPECT_EQ(std::string::npos, refused.err.find("no endpoint")) << refused.err;
    }
    expect_said(node.join({"http://no.such.host.invalid:1"}), 5, "getent hosts HOST");
    expect_said(node.join({all(), "--prefix", "bad"}), 3, "is not a prefix");
    expect_said(node.join({all(), "--ca", "/nowhere/ca.pem"}), 3, "/nowhere/ca.pem");
    expect_said(node.join({all(), "--user", "u"}), 3, "belong together");
    expect_said(node.join({"https://" + cluster().endpoint(0).substr(7)}), 5, "");
    expect_said(node.join({all(), "--prefix", prefix()}), 1, "--import makes this node's");
    EXPECT_NE(0, access(node.settings().c_str(), F_OK));
    EXPECT_NE(0, access((node.settings() + ".new").c_str(), F_OK));
    node.set("/cfg/site/name", "still own");
    expect_said(node.cluster({"status"}), 1, "this node has not joined a cluster");
}

TEST_F(ClusterCommands, ConfigurationsOnBothSidesNeedAChoice) {
    Machine first("n1"), second("n2");
    first_node(first);
    second.set("/cfg/site/other", "second");
    expect_said(second.join({all(), "--prefix", prefix()}), 1, "--replace takes the cluster's");
    expect_said(second.join({all(), "--prefix", prefix(), "--import"}), 1, "--replace takes the cluster's");
    second.set("/cfg/site/other", "changed");
    const auto joined = second.join({"--json", all(), "--prefix", prefix(), "--replace"});
    ASSERT_EQ(0, joined.status) << joined.err;
    second.start();
    EXPECT_EQ(0, second.cluster({"join"}).status);
    EXPECT_EQ("first\n", second.get("/cfg/site/name"));
    EXPECT_EQ(4, second.run({"sysdb", "get", "/cfg/site/other"}).status);
    // What was replaced can be had again.
    const auto compared = second.run({"sysdb", "diff", joined.json()["kept"].text()});
    expect_said(compared, 1, "changed");
}

// The agent has not been started: the command, or the machine, ended before.
TEST_F(ClusterCommands, InterruptedJoinIsFinishedByRepeatingIt) {
    Machine node("n1");
    node.set("/cfg/site/name", "first");
    ASSERT_EQ(0, node.join({all(), "--prefix", prefix(), "--import"}).status);
    EXPECT_EQ("first\n", node.get("/cfg/site/name")) << "the database is read all the same";
    expect_said(node.run({"sysdb", "set", "/cfg/site/name", "x"}), 6, "Agent of the cluster on this node");
    expect_said(node.cluster({"status"}), 5, "the agent does not run");
    expect_said(node.cluster({"join", "--import", "--timeout", "0"}), 5, "its agent does not run");
    node.start();
    EXPECT_EQ(0, node.cluster({"join", "--import"}).status) << node.log();
    node.set("/cfg/site/name", "second");
}

TEST_F(ClusterCommands, NodeLeavesAndJoinsAgain) {
    Machine node("n1");
    first_node(node);
    expect_said(node.cluster({"leave"}), 1, "the agent runs; end it first");
    node.stop();
    expect_said(node.cluster({"leave"}), 0, "keeps the configuration");
    expect_said(node.cluster({"leave"}), 0, "has not joined");
    node.start();
    EXPECT_EQ(0, node.wait()) << "the unit may be started by mistake: " << node.log();
    node.set("/cfg/site/name", "own");
    EXPECT_EQ("own\n", node.get("/cfg/site/name"));
    expect_said(node.join({}), 1, "--replace takes the cluster's");
    EXPECT_EQ(0, node.join({"--replace"}).status);
    node.start();
    EXPECT_EQ(0, node.cluster({"join"}).status) << node.log();
    EXPECT_EQ("first\n", node.get("/cfg/site/name"));
}

TEST_F(ClusterCommands, ANodeDoesNotLeaveWhileACommitWaits) {
    Machine node("n1");
    first_node(node);
    const auto done = [&](const std::vector<std::string> &words) {
        const auto run = node.run(words);
        EXPECT_EQ(0, run.status) << words[0] << ": " << run.err;
    };
    done({"commit", "first"});
    done({"sg", "add", "radius", "corp", "192.0.2.7"});
    done({"commit", "risky", "--confirm", "5"});
    for (const bool runs : {true, false}) {
        const auto refused = node.cluster({"leave"});
        expect_said(refused, 1, "commit 2 (risky) of ");
        expect_said(refused, 1, "\"aaactl confirm\" to keep it, or \"aaactl cancel\" to go back");
        expect_said(refused, 1, "--force");
        EXPECT_TRUE(node.cluster({"--json", "status"}).json()["joined"].truth());
        if (runs) {
            node.stop();
        }
    }
    expect_said(node.cluster({"leave", "--force"}), 0, "keeps the configuration");
    expect_said(node.run({"history"}), 0, "commit 2 waits for its confirmation");
    done({"cancel"});
    expect_said(node.cluster({"leave"}), 0, "has not joined");
}

TEST_F(ClusterCommands, LinesOfOtherNodesAreNoChangesOfTheConfiguration) {
    Machine node("n1");
    first_node(node);
    for (int i = 1; i <= 20; ++i) {
        const std::string key = prefix() + "/nodes/other/state";
        ASSERT_EQ(0, cluster().control({"put", key, R"({"revision":5,"time":6})"}).status);
    }
    const auto again = node.cluster({"join", "--timeout", "10"});
    EXPECT_EQ(0, again.status) << "this node has all of the configuration: " << again.err;
    const auto status = node.cluster({"--json", "status"}).json();
    EXPECT_EQ(status["revision"].number(), status["cluster_revision"].number());
    EXPECT_EQ("other", status["nodes"].back()["node"].text());
    // Also a change that only deletes, and one that deletes nothing, are answered.
    for (int i = 0; i < 2; ++i) {
        const auto deleted = node.run({"sysdb", "del", "-r", "/cfg/site/"});
        EXPECT_EQ(i == 0 ? 0 : 4, deleted.status) << deleted.err;
    }
    node.set("/cfg/site/name", "second");
    EXPECT_EQ(0, node.cluster({"join", "--timeout", "10"}).status);
}

// What the node had is in the database until the agent replaces it, and in a file before.
TEST_F(ClusterCommands, JoinIsKilledAtAnyMomentAndRepeated) {
    Machine first("n0");
    first_node(first);
    std::random_device seed;
    std::mt19937 random(seed());
    for (unsigned round = 1; round <= repetitions("AAA_CLUSTER_KILLS", 30); ++round) {
        Machine node("n" + std::to_string(round));
        node.set("/cfg/site/name", "own");
        node.set("/cfg/site/other", "own");
        const bool imports = round % 2 == 0;
        const std::vector<std::string> words = {all(), "--prefix",
                                                imports ? prefix() + std::to_string(round) : prefix(),
                                                imports ? "--import" : "--replace"};
        for (int kills = 0; kills < 3; ++kills) {
            Program join;
            node.start_join(join, words);
            usleep(static_cast<useconds_t>(random() % 120'000));  // any moment is the right one
            join.end();
            EXPECT_EQ("own\n", node.get("/cfg/site/other")) << "there is no agent yet";
        }
        // The agent's program, which an ended command may have left, ends by itself.
        EXPECT_TRUE(eventually([&] { return node.join(words).status == 0; })) << node.join(words).err;
        node.start();
        const auto joined = node.cluster({"join"});
        ASSERT_EQ(0, joined.status) << joined.err << node.log();
        EXPECT_EQ(imports ? "own\n" : "first\n", node.get("/cfg/site/name"));
        EXPECT_EQ(imports ? "own\n" : "", node.get("/cfg/site/other"));
        EXPECT_EQ(imports ? 0u : 1u, std::min<size_t>(node.kept_with("/cfg/site/other string \"own\""), 1))
            << round;
        EXPECT_NE(0, access((node.settings() + ".new").c_str(), F_OK));
        node.set("/cfg/site/more", "changed");
        EXPECT_EQ(0, node.run({"sysdb", "del", "/cfg/site/more"}).status);
    }
}

TEST_F(ClusterCommands, AnAgentThatIsStartedByHandReplacesNothing) {
    Machine first("n1"), second("n2");
    first_node(first);
    second.set("/cfg/site/name", "own");
    ASSERT_EQ(0, second.join({all(), "--prefix", prefix(), "--replace"}).status);
    ASSERT_EQ(0, second.cluster({"leave"}).status);
    second.start({});
    EXPECT_EQ(1, second.wait());
    EXPECT_NE(std::string::npos, second.log().find("run: aaactl cluster join URL")) << second.log();
    EXPECT_EQ("own\n", second.get("/cfg/site/name"));
    second.set("/cfg/site/name", "still own");
    ASSERT_EQ(0, second.join({"--replace"}).status);
    second.start({});
    EXPECT_EQ(0, second.cluster({"join"}).status) << second.log();
    EXPECT_EQ("first\n", second.get("/cfg/site/name"));
}

TEST_F(ClusterCommands, ServersWithoutTlsOnOtherMachinesAreWarnedOf) {
    Machine node("n1");
    first_node(node);
    EXPECT_EQ("", node.cluster({"status"}).err) << "they are on this machine";
    // An address of any machine, which the kernel takes as its own.
    const std::string plain = "http://0.0.0.0" + cluster().endpoint(0).substr(strlen("http://127.0.0.1"));
    const std::string warning =
        "aaactl: " + plain +
        ": no TLS, so others on the network can read and change the configuration; when "
        "the servers have certificates: aaactl cluster join https://" +
        plain.substr(7) + " --ca FILE\n";
    const auto joined = node.join({plain});
    EXPECT_EQ(0, joined.status) << joined.err;
    EXPECT_NE(std::string::npos, joined.err.find(warning)) << joined.err;
    const auto status = node.cluster({"--json", "status"});
    EXPECT_EQ(0, status.status) << status.out;
    EXPECT_EQ("", status.err) << "the agent still has the settings from before";
    node.stop();
    node.start();
    EXPECT_TRUE(eventually([&] { return node.cluster({"status"}).status == 0; }));
    EXPECT_EQ(warning, node.cluster({"status"}).err);
}

// Symptom: "nothing was loaded: Cluster did not answer; the change may have been made".
TEST_F(ClusterCommands, AChangeThatMayHaveBeenMadeIsNotDenied) {
    Machine node("n1");
    first_node(node);
    node.directory().write("dump",
                           "aaactl-dump 1 /cfg/site/\n/cfg/site/name string \"dumped\"\n# end: 1 item\n");
    node.send(SIGSTOP);
    setenv("AAA_SYSDB_WAIT_MS", "300", 1);
    const auto loaded = node.run({"sysdb", "load", "--force", node.directory().path("dump")});
    unsetenv("AAA_SYSDB_WAIT_MS");
    node.send(SIGCONT);
    expect_said(loaded, 6, "may have been made");
    EXPECT_EQ(std::string::npos, loaded.err.find("nothing was")) << loaded.err;
}

TEST_F(ClusterCommands, LostMajorityIsShownAndLeavingWorks) {
    Machine node("n1");
    first_node(node);
    cluster().kill(0);
    cluster().kill(1);
    EXPECT_TRUE(eventually([&] { return node.cluster({"status"}).status == 5; }));
    EXPECT_TRUE(eventually([&] {
        return node.cluster({"status"})
                   .out.find("no majority of the servers: the configuration can be read") !=
               std::string::npos;
    })) << node.cluster({"status"}).out;
    const auto status = node.cluster({"status"});
    expect_said(status, 5, "; reached: " + cluster().endpoint(2) + ";");
    expect_said(status, 5, "; not reached: " + cluster().endpoint(0) + ", " + cluster().endpoint(1) + ";");
    const auto refused = node.run({"sysdb", "set", "/cfg/site/name", "x"});
    expect_said(refused, 6, "No majority of the cluster's servers answers");
    EXPECT_EQ(std::string::npos, refused.err.find("may have been made")) << refused.err;
    EXPECT_EQ("first\n", node.get("/cfg/site/name"));
    node.stop();
    EXPECT_EQ(0, node.cluster({"leave"}).status);
    node.set("/cfg/site/name", "own");
    cluster().start(0);
    cluster().start(1);
    EXPECT_TRUE(cluster().wait_until_ready());
}

}  // namespace
