// SPDX-License-Identifier: Apache-2.0

#include "cluster/site.hpp"

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>

#include "cluster/spread.hpp"
#include "platform/sysdb_changes.h"

namespace cluster_bench {

namespace {

constexpr std::uint32_t kSeed = 20260101;
constexpr std::uint32_t kPerTransaction = 1000;

}  // namespace

void fail(const std::string &what) {
    std::fprintf(stderr, "sysdb_cluster: %s\n", what.c_str());
    std::exit(1);
}

std::string path_of(std::uint32_t item) {
    if (item % 10 == 9) {
        return "flat/item " + std::to_string(item);
    }
    return "dir " + std::to_string(item / 100) + "/item " + std::to_string(item);
}

void fill(std::uint32_t items) {
    const Bound bound("/cfg/scale/");
    std::mt19937 random(kSeed);
    std::vector<std::string> paths;
    std::vector<std::string> values;
    std::vector<std::uint32_t> types;
    for (std::uint32_t item = 0; item < items; ++item) {
        const auto number = static_cast<std::uint32_t>(random());
        const bool is_number = number % 2 == 0;
        paths.push_back(path_of(item));
        types.push_back(is_number ? SYSDB_TYPE_U32 : SYSDB_TYPE_STRING);
        values.push_back(is_number ? std::string(reinterpret_cast<const char *>(&number), sizeof number)
                                   : std::string(1 + number / 2 % 64, 'x') + '\0');
        if (paths.size() < kPerTransaction && item + 1 < items) {
            continue;
        }
        std::vector<sysdb_change_t> changes;
        for (std::size_t i = 0; i < paths.size(); ++i) {
            changes.push_back({SYSDB_CHANGE_SET, types[i], paths[i].c_str(), values[i].data(),
                               static_cast<std::uint32_t>(values[i].size())});
        }
        if (sysdb_apply(bound.handle(), changes.data(), static_cast<std::uint32_t>(changes.size()),
                        nullptr) != 0) {
            fail("the items cannot be stored");
        }
        paths.clear();
        values.clear();
        types.clear();
    }
}

Site::Site(std::size_t members, std::size_t count, std::uint32_t items) {
    Cluster::Options options;
    options.members = members;
    options.more = {"--max-txn-ops", "16384", "--max-request-bytes", "33554432"};
    for (std::size_t i = 0; i < members; ++i) {
        options.directories[i] = directory.path("m" + std::to_string(i));
    }
    cluster = std::make_unique<Cluster>(options);
    cluster->start_all();
    for (std::size_t i = 0; i < count; ++i) {
        std::vector<std::string> settings;
        for (std::size_t j = 0; j < members; ++j) {
            settings.push_back("endpoint " + cluster->endpoint((i + j) % members));
        }
        nodes.push_back(std::make_unique<Node>(*cluster, "n" + std::to_string(i), settings));
    }
    etcd_test::on_node(*nodes[0], [items] {
        setenv("AAA_SYSDB_PROVIDER", LMDB_PROVIDER, 1);
        fill(items);
    });
    const std::uint64_t begin = now();
    if (const auto imported = nodes[0]->import(); imported.status != 0) {
        fail("the import failed: " + imported.output);
    }
    import_seconds = milliseconds_since(begin) / 1e3;
    const std::uint64_t starting = now();
    for (const auto &node : nodes) {
        node->start();
    }
    for (const auto &node : nodes) {
        // A question would disturb the others: it asks all members.
        if (!etcd_test::eventually([&] { return node->log().find(": following http") != std::string::npos; },
                                   300)) {
            fail("an agent does not follow the cluster: " + node->log());
        }
    }
    start_seconds = milliseconds_since(starting) / 1e3;
}

Use use_of(pid_t pid) {
    Use use;
    const std::string directory = "/proc/" + std::to_string(pid);
    std::ifstream stat(directory + "/stat");
    std::string line;
    std::getline(stat, line);
    std::istringstream fields(line.substr(std::min(line.size(), line.rfind(')') + 2)));
    std::string skipped;
    for (int i = 3; i < 14; ++i) {
        fields >> skipped;
    }
    double user = 0;
    double system = 0;
    fields >> user >> system;
    use.cpu_seconds = (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
    std::ifstream status(directory + "/status");
    for (std::string name; status >> name; std::getline(status, line)) {
        double kib = 0;
        if (name == "RssAnon:" && status >> kib) {
            use.own_mib = kib / 1024;
        } else if (name == "RssFile:" && status >> kib) {
            use.mapped_mib = kib / 1024;
        }
    }
    return use;
}

double disk_mib(const std::string &directory) {
    double blocks = 0;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(directory)) {
        struct stat file {};
        if (lstat(entry.path().c_str(), &file) == 0) {
            blocks += static_cast<double>(file.st_blocks);
        }
    }
    return blocks * 512 / (1 << 20);
}

}  // namespace cluster_bench
