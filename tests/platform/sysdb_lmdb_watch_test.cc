// SPDX-License-Identifier: Apache-2.0
//
// The embedded provider's notifications with dead watchers, lost wake-ups,
// emptied directories and bursts. Every test has its own processes and database.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "open_files.hpp"
#include "private_mounts.hpp"
#include "support/database_table.hpp"
#include "support/sysdb.hpp"

namespace {

namespace fs = std::filesystem;

constexpr int kPatience = 20000;  // milliseconds; reached only when a notification is lost

// Remembers the newest value of every path.
struct Latest {
    std::vector<std::pair<std::string, int64_t>> calls;
    int resyncs = 0;
    uint64_t revision = 0;
    uint64_t notification = 0;

    static int32_t called(const void *record, void *self, void *) {
        const auto &change = *static_cast<const sysdb_notification_t *>(record);
        auto &latest = *static_cast<Latest *>(self);
        uint32_t number = 0;
        if (change.value != nullptr) {
            std::memcpy(&number, change.value, sizeof number);
        }
        if (change.datatype == SYSDB_TYPE_DIRECTORY) {
            ++latest.resyncs;
        }
        latest.revision = change.revision;
        latest.calls.emplace_back(change.path, change.value != nullptr ? int64_t{number} : -1);
        return 0;
    }
    cerrno watch(sysdb_conn_t conn, const std::string &path) {
        return _sysdb_register_notification(conn, path.c_str(), 6, 1, called, this, 0, nullptr, 0,
                                            &notification);
    }
    cerrno watch_since(sysdb_conn_t conn, const std::string &path, uint64_t since) {
        return _sysdb_register_notification(conn, path.c_str(), 6, SYSDB_NOTIFY_CHANGES | SYSDB_NOTIFY_SINCE,
                                            called, this, since, nullptr, 0, &notification);
    }
    int64_t last() const { return calls.empty() ? -2 : calls.back().second; }
};

// Dispatches until the watched item has the value; false when it never has.
bool reaches(sysdb_conn_t conn, const Latest &latest, int64_t value) {
    while (latest.last() != value) {
        if (!wait_readable(channel_of(conn), kPatience)) {
            return false;
        }
        EXPECT_EQ(0u, sysdb_dispatch(conn));
    }
    return true;
}

std::set<std::string> sockets(const DatabaseSandbox &sandbox) {
    std::set<std::string> names;
    std::error_code ignored;
    for (const auto &entry : fs::directory_iterator(sandbox.watchers(), ignored)) {
        names.insert(entry.path().filename());
    }
    return names;
}

// Rows of the watch table, read past the provider.
std::size_t watch_rows(const DatabaseSandbox &sandbox) {
    return aaatest::DatabaseTable(sandbox.oper_file(), "watch", MDB_RDONLY).rows();
}

// A process that watches, reports that, and then sleeps until it is killed.
ForkedProcess start_watcher(const std::string &tree, Pipe &ready) {
    return ForkedProcess([&tree, &ready] {
        const Bound bound(tree);
        Latest latest;
        EXPECT_EQ(0u, latest.watch(bound.handle(), "a"));
        EXPECT_EQ(0u, latest.watch(bound.handle(), "dir/"));
        ready.put();
        pause();
    });
}

TEST(SysdbWatch, RegistrationLeavesNothingBehindWhenItIsTakenBack) {
    const DatabaseSandbox sandbox;
    run_forked([&sandbox] {
        const Bound cfg("/cfg/");
        Latest one;
        Latest two;
        ASSERT_EQ(0u, one.watch(cfg.handle(), "a"));
        ASSERT_EQ(0u, two.watch(cfg.handle(), "a"));
        EXPECT_EQ(1u, sockets(sandbox).size());
        EXPECT_EQ(0u, sysdb_notification_unregister(cfg.handle(), one.notification));
        EXPECT_EQ(1u, sockets(sandbox).size());
        EXPECT_EQ(0u, sysdb_notification_unregister(cfg.handle(), two.notification));
        EXPECT_EQ(0u, sockets(sandbox).size());
    });
    EXPECT_EQ(0u, watch_rows(sandbox));
}

TEST(SysdbWatch, BeginsWithTheChangesAfterARevision) {
    const DatabaseSandbox sandbox;
    run_forked([] {
        const Bound cfg("/cfg/");
        const Bound other("/cfg/");
        Latest before;
        ASSERT_EQ(0u, before.watch(cfg.handle(), "a"));
        ASSERT_EQ(0u, set_number(cfg.handle(), "a", 1));
        ASSERT_TRUE(reaches(cfg.handle(), before, 1));
        ASSERT_EQ(0u, sysdb_notification_unregister(cfg.handle(), before.notification));
        ASSERT_EQ(0u, set_number(cfg.handle(), "a", 2));
        ASSERT_EQ(0u, set_number(cfg.handle(), "d/b", 3));
        ASSERT_EQ(0u, set_number(cfg.handle(), "a", 4));
        Latest item;
        Latest directory;
        Latest none;
        ASSERT_EQ(0u, item.watch_since(other.handle(), "a", before.revision));
        ASSERT_EQ(0u, directory.watch_since(other.handle(), "d/", before.revision));
        ASSERT_EQ(0u, none.watch_since(other.handle(), "d/", before.revision + 3));
        ASSERT_TRUE(reaches(other.handle(), item, 4));
        EXPECT_EQ(1u, item.calls.size());
        ASSERT_EQ(1u, directory.calls.size());
        EXPECT_EQ("d/b", directory.calls[0].first);
        EXPECT_EQ(0u, none.calls.size());
        ASSERT_EQ(0u, set_number(cfg.handle(), "a", 5));
        ASSERT_TRUE(reaches(other.handle(), item, 5));
        EXPECT_EQ(SYSDB_ERR_NOT_FOUND, none.watch_since(other.handle(), "a", item.revision + 1));
        EXPECT_EQ(SYSDB_ERR_INVALID_ARG,
                  _sysdb_register_notification(other.handle(), "a", 6, 7, Latest::called, &none, 0, nullptr,
                                               0, &none.notification));
    });
    EXPECT_EQ(0u, watch_rows(sandbox));
}

TEST(SysdbWatch, RefusesARevisionThatTheLogHasLost) {
    const DatabaseSandbox sandbox;
    run_forked([&sandbox] {
        setenv("AAA_SYSDB_MAP_MIB", "1", 1);
        const Bound cfg("/cfg/");
        for (uint32_t i = 0; i < 300; ++i) {  // the log of so small a map has 256 places
            ASSERT_EQ(0u, set_number(cfg.handle(), "a", i));
        }
        Latest late;
        EXPECT_EQ(SYSDB_ERR_NOT_FOUND, late.watch_since(cfg.handle(), "a", 10));
        EXPECT_EQ(0u, sockets(sandbox).size());
        EXPECT_EQ(0u, late.watch_since(cfg.handle(), "a", 100));
    });
}

TEST(SysdbWatch, KilledWatchersAreCleanedUpByTheNextChange) {
    const DatabaseSandbox sandbox;
    const std::string tree = "/cfg/";
    {
        std::vector<ForkedProcess> watchers;
        Pipe ready;
        for (int i = 0; i < 10; ++i) {
            watchers.push_back(start_watcher(tree, ready));
            ASSERT_TRUE(ready.take());
        }
        EXPECT_EQ(10u, sockets(sandbox).size());
        EXPECT_EQ(20u, watch_rows(sandbox));
        for (int i = 0; i < 3; ++i) {
            watchers[static_cast<std::size_t>(i)].kill_now();
        }
        run_forked([] {
            const Bound bound("/cfg/");
            EXPECT_EQ(0u, set_number(bound.handle(), "a", 1));
        });
        EXPECT_EQ(7u, sockets(sandbox).size());
        EXPECT_EQ(14u, watch_rows(sandbox));
    }
    // The others died too, and no one changes their items: the next new watcher removes them.
    run_forked([&sandbox] {
        const Bound bound("/cfg/");
        Latest latest;
        EXPECT_EQ(0u, latest.watch(bound.handle(), "elsewhere"));
        EXPECT_FALSE(is_open(sandbox.watchers())) << "the directory of watchers is still open";
    });
    EXPECT_LE(watch_rows(sandbox), 1u);
    EXPECT_LE(sockets(sandbox).size(), 1u);
}

// It cannot reach a socket below a descriptor, took all watchers for dead, and removed them.
TEST(SysdbWatch, WriterWithoutProcLeavesWatchersAlone) {
    SKIP_WITHOUT_PRIVATE_MOUNTS();
    const DatabaseSandbox sandbox;
    Pipe ready;
    const ForkedProcess watcher = start_watcher("/cfg/", ready);
    ASSERT_TRUE(ready.take());
    const auto before = sockets(sandbox);
    run_forked([] {
        ASSERT_TRUE(enter_private_mounts());
        ASSERT_TRUE(mount_memory("/proc", "size=64k"));
        const Bound bound("/cfg/");
        EXPECT_EQ(0u, set_number(bound.handle(), "a", 1));
    });
    EXPECT_EQ(before, sockets(sandbox));
    EXPECT_EQ(2u, watch_rows(sandbox));
}

TEST(SysdbWatch, SurvivorsLoseNothingWhenOthersAreKilled) {
    const DatabaseSandbox sandbox;
    const std::string tree = "/oper/";
    constexpr uint32_t kLast = 300;
    Pipe ready;
    ForkedProcess survivor([&] {
        const Bound bound(tree);
        Latest latest;
        ASSERT_EQ(0u, latest.watch(bound.handle(), "a"));
        ready.put();
        EXPECT_TRUE(reaches(bound.handle(), latest, kLast));
    });
    ASSERT_TRUE(ready.take());
    ForkedProcess writer([&] {
        const Bound bound(tree);
        for (uint32_t i = 1; i <= kLast; ++i) {
            EXPECT_EQ(0u, set_number(bound.handle(), "a", i));
            usleep(200);
        }
    });
    for (int i = 0; i < 20; ++i) {
        ForkedProcess victim = start_watcher(tree, ready);
        ASSERT_TRUE(ready.take());
        victim.kill_now();
    }
    EXPECT_EQ(0, writer.wait());
    EXPECT_EQ(0, survivor.wait());
}

TEST(SysdbWatch, BurstLosesNoFinalValue) {
    const DatabaseSandbox sandbox;
    const unsigned changes = repetitions("AAA_SYSDB_BURST", 2000);
    constexpr unsigned kWatchers = 8;
    constexpr unsigned kItems = 16;
    Pipe ready;
    std::vector<ForkedProcess> watchers;
    for (unsigned w = 0; w < kWatchers; ++w) {
        watchers.emplace_back([&, w] {
            const Bound bound("/oper/burst/");
            Latest own;
            Latest all;
            const std::string item = "item" + std::to_string(w % kItems);
            ASSERT_EQ(0u, own.watch(bound.handle(), item));
            ASSERT_EQ(0u, all.watch(bound.handle(), ""));
            ready.put();
            // Every item's last value is "changes"; the very last change is that of the last item.
            std::set<std::string> finished;
            while (finished.size() < kItems) {
                ASSERT_TRUE(wait_readable(channel_of(bound.handle()), kPatience)) << finished.size();
                ASSERT_EQ(0u, sysdb_dispatch(bound.handle()));
                for (const auto &[path, value] : all.calls) {
                    if (value == int64_t{changes}) {
                        finished.insert(path);
                    }
                }
                all.calls.clear();
            }
            EXPECT_EQ(int64_t{changes}, own.last());
        });
        ASSERT_TRUE(ready.take());
    }
    run_forked([changes] {
        const Bound bound("/oper/burst/");
        for (unsigned n = 1; n <= changes; ++n) {
            const unsigned item = n % kItems;
            ASSERT_EQ(0u, set_number(bound.handle(), "item" + std::to_string(item), n));
        }
        for (unsigned item = 0; item < kItems; ++item) {
            ASSERT_EQ(0u, set_number(bound.handle(), "item" + std::to_string(item), changes));
        }
    });
    for (ForkedProcess &watcher : watchers) {
        EXPECT_EQ(0, watcher.wait());
    }
}

TEST(SysdbWatch, WakeUpThatNeverCameIsMadeUpFor) {
    const DatabaseSandbox sandbox;
    run_forked([] {
        // The writer cannot reach the run directory: as if it died between its commit and its wake-ups. A
        // process looks for its directories once, so it begins before this one does.
        Pipe watching;
        ForkedProcess writer([&watching] {
            setenv("AAA_SYSDB_RUN_DIR", "/proc/nowhere", 1);
            EXPECT_TRUE(watching.take());
            const Bound bound("/cfg/");
            EXPECT_EQ(0u, set_number(bound.handle(), "a", 7));
        });
        const Bound bound("/cfg/");
        Latest latest;
        ASSERT_EQ(0u, latest.watch(bound.handle(), "a"));
        watching.put();
        EXPECT_EQ(0, writer.wait());
        EXPECT_TRUE(reaches(bound.handle(), latest, 7));
    });
}

// The process has one socket, and a dispatch of one connection takes what came for all.
TEST(SysdbWatch, WhatOneConnectionTakesWakesTheOther) {
    const DatabaseSandbox sandbox;
    run_forked([] {
        const Bound one("/oper/");
        const Bound two("/oper/");
        Latest first;
        Latest second;
        ASSERT_EQ(0u, first.watch(one.handle(), "a"));
        ASSERT_EQ(0u, second.watch(two.handle(), "a"));
        run_forked([] {
            const Bound writer("/oper/");
            EXPECT_EQ(0u, set_number(writer.handle(), "a", 1));
        });
        ASSERT_EQ(0u, sysdb_dispatch(one.handle()));
        EXPECT_EQ(1u, first.calls.size());
        EXPECT_TRUE(wait_readable(channel_of(two.handle()), 0));
        ASSERT_EQ(0u, sysdb_dispatch(two.handle()));
        EXPECT_EQ(1u, second.calls.size());
    });
}

TEST(SysdbWatch, EmptiedRunDirectoryIsJoinedAgain) {
    const DatabaseSandbox sandbox;
    run_forked([&sandbox] {
        const Bound cfg("/cfg/");
        const Bound oper("/oper/");
        Latest item;
        Latest directory;
        Latest state;
        ASSERT_EQ(0u, item.watch(cfg.handle(), "a"));
        ASSERT_EQ(0u, directory.watch(cfg.handle(), "dir/"));
        ASSERT_EQ(0u, state.watch(oper.handle(), ""));
        const std::set<std::string> before = sockets(sandbox);
        fs::remove_all(sandbox.root() + "/run");
        // Configuration is kept, and its watchers go on.
        const auto writer = [](const char *tree, uint32_t value) {
            return ForkedProcess([tree, value] {
                const Bound own(tree);
                EXPECT_EQ(0u, set_number(own.handle(), "a", value));
            });
        };
        EXPECT_EQ(0, writer("/cfg/", 1).wait());
        EXPECT_TRUE(reaches(cfg.handle(), item, 1));
        while (sockets(sandbox) == before || sockets(sandbox).empty()) {
            ASSERT_TRUE(wait_readable(channel_of(cfg.handle()), kPatience));
            ASSERT_EQ(0u, sysdb_dispatch(cfg.handle()));
        }
        // The operational tree starts empty: watchers must read everything again, then get changes as before.
        while (state.resyncs == 0) {
            ASSERT_TRUE(wait_readable(channel_of(oper.handle()), kPatience));
            ASSERT_EQ(0u, sysdb_dispatch(oper.handle()));
        }
        EXPECT_EQ(0, writer("/oper/", 2).wait());
        EXPECT_TRUE(reaches(oper.handle(), state, 2));
        EXPECT_EQ(0, writer("/cfg/", 3).wait());
        EXPECT_TRUE(reaches(cfg.handle(), item, 3));
        EXPECT_EQ(0, directory.resyncs);
    });
}

TEST(SysdbWatch, WatcherThatSleptThroughTheWholeLogReadsEverythingAgain) {
    const DatabaseSandbox sandbox;
    run_forked([] {
        setenv("AAA_SYSDB_MAP_MIB", "1", 1);  // remembers 256 changes
        const Bound bound("/oper/");
        const Bound watching("/oper/");
        Latest item;
        Latest untouched;
        Latest directory;
        ASSERT_EQ(0u, set_number(bound.handle(), "dir/untouched", 1));
        ASSERT_EQ(0u, item.watch(watching.handle(), "dir/a"));
        ASSERT_EQ(0u, untouched.watch(watching.handle(), "dir/untouched"));
        ASSERT_EQ(0u, directory.watch(watching.handle(), "dir/"));
        for (uint32_t i = 1; i <= 300; ++i) {
            ASSERT_EQ(0u, set_number(bound.handle(), "dir/a", i));
        }
        ASSERT_EQ(0u, sysdb_dispatch(watching.handle()));
        EXPECT_EQ(300, item.last());
        EXPECT_EQ(1, untouched.last());
        EXPECT_EQ(1u, directory.calls.size());
        EXPECT_EQ(1, directory.resyncs);
        EXPECT_EQ("dir/", directory.calls[0].first);
        ASSERT_EQ(0u, set_number(bound.handle(), "dir/a", 301));
        ASSERT_EQ(0u, sysdb_dispatch(watching.handle()));
        EXPECT_EQ(1, directory.resyncs);
        EXPECT_EQ(301, directory.last());
    });
}

TEST(SysdbWatch, DirectoryWithVeryManyChangesIsReadAgainAtOnce) {
    const DatabaseSandbox sandbox;
    run_forked([] {
        const Bound bound("/oper/");
        const Bound watching("/oper/");
        Latest directory;
        ASSERT_EQ(0u, directory.watch(watching.handle(), ""));
        for (uint32_t i = 1; i <= 5000; ++i) {
            ASSERT_EQ(0u, set_number(bound.handle(), "item" + std::to_string(i), i));
        }
        ASSERT_EQ(0u, sysdb_dispatch(watching.handle()));
        EXPECT_EQ(1u, directory.calls.size());
        EXPECT_EQ(1, directory.resyncs);
    });
}

TEST(SysdbWatch, RestoredConfigurationIsReadAgain) {
    const DatabaseSandbox sandbox;
    run_forked([] {
        const Bound bound("/cfg/");
        EXPECT_EQ(0u, set_number(bound.handle(), "a", 1));
    });
    fs::copy_file(sandbox.cfg_file(), sandbox.root() + "/backup");
    run_forked([&sandbox] {
        const Bound bound("/cfg/");
        Latest latest;
        Latest directory;
        ASSERT_EQ(0u, set_number(bound.handle(), "a", 2));
        ASSERT_EQ(0u, latest.watch(bound.handle(), "a"));
        ASSERT_EQ(0u, directory.watch(bound.handle(), "dir/"));
        fs::rename(sandbox.root() + "/backup", sandbox.cfg_file());
        EXPECT_TRUE(reaches(bound.handle(), latest, 1));
        EXPECT_EQ(1, directory.resyncs);
    });
}

TEST(SysdbWatch, StrangersDatagramsDoNoHarm) {
    const DatabaseSandbox sandbox;
    run_forked([&sandbox] {
        const Bound bound("/oper/");
        Latest latest;
        ASSERT_EQ(0u, latest.watch(bound.handle(), "a"));
        const int stranger = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        struct sockaddr_storage address {};
        address.ss_family = AF_UNIX;
        const std::string path = sandbox.watchers() + "/" + *sockets(sandbox).begin();
        path.copy(reinterpret_cast<char *>(&address) + sizeof(sa_family_t), path.size());
        const std::string noise(4000, 'n');
        for (int i = 0; i < 100; ++i) {
            sendto(stranger, noise.data(), noise.size(), MSG_DONTWAIT, reinterpret_cast<sockaddr *>(&address),
                   static_cast<socklen_t>(sizeof(sa_family_t) + path.size() + 1));
        }
        close(stranger);
        ASSERT_TRUE(wait_readable(channel_of(bound.handle()), kPatience));
        EXPECT_EQ(0u, sysdb_dispatch(bound.handle()));
        EXPECT_TRUE(latest.calls.empty());
        ASSERT_EQ(0u, set_number(bound.handle(), "a", 1));
        EXPECT_TRUE(reaches(bound.handle(), latest, 1));
    });
}

TEST(SysdbWatch, ThreadsRegisterAndUnregisterWhileChangesCome) {
    const DatabaseSandbox sandbox;
    run_forked([] {
        std::atomic<bool> done{false};
        std::thread writer([&done] {
            const Bound bound("/oper/");
            for (uint32_t i = 1; !done; ++i) {
                EXPECT_EQ(0u, set_number(bound.handle(), "dir/a", i));
            }
        });
        std::vector<std::thread> watchers;
        for (int w = 0; w < 3; ++w) {
            watchers.emplace_back([] {
                for (int round = 0; round < 30; ++round) {
                    const Bound bound("/oper/");
                    Latest item;
                    Latest directory;
                    ASSERT_EQ(0u, item.watch(bound.handle(), "dir/a"));
                    ASSERT_EQ(0u, directory.watch(bound.handle(), "dir/"));
                    while (item.calls.empty() || directory.calls.empty()) {
                        ASSERT_TRUE(wait_readable(channel_of(bound.handle()), kPatience));
                        ASSERT_EQ(0u, sysdb_dispatch(bound.handle()));
                    }
                    ASSERT_EQ(0u, sysdb_notification_unregister(bound.handle(), item.notification));
                }
            });
        }
        for (std::thread &watcher : watchers) {
            watcher.join();
        }
        done = true;
        writer.join();
    });
}

}  // namespace
