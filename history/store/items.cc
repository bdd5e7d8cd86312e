// SPDX-License-Identifier: Apache-2.0
//
// Reads the tree level by level, and compares two states path by path.

#include "store/items.hpp"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <utility>

#include "platform/cerr.h"

namespace history {

namespace {

constexpr int kAttempts = 20;

struct FreeBlock {
    void operator()(void *block) const { std::free(block); }
};
struct FreeList {
    void operator()(void *list) const { sysdb_list_free(list); }
};

// Tells whether a directory has changed while it was read.
class ChangeWatch {
  public:
    ChangeWatch(sysdb_conn_t cfg, const std::string &directory) : cfg_(cfg) {
        std::int32_t channel = -1;  // only connections with a channel are told of changes
        if (sysdb_conn_to_coid(cfg, &channel) == 0) {
            _sysdb_register_notification(cfg, directory.c_str(), SYSDB_EVENT_SET | SYSDB_EVENT_DELETE,
                                         SYSDB_NOTIFY_CHANGES, note, &changed_, 0, nullptr, 0,
                                         &notification_);
        }
    }
    ~ChangeWatch() { sysdb_notification_unregister(cfg_, notification_); }
    ChangeWatch(const ChangeWatch &) = delete;
    ChangeWatch &operator=(const ChangeWatch &) = delete;

    bool changed() {
        const bool told = notification_ == 0 || sysdb_dispatch(cfg_) == 0;
        return std::exchange(changed_, false) || !told;
    }

  private:
    static std::int32_t note(const void *, void *changed, void *) {
        *static_cast<bool *>(changed) = true;
        return 0;
    }

