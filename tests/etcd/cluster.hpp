// SPDX-License-Identifier: Apache-2.0
//
// Clusters and agents for one test: programs of their own, on ports and directories of their
// own, which end with the test.
#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "call/form.hpp"
#include "support/temp_dir.hpp"

namespace etcd_test {

// A program that runs until it is ended. What it prints is in a file.
class Program {
  public:
    Program() = default;
    ~Program() { end(); }
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;

    void start(const std::vector<std::string> &arguments,
               const std::map<std::string, std::string> &environment, const std::string &output);
    bool is_running() const { return pid_ > 0; }
    pid_t pid() const { return pid_; }
    void send(int signal) const;
    // SIGKILL, and waits.
    void end();
    // Waits for its own end: the status, or -1 for that of a signal.
    int wait();

  private:
    pid_t pid_ = -1;
};

// Runs a program to its end.
struct Ended {
    int status;
    std::string output;
};
Ended run_program(const std::vector<std::string> &arguments,
                  const std::map<std::string, std::string> &environment = {});

int free_port();

// A time of day that differs from the machine's, for programs that `before` begins the commands of.
class OtherClock {
  public:
    explicit OtherClock(std::int64_t seconds);
    // While the programs run.
    void set(std::int64_t seconds);
    std::vector<std::string> before() const;
    // Whether this machine allows it.
    bool works() const;

  private:
    TempDir directory_;
    std::string file_;
};

// Tries until it is true; false after a time that is reached only when something is wrong.
bool eventually(const std::function<bool()> &condition, int seconds = 30);

// Members of one cluster on 127.0.0.1.
class Cluster {
  public:
    struct Options {
        std::size_t members = 3;
        std::vector<std::string> more = {};  // options of each member
        std::string scheme = "http";
        std::string certificate = {};  // files, for https
        std::string key = {};
        std::string authorities = {};  // of clients' certificates; empty: they need none
        // Instead of 127.0.0.1: a member's address, and what its command begins with.
        std::vector<std::string> hosts = {};
        std::vector<std::vector<std::string>> before = {};
        std::map<std::size_t, std::string> directories = {};  // instead of the test's own
    };

    explicit Cluster(Options options);
    Cluster() : Cluster(Options()) {}
    ~Cluster();

    std::size_t size() const { return members_.size(); }
    void start(std::size_t member);
    void start_all();
    bool wait_until_ready(const std::vector<std::size_t> &members);
    bool wait_until_ready();
    void kill(std::size_t member) { members_[member].program.end(); }
    void stop(std::size_t member);
    void go_on(std::size_t member);
    // Of those that answer; size() for none.
    std::size_t leader();

    std::string endpoint(std::size_t member) const;
    std::string peer(std::size_t member) const;       // its address for the other members
    std::string directory(std::size_t member) const;  // of its data
    std::string output(std::size_t member) const;
    pid_t pid(std::size_t member) const { return members_[member].program.pid(); }
    // The time of day of a member, in seconds since 1970; -1 when it does not say.
    std::int64_t time_of_day(std::size_t member) const;
    // etcdctl, of all members.
    Ended control(const std::vector<std::string> &arguments) const;

  private:
    struct Member {
        Program program;
        int client_port = 0;
        int peer_port = 0;
    };

    std::string host(std::size_t member) const;

    Options options_;
    TempDir directory_;
    std::vector<Member> members_;
};

// A node: directories of a database, and an agent.
class Node {
  public:
    Node(const Cluster &cluster, const std::string &name, const std::vector<std::string> &settings = {});
    ~Node();

    const std::string &name() const { return name_; }
    std::map<std::string, std::string> environment() const;
    // For this process and those that it forks.
    void use() const;
    std::string configuration() const { return directory_.path("agent.conf"); }
    std::string directory() const { return directory_.path(""); }

    Ended import() const;
    // From now on the node's configuration is the cluster's, reached or not.
    Ended adopt() const;
    Ended leave() const;
    // What the agent's command begins with from now on.
    void run_by(std::vector<std::string> before) { before_ = std::move(before); }
    void start();
    pid_t pid() const { return agent_.pid(); }
    void kill() { agent_.end(); }
    // As the service manager does: its exit status.
    int stop();
    void send(int signal) const { agent_.send(signal); }
    bool is_running() const { return agent_.is_running(); }
    std::string log() const { return directory_.read("log"); }
    std::string socket() const { return directory_.path("run/agent"); }
    // The agent's answer to these bytes; nothing without one.
    std::optional<sysdb_etcd::Answer> ask(const std::string &bytes) const;
    // What it says of itself, JSON; empty without an answer.
    std::string status() const;
    bool wait_until_following() const;

  private:
    std::string name_;
    TempDir directory_;
    std::vector<std::string> before_;
    Program agent_;
};

}  // namespace etcd_test
