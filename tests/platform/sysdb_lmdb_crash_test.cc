// SPDX-License-Identifier: Apache-2.0
//
// A writer is repeatedly killed at random moments while readers read: acknowledged
// values are stored afterwards, and no view is ever inconsistent.
// AAA_SYSDB_KILLS sets the number of kills.

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <random>
#include <string>
#include <vector>

#include "platform/sysdb_changes.h"
#include "support/sysdb.hpp"

namespace {

// State shared by the processes; it survives the death of any of them.
struct Shared {
    std::atomic<uint32_t> acknowledged{0};
    std::atomic<uint32_t> views{0};
    std::atomic<bool> stop{false};
    std::atomic<uint32_t> faults{0};
};

class SharedMemory {
  public:
    SharedMemory()
        : shared_(new (mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1,
                            0)) Shared) {}
    ~SharedMemory() { munmap(shared_, sizeof(Shared)); }
    Shared *operator->() const { return shared_; }

  private:
    Shared *shared_;
};

// Counts up "count" and a ring of items, each of which holds the number last
// written to it. A view is a listing: one transaction.
constexpr uint32_t kRing = 16;

void write_until_killed(const std::string &tree, const SharedMemory &shared) {
    const Bound bound(tree + "crash/");
    if (bound.code() != 0) {
        ++shared->faults;
        return;
    }
    int64_t last = get_number(bound.handle(), "count");
    for (auto next = static_cast<uint32_t>(last < 0 ? 0 : last);; ++next) {
        const std::string place = "ring/0x" + std::to_string(next % kRing);
        if (set_number(bound.handle(), place, next) != 0 || set_number(bound.handle(), "count", next) != 0) {
            ++shared->faults;
            return;
        }
        shared->acknowledged = next;
    }
}

// Item n of the ring holds the newest number with that remainder: never older than
// the number acknowledged before, and never more than one ahead.
void look(sysdb_conn_t conn, const SharedMemory &shared) {
    const uint32_t acknowledged = shared->acknowledged;
    const int64_t count = get_number(conn, "count");
    if (acknowledged > 0 && count < int64_t{acknowledged}) {
        ++shared->faults;
        fprintf(stderr, "acknowledged %u, found %lld\n", acknowledged, static_cast<long long>(count));
    }
    if (count >= kRing) {
        const int64_t newest = get_number(conn, "ring/0x" + std::to_string(count % kRing));
        if (newest < count) {
            ++shared->faults;
            fprintf(stderr, "count %lld, its item %lld\n", static_cast<long long>(count),
                    static_cast<long long>(newest));
        }
    }
    if (count > 2 * kRing && names_in(conn, "ring/").size() != kRing) {
        ++shared->faults;
        fprintf(stderr, "ring of %zu\n", names_in(conn, "ring/").size());
    }
    ++shared->views;
}

void read_until_stopped(const std::string &tree, const SharedMemory &shared) {
    const Bound bound(tree + "crash/");
    while (!shared->stop) {
        look(bound.handle(), shared);
    }
}

class SysdbCrash : public ::testing::TestWithParam<const char *> {};

INSTANTIATE_TEST_SUITE_P(Trees, SysdbCrash, ::testing::Values("/cfg/", "/oper/"),
                         [](const auto &tree) { return std::string(tree.index == 0 ? "cfg" : "oper"); });

TEST_P(SysdbCrash, KilledWriterLosesNothingAcknowledged) {
    const DatabaseSandbox sandbox;
    const std::string tree = GetParam();
    const SharedMemory shared;
    const unsigned kills = repetitions("AAA_SYSDB_KILLS", 250);
    std::mt19937 random(4711);
    std::uniform_int_distribution<useconds_t> moment(200, 10000);
    std::vector<ForkedProcess> readers;
    const auto start_reader = [&] { return ForkedProcess([&] { read_until_stopped(tree, shared); }); };
    readers.push_back(start_reader());
    readers.push_back(start_reader());
    for (unsigned i = 0; i < kills; ++i) {
        const uint32_t before = shared->acknowledged;
        ForkedProcess writer([&] { write_until_killed(tree, shared); });
        // Half of the writers may be killed while they start, the others only while they write.
        while (i % 2 == 0 && shared->acknowledged == before && shared->faults == 0) {
            sched_yield();
        }
        usleep(moment(random));
        writer.kill_now();
        if (i % 8 == 7) {  // readers are killed too, during a view
            readers[i / 8 % 2].kill_now();
            readers[i / 8 % 2] = start_reader();
        }
    }
    const uint32_t views = shared->views;
    while (shared->views == views && shared->faults == 0) {  // one more view after the last kill
        sched_yield();
    }
    shared->stop = true;
    for (ForkedProcess &reader : readers) {
        EXPECT_EQ(0, reader.wait());
    }
    EXPECT_EQ(0u, shared->faults);
    EXPECT_GE(shared->acknowledged, kills / 2);
    // Afterwards the file is sound and complete.
    run_forked([&] {
        const Bound bound(tree + "crash/");
        ASSERT_EQ(0u, bound.code());
        look(bound.handle(), shared);
        EXPECT_EQ(0u, shared->faults);
        EXPECT_EQ(0u, set_number(bound.handle(), "after", 1));
    });
}

