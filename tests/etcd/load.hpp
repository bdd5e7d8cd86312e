// SPDX-License-Identifier: Apache-2.0
//
// Writers and watchers on the nodes of a cluster, for the time of a fault.
//
// A change of a writer sets two items as one: "load/W/N", which is new, and "order/W", which
// counts. So it is known afterwards whether an acknowledged change was lost, and watchers see
// whether changes come in their order.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "etcd/cluster.hpp"
#include "support/sysdb.hpp"

namespace etcd_test {

class Load {
  public:
    static constexpr std::size_t kWriters = 4;
    static constexpr std::size_t kWatchers = 3;
    static constexpr std::size_t kMost = 20000;  // changes of a writer

    // Writers on nodes 0, 1, 2, 0; a watcher on each. Each node is used by processes of its own.
    explicit Load(const std::vector<std::unique_ptr<Node>> &nodes);
    ~Load();

    std::size_t acknowledged() const;
    std::size_t acknowledged_by(std::size_t writer) const;
    std::size_t failed() const { return shared_->failed; }
    // Waits until each writer of these nodes has made some more changes.
    bool wait_for_more(std::size_t changes, const std::vector<std::size_t> &writers = {0, 1, 2, 3}) const;
    // Codes other than those that a fault of the cluster may give.
    std::size_t wrong_codes() const { return shared_->wrong_codes; }
    std::uint32_t a_wrong_code() const { return shared_->a_wrong_code; }

    // Ends the writers, waits until the nodes are equal, ends the watchers, and expects that
    // nothing was lost and all came in order.
    void finish();

  private:
    struct Shared {
        std::atomic<bool> stop_writing;
        std::atomic<bool> stop_watching;
        std::atomic<std::size_t> failed;
        std::atomic<std::size_t> wrong_codes;
        std::atomic<std::uint32_t> a_wrong_code;
        std::atomic<std::size_t> out_of_order;
        std::atomic<std::size_t> made[kWriters];
        std::atomic<std::uint32_t> tried[kWriters];
        std::atomic<std::uint32_t> seen[kWatchers][kWriters];
        std::atomic<bool> acknowledged[kWriters][kMost];
    };

    void write(std::size_t writer) const;
    void watch(std::size_t watcher) const;
    static std::int32_t on_change(const void *record, void *self, void *);

    const std::vector<std::unique_ptr<Node>> &nodes_;
    Shared *shared_;
    std::vector<ForkedProcess> writers_;
    std::vector<ForkedProcess> watchers_;
};

// What a node's processes read: each item of the directory and those below it, a line each.
std::string contents(const Node &node, const std::string &directory = "/cfg/");

// Runs in a process of the node's own; its failed expectations fail the test.
void on_node(const Node &node, const std::function<void()> &body);

}  // namespace etcd_test
