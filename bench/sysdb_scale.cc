// SPDX-License-Identifier: Apache-2.0
//
// What the system database costs with 1,000 to 1,000,000 items: one table, with a row for each
// number. It uses the provider of AAA_SYSDB_PROVIDER, or the one of the build, on a database of
// its own in a directory on disk.
//
//   sysdb_scale [--aaactl FILE] [--directory DIR | --here] [ITEMS...]    default: 1000 10000 100000 1000000
//
// With --here it uses the empty database that the environment names, for one number of items, and prints
// the row alone: so sysdb_cluster measures a node of many.
//
// Distribution. Nine of ten items are in directories of 100, the others in one flat directory, the
// unkind case of a list. Half are numbers, half texts of 1 to 64 bytes. Reads and changes choose items
// at random, all with the same probability. The state of every step follows from one seed.
//
// A process of its own opens the database each time, because an open database stays open for the life
// of a process. Watchers are processes too.

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "platform/sysdb.h"
#include "platform/sysdb_changes.h"
#include "store/store.hpp"

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kPerDirectory = 100;
constexpr uint32_t kPerTransaction = 1000;
constexpr uint32_t kSeed = 20260101;
constexpr int kWatchers = 50;

[[noreturn]] void fail(const char *what, cerrno code = 0) {
    std::fprintf(stderr, "sysdb_scale: %s failed, code 0x%08x\n", what, code);
    std::_Exit(1);
}

void require(cerrno code, const char *what) {
    if (code != 0) {
        fail(what, code);
    }
}

double microseconds_since(Clock::time_point begin) {
    return std::chrono::duration<double, std::micro>(Clock::now() - begin).count();
}

struct Spread {
    double median, high;  // high: the 99th percentile
};
Spread spread_of(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return {values[values.size() / 2], values[values.size() * 99 / 100]};
}

std::string path_of(uint32_t item) {
    if (item % 10 == 9) {
        return "flat/item " + std::to_string(item);
    }
    return "dir " + std::to_string(item / kPerDirectory) + "/item " + std::to_string(item);
}

// A number, or a text with its NUL.
struct Value {
    uint32_t type;
    std::string bytes;
};
Value value_of(std::mt19937 &random) {
    const auto number = static_cast<uint32_t>(random());
    if (number % 2 == 0) {
        return {SYSDB_TYPE_U32, std::string(reinterpret_cast<const char *>(&number), sizeof number)};
    }
    std::string text(1 + number / 2 % 64, static_cast<char>('a' + number % 26));
    text += '\0';
    return {SYSDB_TYPE_STRING, text};
}

sysdb_conn_t bind() {
    sysdb_conn_t conn = 0;
    require(_sysdb_bind(&conn, "/cfg/scale/", SYSDB_BIND_PRIVATE), "bind");
    return conn;
}

// Items that one transaction sets.
class Batch {
  public:
    void add(uint32_t item, Value value) {
        paths_.push_back(path_of(item));
        values_.push_back(std::move(value));
    }
    void apply(sysdb_conn_t conn) {
        std::vector<sysdb_change_t> changes;
        for (size_t i = 0; i < paths_.size(); ++i) {
            changes.push_back({SYSDB_CHANGE_SET, values_[i].type, paths_[i].c_str(), values_[i].bytes.data(),
                               static_cast<uint32_t>(values_[i].bytes.size())});
        }
        require(sysdb_apply(conn, changes.data(), static_cast<uint32_t>(changes.size()), nullptr), "apply");
        paths_.clear();
        values_.clear();
    }

  private:
    std::vector<std::string> paths_;
    std::vector<Value> values_;
};

// Runs something in a process of its own; gives the number that it computes.
double in_new_process(const std::function<double()> &task) {
    int result[2];
    if (pipe2(result, O_CLOEXEC) != 0) {
        fail("pipe");
    }
    const pid_t pid = fork();
    if (pid == 0) {
        const double number = task();
        const bool written = write(result[1], &number, sizeof number) == sizeof number;
        std::_Exit(written ? 0 : 1);
    }
    close(result[1]);
    double number = 0;
    const bool good = pid > 0 && read(result[0], &number, sizeof number) == sizeof number;
    close(result[0]);
    int status = 0;
    if (pid <= 0 || waitpid(pid, &status, 0) != pid || status != 0 || !good) {
        fail("a process of the benchmark");
    }
    return number;
}

