// SPDX-License-Identifier: Apache-2.0
//
// Inside of the fake system database. Everything here needs the state's lock.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "testkit/fake_platform.hpp"

namespace fake::sysdb {

// ---- Paths

// The order of listings, for names and for whole paths: bytewise, but names
// that are numbers sort by their value.
struct PathOrder {
    bool operator()(const std::string &a, const std::string &b) const;
};
// 0, or the code that refuses the path.
cerrno check_bind_path(std::string_view path);
// '*' and '?'; every other character matches itself.
bool matches(std::string_view pattern, std::string_view name);

// ---- State

struct List {
    std::vector<std::pair<std::string, uint32_t>> entries;
    std::size_t next = 0;
    bool started = false;
};

struct Connection {
    Connection(std::string bound_at, uint32_t with) : path(std::move(bound_at)), flags(with) {}
    ~Connection();
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    std::string path;
    uint32_t flags;
    int channel = -1;          // a descriptor from when it was first asked for
    bool dispatching = false;  // inside sysdb_dispatch()
    bool again = false;        // and called once more meanwhile
};

struct Watch {
    uint64_t connection;
    Notification registered;
    std::map<std::string, uint32_t, PathOrder> pending;  // full paths, each with its operation
    bool initial_directory = false;                      // to be reported as it is
    bool removed = false;
    std::recursive_mutex calling;  // held while the callback runs; taken without the state's lock
};
using WatchPtr = std::shared_ptr<Watch>;

struct Database {
    std::map<std::string, Item> items;
    std::set<std::string> directories;  // made explicitly, ending in '/'
    std::map<uint64_t, std::shared_ptr<Connection>> connections;
    std::map<sysdb_list_t, std::unique_ptr<List>> lists;
    std::map<uint64_t, WatchPtr> watches;
    uint64_t revision = 0;
    bool list_on_failure = false;
    bool present = true;
};

Database &db();
// Never the same twice in a process, so that a handle kept too long is seen.
uint64_t new_handle();
// Null, and misuse, when it is not open.
Connection *connection(uint64_t handle, const char *who);
// Absolute paths of what a caller names; 0, or the code that refuses it. A
// directory's slash may be left out, "" is the bind point.
cerrno item_path(const Connection &conn, std::string_view path, std::string &full);
cerrno directory_path(const Connection &conn, std::string_view path, std::string &full);

// ---- Contents

// Whether a value has the form that its type asks for.
bool value_fits(uint32_t datatype, const void *value, uint32_t length);
bool is_tuple(const uint8_t *bytes, uint32_t length);
inline constexpr uint32_t kLongestValue = 1024 * 1024;

bool same(const Item &a, const Item &b);
void store_item(const std::string &path, Item item);
void store_directory(const std::string &directory);
// Whether there was one.
bool erase_item(const std::string &path);
bool erase_directory(const std::string &directory);

inline const std::string &path_of(const std::string &directory) {
    return directory;
}
inline const std::string &path_of(const std::pair<const std::string, Item> &item) {
    return item.first;
}
// clang 14 cannot instantiate std::ranges::subrange.
template <typename Iterator>
class Range {
  public:
    Range(Iterator first, Iterator last) : first_(first), last_(last) {}

    Iterator begin() const { return first_; }
    Iterator end() const { return last_; }
    [[nodiscard]] bool empty() const { return first_ == last_; }

  private:
    Iterator first_;
    Iterator last_;
};
// The items or directories below a directory, itself included.
template <typename Container>
auto below(const Container &all, const std::string &directory) {
    const auto first = all.lower_bound(directory);
    auto last = first;
    while (last != all.end() && path_of(*last).starts_with(directory)) {
        ++last;
    }
    return Range(first, last);
}

bool directory_exists(const std::string &directory);
// Entries directly below a directory; sub-directories end in '/'.
std::map<std::string, uint32_t, PathOrder> entries_below(const std::string &directory);

// ---- Notifications

// Something was created, set to something else, or deleted.
void note_change(const std::string &path, uint32_t operation);
// Makes the connection's channel readable.
void wake(const Connection &conn);
// Removes the watches of a connection; their callbacks may still be running.
std::vector<WatchPtr> remove_watches(uint64_t conn);
// Returns when none of them runs on another thread; without the lock.
void wait_until_idle(const std::vector<WatchPtr> &watches);

}  // namespace fake::sysdb
