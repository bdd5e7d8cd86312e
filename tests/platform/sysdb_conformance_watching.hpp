// SPDX-License-Identifier: Apache-2.0
//
// Shared by the conformance tests of notifications.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "support/sysdb.hpp"

using Texts = std::vector<std::string>;

constexpr uint32_t kAll = SYSDB_EVENT_SET | SYSDB_EVENT_DELETE;
constexpr int kPatience = 20000;  // milliseconds; reached only when a notification is lost

inline std::string operation_name(uint32_t operation) {
    switch (operation) {
        case SYSDB_EVENT_SET:
            return "set";
        case SYSDB_EVENT_CREATE:
            return "create";
        case SYSDB_EVENT_DELETE:
            return "delete";
        default:
            return "?" + std::to_string(operation);
    }
}

inline std::string describe(const sysdb_notification_t &change) {
    std::string text = operation_name(change.operation) + " " + change.path;
    if (change.datatype == SYSDB_TYPE_DIRECTORY) {
        EXPECT_EQ(nullptr, change.value);
        return text + " [directory]";
    }
    if (change.operation == SYSDB_EVENT_DELETE) {
        EXPECT_EQ(nullptr, change.value);
        EXPECT_EQ(0u, change.length);
        return text;
    }
    EXPECT_EQ(SYSDB_TYPE_U32, change.datatype);
    EXPECT_EQ(4u, change.length);
    uint32_t number = 0;
    std::memcpy(&number, change.value, sizeof number);
    return text + "=" + std::to_string(number);
}

// Collects the notifications of its calls.
struct Watcher {
    Texts calls;
    std::vector<uint64_t> revisions;
    uint64_t notification = 0;

    Texts take() { return std::exchange(calls, {}); }

    cerrno watch(sysdb_conn_t conn, const char *path, uint32_t events = kAll,
                 uint32_t mode = SYSDB_NOTIFY_CHANGES) {
        return _sysdb_register_notification(conn, path, events, mode, called, this, 0, nullptr, 0,
                                            &notification);
    }

    static int32_t called(const void *record, void *self, void *) {
        const auto &change = *static_cast<const sysdb_notification_t *>(record);
        EXPECT_EQ(0, change.pass_flags);
        auto &watcher = *static_cast<Watcher *>(self);
        watcher.calls.push_back(describe(change));
        watcher.revisions.push_back(change.revision);
        return 1;  // not used
    }
};

// A connection that watches and one that writes, in the test's own directory.
class SysdbWatching : public ::testing::TestWithParam<const char *> {
  protected:
    SysdbWatching() : base_(unique_base()), bound_(base_), writer_(base_) {}

    static std::string unique_base() {
        static int count = 0;
        return std::string(GetParam()) + "notify" + std::to_string(++count) + "x/";
    }

    sysdb_conn_t conn() const { return bound_.handle(); }
    sysdb_conn_t writer() const { return writer_.handle(); }
    const std::string &base() const { return base_; }

    // The notifications of the changes made so far.
    Texts dispatched(Watcher &watcher) {
        EXPECT_TRUE(wait_readable(channel_of(conn()), kPatience));
        EXPECT_EQ(0u, sysdb_dispatch(conn()));
        return watcher.take();
    }
    void expect_quiet(Watcher &watcher) {
        EXPECT_EQ(0u, sysdb_dispatch(conn()));
        EXPECT_EQ(Texts{}, watcher.take());
    }

  private:
    std::string base_;
    Bound bound_;
    Bound writer_;
};
