// SPDX-License-Identifier: Apache-2.0
//
// The system database and the event manager. Every row has a baseline: the same work
// done with LMDB alone, with a pipe, or with an event descriptor.
//
// The program executes itself again with its own directories in the environment: the
// configuration on disk, operational data in memory, as on a router.

#include <benchmark/benchmark.h>
#include <lmdb.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "aaa/method_lists.h"
#include "platform/event_manager.h"
#include "platform/sysdb.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kItems = 20000;
constexpr int kDirectory = 1000;

// ---- the program's own database

std::string &sandbox() {
    static std::string path;
    return path;
}

// Runs before the library's worker can open the system's database.
__attribute__((constructor)) void restart_in_sandbox(int, char **argv, char **) {
    const char *made = std::getenv("AAA_BENCH_SANDBOX");
    if (made != nullptr) {
        sandbox() = made;
        return;
    }
    char disk[] = "/var/tmp/aaa-bench.XXXXXX";
    const std::string memory = "/dev/shm/aaa-bench." + std::to_string(getpid());
    if (mkdtemp(disk) == nullptr) {
        std::perror(disk);
        std::exit(1);
    }
    setenv("AAA_BENCH_SANDBOX", disk, 1);
    setenv("AAA_SYSDB_CFG_DIR", disk, 1);
    setenv("AAA_SYSDB_RUN_DIR", memory.c_str(), 1);
    setenv("NO_DLLMAIN", "1", 1);
    execv("/proc/self/exe", argv);
}

struct Cleaner {
    pid_t owner = getpid();
    ~Cleaner() {
        if (getpid() == owner && !sandbox().empty()) {
            std::filesystem::remove_all(sandbox());
            std::filesystem::remove_all(std::getenv("AAA_SYSDB_RUN_DIR"));
        }
    }
} const g_cleaner;

void require(bool good, const char *what) {
    if (!good) {
        std::fprintf(stderr, "sysdb_bench: %s\n", what);
        std::exit(1);
    }
}

cerrno set_number(sysdb_conn_t conn, const char *path, uint32_t value) {
    return sysdb_item_set(conn, path, SYSDB_TYPE_U32, &value, sizeof value, 1);
}

std::string item_name(int i) {
    return "group" + std::to_string(i / 100) + "/server/0x" + std::to_string(i % 100) + "/item";
}

// Bound at a tree that holds the items of the rows.
sysdb_conn_t filled() {
    static const sysdb_conn_t conn = [] {
        sysdb_conn_t made = 0;
        require(_sysdb_bind(&made, "/oper/bench/", SYSDB_BIND_PRIVATE) == 0, "no database");
        for (int i = 0; i < kItems; ++i) {
            require(set_number(made, ("tree/" + item_name(i)).c_str(), 1) == 0, "set");
        }
        for (int i = 0; i < kDirectory; ++i) {
            char name[32];
            std::snprintf(name, sizeof name, "map/0x%x", i);
            require(set_number(made, name, 1) == 0, "set");
        }
        return made;
    }();
    return conn;
}

// ---- reading

// The same bytes under the same keys in a bare LMDB file.
struct Plain {
    MDB_env *env = nullptr;
    MDB_dbi table = 0;
    MDB_txn *reader = nullptr;

    Plain() {
        const std::string file = std::string(std::getenv("AAA_SYSDB_RUN_DIR")) + "/plain.mdb";
        MDB_txn *txn = nullptr;
        mdb_env_create(&env);
        mdb_env_set_mapsize(env, 256 * 1024 * 1024);
        require(mdb_env_open(env, file.c_str(), MDB_NOSUBDIR | MDB_NOTLS, 0600) == 0, "plain file");
        mdb_txn_begin(env, nullptr, 0, &txn);
        mdb_dbi_open(txn, nullptr, 0, &table);
        char bytes[8] = {};
        for (int i = 0; i < kItems; ++i) {
            std::string name = "/oper/bench/tree/" + item_name(i);
            MDB_val key = {name.size(), name.data()};
            MDB_val value = {sizeof bytes, bytes};
            mdb_put(txn, table, &key, &value, 0);
        }
        mdb_txn_commit(txn);
        mdb_txn_begin(env, nullptr, MDB_RDONLY, &reader);
        mdb_txn_reset(reader);
    }
};

Plain &plain() {
    static Plain instance;
    return instance;
}

