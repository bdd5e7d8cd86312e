// SPDX-License-Identifier: Apache-2.0
//
// The configuration as items, and what turns one state of it into another.
//
// Paths are relative to "/cfg/": "gl/aaa/authentication/login/default".
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/sysdb.h"
#include "platform/sysdb_changes.h"

namespace history {

inline constexpr char kTree[] = "/cfg/";
// What commits record.
inline constexpr char kConfiguration[] = "gl/aaa/";

// Why a call cannot be done. `code` is that of the database, or 0 when the reason is another one.
class Error : public std::runtime_error {
  public:
    enum class Why { database, damaged, missing, refused };
    Error(Why why, const std::string &text, cerrno code = 0)
        : std::runtime_error(text), why_(why), code_(code) {}
    Why why() const { return why_; }
    cerrno code() const { return code_; }

  private:
    Why why_;
    cerrno code_;
};
// Error(database) with the text of the code.
[[noreturn]] void fail(const std::string &path, cerrno rc);

// The stored bytes: those of a text include its NUL. An empty directory is an item of that type whose path
// ends in '/'.
struct Item {
    std::uint32_t type = SYSDB_TYPE_ANY;
    std::string bytes;
    bool operator==(const Item &other) const = default;
};
using Items = std::map<std::string, Item>;

Item text_item(const std::string &text);

struct State {
    Items items;
    std::set<std::string> unreadable;  // items whose bytes do not fit their type: they are in no commit
    bool of_one_moment = true;         // false: it changed each time it was read
};

// One item; false if it does not exist. Error for any other reason.
bool read_item(sysdb_conn_t cfg, const std::string &path, Item &item);
// Names directly below a directory; those of directories end in '/'. Empty if there is no such directory.
std::vector<std::string> read_names(sysdb_conn_t cfg, const std::string &directory);
// Everything below a directory. While it changes it is read again, so that the items are of one moment; a
// process that may not watch the database reads it once.
State read_state(sysdb_conn_t cfg, const std::string &directory);

// Changes that are made together or not at all.
struct Change {
    std::uint32_t operation;  // SYSDB_CHANGE_...
    std::string path;
    Item item;
};
using Changes = std::vector<Change>;
// `failed`: the index of the change that was refused.
cerrno apply(sysdb_conn_t cfg, const Changes &changes, std::size_t &failed);

// What turns the items of `now` into `wanted`: each item that is changed or deleted is expected to be as it
// is in `now`. Unreadable items stay, unless `wanted` has a value for them.
Changes changes_between(const State &now, const Items &wanted);

}  // namespace history
