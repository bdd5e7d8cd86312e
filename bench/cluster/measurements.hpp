// SPDX-License-Identifier: Apache-2.0
//
// What sysdb_cluster measures. Each function starts what it needs, prints a table, and ends all.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace cluster_bench {

// Reads, lists and watches of a node, over those of the embedded provider.
void compare_providers();

// The rows of sysdb_scale on a node of a cluster of 3, for 1000 items, ten times as many, up to `most`; then
// what it takes to import so many, and to copy them to an empty node.
void items_of_a_node(std::uint32_t most);

// From a change to the callback on other nodes: one at a time, and in bursts.
void changes_to_callbacks();

// How long changes stop when the leader is killed.
void leader_killed(unsigned rounds);

struct Run {
    std::size_t members = 3;
    std::uint32_t items = 10'000;
    unsigned seconds = 20;
};
// A row for each number of nodes, with four writers and a watcher on each node. False: a change was
// lost, came in another order, or nodes were not equal at the end.
bool many_nodes(const std::vector<std::size_t> &counts, const Run &run);

}  // namespace cluster_bench
