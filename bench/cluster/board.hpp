// SPDX-License-Identifier: Apache-2.0
//
// Writers and watchers on the nodes, and what they have in common. Each item has one writer, which gives it
// rising numbers: so it is known what was lost, and whether a watcher sees an item's changes in their order.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "cluster/site.hpp"
#include "cluster/spread.hpp"
#include "support/sysdb.hpp"

namespace cluster_bench {

class Board {
  public:
    static constexpr std::uint32_t kMostNodes = 200;
    static constexpr std::uint32_t kMostItems = 100'000;
    static constexpr std::uint32_t kMostChanges = 50'000;  // transactions of a writer
    static constexpr std::uint32_t kMostWriters = 4;

    struct Load {
        std::uint32_t writers = kMostWriters;       // on nodes 0, 1, ... of the site
        std::uint32_t items_at_once = 1;            // of a transaction
        std::uint32_t transactions = kMostChanges;  // of each writer
        unsigned pause_us = 0;                      // after each
    };

    // Begins the watchers, one on each node.
    Board(const Site &site, std::uint32_t items);
    ~Board();

    void begin(const Load &load);
    // Until they have made their transactions, or at once.
    void wait_for_writers();
    void stop_writers();

    // When a change was acknowledged that had begun after this, 0 for not yet.
    std::uint64_t acknowledged_after(std::uint32_t writer, std::uint64_t begun) const;

    // Waits until each watcher has seen the last state of each item. What is wrong, for people.
    std::string finish();

    // Milliseconds of the load's transactions, to their acknowledgement.
    std::vector<double> acknowledgements() const;
    // From the beginning of a transaction to its last callback on each node other than the writer's own, if
    // there is another; and on the last of these nodes.
    std::vector<double> callbacks() const;
    std::vector<double> last_callbacks() const;
    std::size_t failed() const { return state_->failed; }
    std::size_t reread() const { return state_->reread; }

  private:
    struct State {
        std::atomic<bool> stop_writing;
        std::atomic<bool> stop_watching;
        std::atomic<std::uint32_t> watching;
        std::atomic<std::uint32_t> failed;
        std::atomic<std::uint32_t> out_of_order;
        std::atomic<std::uint32_t> reread;  // watchers that had to read everything again
        std::atomic<std::uint32_t> made[kMostWriters];
        std::atomic<std::uint64_t> begun[kMostWriters];         // of the last one that was acknowledged
        std::atomic<std::uint64_t> acknowledged[kMostWriters];  // when
        std::atomic<std::uint32_t> answer_us[kMostWriters][kMostChanges];
        std::atomic<std::uint32_t> last_acknowledged[kMostItems];
        std::atomic<std::uint32_t> callback_us[kMostNodes][kMostWriters][kMostChanges];
        std::atomic<std::uint32_t> seen[kMostNodes][kMostItems];
    };
    struct Value {
        std::uint32_t item;
        std::uint32_t number;
        std::uint64_t begun;
    };
    struct Watching;

    void write(std::uint32_t writer, const Load &load, std::uint32_t first) const;
    void watch(std::uint32_t node) const;
    void read_all(sysdb_conn_t conn, std::uint32_t node) const;
    void take(std::uint32_t node, const void *value, std::uint32_t length, bool is_call) const;
    std::uint32_t final_number(sysdb_conn_t conn, std::uint32_t item) const;
    static std::int32_t on_change(const void *record, void *board, void *node);
    template <typename Take>
    void for_each_transaction(Take take) const;

    const Site &site_;
    const std::uint32_t items_;
    Shared<State> state_;
    std::vector<ForkedProcess> writers_;
    std::vector<ForkedProcess> watchers_;
};

}  // namespace cluster_bench
