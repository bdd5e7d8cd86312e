// SPDX-License-Identifier: Apache-2.0
//
// Nodes that an administrator sets up with aaactl, and a cluster of three members for a suite of tests.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "aaactl/support/program_run.hpp"
#include "etcd/cluster.hpp"
#include "support/sysdb.hpp"

namespace cluster_test {

using aaactl_test::JsonDocument;
using aaactl_test::Run;
using etcd_test::Cluster;
using etcd_test::eventually;
using etcd_test::Program;

// One node: a database, settings, and the agent.
class Machine {
  public:
    explicit Machine(const std::string &name) : name_(name) {}
    ~Machine() { stop(); }

    Run run(std::vector<std::string> words) const {
        setenv("AAA_SYSDB_CFG_DIR", directory_.path("cfg").c_str(), 1);
        setenv("AAA_SYSDB_RUN_DIR", directory_.path("run").c_str(), 1);
        setenv("AAA_SYSDB_PROVIDER", ETCD_PROVIDER, 1);
        setenv("AAA_SYSDB_AGENT", ETCD_AGENT, 1);
        return aaactl_test::aaactl(words);
    }
    Run cluster(std::vector<std::string> words) const {
        words.insert(words.begin(), "cluster");
        words.insert(words.end(), {"--config", settings()});
        return run(words);
    }
    // Without waiting: the test starts the agent itself, later.
    Run join(std::vector<std::string> words) const {
        words.insert(words.begin(), {"join", "--no-wait"});
        words.insert(words.end(), {"--node", name_});
        return cluster(words);
    }
    void start_join(Program &program, std::vector<std::string> words) const {
        words.insert(words.begin(), {AAACTL_PROGRAM, "cluster", "join", "--no-wait"});
        words.insert(words.end(), {"--node", name_, "--config", settings()});
        program.start(words,
                      {{"AAA_SYSDB_CFG_DIR", directory_.path("cfg")},
                       {"AAA_SYSDB_RUN_DIR", directory_.path("run")},
                       {"AAA_SYSDB_PROVIDER", ETCD_PROVIDER},
                       {"AAA_SYSDB_AGENT", ETCD_AGENT}},
                      directory_.path("join"));
    }
    // The agent's program alone, which aaactl runs.
    void start_import(Program &program, const std::string &servers, const std::string &prefix) const {
        std::string text = "node " + name_ + "\nprefix " + prefix + "\n";
        for (size_t begin = 0; begin < servers.size();) {
            const size_t end = std::min(servers.find(',', begin), servers.size());
            text += "endpoint " + servers.substr(begin, end - begin) + "\n";
            begin = end + 1;
        }
        directory_.write("import.conf", text);
        program.start(
            {ETCD_AGENT, "--config", directory_.path("import.conf"), "--import"},
            {{"AAA_SYSDB_CFG_DIR", directory_.path("cfg")}, {"AAA_SYSDB_RUN_DIR", directory_.path("run")}},
            directory_.path("import"));
    }
    // How many of the files with a configuration that was replaced have the line.
    size_t kept_with(const std::string &line) const {
        size_t count = 0;
        for (const auto &file : std::filesystem::directory_iterator(directory_.path(""))) {
            const std::string name = file.path().filename().string();
            count +=
                name.starts_with("before-cluster-") && directory_.read(name).find(line) != std::string::npos;
        }
        return count;
    }
    void set(const std::string &path, const std::string &value) const {
        const auto done = run({"sysdb", "set", path, "--type", "string", value});
        EXPECT_EQ(0, done.status) << done.err;
    }
    std::string get(const std::string &path) const { return run({"sysdb", "get", path}).out; }

    void start(const std::vector<std::string> &options = {"--if-joined"}) {
        std::vector<std::string> words = {ETCD_AGENT, "--foreground", "--config", settings()};
        words.insert(words.end(), options.begin(), options.end());
        agent_.start(words,
                     {{"AAA_SYSDB_CFG_DIR", directory_.path("cfg")},
                      {"AAA_SYSDB_RUN_DIR", directory_.path("run")},
                      {"AAA_LOG", "stderr"}},
                     directory_.path("log"));
    }
    int wait() { return agent_.wait(); }
    pid_t pid() const { return agent_.pid(); }
    void send(int signal) const { agent_.send(signal); }
    void stop() {
        if (agent_.is_running()) {
            agent_.send(SIGTERM);
            EXPECT_EQ(0, agent_.wait()) << log();
        }
    }
    const std::string &name() const { return name_; }
    std::string settings() const { return directory_.path("agent.conf"); }
    std::string log() const { return directory_.read("log"); }
    const TempDir &directory() const { return directory_; }

  private:
    std::string name_;
    TempDir directory_;
    Program agent_;
};

class ClusterCommands : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        Cluster::Options options;
        options.more = {"--max-txn-ops", "10000"};
        cluster_ = new Cluster(options);
        cluster_->start_all();
    }
    static void TearDownTestSuite() {
        delete cluster_;
        cluster_ = nullptr;
    }

    static Cluster &cluster() { return *cluster_; }
    static std::string all() {
        return cluster().endpoint(0) + "," + cluster().endpoint(1) + "," + cluster().endpoint(2);
    }
    // Each test has a prefix of its own.
    static std::string prefix() {
        return std::string("/") + ::testing::UnitTest::GetInstance()->current_test_info()->name();
    }
    static void first_node(Machine &node) {
        node.set("/cfg/site/name", "first");
        const auto joined = node.join({all(), "--prefix", prefix(), "--import"});
        ASSERT_EQ(0, joined.status) << joined.err;
        node.start();
        const auto again = node.cluster({"join", "--import"});
        ASSERT_EQ(0, again.status) << again.err << node.log();
    }

  private:
    inline static Cluster *cluster_ = nullptr;
};

inline void expect_said(const Run &run, int status, const std::string &text) {
    EXPECT_EQ(status, run.status) << run.out << run.err;
    EXPECT_NE(std::string::npos, (run.out + run.err).find(text)) << run.out << run.err;
}

}  // namespace cluster_test
