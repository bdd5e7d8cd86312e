// SPDX-License-Identifier: Apache-2.0
//
// Instruction counts of the list rows, for callgrind: one dump per row, with the
// name that avpair_bench.cc gives it. Only the iterations are counted, after a
// warm-up for lazy binding and the first growth of the heap.
//
//     valgrind --tool=callgrind --collect-atstart=no list_count
//
// Prints each dump's name and number of iterations, by which to divide its sum.

#include <valgrind/callgrind.h>

#include <cstdio>

#include "list_rows.hpp"
#include "lookup_rows.hpp"
#include "plain_list_preallocated.hpp"

namespace {

using bench::Workload;

constexpr int kWarmUp = 3;

int iterations_for(std::size_t size) {
    return size <= 100 ? 20 : 4;
}

template <void (*Step)(Workload &)>
void count_step(const char *row, std::size_t size, Workload &work) {
    const int iterations = iterations_for(size);
    char name[64];
    std::snprintf(name, sizeof name, "%s/%zu", row, size);
    for (int i = 0; i < kWarmUp; i++) {
        Step(work);
    }
    CALLGRIND_ZERO_STATS;
    CALLGRIND_TOGGLE_COLLECT;
    for (int i = 0; i < iterations; i++) {
        Step(work);
    }
    CALLGRIND_TOGGLE_COLLECT;
    CALLGRIND_DUMP_STATS_AT(name);
    std::printf("%s %d\n", name, iterations);
}

struct Count {
    std::size_t size;
    Workload &work;

    template <typename Row>
    void operator()() const {
        count_step<Row::library>(Row::kName, size, work);
        count_step<Row::plain>(Row::kPlainName, size, work);
    }
};

struct CountPreallocated {
    std::size_t size;
    Workload &work;

    template <typename Row>
    void operator()() const {
        count_step<Row::step>(Row::kName, size, work);
    }
};

struct CountLookups {
    template <bench::Place kPlace>
    void operator()(const char *name, const char *plain_name) const {
        using Row = bench::Lookup<kPlace>;
        for (const std::size_t size : bench::kLookupSizes) {
            Workload work(bench::lookup_attributes(kPlace, size));
            check_lookups(kPlace, work);
            count_step<Row::library>(name, size, work);
            count_step<Row::plain>(plain_name, size, work);
        }
    }
};

}  // namespace

int main() {
    for (const std::size_t size : bench::kSizes) {
        Workload work(size);
        check_rows(work);
        bench::for_each_row(Count{size, work});
        bench::for_each_preallocated_row(CountPreallocated{size, work});
    }
    bench::for_each_lookup_row(CountLookups{});
    return 0;
}