// A directory is deleted in one transaction, so no one ever reads a part of it.
TEST_P(SysdbCrash, KilledDeletionOfADirectoryLeavesAllOrNothing) {
    const DatabaseSandbox sandbox;
    const std::string tree = GetParam();
    const unsigned kills = repetitions("AAA_SYSDB_KILLS", 30);
    constexpr uint32_t kItems = 200;
    std::mt19937 random(815);
    std::uniform_int_distribution<useconds_t> moment(0, 3000);
    for (unsigned i = 0; i < kills; ++i) {
        run_forked([&] {
            const Bound bound(tree + "crash/");
            for (uint32_t n = 0; n < kItems; ++n) {
                ASSERT_EQ(0u, set_number(bound.handle(), "dir/" + std::to_string(n), i));
            }
        });
        Pipe ready;
        ForkedProcess deleting([&] {
            const Bound bound(tree + "crash/");
            ready.put();
            sysdb_item_delete(bound.handle(), "dir/", SYSDB_DELETE_TREE);
        });
        ASSERT_TRUE(ready.take());
        usleep(moment(random));
        deleting.kill_now();
        run_forked([&] {
            const Bound bound(tree + "crash/");
            const std::vector<std::string> left = names_in(bound.handle(), "dir/");
            EXPECT_TRUE(left.size() == kItems || left == std::vector<std::string>{"!40818600"})
                << left.size();
        });
    }
}

// Readers, concurrent ones too, read all changes of one call or none.
TEST_P(SysdbCrash, KilledApplyLeavesAllOrNothing) {
    const DatabaseSandbox sandbox;
    const std::string tree = GetParam();
    const unsigned kills = repetitions("AAA_SYSDB_KILLS", 30);
    constexpr uint32_t kItems = 200;
    const SharedMemory shared;
    std::mt19937 random(1234);
    std::uniform_int_distribution<useconds_t> moment(200, 8000);
    std::vector<std::string> paths;
    for (uint32_t n = 0; n < kItems; ++n) {
        paths.push_back("dir/" + std::to_string(n));
    }
    for (unsigned i = 0; i < kills; ++i) {
        Pipe ready;
        ForkedProcess applying([&] {
            const Bound bound(tree + "crash/");
            ready.put();
            for (uint32_t round = shared->acknowledged + 1;; ++round) {
                std::vector<sysdb_change_t> changes = {{SYSDB_CHANGE_PRUNE, 0, "dir/", nullptr, 0}};
                for (const std::string &path : paths) {
                    changes.push_back({SYSDB_CHANGE_SET, SYSDB_TYPE_U32, path.c_str(), &round, sizeof round});
                }
                const std::string odd = "dir/odd" + std::to_string(round % 2);  // comes and goes
                changes.push_back({SYSDB_CHANGE_SET, SYSDB_TYPE_U32, odd.c_str(), &round, sizeof round});
                if (sysdb_apply(bound.handle(), changes.data(), static_cast<uint32_t>(changes.size()),
                                nullptr) != 0) {
                    ++shared->faults;
                    return;
                }
                shared->acknowledged = round;
            }
        });
        ASSERT_TRUE(ready.take());
        while (i == 0 && shared->acknowledged == 0 && shared->faults == 0) {
            sched_yield();
        }
        usleep(moment(random));
        applying.kill_now();
        run_forked([&] {
            const Bound bound(tree + "crash/");
            if (shared->acknowledged == 0) {
                return;
            }
            const int64_t round = get_number(bound.handle(), paths[0]);
            EXPECT_GE(round, int64_t{shared->acknowledged});
            for (const std::string &path : paths) {
                ASSERT_EQ(round, get_number(bound.handle(), path)) << path;
            }
            EXPECT_EQ(kItems + 1, names_in(bound.handle(), "dir/").size());
            EXPECT_EQ(round, get_number(bound.handle(), "dir/odd" + std::to_string(round % 2)));
        });
    }
    EXPECT_EQ(0u, shared->faults);
    EXPECT_GT(shared->acknowledged, 0u);
}

}  // namespace