double open_microseconds() {
    return in_new_process([] {
        const Clock::time_point begin = Clock::now();
        require(sysdb_item_get(bind(), path_of(0).c_str(), nullptr, nullptr, nullptr, 0), "first get");
        return microseconds_since(begin);
    });
}

// The pages are checked again when the file is not as the last transaction left it, as after a killed writer.
double unclean_open_microseconds(const std::string &database) {
    if (utimensat(AT_FDCWD, database.c_str(), nullptr, 0) != 0) {
        fail("touch");
    }
    return open_microseconds();
}

template <typename Call>
Spread times_of(int count, Call call) {
    std::vector<double> times;
    for (int i = 0; i < count; ++i) {
        const Clock::time_point begin = Clock::now();
        call();
        times.push_back(microseconds_since(begin));
    }
    return spread_of(std::move(times));
}

double list_microseconds(sysdb_conn_t conn, const char *path, int count) {
    return times_of(count,
                    [&] {
                        uint32_t entries = 0;
                        sysdb_list_t list = nullptr;
                        require(sysdb_list(conn, path, "", &entries, &list, 0), "list");
                        sysdb_list_free(list);
                    })
        .median;
}

// KiB of a line of /proc/self/status.
double status_kib(const char *name) {
    std::FILE *file = std::fopen("/proc/self/status", "r");
    char line[256];
    double kib = -1;
    while (file != nullptr && std::fgets(line, sizeof line, file) != nullptr) {
        if (std::strncmp(line, name, std::strlen(name)) == 0) {
            kib = std::atof(line + std::strlen(name) + 1);
        }
    }
    if (file != nullptr) {
        std::fclose(file);
    }
    return kib;
}

// Of a process that has read every item: its own memory, or that of the mapped files.
double memory_mib(uint32_t items, const char *line) {
    return in_new_process([=] {
        const sysdb_conn_t conn = bind();
        for (uint32_t i = 0; i < items; ++i) {
            require(sysdb_item_get(conn, path_of(i).c_str(), nullptr, nullptr, nullptr, 0), "get");
        }
        return status_kib(line) / 1024;
    });
}

int32_t changed(const void *, void *pipe_end, void *) {
    const char byte = '.';
    return write(*static_cast<int *>(pipe_end), &byte, 1) == 1 ? 0 : 1;
}

[[noreturn]] void watch(int reports) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);  // a benchmark that fails leaves none running
    const sysdb_conn_t conn = bind();
    uint64_t notification = 0;
    int32_t channel = -1;
    require(_sysdb_register_notification(conn, "watched/", 6, SYSDB_NOTIFY_CHANGES, changed, &reports, 0,
                                         nullptr, 0, &notification),
            "watch");
    require(sysdb_conn_to_coid(conn, &channel), "channel");
    changed(nullptr, &reports, nullptr);  // ready
    pollfd ready = {channel, POLLIN, 0};
    while (poll(&ready, 1, -1) >= 0) {
        sysdb_dispatch(conn);
    }
    std::_Exit(1);
}

void await(int reports, int count) {
    char bytes[kWatchers];
    while (count > 0) {
        const ssize_t got = read(reports, bytes, static_cast<size_t>(count));
        if (got <= 0) {
            fail("a watcher");
        }
        count -= static_cast<int>(got);
    }
}

// From the beginning of a change to the callback of the last watcher.
Spread change_to_callbacks(sysdb_conn_t conn, int watchers) {
    int reports[2];
    if (pipe2(reports, O_CLOEXEC) != 0) {
        fail("pipe");
    }
    std::vector<pid_t> pids;
    for (int i = 0; i < watchers; ++i) {
        const pid_t pid = fork();
        if (pid == 0) {
            watch(reports[1]);
        }
        if (pid < 0) {
            fail("fork");
        }
        pids.push_back(pid);
    }
    await(reports[0], watchers);
    static uint32_t value = 0;
    const Spread spread = times_of(200, [&] {
        ++value;
        require(sysdb_item_set(conn, "watched/item", SYSDB_TYPE_U32, &value, sizeof value, 0), "set");
        await(reports[0], watchers);
    });
    for (const pid_t pid : pids) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    close(reports[0]);
    close(reports[1]);
    return spread;
}

