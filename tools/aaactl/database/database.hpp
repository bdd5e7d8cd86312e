// SPDX-License-Identifier: Apache-2.0
//
// The system database for commands: absolute paths, typed items, and failures
// that name the path and say what to do.

#pragma once

#include <functional>
#include <map>
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

// A stored item or directory that cannot be read.
struct Unreadable {
    std::string path;
    uint32_t type;
    std::string fault;
};

// The failure of a call on a path, with a hint if the user can do something about it.
Failure database_failure(std::string_view path, cerrno rc);
// The text of a failed change with a clause that says that nothing was changed. A cluster that did not answer
// may have made the change: then the text alone.
std::string with_nothing_done(const Failure &failure, const std::string &text, const std::string &clause);

class Database {
  public:
    // A command that only reads makes no database: one that is missing is as an empty one.
    enum class Use { reading, changing };
    Database() = default;
    explicit Database(Use use) : use_(use) {}
    ~Database();
    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;

    // What programs keep for themselves below "/cfg/" is left out of lists, walks and remove("/cfg/"), unless
    // its path is named or this was called.
    void show_hidden() { shows_hidden_ = true; }
    // Reads what is below the directory from these items, by absolute path, as if they were stored: to check
    // what a change would make of the configuration. Changes are not pretended.
    void pretend(const std::string &directory, const std::map<std::string, Item> &items);

    // nullopt if there is no such item; Failure for any other reason.
    std::optional<Item> find(const std::string &path);
    // For a path that the database has listed. An item that cannot be read is not a Failure: nullopt, and
    // `fault` says why. Otherwise `fault` is "".
    std::optional<Item> find(const std::string &path, std::string &fault);
    // Failure(not_found) if there is no such item.
    Item get(const std::string &path);
    void set(const std::string &path, const Item &item);
    // Removes an item, or the directory and everything below it for a path that ends in '/'. False if there
    // was nothing.
    bool remove(const std::string &path);

    // One level in listing order; nullopt for no such directory. "/" has the two trees.
    std::optional<std::vector<Entry>> list(const std::string &directory);
    std::optional<std::vector<Entry>> list(const std::string &directory, std::string &fault);
    // The same; empty if there is no such directory, or one that no path can name.
    std::vector<Entry> entries(const std::string &directory);
    // Visits every item below a directory, depth first in listing order, with its absolute path. An empty
    // directory is visited as an item of that type, with a trailing '/'. What cannot be read is passed to
    // `unreadable`; without one it is a Failure.
    void walk(const std::string &directory,
              const std::function<void(const std::string &, const Item &)> &visit,
              const std::function<void(const Unreadable &)> &unreadable = nullptr);

    // A connection that is bound to a directory, for calls of the library; owned by this object. 0 when this
    // one only reads, and there is no database.
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
    bool is_pretended(const std::string &path) const {
        return pretended_ != nullptr && path.starts_with(pretended_below_);
    }
    std::optional<std::vector<Entry>> pretended_level(const std::string &directory) const;
    bool remove_visible();

    Use use_ = Use::changing;
    bool shows_hidden_ = false;
    std::string pretended_below_;
    const std::map<std::string, Item> *pretended_ = nullptr;
    std::vector<Bound> bound_;
};

// Whether it is one of the directories that are hidden, or below.
bool is_hidden(std::string_view path);
// "", or why a command refuses to change the item or the directory without --force: commands of their own
// write what is hidden, and a wrong item there can cost the records.
std::string hidden_fault(const std::string &path);

// The path of a directory: absolute, with a trailing '/'. Failure(usage) for a path outside of /cfg/ and
// /oper/; "/" is accepted only with `root`.
std::string directory_path(const std::string &path, bool root = false);

}  // namespace aaactl