    sysdb_conn_t cfg_;
    std::uint64_t notification_ = 0;
    bool changed_ = false;
};

struct Entry {
    std::string name;
    bool is_directory;
};

// False: there is no such directory.
bool read_level(sysdb_conn_t cfg, const std::string &directory, std::vector<Entry> &entries) {
    sysdb_list_t list = nullptr;
    const cerrno rc = sysdb_list(cfg, directory.c_str(), "", nullptr, &list, 0);
    if (rc == SYSDB_ERR_NOT_FOUND) {
        return false;
    }
    if (rc != 0) {
        fail(directory, rc);
    }
    const std::unique_ptr<void, FreeList> owner(list);
    char *name = nullptr;
    std::uint32_t type = 0;
    cerrno next = sysdb_list_start(list);
    while (next == 0 && (next = sysdb_list_next(list, &name, &type, 0)) == 0 && name != nullptr) {
        entries.push_back({name, type == SYSDB_TYPE_DIRECTORY});
    }
    if (next != 0 && next != SYSDB_ERR_END_OF_LIST) {  // a part of a directory is not a state
        fail(directory, next);
    }
    return true;
}

// 0, SYSDB_ERR_NOT_FOUND, SYSDB_ERR_BAD_VALUE or a name that no path can have; others are an Error.
cerrno try_item(sysdb_conn_t cfg, const std::string &path, Item &item) {
    std::uint32_t type = SYSDB_TYPE_ANY;
    void *value = nullptr;
    std::uint32_t length = 0;
    const cerrno rc = sysdb_item_get(cfg, path.c_str(), &type, &value, &length, 0);
    if (rc == 0) {
        const std::unique_ptr<void, FreeBlock> owner(value);
        item.type = type;
        item.bytes.assign(static_cast<const char *>(value), length);
        return 0;
    }
    const bool about_item = rc == SYSDB_ERR_NOT_FOUND || rc == SYSDB_ERR_BAD_VALUE ||
                            rc == SYSDB_ERR_BAD_PATH || rc == SYSDB_ERR_PATH_TOO_LONG;
    if (!about_item) {
        fail(path, rc);
    }
    return rc;
}

void walk(sysdb_conn_t cfg, const std::string &directory, bool is_root, State &state) {
    std::vector<Entry> entries;
    if (!read_level(cfg, directory, entries)) {
        return;
    }
    if (entries.empty() && !is_root) {
        state.items[directory] = {SYSDB_TYPE_DIRECTORY, {}};
    }
    for (const Entry &entry : entries) {
        const std::string path = directory + entry.name;
        if (entry.is_directory) {
            walk(cfg, path, false, state);
            continue;
        }
        Item item;
        const cerrno rc = try_item(cfg, path, item);
        if (rc == 0) {
            state.items.emplace_hint(state.items.end(), path, std::move(item));
        } else if (rc != SYSDB_ERR_NOT_FOUND) {
            state.unreadable.insert(path);
        }
    }
}

template <typename Map>
bool any_below(const Map &paths, const std::string &directory) {
    const auto at = paths.lower_bound(directory);
    if constexpr (requires { at->first; }) {
        return at != paths.end() && at->first.starts_with(directory);
    } else {
        return at != paths.end() && at->starts_with(directory);
    }
}

void remove(const std::string &path, const Item &item, Changes &changes) {
    if (item.type == SYSDB_TYPE_DIRECTORY) {
        return;  // its directory is pruned
    }
    changes.push_back({SYSDB_CHANGE_EXPECT, path, item});
    changes.push_back({SYSDB_CHANGE_DELETE, path, {}});
}

// Directories that vanish, the outermost only. One that was made by hand remains when its last item is
// deleted, unless it is pruned.
std::set<std::string> vanished(const State &now, const Items &wanted) {
    std::set<std::string> directories;
    for (const auto &[path, item] : now.items) {
        for (std::size_t slash = path.find('/', sizeof kConfiguration - 1); slash != std::string::npos;
             slash = path.find('/', slash + 1)) {
            const std::string directory = path.substr(0, slash + 1);
            if (directories.contains(directory)) {
                break;
            }
            if (!any_below(wanted, directory) && !any_below(now.unreadable, directory)) {
                directories.insert(directory);
                break;
            }
        }
    }
    return directories;
}

}  // namespace

void fail(const std::string &path, cerrno rc) {
    throw Error(Error::Why::database, kTree + path + ": " + cerr_strerror(rc), rc);
}

Item text_item(const std::string &text) {
    Item item{SYSDB_TYPE_STRING, text};
    item.bytes.push_back('\0');
    return item;
}

bool read_item(sysdb_conn_t cfg, const std::string &path, Item &item) {
    const cerrno rc = try_item(cfg, path, item);
    if (rc != 0 && rc != SYSDB_ERR_NOT_FOUND) {
        fail(path, rc);
    }
    return rc == 0;
}

std::vector<std::string> read_names(sysdb_conn_t cfg, const std::string &directory) {
    std::vector<Entry> entries;
    read_level(cfg, directory, entries);
    std::vector<std::string> names;
    std::transform(entries.begin(), entries.end(), std::back_inserter(names),
                   [](const Entry &entry) { return entry.name; });
    return names;
}

State read_state(sysdb_conn_t cfg, const std::string &directory) {
    ChangeWatch watch(cfg, directory);
    for (int attempt = 1;; ++attempt) {
        State state;
        walk(cfg, directory, true, state);
        state.of_one_moment = !watch.changed();
        if (state.of_one_moment || attempt == kAttempts) {
            return state;
        }
    }
}

cerrno apply(sysdb_conn_t cfg, const Changes &changes, std::size_t &failed) {
    std::vector<sysdb_change_t> records;
    records.reserve(changes.size());
    std::transform(changes.begin(), changes.end(), std::back_inserter(records), [](const Change &change) {
        return sysdb_change_t{change.operation, change.item.type, change.path.c_str(),
                              change.item.bytes.data(), static_cast<std::uint32_t>(change.item.bytes.size())};
    });
    auto refused = static_cast<std::uint32_t>(records.size());
    const cerrno rc = sysdb_apply(cfg, records.data(), static_cast<std::uint32_t>(records.size()), &refused);
    failed = refused;
    return rc;
}

Changes changes_between(const State &now, const Items &wanted) {
    Changes changes;
    for (const auto &[path, item] : now.items) {
        if (!wanted.contains(path)) {
            remove(path, item, changes);
        }
    }
    for (const std::string &directory : vanished(now, wanted)) {
        changes.push_back({SYSDB_CHANGE_PRUNE, directory, {}});
    }
    for (const auto &[path, item] : wanted) {
        const auto found = now.items.find(path);
        if (found != now.items.end() && found->second == item) {
            continue;
        }
        if (found != now.items.end()) {
            changes.push_back({SYSDB_CHANGE_EXPECT, path, found->second});
        } else if (item.type != SYSDB_TYPE_DIRECTORY && !now.unreadable.contains(path)) {
            changes.push_back({SYSDB_CHANGE_EXPECT, path, {SYSDB_TYPE_ANY, {}}});
        }
        changes.push_back({SYSDB_CHANGE_SET, path, item});
    }
    return changes;
}

}  // namespace history
