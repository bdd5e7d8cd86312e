// SPDX-License-Identifier: Apache-2.0
//
// A cluster and its nodes, all on this machine.
//
// Distribution of the items, as in sysdb_scale: nine of ten are in directories of 100, the others in one flat
// directory. Half are numbers, half texts of 1 to 64 bytes. What changes is chosen at random, all items with
// the same probability, from one seed.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "etcd/load.hpp"

namespace cluster_bench {

using etcd_test::Cluster;
using etcd_test::Node;

std::string path_of(std::uint32_t item);

// Sets all items with the provider of the environment.
void fill(std::uint32_t items);

// Seconds of each step.
struct Site {
    // The members write to the disk as they would in service. Each node asks another member first.
    Site(std::size_t members, std::size_t nodes, std::uint32_t items);

    TempDir directory;
    std::unique_ptr<Cluster> cluster;
    std::vector<std::unique_ptr<Node>> nodes;
    double import_seconds = 0;
    double start_seconds = 0;  // until all nodes have all items
};

// Of processes, summed.
struct Use {
    double cpu_seconds = 0;
    double own_mib = 0;     // memory
    double mapped_mib = 0;  // of files, which processes share
};
Use use_of(pid_t pid);

double disk_mib(const std::string &directory);

[[noreturn]] void fail(const std::string &what);

}  // namespace cluster_bench
