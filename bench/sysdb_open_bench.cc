// SPDX-License-Identifier: Apache-2.0
//
// The first use of a database with a million items in a process, as each login makes it:
// after a clean end, and after something that makes the provider check all pages once,
// such as a killed writer. The rows measure new processes, with the loading of the
// provider; the row of an empty database is their baseline.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/sysdb.h"
#include "platform/sysdb_changes.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kItems = 1'000'000;
constexpr unsigned kItemsAtOnce = 10'000;
constexpr char kTask[] = "AAA_BENCH_OPEN_TASK";

[[noreturn]] void fail(const char *what) {
    std::fprintf(stderr, "sysdb_open_bench: %s\n", what);
    std::_Exit(1);
}

sysdb_conn_t bind_or_fail() {
    sysdb_conn_t conn = 0;
    if (_sysdb_bind(&conn, "/oper/", SYSDB_BIND_PRIVATE) != 0) {
        fail("no database");
    }
    return conn;
}

[[noreturn]] void fill() {
    const sysdb_conn_t conn = bind_or_fail();
    std::vector<std::string> paths(kItemsAtOnce);
    std::vector<sysdb_change_t> changes(kItemsAtOnce);
    for (uint32_t at = 0; at < kItems; at += kItemsAtOnce) {
        for (uint32_t i = 0; i < kItemsAtOnce; ++i) {
            paths[i] = "million/" + std::to_string((at + i) % 1000) + "/item " + std::to_string(at + i);
            changes[i] = {SYSDB_CHANGE_SET, SYSDB_TYPE_U32, paths[i].c_str(), &at, sizeof at};
        }
        if (sysdb_apply(conn, changes.data(), kItemsAtOnce, nullptr) != 0) {
            fail("apply");
        }
    }
    std::_Exit(0);
}

// Writes the nanoseconds to standard output.
[[noreturn]] void open_once() {
    const auto begin = Clock::now();
    bind_or_fail();
    const auto time = std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - begin);
    std::printf("%lld\n", static_cast<long long>(time.count()));
    std::fflush(stdout);
    std::_Exit(0);
}

// Later than the constructor that executes the program in its sandbox.
const bool g_task_done = [] {
    const char *task = std::getenv(kTask);
    if (task != nullptr && *task == 'f') {
        fill();
    }
    if (task != nullptr && *task == 'o') {
        open_once();
    }
    return true;
}();

// Runs a task of this program on the database of a directory; its output, a number.
long long run(const char *task, const std::string &directory) {
    const std::string before = std::getenv("AAA_SYSDB_RUN_DIR");
    setenv("AAA_SYSDB_RUN_DIR", directory.c_str(), 1);
    setenv(kTask, task, 1);
    std::FILE *output = popen("exec /proc/$PPID/exe", "r");
    setenv("AAA_SYSDB_RUN_DIR", before.c_str(), 1);
    unsetenv(kTask);
    long long number = 0;
    if (output == nullptr || (std::fscanf(output, "%lld", &number) != 1 && *task == 'o') ||
        pclose(output) != 0) {
        fail(task);
    }
    return number;
}

const std::string &directory(bool filled) {
    static const std::string root = std::string(std::getenv("AAA_SYSDB_RUN_DIR")) + "/open";
    static const std::string full = [] {
        run("fill", root + "/full");
        return root + "/full";
    }();
    static const std::string empty = root + "/empty";
    return filled ? full : empty;
}

enum class Before { kNothing, kUncleanEnd };

void measure(benchmark::State &state, bool filled, Before before) {
    const std::string &place = directory(filled);
    run("open", place);
    for (auto _ : state) {
        if (before == Before::kUncleanEnd) {  // the file is not as the last transaction left it
            utimensat(AT_FDCWD, (place + "/oper.mdb").c_str(), nullptr, 0);
        }
        state.SetIterationTime(static_cast<double>(run("open", place)) * 1e-9);
    }
}

void SysdbOpenMillionItems(benchmark::State &state) {
    measure(state, true, Before::kNothing);
}
BENCHMARK(SysdbOpenMillionItems)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(20);

void SysdbOpenMillionItemsAfterUncleanEnd(benchmark::State &state) {
    measure(state, true, Before::kUncleanEnd);
}
BENCHMARK(SysdbOpenMillionItemsAfterUncleanEnd)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond)
    ->Iterations(5);

void SysdbOpenPlainEmptyDatabase(benchmark::State &state) {
    measure(state, false, Before::kNothing);
}
BENCHMARK(SysdbOpenPlainEmptyDatabase)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(20);

}  // namespace
