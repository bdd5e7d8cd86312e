// SPDX-License-Identifier: Apache-2.0
//
// Reading with the provider for many nodes, on a node that follows a cluster, over reading with the embedded
// provider: in time, and in instructions.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "cluster/measurements.hpp"
#include "cluster/site.hpp"
#include "cluster/spread.hpp"

namespace cluster_bench {

namespace {

struct Step {
    const char *name;
    const char *what;
    unsigned count;    // of a run
    unsigned counted;  // under callgrind
    double target;
};
constexpr Step kSteps[] = {{"get", "100 gets", 2000, 20, 1.1},
                           {"list", "list of 100", 5000, 50, 1.1},
                           {"flat", "flat list of 1000", 2000, 20, 1.1},
                           {"watch", "begin and end of a watch", 300, 20, 1.1},
                           {"dispatch", "callback of a change", 300, 20, 1.1}};
constexpr std::uint32_t kItems = 10'000;
constexpr unsigned kRounds = 9;

using Environment = std::map<std::string, std::string>;

std::string run(std::vector<std::string> command, const Step &step, unsigned count,
                const Environment &environment) {
    command.insert(command.end(), {SYSDB_STEPS, step.name, std::to_string(count), std::to_string(kItems)});
    const auto ended = etcd_test::run_program(command, environment);
    if (ended.status != 0) {
        fail("sysdb_steps " + std::string(step.name) + " failed: " + ended.output);
    }
    return ended.output;
}

// Of one step; a step that makes another process has a dump of that, too, which has no name.
double instructions(const Step &step, const Environment &environment, const TempDir &directory) {
    const std::string place = directory.path("counts");
    std::filesystem::remove_all(place);
    std::filesystem::create_directory(place);
    run({"valgrind", "-q", "--tool=callgrind", "--collect-atstart=no",
         "--callgrind-out-file=" + place + "/dump.%p"},
        step, step.counted, environment);
    for (const auto &file : std::filesystem::directory_iterator(place)) {
        std::ifstream lines(file.path());
        bool named = false;
        for (std::string line; std::getline(lines, line);) {
            named = named || line.find("Client Request: " + std::string(step.name)) != std::string::npos;
            if (named && line.starts_with("summary: ")) {
                return std::stod(line.substr(9)) / step.counted;
            }
        }
    }
    fail("callgrind counted nothing of " + std::string(step.name));
}

}  // namespace

void compare_providers() {
    Site site(3, 1, kItems);
    const Node alone(*site.cluster, "alone");
    Environment embedded = alone.environment();
    embedded["AAA_SYSDB_PROVIDER"] = LMDB_PROVIDER;
    embedded["NO_DLLMAIN"] = "1";
    etcd_test::on_node(alone, [] {
        setenv("AAA_SYSDB_PROVIDER", LMDB_PROVIDER, 1);
        fill(kItems);
    });
    Environment node = site.nodes[0]->environment();
    node["NO_DLLMAIN"] = "1";

    std::printf(
        "%u items, a cluster of 3. A row is the median of %u rounds, in each of which both providers ran in "
        "a new\n"
        "process; after the ratio, the lowest and highest of a round.\n\n"
        "| step | embedded us | many nodes us | ratio | target | embedded instr | many nodes instr | ratio "
        "|\n"
        "|---|--:|--:|--:|--:|--:|--:|--:|\n",
        kItems, kRounds);
    for (const Step &step : kSteps) {
        std::vector<double> one;
        std::vector<double> other;
        std::vector<double> ratios;
        for (unsigned i = 0; i < kRounds; ++i) {
            const auto first = [&] { one.push_back(std::stod(run({}, step, step.count, embedded)) / 1e3); };
            const auto second = [&] { other.push_back(std::stod(run({}, step, step.count, node)) / 1e3); };
            if (i % 2 == 0) {
                first();
                second();
            } else {
                second();
                first();
            }
            ratios.push_back(other.back() / one.back());
        }
        std::printf("| %s | %.2f | %.2f | %.2f (%.2f..%.2f) | %.1f |", step.what, spread_of(one).median,
                    spread_of(other).median, spread_of(ratios).median,
                    *std::min_element(ratios.begin(), ratios.end()),
                    *std::max_element(ratios.begin(), ratios.end()), step.target);
        std::fflush(stdout);
        const double counted = instructions(step, embedded, site.directory);
        const double counted_node = instructions(step, node, site.directory);
        std::printf(" %.0f | %.0f | %.2f |\n", counted, counted_node, counted_node / counted);
        std::fflush(stdout);
    }
}

void items_of_a_node(std::uint32_t most) {
    std::vector<std::uint32_t> counts;
    for (std::uint32_t items = 1000; items <= most; items *= 10) {
        counts.push_back(items);
    }
    for (const std::uint32_t items : counts) {
        const Site site(3, 1, 0);
        Environment environment = site.nodes[0]->environment();
        environment["AAA_SYSDB_WAIT_MS"] = "60000";
        const auto ended = etcd_test::run_program(
            {SYSDB_SCALE, "--here", "--aaactl", AAACTL, std::to_string(items)}, environment);
        if (ended.status != 0) {
            fail("sysdb_scale failed: " + ended.output + site.nodes[0]->log());
        }
        std::printf("%s", ended.output.c_str());
        std::fflush(stdout);
    }
    std::printf(
        "\n| items | import s | first copy of an empty node s | memory of an agent, own + mapped MiB | of a "
        "member MiB | disk of a node, of a member MiB |\n|--:|--:|--:|--:|--:|--:|\n");
    for (const std::uint32_t items : counts) {
        const Site site(3, 2, items);
        const Use agent = use_of(site.nodes[1]->pid());
        const Use member = use_of(site.cluster->pid(0));
        std::printf("| %u | %.1f | %.1f | %.1f + %.1f | %.0f | %.1f, %.1f |\n", items, site.import_seconds,
                    site.start_seconds, agent.own_mib, agent.mapped_mib, member.own_mib,
                    disk_mib(site.nodes[1]->directory() + "cfg"), disk_mib(site.directory.path("m0")));
        std::fflush(stdout);
    }
}

}  // namespace cluster_bench
