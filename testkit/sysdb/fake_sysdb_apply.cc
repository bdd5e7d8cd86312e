// SPDX-License-Identifier: Apache-2.0
//
// The fake system database: several changes as one.

#include "platform/sysdb_changes.h"

#include "testkit/fake_state.hpp"
#include "testkit/sysdb/fake_sysdb.hpp"

namespace fake::sysdb {
namespace {

// The changes are made to a copy, which takes the contents' place when all went well.
struct Draft {
    std::map<std::string, Item> items = db().items;
    std::set<std::string> directories = db().directories;
};

bool same(const Item &a, const Item &b) {
    return a.type == b.type && a.value == b.value && a.null_value == b.null_value;
}

bool well_formed(const sysdb_change_t &change) {
    const bool has_value = change.operation == SYSDB_CHANGE_SET || change.operation == SYSDB_CHANGE_EXPECT;
    return change.operation >= SYSDB_CHANGE_SET && change.operation <= SYSDB_CHANGE_EXPECT &&
           change.path != nullptr && (!has_value || change.value != nullptr || change.length == 0);
}

Item item_of(const sysdb_change_t &change) {
    const auto *const bytes = static_cast<const uint8_t *>(change.value);
    return {change.datatype, std::vector<uint8_t>(bytes, bytes + change.length)};
}

template <typename Names>
bool any_below(const Names &names, const std::string &directory) {
    const auto at = names.lower_bound(directory);
    if constexpr (requires { at->first; }) {
        return at != names.end() && at->first.starts_with(directory);
    } else {
        return at != names.end() && at->starts_with(directory);
    }
}

void set(const Connection &open, const sysdb_change_t &change, Draft &draft) {
    if (change.datatype == SYSDB_TYPE_DIRECTORY) {
        draft.directories.insert(directory_path(open, change.path));
    } else {
        draft.items.insert_or_assign(full_path(open, change.path), item_of(change));
    }
}

uint32_t erase(const Connection &open, const sysdb_change_t &change, Draft &draft) {
    const std::string path = full_path(open, change.path);
    return draft.items.erase(path) + draft.directories.erase(path) != 0 ? 0 : SYSDB_ERR_NOT_FOUND;
}

uint32_t expect(const Connection &open, const sysdb_change_t &change, const Draft &draft) {
    if (change.datatype == SYSDB_TYPE_DIRECTORY) {
        const std::string path = directory_path(open, change.path);
        return any_below(draft.items, path) || any_below(draft.directories, path) ? 0 : SYSDB_ERR_CONFLICT;
    }
    const auto found = draft.items.find(full_path(open, change.path));
    const bool as_expected = change.datatype == SYSDB_TYPE_ANY
                                 ? found == draft.items.end()
                                 : found != draft.items.end() && same(found->second, item_of(change));
    return as_expected ? 0 : SYSDB_ERR_CONFLICT;
}

// Full paths, items' and directories', that the call sets or expects.
std::set<std::string> mentioned(const Connection &open, const sysdb_change_t *changes, uint32_t count) {
    std::set<std::string> paths;
    for (uint32_t i = 0; i < count; ++i) {
        if (changes[i].operation == SYSDB_CHANGE_SET || changes[i].operation == SYSDB_CHANGE_EXPECT) {
            paths.insert(changes[i].datatype == SYSDB_TYPE_DIRECTORY ? directory_path(open, changes[i].path)
                                                                     : full_path(open, changes[i].path));
        }
    }
    return paths;
}

void prune(const std::string &directory, const std::set<std::string> &kept, Draft &draft) {
    const auto goes = [&](const std::string &path) {
        return path.starts_with(directory) && path != directory && !kept.contains(path);
    };
    std::erase_if(draft.items, [&](const auto &item) { return goes(item.first); });
    std::erase_if(draft.directories, goes);
}

void notify_of(const std::map<std::string, Item> &before) {
    for (const auto &[path, item] : before) {
        if (!db().items.contains(path)) {
            note_change(path, SYSDB_EVENT_DELETE);
        }
    }
    for (const auto &[path, item] : db().items) {
        const auto old = before.find(path);
        if (old == before.end() || !same(old->second, item)) {
            note_change(path, SYSDB_EVENT_SET);
        }
    }
}

// The code, and the index of the change that was refused.
std::pair<uint32_t, uint32_t> make(const Connection &open, const sysdb_change_t *changes, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        if (!well_formed(changes[i])) {
            return {SYSDB_ERR_INVALID_ARG, i};
        }
    }
    Draft draft;
    const auto kept = mentioned(open, changes, count);
    for (uint32_t i = 0; i < count; ++i) {
        uint32_t rc = 0;
        switch (changes[i].operation) {
            case SYSDB_CHANGE_SET:
                set(open, changes[i], draft);
                break;
            case SYSDB_CHANGE_DELETE:
                rc = erase(open, changes[i], draft);
                break;
            case SYSDB_CHANGE_PRUNE:
                prune(directory_path(open, changes[i].path), kept, draft);
                break;
            default:
                rc = expect(open, changes[i], draft);
        }
        if (rc != 0) {
            return {rc, i};
        }
    }
    db().items.swap(draft.items);
    db().directories.swap(draft.directories);
    notify_of(draft.items);
    return {0, count};
}

}  // namespace
}  // namespace fake::sysdb

using namespace fake::sysdb;

cerrno sysdb_apply(sysdb_conn_t conn, const sysdb_change_t *changes, uint32_t count, uint32_t *failed) {
    const fake::detail::Call call("sysdb_apply", fake::detail::Conn{conn}, changes, count);
    const Connection *const open = connection(conn, "sysdb_apply");
    std::pair<uint32_t, uint32_t> result{call.scripted().value_or(kBadHandle), count};
    if (!call.scripted() && open != nullptr) {
        result = changes == nullptr && count != 0 ? std::pair(SYSDB_ERR_INVALID_ARG, count)
                                                  : make(*open, changes, count);
    }
    if (result.first != 0 && failed != nullptr) {
        *failed = result.second;
    }
    return result.first;
}
