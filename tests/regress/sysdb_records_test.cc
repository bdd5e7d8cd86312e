// SPDX-License-Identifier: Apache-2.0
//
// Records of the system database that another process wrote past the provider,
// and their effects.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "support/database_table.hpp"
#include "support/sysdb.hpp"

namespace {

namespace fs = std::filesystem;

// Puts a row into a table, in a process that has not opened the database.
void put_row(const std::string &file, const char *table, const std::string &key, const std::string &bytes) {
    run_forked([&] { aaatest::put_row(file, table, key, bytes); });
}

template <typename Number>
std::string bytes_of(Number number) {
    return {reinterpret_cast<const char *>(&number), sizeof number};
}

void make_database() {
    run_forked([] { ASSERT_EQ(0u, set_number(Bound("/oper/f/").handle(), "item", 1)); });
}

struct Watcher {
    struct State {
        uint32_t operation;
        uint32_t datatype;
        std::string value;
    };
    std::map<std::string, State> told;

    Watcher(sysdb_conn_t conn, const char *path) {
        uint64_t id = 0;
        EXPECT_EQ(0u, _sysdb_register_notification(conn, path, SYSDB_EVENT_SET | SYSDB_EVENT_DELETE,
                                                   SYSDB_NOTIFY_CHANGES, called, this, 0, nullptr, 0, &id));
    }
    static int32_t called(const void *record, void *self, void *) {
        const auto &change = *static_cast<const sysdb_notification_t *>(record);
        std::string value;
        if (change.value != nullptr) {
            value.assign(static_cast<const char *>(change.value), change.length);
        }
        static_cast<Watcher *>(self)->told[change.path] = {change.operation, change.datatype, value};
        return 0;
    }
};

// A watcher named "../../precious" had that file deleted, because no process
// has a socket of that name.
TEST(SysdbRecords, WatcherNamesDoNotLeadOutOfTheirDirectory) {
    const DatabaseSandbox sandbox;
    make_database();
    fs::create_directories(sandbox.watchers());
    const std::string precious = sandbox.root() + "/precious";
    const std::string hidden = sandbox.root() + "/run/precious";
    std::ofstream(precious) << "kept";
    std::ofstream(hidden) << "kept";
    for (const char *name : {"../../precious", "../precious", "../../run/precious", "..", "."}) {
        put_row(sandbox.oper_file(), "watch", "/oper/f/item", name);
    }
    run_forked([] {
        const Bound bound("/oper/f/");  // removes dead watchers
        ASSERT_EQ(0u, set_number(bound.handle(), "item", 2));
        const Watcher watcher(bound.handle(), "item");
        ASSERT_EQ(0u, set_number(bound.handle(), "item", 3));
    });
    EXPECT_TRUE(fs::exists(precious));
    EXPECT_TRUE(fs::exists(hidden));
    EXPECT_TRUE(fs::is_directory(sandbox.watchers()));
}

// A record with operation 0 after a change hid that change.
TEST(SysdbRecords, UnknownOperationHidesNoChange) {
    const DatabaseSandbox sandbox;
    make_database();
    run_forked([&sandbox] {
        const Bound bound("/oper/f/");
        Watcher watcher(bound.handle(), "");
        ASSERT_EQ(0u, set_number(bound.handle(), "item", 2));
        put_row(sandbox.oper_file(), "log", bytes_of(uint64_t{3}), bytes_of(uint32_t{0}) + "/oper/f/item");
        ASSERT_EQ(0u, sysdb_dispatch(bound.handle()));
        ASSERT_EQ(1u, watcher.told.count("item"));
        EXPECT_EQ(bytes_of(uint32_t{2}), watcher.told["item"].value);
        EXPECT_EQ(SYSDB_EVENT_SET, watcher.told["item"].operation);
    });
}

// Values that fit no type were refused to readers and handed to callbacks.
TEST(SysdbRecords, ValueThatDoesNotFitItsTypeReachesNoCallback) {
    const DatabaseSandbox sandbox;
    make_database();
    run_forked([&sandbox] {
        const Bound bound("/oper/f/");
        Watcher watcher(bound.handle(), "");
        const std::string tuple("TP\1\1\xff\xff\0\0d", 9);
        put_row(sandbox.oper_file(), "items", "/oper/f/text",
                bytes_of(uint32_t{SYSDB_TYPE_STRING}) + "no end");
        put_row(sandbox.oper_file(), "items", "/oper/f/list", bytes_of(uint32_t{SYSDB_TYPE_TUPLE}) + tuple);
        put_row(sandbox.oper_file(), "log", bytes_of(uint64_t{2}),
                bytes_of(uint32_t{SYSDB_EVENT_CREATE}) + "/oper/f/text");
        put_row(sandbox.oper_file(), "log", bytes_of(uint64_t{3}),
                bytes_of(uint32_t{SYSDB_EVENT_CREATE}) + "/oper/f/list");
        ASSERT_EQ(0u, sysdb_dispatch(bound.handle()));
        ASSERT_EQ(2u, watcher.told.size());
        for (const auto &[path, state] : watcher.told) {
            EXPECT_EQ(SYSDB_TYPE_ANY, state.datatype) << path;
            EXPECT_EQ("", state.value) << path;
            EXPECT_EQ(SYSDB_EVENT_CREATE, state.operation) << path;
        }
    });
}

// The highest revision number was reported as a lack of storage.
TEST(SysdbRecords, LogWithoutAnotherNumberIsDamage) {
    const DatabaseSandbox sandbox;
    make_database();
    put_row(sandbox.oper_file(), "log", bytes_of(~uint64_t{0}), bytes_of(uint32_t{2}) + "/oper/f/item");
    const std::string log = run_forked([] {
        const Bound bound("/oper/f/");
        EXPECT_EQ(SYSDB_ERR_CORRUPT, set_number(bound.handle(), "item", 2));
        EXPECT_EQ(1, get_number(bound.handle(), "item"));
    });
    EXPECT_NE(std::string::npos, log.find("-lock && aaactl sg publish")) << log;
}

}  // namespace