// Seconds of a command.
double command_seconds(const std::string &command) {
    const Clock::time_point begin = Clock::now();
    if (std::system(command.c_str()) != 0) {  // NOLINT: the arguments are the user's own
        fail(command.c_str());
    }
    return microseconds_since(begin) / 1e6;
}

// Of one changed item, as "aaactl commit" makes it: the state is read, compressed and stored. Its bytes, too.
struct CommitCost {
    Spread milliseconds;
    double mib = 0;
    std::string refused;  // why there is none
};
CommitCost commit_cost(sysdb_conn_t scale, uint32_t items) {
    sysdb_conn_t conn = 0;
    require(_sysdb_bind(&conn, "/cfg/", SYSDB_BIND_PRIVATE), "bind");
    const history::Store store(conn);
    CommitCost cost;
    std::vector<double> times;
    const int count = items > 100000 ? 3 : items > 10000 ? 10 : 30;
    try {
        for (int i = 0; i <= count; ++i) {
            const uint32_t value = 1000 + static_cast<uint32_t>(i);
            require(sysdb_item_set(scale, path_of(1).c_str(), SYSDB_TYPE_U32, &value, sizeof value, 0),
                    "set");
            const Clock::time_point begin = Clock::now();
            history::change(store, [&](const history::Head &head, history::Changes &changes) {
                history::Writing writing(store, head);
                writing.add({}, history::read_state(store.connection(), "scale/"));
                changes = writing.finish();
            });
            if (i > 0) {
                times.push_back(microseconds_since(begin) / 1e3);
            }
        }
        cost.milliseconds = spread_of(std::move(times));
        cost.mib = static_cast<double>(store.commits().back().bytes) / (1 << 20);
    } catch (const history::Error &error) {
        cost.refused = error.what();
    }
    return cost;
}

std::string text_of(const CommitCost &cost) {
    if (!cost.refused.empty()) {
        return "refused: " + cost.refused;
    }
    char text[96];
    std::snprintf(text, sizeof text, "%.1f / %.1f, %.2f MiB", cost.milliseconds.median,
                  cost.milliseconds.high, cost.mib);
    return text;
}

// A directory of its own for the databases.
void use(const std::string &directory) {
    setenv("AAA_SYSDB_CFG_DIR", (directory + "/cfg").c_str(), 1);
    setenv("AAA_SYSDB_RUN_DIR", (directory + "/run").c_str(), 1);
    setenv("AAA_SYSDB_MAP_MIB", "4096", 1);
}

