// SPDX-License-Identifier: Apache-2.0
//
// What the configuration on many nodes costs, with clusters and agents that it starts on this machine.
//
//   sysdb_cluster [--members N] [--items N] [--seconds N] [--rounds N] [WHAT...]
//
//   providers    reading, over that of the embedded provider, in time and instructions
//   changes      from a change to the callback on another node
//   leader       how long changes stop when the leader is killed, --rounds times (20)
//   items        the rows of sysdb_scale on a node of a cluster of 3, and import and first copy, with 1,000
//                to a million items (or --items): ten minutes
//   NUMBER       that many nodes with four writers, for --seconds (20), with --items (10000)
//                in a cluster of --members (3)
//
// Without WHAT: the first three, and 1, 3 and 10 nodes. All members, agents, writers and watchers share the
// processors of one machine, so times with many nodes are those of a machine that is too small for them.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "cluster/measurements.hpp"

namespace {

constexpr char kUsage[] =
    "usage: sysdb_cluster [--members 1..9] [--items 200..1000000] [--seconds 1..3600] [--rounds 1..1000]\n"
    "                     [providers|changes|leader|items|NODES]...     NODES: 1 to 200\n";

bool read_number(const char *text, unsigned long least, unsigned long most, unsigned long &number) {
    char *end = nullptr;
    number = std::strtoul(text, &end, 10);
    return *text != '\0' && *end == '\0' && number >= least && number <= most;
}

}  // namespace

int main(int argc, char **argv) {
    cluster_bench::Run run;
    unsigned long rounds = 20;
    bool is_given = false;  // the number of items
    std::vector<std::string> words;
    std::vector<std::size_t> counts;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        const char *value = i + 1 < argc ? argv[i + 1] : "";
        unsigned long number = 0;
        if (word == "--members" && read_number(value, 1, 9, number)) {
            run.members = number;
            ++i;
        } else if (word == "--items" && read_number(value, 200, 1'000'000, number)) {
            run.items = static_cast<std::uint32_t>(number);
            is_given = true;
            ++i;
        } else if (word == "--seconds" && read_number(value, 1, 3600, number)) {
            run.seconds = static_cast<unsigned>(number);
            ++i;
        } else if (word == "--rounds" && read_number(value, 1, 1000, rounds)) {
            ++i;
        } else if (word == "providers" || word == "changes" || word == "leader" || word == "items") {
            words.push_back(word);
        } else if (read_number(argv[i], 1, 200, number)) {
            counts.push_back(number);
        } else {
            std::fputs(kUsage, stderr);
            return 2;
        }
    }
    if (words.empty() && counts.empty()) {
        words = {"providers", "changes", "leader"};
        counts = {1, 3, 10};
    }
    setenv("NO_DLLMAIN", "1", 1);
    bool good = true;
    for (const std::string &word : words) {
        std::printf("## %s\n\n", word.c_str());
        std::fflush(stdout);
        if (word == "providers") {
            cluster_bench::compare_providers();
        } else if (word == "changes") {
            cluster_bench::changes_to_callbacks();
        } else if (word == "items") {
            cluster_bench::items_of_a_node(is_given ? run.items : 1'000'000);
        } else {
            cluster_bench::leader_killed(static_cast<unsigned>(rounds));
        }
        std::printf("\n");
    }
    if (!counts.empty()) {
        std::printf("## nodes\n\n");
        std::fflush(stdout);
        good = cluster_bench::many_nodes(counts, run);
    }
    // What the code of the tests expects of clusters and agents.
    good = good && !testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed();
    return good ? 0 : 1;
}