void SysdbGet(benchmark::State &state) {
    const sysdb_conn_t conn = filled();
    const std::string path = "tree/" + item_name(kItems / 3);
    for (auto _ : state) {
        uint32_t type = SYSDB_TYPE_U32;
        void *value = nullptr;
        uint32_t length = 0;
        benchmark::DoNotOptimize(sysdb_item_get(conn, path.c_str(), &type, &value, &length, 0));
        free(value);
    }
}
BENCHMARK(SysdbGet);

void SysdbGetPlainLmdb(benchmark::State &state) {
    std::string path = "/oper/bench/tree/" + item_name(kItems / 3);
    for (auto _ : state) {
        mdb_txn_renew(plain().reader);
        MDB_val key = {path.size(), path.data()};
        MDB_val value{};
        benchmark::DoNotOptimize(mdb_get(plain().reader, plain().table, &key, &value));
        void *copy = malloc(value.mv_size);
        std::memcpy(copy, value.mv_data, value.mv_size);
        benchmark::DoNotOptimize(copy);
        free(copy);
        mdb_txn_reset(plain().reader);
    }
}
BENCHMARK(SysdbGetPlainLmdb);

void SysdbGetMissing(benchmark::State &state) {
    const sysdb_conn_t conn = filled();
    for (auto _ : state) {
        benchmark::DoNotOptimize(sysdb_item_get(conn, "tree/nowhere/at all", nullptr, nullptr, nullptr, 0));
    }
}
BENCHMARK(SysdbGetMissing);

void SysdbGetInThreads(benchmark::State &state) {
    SysdbGet(state);
}
BENCHMARK(SysdbGetInThreads)->Threads(2)->UseRealTime();

void SysdbLastInDirectory(benchmark::State &state) {
    const sysdb_conn_t conn = filled();
    for (auto _ : state) {
        char *name = nullptr;
        benchmark::DoNotOptimize(sysdb_directory_get_last(conn, "map/", &name, nullptr, 0));
        free(name);
    }
}
BENCHMARK(SysdbLastInDirectory);

void list_rows(benchmark::State &state, const char *path) {
    const sysdb_conn_t conn = filled();
    uint32_t count = 0;
    for (auto _ : state) {
        sysdb_list_t list = nullptr;
        sysdb_list(conn, path, "", &count, &list, 0);
        sysdb_list_free(list);
    }
    state.counters["entries"] = count;
}
void SysdbListItems(benchmark::State &state) {
    list_rows(state, "map/");
}
BENCHMARK(SysdbListItems);
void SysdbListDirectories(benchmark::State &state) {
    list_rows(state, "tree/");
}
BENCHMARK(SysdbListDirectories);

void SysdbTupleUnpack(benchmark::State &state) {
    void *tuple = nullptr;
    uint32_t length = 0;
    sysdb_tuple_pack(&tuple, &length, "%d%d%d%d%s%s%s%s", 10, 2, 0, 0, "GRP1", "", "", "");
    for (auto _ : state) {
        uint32_t methods[4];
        char names[4][SYSDB_NAME_SIZE];
        benchmark::DoNotOptimize(tuple_unpack_mask(tuple, "%d%d%d%d%s%s%s%s", &methods[0], &methods[1],
                                                   &methods[2], &methods[3], names[0], names[1], names[2],
                                                   names[3]));
    }
    free(tuple);
}
BENCHMARK(SysdbTupleUnpack);

// One method list with one server group, and the two items that store it.
void prepare_method_list() {
    sysdb_conn_t cfg = 0;
    sysdb_conn_t maps = 0;
    void *tuple = nullptr;
    uint32_t length = 0;
    _sysdb_bind(&cfg, "/cfg/gl/aaa/", SYSDB_BIND_PRIVATE);
    _sysdb_bind(&maps, "/oper/aaa/gl/group-server/", SYSDB_BIND_PRIVATE);
    sysdb_tuple_pack(&tuple, &length, "%d%d%d%d%s%s%s%s", 10, 0, 0, 0, "GRP1", "", "", "");
    const cerrno list = sysdb_item_set(cfg, "authentication/login/bench", SYSDB_TYPE_TUPLE, tuple, length, 1);
    require(list == 0 && set_number(maps, "sg_name_map/radius/GRP1", 1001) == 0, "method list");
    free(tuple);
    _sysdb_unbind(cfg);
    _sysdb_unbind(maps);
}

void LookupMethods(benchmark::State &state) {
    prepare_method_list();
    char path[] = "authentication/login/bench";
    for (auto _ : state) {
        uint32_t *methods = nullptr;
        require(lookup_methods(path, &methods) == 0, "lookup_methods");
        benchmark::DoNotOptimize(methods);
        free(methods);
    }
}
BENCHMARK(LookupMethods);

