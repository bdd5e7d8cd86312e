// SPDX-License-Identifier: Apache-2.0
//
// The system database for commands: absolute paths, typed items, and failures
// that say which path could not be read and what to do about it.

#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "database/sysdb_values.hpp"

namespace aaactl {

// A name of one level; a directory's ends in '/'.
struct Entry {
    std::string name;
    uint32_t type;

    bool is_directory() const { return type == SYSDB_TYPE_DIRECTORY; }
    std::string bare_name() const { return name.substr(0, name.size() - (name.ends_with('/') ? 1 : 0)); }
};

// What is stored and yet cannot be read.
struct Unreadable {
    std::string path;
    uint32_t type;
    std::string fault;
};

// The failure of a call on a path; with a hint where somebody can do something.
Failure database_failure(std::string_view path, cerrno rc);

class Database {
  public:
    Database() = default;
    ~Database();
    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;

    // No item is there: nullopt. Any other reason: Failure.
    std::optional<Item> find(const std::string &path);
    // For a path that the database has listed. What stands there and cannot be read is no reason to stop:
    // nullopt, and `fault` says why. It is "" otherwise.
    std::optional<Item> find(const std::string &path, std::string &fault);
    // No item is there: Failure(not_found).
    Item get(const std::string &path);
    void set(const std::string &path, const Item &item);
    // An item; a directory's path ends in '/' and names all that is below. False when nothing was there.
    bool remove(const std::string &path);

    // One level in listing order; no such directory: nullopt. "/" has the two trees.
    std::optional<std::vector<Entry>> list(const std::string &directory);
    std::optional<std::vector<Entry>> list(const std::string &directory, std::string &fault);
    // The same, of no entries where there is no such directory, or only one that no path can name.
    std::vector<Entry> entries(const std::string &directory);
    // Every item below a directory, depth first in listing order, with its absolute path. A directory that
    // was made by hand and is empty is visited as an item of that type, with '/' at its end. What cannot be
    // read is given to `unreadable`; without one it is a Failure.
    void walk(const std::string &directory,
              const std::function<void(const std::string &, const Item &)> &visit,
              const std::function<void(const Unreadable &)> &unreadable = nullptr);

    // A connection bound at a directory of the caller's choice, for calls of the library; kept to the end.
    sysdb_conn_t connection(const std::string &directory);

  private:
    struct Bound {
        std::string directory;
        sysdb_conn_t handle;
    };
    // The tree's connection, and the path below it.
    struct Place {
        sysdb_conn_t conn;
        const char *path;
    };
    Place place_of(const std::string &path);
    cerrno read_item(const std::string &path, std::optional<Item> &item);
    cerrno read_level(const std::string &directory, std::optional<std::vector<Entry>> &entries);

    std::vector<Bound> bound_;
};

// The path as a directory's: absolute, with '/' at its end. Failure(usage) for what is neither in /cfg/ nor
// in /oper/; "/" is accepted only where `root` says so.
std::string directory_path(const std::string &path, bool root = false);

}  // namespace aaactl
