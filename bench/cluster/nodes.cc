// SPDX-License-Identifier: Apache-2.0
//
// Changes on several nodes at once, and their watchers on all.

#include <unistd.h>

#include <cstdio>

#include "cluster/board.hpp"
#include "cluster/measurements.hpp"

namespace cluster_bench {

namespace {

constexpr unsigned kIdleSeconds = 5;

void print_changes(const char *what, const Board &board, double target) {
    const Spread set = spread_of(board.acknowledgements());
    const Spread each = spread_of(board.callbacks());
    const Spread last = spread_of(board.last_callbacks());
    std::printf("| %s | %zu | %s | %s | %s | ", what, set.count, text(set).c_str(), text(each).c_str(),
                text(last).c_str());
    if (target != 0) {
        std::printf("%.0f, %s |\n", target, each.median < target ? "met" : "MISSED");
    } else {
        std::printf("- |\n");
    }
    std::fflush(stdout);
}

// Of all processes of a kind.
struct Used {
    double cpu = 0;
    double own = 0;
    double mapped = 0;
};
Used agents_of(const Site &site) {
    Used used;
    for (const auto &node : site.nodes) {
        const Use use = use_of(node->pid());
        used.cpu += use.cpu_seconds;
        used.own += use.own_mib;
        used.mapped += use.mapped_mib;
    }
    return used;
}
Used members_of(const Site &site) {
    Used used;
    for (std::size_t i = 0; i < site.cluster->size(); ++i) {
        const Use use = use_of(site.cluster->pid(i));
        used.cpu += use.cpu_seconds;
        used.own += use.own_mib;
    }
    return used;
}

bool row(std::size_t nodes, const Run &run) {
    const Site site(run.members, nodes, run.items);
    const double count = static_cast<double>(nodes);
    const double members = static_cast<double>(run.members);

    const double agents_before = agents_of(site).cpu;
    const double members_before = members_of(site).cpu;
    sleep(kIdleSeconds);
    const double agents_idle = (agents_of(site).cpu - agents_before) / kIdleSeconds * 100;
    const double members_idle = (members_of(site).cpu - members_before) / kIdleSeconds * 100;

    Board board(site, run.items);
    const std::uint64_t begin = now();
    board.begin({});
    sleep(run.seconds);
    board.stop_writers();
    const double seconds = milliseconds_since(begin) / 1e3;
    const std::string wrong = board.finish();

    const Spread set = spread_of(board.acknowledgements());
    const Used agents = agents_of(site);
    std::printf(
        "| %zu | %.1f | %.1f | %.0f | %s | %s | %s | %.1f + %.1f | %.0f | %.1f, %.1f | %.1f, %.1f | %s |\n",
        nodes, site.import_seconds, site.start_seconds, static_cast<double>(set.count) / seconds,
        text(set).c_str(), text(spread_of(board.callbacks())).c_str(),
        text(spread_of(board.last_callbacks())).c_str(), agents.own / count, agents.mapped / count,
        members_of(site).own / members, disk_mib(site.nodes[0]->directory() + "cfg"),
        disk_mib(site.directory.path("m0")), agents_idle / count, members_idle / members,
        wrong.empty() ? "nothing" : wrong.c_str());
    if (board.failed() != 0 || board.reread() != 0) {
        std::printf("%zu changes were refused, %zu times a watcher read everything again\n", board.failed(),
                    board.reread());
    }
    std::fflush(stdout);
    return wrong.empty();
}

}  // namespace

void changes_to_callbacks() {
    constexpr std::uint32_t kItems = 10'000;
    constexpr unsigned kRounds = 5;
    const Site site(3, 3, kItems);
    std::printf(
        "%u items, 3 members, 3 nodes with a watcher each. Milliseconds: median / 99th percentile / most. A "
        "callback\n"
        "is one on another node than the writer's. Calm: one writer, a change of one item every 10 ms. "
        "Bursts: four\n"
        "writers change 10,000 items in 100 transactions of 100, without pause, %u times; the time is that "
        "of the\n"
        "last item of a transaction.\n\n"
        "| changes | transactions | set | callback on another node | on the last node | target of the median "
        "|\n"
        "|---|--:|--:|--:|--:|--:|\n",
        kItems, kRounds);
    std::fflush(stdout);
    {
        Board board(site, kItems);
        board.begin({.writers = 1, .transactions = 1000, .pause_us = 10'000});
        board.wait_for_writers();
        const std::string wrong = board.finish();
        if (!wrong.empty()) {
            fail(wrong);
        }
        print_changes("calm", board, 10);
    }
    Board board(site, kItems);
    for (unsigned i = 0; i < kRounds; ++i) {
        board.begin({.items_at_once = 100, .transactions = 25});
        board.wait_for_writers();
        sleep(1);
    }
    const std::string wrong = board.finish();
    if (!wrong.empty()) {
        fail(wrong);
    }
    print_changes("bursts", board, 0);
}

bool many_nodes(const std::vector<std::size_t> &counts, const Run &run) {
    std::printf(
        "%zu members, %u items, four writers for %u s on the first nodes, one item in a change, a watcher on "
        "each\n"
        "node. Milliseconds: median / 99th percentile / most. Idle: per cent of a processor in %u s without "
        "a change.\n\n"
        "| nodes | import s | start of all s | changes/s | set ms | callback on another node ms | on the "
        "last node ms "
        "| memory of an agent, own + mapped MiB | of a member MiB | disk of a node, of a member MiB "
        "| idle agent, member %% | lost, out of order or different |\n"
        "|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|---|\n",
        run.members, run.items, run.seconds, kIdleSeconds);
    std::fflush(stdout);
    bool good = true;
    for (const std::size_t nodes : counts) {
        good = row(nodes, run) && good;
    }
    return good;
}

}  // namespace cluster_bench
