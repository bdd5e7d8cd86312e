// SPDX-License-Identifier: Apache-2.0
//
// The history of a configuration of 5,000 items in 500 server groups, with 50 commits in it. The counters are
// the distribution of the times of single calls, in microseconds. The unkind case: items of random bytes,
// which cannot be compressed, and all of them different in the commit that is gone back to.
//
// sysdb_bench.cc gives the program its own directories.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "store/store.hpp"

namespace {

using Clock = std::chrono::steady_clock;
using history::Items;
using history::State;
using history::Store;

constexpr unsigned kGroups = 500;
constexpr unsigned kSettings = 8;  // of a group, besides a server and a key
constexpr unsigned kCommits = 50;

std::string random_hex(std::mt19937 &random, std::size_t digits) {
    std::string text;
    for (std::size_t i = 0; i < digits; ++i) {
        text += "0123456789abcdef"[random() % 16];
    }
    return text;
}

// A sealed key is random; of the rest, much is alike.
Items usual_items(unsigned variant) {
    std::mt19937 random(1);
    Items items;
    for (unsigned group = 0; group < kGroups; ++group) {
        const std::string at = "gl/aaa/group-server/radius/group" + std::to_string(group) + "/";
        items[at + "server/0x1/192.0.2." + std::to_string(group % 250) + ",1812,1813"] =
            history::text_item("1");
        items[at + "settings/key"] = history::text_item("01" + random_hex(random, 110));
        for (unsigned setting = 0; setting < kSettings; ++setting) {
            items[at + "settings/setting" + std::to_string(setting)] = history::text_item(
                std::to_string(setting * 100 + (setting == 0 && group == 7 ? variant : 0)));
        }
    }
    return items;
}

Items random_items(unsigned variant) {
    std::mt19937 random(variant);
    Items items = usual_items(variant);
    for (auto &[path, item] : items) {
        item = history::text_item(random_hex(random, 200));
    }
    return items;
}

class Timed {
  public:
    template <typename Call>
    void run(Call call) {
        const auto begin = Clock::now();
        call();
        times_.push_back(std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
    }
    void report(benchmark::State &state) {
        std::sort(times_.begin(), times_.end());
        const auto at = [&](double part) {
            return times_[std::min(times_.size() - 1,
                                   static_cast<std::size_t>(part * static_cast<double>(times_.size())))];
        };
        state.counters["median_us"] = at(0.5);
        state.counters["p90_us"] = at(0.9);
        state.counters["p99_us"] = at(0.99);
        state.counters["most_us"] = times_.back();
    }

  private:
    std::vector<double> times_;
};

sysdb_conn_t connection() {
    static sysdb_conn_t conn = 0;
    if (conn == 0 && _sysdb_bind(&conn, "/cfg/", SYSDB_BIND_PRIVATE) != 0) {
        std::fprintf(stderr, "history_bench: no database\n");
        std::_Exit(1);
    }
    return conn;
}

// Makes the configuration these items, and a commit of it.
void become(const Store &store, const Items &wanted) {
    history::change(store, [&](const history::Head &head, history::Changes &changes) {
        const State now = history::read_state(store.connection(), history::kConfiguration);
        history::Writing writing(store, head);
        if (!writing.is_recorded(now)) {
            writing.add({}, now);
        }
        writing.add({}, {wanted, {}});
        changes = writing.finish();
        const history::Changes items = history::changes_between(now, wanted);
        changes.insert(changes.end(), items.begin(), items.end());
    });
}

// As the command does: the state is read, and recorded if it is another one.
void commit(const Store &store) {
    history::change(store, [&](const history::Head &head, history::Changes &changes) {
        history::Writing writing(store, head);
        writing.add({}, history::read_state(store.connection(), history::kConfiguration));
        changes = writing.finish();
    });
}

void fill(const Store &store, Items (*items)(unsigned)) {
    sysdb_item_delete(connection(), ".history/", SYSDB_DELETE_TREE);
    sysdb_item_delete(connection(), "gl/aaa/", SYSDB_DELETE_TREE);
    for (unsigned i = 0; i < kCommits; ++i) {
        become(store, items(i));
    }
}

void change_one(unsigned value) {
    const history::Item item = history::text_item(std::to_string(value));
    sysdb_item_set(connection(), "gl/aaa/group-server/radius/group7/settings/setting0", item.type,
                   item.bytes.data(), static_cast<std::uint32_t>(item.bytes.size()), 0);
}

void HistoryCommit(benchmark::State &state, Items (*items)(unsigned)) {
    const Store store(connection());
    fill(store, items);
    Timed timed;
    unsigned value = 1000;
    for (auto _ : state) {
        state.PauseTiming();
        change_one(++value);
        state.ResumeTiming();
        timed.run([&] { commit(store); });
    }
    timed.report(state);
    std::uint64_t bytes = 0;
    for (const history::Commit &one : store.commits()) {
        bytes += one.bytes;
    }
    state.counters["kilobytes"] = static_cast<double>(bytes) / 1024;
}

// To the commit before and back: one item differs, or all of them.
void HistoryRollback(benchmark::State &state, Items (*items)(unsigned)) {
    const Store store(connection());
    fill(store, items);
    Timed timed;
    for (auto _ : state) {
        timed.run([&] { become(store, store.items(store.commit(store.head().last - 1))); });
    }
    timed.report(state);
}

void HistoryList(benchmark::State &state) {
    const Store store(connection());
    fill(store, usual_items);
    Timed timed;
    for (auto _ : state) {
        timed.run([&] { benchmark::DoNotOptimize(store.commits()); });
    }
    state.counters["commits"] = static_cast<double>(store.commits().size());
    timed.report(state);
}

BENCHMARK_CAPTURE(HistoryCommit, Usual, usual_items)->Iterations(200)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(HistoryCommit, Unkind, random_items)->Iterations(50)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(HistoryRollback, Usual, usual_items)->Iterations(200)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(HistoryRollback, Unkind, random_items)->Iterations(50)->Unit(benchmark::kMicrosecond);
BENCHMARK(HistoryList)->Iterations(500)->Unit(benchmark::kMicrosecond);

}  // namespace