void LookupMethodsPlainTwoGets(benchmark::State &state) {
    prepare_method_list();
    sysdb_conn_t conns[2] = {};
    const char *paths[2] = {"authentication/login/bench", "sg_name_map/radius/GRP1"};
    _sysdb_bind(&conns[0], "/cfg/gl/aaa/", SYSDB_BIND_PRIVATE);
    _sysdb_bind(&conns[1], "/oper/aaa/gl/group-server/", SYSDB_BIND_PRIVATE);
    for (auto _ : state) {
        for (int i = 0; i < 2; ++i) {
            uint32_t type = SYSDB_TYPE_ANY;
            void *value = nullptr;
            uint32_t length = 0;
            sysdb_item_get(conns[i], paths[i], &type, &value, &length, 0);
            free(value);
        }
    }
}
BENCHMARK(LookupMethodsPlainTwoGets);

// ---- writing

void set_rows(benchmark::State &state, const char *tree) {
    sysdb_conn_t conn = 0;
    require(_sysdb_bind(&conn, tree, SYSDB_BIND_PRIVATE) == 0, "no database");
    uint32_t value = 0;
    for (auto _ : state) {
        require(set_number(conn, "counter", ++value) == 0, "set");
    }
    _sysdb_unbind(conn);
}
void SysdbSetOperational(benchmark::State &state) {
    set_rows(state, "/oper/bench set/");
}
BENCHMARK(SysdbSetOperational);
void SysdbSetConfiguration(benchmark::State &state) {
    set_rows(state, "/cfg/bench set/");
}
BENCHMARK(SysdbSetConfiguration)->UseRealTime();

// The time of one durable write on this disk; the row above makes two.
void SysdbSetConfigurationPlainFdatasync(benchmark::State &state) {
    const std::string file = sandbox() + "/plain";
    std::FILE *stream = std::fopen(file.c_str(), "w");
    char page[4096] = {};
    for (auto _ : state) {
        ++page[0];
        std::rewind(stream);
        std::fwrite(page, sizeof page, 1, stream);
        std::fflush(stream);
        fdatasync(fileno(stream));
    }
    std::fclose(stream);
}
BENCHMARK(SysdbSetConfigurationPlainFdatasync)->UseRealTime();

// ---- latencies, as median and 99th percentile

class Latencies {
  public:
    void add(benchmark::State &state, Clock::duration duration) {
        const double seconds = std::chrono::duration<double>(duration).count();
        state.SetIterationTime(seconds);
        samples_.push_back(seconds * 1e6);
    }
    void report(benchmark::State &state) {
        if (samples_.empty()) {
            return;
        }
        std::sort(samples_.begin(), samples_.end());
        state.counters["median_us"] = samples_[samples_.size() / 2];
        state.counters["p99_us"] = samples_[samples_.size() * 99 / 100];
    }

  private:
    std::vector<double> samples_;
};

// In memory that the processes share.
struct Arrival {
    std::atomic<Clock::rep> at{0};
};

Clock::duration since(const Arrival &arrival, Clock::time_point begin) {
    return Clock::duration(arrival.at.load()) - begin.time_since_epoch();
}

