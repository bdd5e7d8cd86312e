// SPDX-License-Identifier: Apache-2.0
//
// One step of a program that reads the configuration, many times, with the provider and the database of the
// environment: prints the median of its times in nanoseconds. Under callgrind with --collect-atstart=no the
// steps alone are counted, in a dump with the step's name.
//
//   sysdb_steps get|list|flat|watch|dispatch COUNT ITEMS
//
// The items are those of sysdb_cluster, see site.hpp. "get" reads 100 items, "watch" registers and cancels a
// notification; "dispatch" is the call that runs the callback of one change, which another process has made.

#ifdef AAA_BENCH_CALLGRIND
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_ZERO_STATS
#define CALLGRIND_TOGGLE_COLLECT
#define CALLGRIND_DUMP_STATS_AT(name)
#endif

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "platform/sysdb.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kWarmUp = 20;
constexpr int kGets = 100;  // one is too short for the clock

void require(bool good, const char *what) {
    if (!good) {
        std::fprintf(stderr, "sysdb_steps: %s failed\n", what);
        std::_Exit(1);
    }
}

sysdb_conn_t bind() {
    sysdb_conn_t conn = 0;
    require(_sysdb_bind(&conn, "/cfg/scale/", SYSDB_BIND_PRIVATE) == 0, "bind");
    return conn;
}

// `before` is not part of the step.
template <typename Before, typename Step>
void run(const char *name, unsigned count, Before before, Step step) {
    for (int i = 0; i < kWarmUp; ++i) {
        before();
        step();
    }
    std::vector<double> times;
    times.reserve(count);
    CALLGRIND_ZERO_STATS;
    for (unsigned i = 0; i < count; ++i) {
        before();
        const Clock::time_point begin = Clock::now();
        CALLGRIND_TOGGLE_COLLECT;
        step();
        CALLGRIND_TOGGLE_COLLECT;
        times.push_back(std::chrono::duration<double, std::nano>(Clock::now() - begin).count());
    }
    CALLGRIND_DUMP_STATS_AT(name);
    (void)name;
    std::sort(times.begin(), times.end());
    std::printf("%.1f\n", times[times.size() / 2]);
}

void nothing() {}

void get(unsigned count, unsigned items) {
    const sysdb_conn_t conn = bind();
    std::mt19937 random(1);
    std::vector<std::string> paths;
    for (unsigned i = 0; i < 1000; ++i) {
        unsigned item = static_cast<unsigned>(random()) % items;
        item -= item % 10 == 9 ? 1 : 0;  // not of the flat directory
        paths.push_back("dir " + std::to_string(item / 100) + "/item " + std::to_string(item));
    }
    std::size_t next = 0;
    run("get", count, nothing, [&] {
        for (int i = 0; i < kGets; ++i) {
            next = (next + 1) % paths.size();
            uint32_t type = SYSDB_TYPE_ANY;
            void *value = nullptr;
            uint32_t length = 0;
            require(sysdb_item_get(conn, paths[next].c_str(), &type, &value, &length, 0) == 0, "get");
            free(value);
        }
    });
}

void list(const char *name, const char *path, unsigned count) {
    const sysdb_conn_t conn = bind();
    run(name, count, nothing, [&] {
        uint32_t entries = 0;
        sysdb_list_t found = nullptr;
        require(sysdb_list(conn, path, "", &entries, &found, 0) == 0, "list");
        sysdb_list_free(found);
    });
}

int32_t heard(const void *, void *calls, void *) {
    ++*static_cast<unsigned *>(calls);
    return 0;
}

uint64_t watch_on(sysdb_conn_t conn, unsigned &calls) {
    uint64_t notification = 0;
    require(_sysdb_register_notification(conn, "watched/", SYSDB_EVENT_SET, SYSDB_NOTIFY_CHANGES, heard,
                                         &calls, 0, nullptr, 0, &notification) == 0,
            "watch");
    return notification;
}

void watch(unsigned count) {
    const sysdb_conn_t conn = bind();
    unsigned calls = 0;
    watch_on(conn, calls);
    run("watch", count, nothing, [&] {
        require(sysdb_notification_unregister(conn, watch_on(conn, calls)) == 0, "cancelling a watch");
    });
}

// Between two changes of a cluster other programs run, and few run between two of the embedded provider. A
// callback in service finds cold caches with either.
void empty_caches() {
    static std::vector<char> memory(std::size_t{16} << 20);
    for (std::size_t i = 0; i < memory.size(); i += 64) {
        ++memory[i];
    }
}

// The other process is made before this one has the database open.
void dispatch(unsigned count) {
    int asks[2];
    require(pipe(asks) == 0, "pipe");
    const pid_t other = fork();
    require(other >= 0, "fork");
    if (other == 0) {
        close(asks[1]);
        const sysdb_conn_t conn = bind();
        uint32_t value = 0;
        for (char byte; read(asks[0], &byte, 1) == 1;) {
            ++value;
            require(sysdb_item_set(conn, "watched/item", SYSDB_TYPE_U32, &value, sizeof value, 0) == 0,
                    "set");
        }
        std::_Exit(0);
    }
    close(asks[0]);
    const sysdb_conn_t conn = bind();
    unsigned calls = 0;
    watch_on(conn, calls);
    int32_t channel = -1;
    require(sysdb_conn_to_coid(conn, &channel) == 0, "channel");
    run(
        "dispatch", count,
        [&] {
            require(write(asks[1], ".", 1) == 1, "write");
            pollfd ready = {channel, POLLIN, 0};
            require(poll(&ready, 1, 60000) == 1, "waiting for a change");
            empty_caches();
        },
        [&] { require(sysdb_dispatch(conn) == 0, "dispatch"); });
    require(calls > 0, "a callback");
    close(asks[1]);
    require(waitpid(other, nullptr, 0) == other, "wait");
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: sysdb_steps get|list|flat|watch|dispatch COUNT ITEMS\n");
        return 2;
    }
    const std::string step = argv[1];
    const unsigned count = static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10));
    const unsigned items = static_cast<unsigned>(std::strtoul(argv[3], nullptr, 10));
    if (step == "get") {
        get(count, items);
    } else if (step == "list") {
        list("list", "dir 1/", count);
    } else if (step == "flat") {
        list("flat", "flat/", count);
    } else if (step == "watch") {
        watch(count);
    } else if (step == "dispatch") {
        dispatch(count);
    } else {
        return 2;
    }
    return 0;
}
