// SPDX-License-Identifier: Apache-2.0
//
// The leader is killed while a writer on each node makes changes: how long until each of them has made one
// that began after that.

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "cluster/board.hpp"
#include "cluster/measurements.hpp"

namespace cluster_bench {

void leader_killed(unsigned rounds) {
    constexpr std::uint32_t kItems = 1000;
    constexpr std::uint32_t kNodes = 3;
    constexpr double kTarget = 3000;
    Site site(3, kNodes, kItems);
    Board board(site, kItems);
    board.begin({.writers = kNodes});
    std::vector<double> first;
    std::vector<double> slowest;
    for (unsigned i = 0; i < rounds; ++i) {
        const std::size_t leader = site.cluster->leader();
        if (leader >= site.cluster->size()) {
            fail("the cluster has no leader");
        }
        const std::uint64_t killed = now();
        site.cluster->kill(leader);
        std::vector<double> waited(kNodes, 0);
        const bool all = etcd_test::eventually(
            [&] {
                // Changes of a millisecond follow the first one.
                for (std::uint32_t writer = 0; writer < kNodes; ++writer) {
                    const std::uint64_t made = board.acknowledged_after(writer, killed);
                    if (waited[writer] == 0 && made != 0) {
                        waited[writer] = static_cast<double>(made - killed) / 1e6;
                    }
                }
                return std::find(waited.begin(), waited.end(), 0) == waited.end();
            },
            60);
        if (!all) {
            fail("changes do not go on a minute after the leader was killed");
        }
        first.push_back(*std::min_element(waited.begin(), waited.end()));
        slowest.push_back(*std::max_element(waited.begin(), waited.end()));
        site.cluster->start(leader);
        if (!site.cluster->wait_until_ready()) {
            fail("a member that was started again is not ready");
        }
        sleep(1);
    }
    board.stop_writers();
    const std::string wrong = board.finish();
    const auto late = std::count_if(slowest.begin(), slowest.end(), [](double ms) { return ms > kTarget; });
    std::printf(
        "3 members, 3 nodes with a writer each, kill -9 of the leader, %u times. Milliseconds until a change "
        "that\n"
        "began after it was acknowledged: median / 99th percentile / most.\n\n"
        "| on the first node | on the slowest node | rounds over %.0f | changes refused | lost, out of order "
        "or different |\n"
        "|--:|--:|--:|--:|---|\n| %s | %s | %td | %zu | %s |\n",
        rounds, kTarget, text(spread_of(first)).c_str(), text(spread_of(slowest)).c_str(), late,
        board.failed(), wrong.empty() ? "nothing" : wrong.c_str());
    if (!wrong.empty()) {
        std::exit(1);
    }
}

}  // namespace cluster_bench