// Another process, which stores the time of its callback and then writes a byte.
struct Echo {
    Arrival *arrival = static_cast<Arrival *>(
        mmap(nullptr, sizeof(Arrival), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    int reports[2];
    pid_t pid = -1;

    template <typename Body>
    explicit Echo(Body body) {
        require(pipe(reports) == 0, "pipe");
        pid = fork();
        if (pid == 0) {
            body(*this);
            _exit(0);
        }
        wait_for_report();  // the child is ready
    }
    ~Echo() {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        close(reports[0]);
        close(reports[1]);
        munmap(arrival, sizeof(Arrival));
    }
    Echo(const Echo &) = delete;
    Echo &operator=(const Echo &) = delete;

    void report() const {
        arrival->at = Clock::now().time_since_epoch().count();
        require(write(reports[1], ".", 1) == 1, "report");
    }
    void wait_for_report() const {
        char byte = 0;
        require(read(reports[0], &byte, 1) == 1, "no report");
    }
};

int32_t changed(const void *, void *echo, void *) {
    static_cast<const Echo *>(echo)->report();
    return 0;
}

void watch_for_ever(Echo &echo) {
    sysdb_conn_t conn = 0;
    uint64_t notification = 0;
    int32_t channel = -1;
    require(_sysdb_bind(&conn, "/oper/bench change/", SYSDB_BIND_PRIVATE) == 0 &&
                _sysdb_register_notification(conn, "item", 6, 1, changed, &echo, 0, nullptr, 0,
                                             &notification) == 0 &&
                sysdb_conn_to_coid(conn, &channel) == 0,
            "watch");
    echo.report();
    pollfd ready = {channel, POLLIN, 0};
    while (poll(&ready, 1, -1) >= 0) {
        sysdb_dispatch(conn);
    }
}

void ChangeToCallbackInAnotherProcess(benchmark::State &state) {
    Echo echo(watch_for_ever);
    sysdb_conn_t conn = 0;
    _sysdb_bind(&conn, "/oper/bench change/", SYSDB_BIND_PRIVATE);
    Latencies latencies;
    static uint32_t value = 0;
    for (auto _ : state) {
        const Clock::time_point begin = Clock::now();
        require(set_number(conn, "item", ++value) == 0, "set");
        echo.wait_for_report();
        latencies.add(state, since(*echo.arrival, begin));
    }
    latencies.report(state);
    _sysdb_unbind(conn);
}
BENCHMARK(ChangeToCallbackInAnotherProcess)->UseManualTime();

void ChangeToCallbackPlainPipe(benchmark::State &state) {
    int requests[2];
    require(pipe(requests) == 0, "pipe");
    {
        Echo echo([&requests](Echo &self) {
            self.report();
            pollfd ready = {requests[0], POLLIN, 0};
            char byte = 0;
            while (poll(&ready, 1, -1) >= 0 && read(requests[0], &byte, 1) == 1) {
                self.report();
            }
        });
        Latencies latencies;
        for (auto _ : state) {
            const Clock::time_point begin = Clock::now();
            require(write(requests[1], ".", 1) == 1, "write");
            echo.wait_for_report();
            latencies.add(state, since(*echo.arrival, begin));
        }
        latencies.report(state);
    }
    close(requests[0]);
    close(requests[1]);
}
BENCHMARK(ChangeToCallbackPlainPipe)->UseManualTime();

// A thread that stores the time when it is woken and then signals an event descriptor.
struct Sleeper {
    Arrival arrival;
    int done = eventfd(0, 0);

    static int32_t woken(void *self) {
        auto &sleeper = *static_cast<Sleeper *>(self);
        sleeper.arrival.at = Clock::now().time_since_epoch().count();
        eventfd_write(sleeper.done, 1);
        return 0;
    }
    template <typename Wake>
    void measure(benchmark::State &state, Wake wake) {
        Latencies latencies;
        for (auto _ : state) {
            const Clock::time_point begin = Clock::now();
            wake();
            eventfd_t ignored;
            eventfd_read(done, &ignored);
            latencies.add(state, since(arrival, begin));
        }
        latencies.report(state);
    }
    ~Sleeper() { close(done); }
};

void EventManagerWakeUp(benchmark::State &state) {
    Sleeper sleeper;
    event_manager_t manager = event_manager_create(0, "bench", 0, nullptr);
    const int32_t wakeup = event_async_attach(manager, 128, Sleeper::woken, &sleeper);
    const int32_t end = event_async_attach(manager, 128, nullptr, nullptr);
    std::atomic<bool> stop{false};
    std::thread worker([&] {
        char buffer[256];
        event_block_ctx_t context{};
        context.evm = manager;
        context.buffer = buffer;
        context.size = sizeof buffer;
        while (!stop && event_block(&context) == 0) {
            qm_event_dispatch(&context, 0);
        }
    });
    sleeper.measure(state, [&] { event_send_async(manager, wakeup, 0); });
    stop = true;
    event_send_async(manager, end, 0);
    worker.join();
    event_manager_destroy(manager);
}
BENCHMARK(EventManagerWakeUp)->UseManualTime();

void EventManagerWakeUpPlainEventfd(benchmark::State &state) {
    Sleeper sleeper;
    const int wakeup = eventfd(0, 0);
    std::atomic<bool> stop{false};
    std::thread worker([&] {
        eventfd_t ignored;
        while (eventfd_read(wakeup, &ignored) == 0 && !stop) {
            Sleeper::woken(&sleeper);
        }
    });
    sleeper.measure(state, [&] { eventfd_write(wakeup, 1); });
    stop = true;
    eventfd_write(wakeup, 1);
    worker.join();
    close(wakeup);
}
BENCHMARK(EventManagerWakeUpPlainEventfd)->UseManualTime();

}  // namespace
