// SPDX-License-Identifier: Apache-2.0
//
// Times of list operations. Every row has a baseline of the same name with
// "_plain" added, and another with "_plain_preallocated" if the plain loop
// allocates. The result is the ratio of row and baseline in one run.

#include <benchmark/benchmark.h>

#include <map>
#include <memory>
#include <utility>

#include "list_rows.hpp"
#include "lookup_rows.hpp"
#include "plain_list_preallocated.hpp"

namespace {

using bench::VariedLists;
using bench::Workload;

// One workload for each size, made and checked by the first row that needs it.
Workload &workload(std::size_t count) {
    static std::map<std::size_t, std::unique_ptr<Workload>> made;
    std::unique_ptr<Workload> &work = made[count];
    if (work == nullptr) {
        work = std::make_unique<Workload>(count);
        check_rows(*work);
    }
    return *work;
}

template <void (*Step)(Workload &)>
void time_step(benchmark::State &state) {
    Workload &work = workload(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        Step(work);
    }
    using benchmark::Counter;
    state.counters["per_attribute"] =
        Counter(static_cast<double>(state.range(0)), Counter::kIsIterationInvariantRate | Counter::kInvert);
}

struct Register {
    template <typename Row>
    void operator()() const {
        auto *library = benchmark::RegisterBenchmark(Row::kName, time_step<Row::library>);
        auto *plain = benchmark::RegisterBenchmark(Row::kPlainName, time_step<Row::plain>);
        for (const std::size_t size : bench::kSizes) {
            library->Arg(static_cast<int64_t>(size));
            plain->Arg(static_cast<int64_t>(size));
        }
    }
};

struct RegisterPreallocated {
    template <typename Row>
    void operator()() const {
        auto *plain = benchmark::RegisterBenchmark(Row::kName, time_step<Row::step>);
        for (const std::size_t size : bench::kSizes) {
            plain->Arg(static_cast<int64_t>(size));
        }
    }
};

Workload &lookup_workload(bench::Place place, std::size_t count) {
    static std::map<std::pair<bench::Place, std::size_t>, std::unique_ptr<Workload>> made;
    std::unique_ptr<Workload> &work = made[{place, count}];
    if (work == nullptr) {
        work = std::make_unique<Workload>(bench::lookup_attributes(place, count));
        check_lookups(place, *work);
    }
    return *work;
}

template <bench::Place kPlace, void (*Step)(Workload &)>
void time_lookup(benchmark::State &state) {
    Workload &work = lookup_workload(kPlace, static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        Step(work);
    }
}

struct RegisterLookup {
    template <bench::Place kPlace>
    void operator()(const char *name, const char *plain_name) const {
        using Row = bench::Lookup<kPlace>;
        for (const std::size_t size : bench::kLookupSizes) {
            const auto arg = static_cast<int64_t>(size);
            benchmark::RegisterBenchmark(name, time_lookup<kPlace, Row::library>)->Arg(arg);
            benchmark::RegisterBenchmark(plain_name, time_lookup<kPlace, Row::plain>)->Arg(arg);
        }
    }
};

VariedLists &varied_lists(std::size_t count) {
    static std::map<std::size_t, std::unique_ptr<VariedLists>> made;
    std::unique_ptr<VariedLists> &lists = made[count];
    if (lists == nullptr) {
        lists = std::make_unique<VariedLists>(count);
    }
    return *lists;
}

template <void (*Step)(VariedLists &)>
void time_varied(benchmark::State &state) {
    VariedLists &lists = varied_lists(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        Step(lists);
    }
}

void register_varied() {
    for (const std::size_t size : bench::kLookupSizes) {
        const auto arg = static_cast<int64_t>(size);
        benchmark::RegisterBenchmark(VariedLists::kName, time_varied<VariedLists::library>)->Arg(arg);
        benchmark::RegisterBenchmark(VariedLists::kPlainName, time_varied<VariedLists::plain>)->Arg(arg);
    }
}

const bool g_registered = [] {
    benchmark::AddCustomContext("lists", bench::kDistribution);
    bench::for_each_row(Register{});
    bench::for_each_preallocated_row(RegisterPreallocated{});
    bench::for_each_lookup_row(RegisterLookup{});
    register_varied();
    return true;
}();

}  // namespace