// Databases are in AAA_SYSDB_CFG_DIR; `directory` is for other files, and empty for a database that is
// not the program's own.
void measure(uint32_t items, const std::string &directory, const std::string &aaactl) {
    const std::string database = std::string(std::getenv("AAA_SYSDB_CFG_DIR")) + "/cfg.mdb";

    const double load = in_new_process([=] {
        std::mt19937 random(kSeed);
        const sysdb_conn_t conn = bind();
        Batch batch;
        const Clock::time_point begin = Clock::now();
        for (uint32_t i = 0; i < items; ++i) {
            batch.add(i, value_of(random));
            if ((i + 1) % kPerTransaction == 0 || i + 1 == items) {
                batch.apply(conn);
            }
        }
        return microseconds_since(begin) / 1e6;
    });
    struct stat file = {};
    if (stat(database.c_str(), &file) != 0) {
        fail("stat");
    }
    const double disk = static_cast<double>(file.st_blocks) * 512 / (1 << 20);

    std::vector<double> opens;
    std::vector<double> unclean;
    for (int i = 0; i < 20; ++i) {
        opens.push_back(open_microseconds());
    }
    for (int i = 0; i < 5; ++i) {
        unclean.push_back(unclean_open_microseconds(database));
    }
    const double own = memory_mib(items, "RssAnon");
    const double mapped = memory_mib(items, "RssFile");
    const std::string dump = directory.empty() ? "/dev/null" : directory + "/dump";
    const double dumped =
        aaactl.empty() ? 0 : command_seconds(aaactl + " sysdb dump --show-secrets /cfg/ >" + dump);

    // A process of its own: the parent of the others must not have the database open.
    in_new_process([=] {
        std::mt19937 random(kSeed + 1);
        const sysdb_conn_t conn = bind();
        std::vector<std::string> paths;
        for (int i = 0; i < 100000; ++i) {
            paths.push_back(path_of(static_cast<uint32_t>(random()) % items));
        }
        size_t next = 0;
        const Spread get = times_of(static_cast<int>(paths.size()), [&] {
            void *value = nullptr;
            uint32_t length = 0;
            require(sysdb_item_get(conn, paths[next++].c_str(), nullptr, &value, &length, 0), "get");
            free(value);
        });
        const double list = list_microseconds(conn, "dir 1/", 200);
        const double flat = list_microseconds(conn, "flat/", items > 100000 ? 5 : 50);
        const Spread set = times_of(300, [&] {
            const Value value = value_of(random);
            require(sysdb_item_set(conn, path_of(static_cast<uint32_t>(random()) % items).c_str(), value.type,
                                   value.bytes.data(), static_cast<uint32_t>(value.bytes.size()), 0),
                    "set");
        });
        const Spread apply = times_of(50, [&] {
            Batch batch;
            for (int i = 0; i < 100; ++i) {
                batch.add(static_cast<uint32_t>(random()) % items, value_of(random));
            }
            batch.apply(conn);
        });
        const std::string commit = text_of(commit_cost(conn, items));
        const Spread one = change_to_callbacks(conn, 1);
        const Spread many = change_to_callbacks(conn, kWatchers);
        std::printf(
            "| %u | %.2f | %.1f | %.0f | %.1f | %.2f / %.2f | %.0f | %.2f | %.0f / %.0f | %.1f | %s "
            "| %.0f / %.0f | %.0f / %.0f | %.1f + %.1f | ",
            items, load, disk, spread_of(opens).median, spread_of(unclean).median / 1e3, get.median, get.high,
            list, flat / 1e3, set.median, set.high, apply.median / 1e3, commit.c_str(), one.median, one.high,
            many.median, many.high, own, mapped);
        std::fflush(stdout);
        return 0.0;
    });
    if (aaactl.empty()) {
        std::printf("- | - |\n");
    } else if (directory.empty()) {
        std::printf("%.2f | - |\n", dumped);
    } else {
        setenv("AAA_SYSDB_CFG_DIR", (directory + "/restored").c_str(), 1);
        setenv("AAA_SYSDB_RUN_DIR", (directory + "/restored-run").c_str(), 1);
        const double restored = command_seconds(aaactl + " sysdb load --force " + dump + " >/dev/null");
        std::printf("%.2f | %.2f |\n", dumped, restored);
    }
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char **argv) {
    std::string aaactl;
    std::string directory = "/var/tmp";
    std::vector<uint32_t> counts;
    bool here = false;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--here" && std::getenv("AAA_SYSDB_CFG_DIR") != nullptr) {
            here = true;
            continue;
        }
        if ((word == "--aaactl" || word == "--directory") && i + 1 < argc) {
            (word == "--aaactl" ? aaactl : directory) = argv[++i];
            continue;
        }
        char *end = nullptr;
        const unsigned long count = std::strtoul(word.c_str(), &end, 10);
        if (*end != '\0' || count < 200 || count > 10'000'000) {
            std::fprintf(stderr,
                         "usage: sysdb_scale [--aaactl FILE] [--directory DIR | --here] [ITEMS...]\n"
                         "--here needs AAA_SYSDB_CFG_DIR and one number of items\n"
                         "ITEMS: 200 to 10000000; default: 1000 10000 100000 1000000\n");
            return 2;
        }
        counts.push_back(static_cast<uint32_t>(count));
    }
    if (counts.empty()) {
        counts = {1000, 10000, 100000, 1000000};
    }
    setenv("NO_DLLMAIN", "1", 1);
    if (here) {
        measure(counts[0], "", aaactl);
        return 0;
    }
    std::printf(
        "| items | load s | file MiB | open us | open, unclean ms | get us | list of 100 us | flat list ms "
        "| set us | apply of 100 ms | commit ms, its size | change to callback us | to %d callbacks us | "
        "memory MiB | dump s | "
        "restore s |\n"
        "|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|\n",
        kWatchers);
    std::fflush(stdout);
    for (const uint32_t count : counts) {
        std::string place = directory + "/sysdb-scale.XXXXXX";
        if (mkdtemp(place.data()) == nullptr) {
            std::perror(place.c_str());
            return 1;
        }
        use(place);
        measure(count, place, aaactl);
        std::error_code ignored;
        std::filesystem::remove_all(place, ignored);
    }
    return 0;
}
