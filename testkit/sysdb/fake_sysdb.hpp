// SPDX-License-Identifier: Apache-2.0
//
// Inside of the fake system database. Everything here wants the state's lock.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "testkit/fake_platform.hpp"

namespace fake::sysdb {

struct NameOrder {
    bool operator()(const std::string &a, const std::string &b) const;
};

struct List {
    std::vector<std::pair<std::string, uint32_t>> entries;
    std::size_t next = 0;
    bool started = false;
};

struct Connection {
    std::string path;
    uint32_t flags;
};

struct Database {
    std::map<std::string, Item> items;
    std::set<std::string> directories;  // made explicitly, ending in '/'
    std::map<uint64_t, Connection> connections;
    std::map<sysdb_list_t, std::unique_ptr<List>> lists;
    std::map<uint64_t, std::pair<uint64_t, Notification>>
        notifications;  // by handle: connection, registration
    // Paths that changed since the last dispatch, by notification.
    std::map<uint64_t, std::set<std::string>> changes;
    uint64_t revision = 0;
    bool list_on_failure = false;
    bool present = true;
};

Database &db();
// Never the same twice in a process, so that a handle kept too long is seen.
uint64_t new_handle();
// Null, and misuse, when it is not open.
const Connection *connection(uint64_t handle, const char *who);
std::string full_path(const Connection &conn, const char *path);
std::string directory_path(const Connection &conn, const char *path);
bool directory_exists(const std::string &directory);
// Entries directly below a directory; sub-directories end in '/'.
std::map<std::string, uint32_t, NameOrder> entries_below(const std::string &directory);
// An item was set to something else, or deleted.
void note_change(const std::string &path, uint32_t event);

}  // namespace fake::sysdb
