// SPDX-License-Identifier: Apache-2.0
//
// The fake system database: several changes as one.

#include "platform/sysdb_changes.h"

#include "testkit/fake_state.hpp"
#include "testkit/sysdb/fake_sysdb.hpp"

namespace fake::sysdb {
namespace {

// One change with its full path.
struct Planned {
    uint32_t operation;
    std::string path;  // ends in '/' for a directory
    Item item;

    bool has_item() const { return operation == SYSDB_CHANGE_SET || operation == SYSDB_CHANGE_EXPECT; }
    bool is_directory() const { return path.ends_with('/'); }
};

// What is below the connection's directory. The changes are made to a copy,
// which takes the contents' place when all went well.
struct Contents {
    explicit Contents(const std::string &directory) {
        const auto items_below = below(db().items, directory);
        const auto directories_below = below(db().directories, directory);
        items.insert(items_below.begin(), items_below.end());
        directories.insert(directories_below.begin(), directories_below.end());
    }

    std::map<std::string, Item> items;
    std::set<std::string> directories;
};

cerrno check(const sysdb_change_t &change) {
    if (change.path == nullptr || change.operation < SYSDB_CHANGE_SET ||
        change.operation > SYSDB_CHANGE_EXPECT ||
        (change.operation == SYSDB_CHANGE_SET && change.datatype == SYSDB_TYPE_ANY)) {
        return SYSDB_ERR_INVALID_ARG;
    }
    const bool has_value = change.operation == SYSDB_CHANGE_SET || change.operation == SYSDB_CHANGE_EXPECT;
    return has_value && !value_fits(change.datatype, change.value, change.length) ? SYSDB_ERR_BAD_VALUE : 0;
}

cerrno find_path(const Connection &open, const sysdb_change_t &change, Planned &planned) {
    const std::string_view path(change.path);
    const bool directory_item = planned.has_item() && change.datatype == SYSDB_TYPE_DIRECTORY;
    if (directory_item && !path.ends_with('/')) {
        return SYSDB_ERR_BAD_PATH;
    }
    const bool directory =
        directory_item || change.operation == SYSDB_CHANGE_PRUNE ||
        (change.operation == SYSDB_CHANGE_DELETE && path.ends_with('/')) ||
        (change.operation == SYSDB_CHANGE_EXPECT && change.datatype == SYSDB_TYPE_ANY && path.ends_with('/'));
    return directory ? directory_path(open, path, planned.path) : item_path(open, path, planned.path);
}

cerrno plan(const Connection &open, const sysdb_change_t &change, std::vector<Planned> &all) {
    Planned planned{change.operation, "", {change.datatype, {}}};
    const cerrno rc = find_path(open, change, planned);
    if (rc == 0 && planned.has_item()) {
        const auto *const bytes = static_cast<const uint8_t *>(change.value);
        planned.item.value.assign(bytes, bytes + change.length);
    }
    if (planned.item.value.size() > kLongestValue) {
        return SYSDB_ERR_VALUE_TOO_LARGE;
    }
    all.push_back(std::move(planned));
    return rc;
}

void set(const Planned &change, Contents &draft) {
    if (change.is_directory()) {
        draft.directories.insert(change.path);
    } else {
        draft.items.insert_or_assign(change.path, change.item);
    }
}

bool erase(const Planned &change, Contents &draft) {
    return draft.items.erase(change.path) + draft.directories.erase(change.path) != 0;
}

bool nothing_in(const std::string &directory, const Contents &draft) {
    const auto item = draft.items.lower_bound(directory);
    const auto made = draft.directories.lower_bound(directory);
    return (item == draft.items.end() || !item->first.starts_with(directory)) &&
           (made == draft.directories.end() || !made->starts_with(directory));
}

bool as_expected(const Planned &change, const Contents &draft) {
    if (change.is_directory()) {
        return change.item.type == SYSDB_TYPE_ANY ? nothing_in(change.path, draft)
                                                  : draft.directories.contains(change.path);
    }
    const auto found = draft.items.find(change.path);
    return change.item.type == SYSDB_TYPE_ANY
               ? found == draft.items.end()
               : found != draft.items.end() && same(found->second, change.item);
}

// Full paths, items' and directories', that the call sets or expects to be there.
std::set<std::string> mentioned(const std::vector<Planned> &changes) {
    std::set<std::string> paths;
    for (const Planned &change : changes) {
        if (change.has_item() && change.item.type != SYSDB_TYPE_ANY) {
            paths.insert(change.path);
        }
    }
    return paths;
}

void prune(const std::string &directory, const std::set<std::string> &kept, Contents &draft) {
    const auto goes = [&](const std::string &path) {
        return path.starts_with(directory) && !kept.contains(path);
    };
    std::erase_if(draft.items, [&](const auto &item) { return goes(item.first); });
    std::erase_if(draft.directories, goes);
}

void replace(const Contents &before, const Contents &after) {
    for (const auto &[path, item] : before.items) {
        if (!after.items.contains(path)) {
            erase_item(path);
        }
    }
    for (const std::string &path : before.directories) {
        if (!after.directories.contains(path)) {
            erase_directory(path);
        }
    }
    for (const auto &[path, item] : after.items) {
        store_item(path, item);
    }
    for (const std::string &path : after.directories) {
        store_directory(path);
    }
}

cerrno make(const Planned &change, const std::set<std::string> &kept, Contents &draft) {
    switch (change.operation) {
        case SYSDB_CHANGE_SET:
            set(change, draft);
            return 0;
        case SYSDB_CHANGE_DELETE:
            return erase(change, draft) ? 0 : SYSDB_ERR_NOT_FOUND;
        case SYSDB_CHANGE_PRUNE:
            prune(change.path, kept, draft);
            return 0;
        default:
            return as_expected(change, draft) ? 0 : SYSDB_ERR_CONFLICT;
    }
}

// The code of the first element that an operation refuses, and its index.
struct Refusal {
    cerrno rc;
    uint32_t index;
};
template <typename Operation>
Refusal first_refused(uint32_t count, Operation operation) {
    for (uint32_t i = 0; i < count; ++i) {
        const cerrno rc = operation(i);
        if (rc != 0) {
            return {rc, i};
        }
    }
    return {0, count};
}

Refusal make_all(const Connection &open, const sysdb_change_t *changes, uint32_t count) {
    std::vector<Planned> planned;
    Refusal refusal = first_refused(count, [&](uint32_t i) { return plan(open, changes[i], planned); });
    if (refusal.rc != 0) {
        return refusal;
    }
    const Contents before(open.path);
    Contents draft = before;
    const auto kept = mentioned(planned);
    refusal = first_refused(count, [&](uint32_t i) { return make(planned[i], kept, draft); });
    if (refusal.rc == 0) {
        replace(before, draft);
    }
    return refusal;
}

Refusal apply(sysdb_conn_t conn, const sysdb_change_t *changes, uint32_t count) {
    if (changes == nullptr && count != 0) {
        return {SYSDB_ERR_INVALID_ARG, count};
    }
    const Refusal refusal = first_refused(count, [&](uint32_t i) { return check(changes[i]); });
    if (refusal.rc != 0) {
        return refusal;
    }
    const Connection *const open = connection(conn, "sysdb_apply");
    return open == nullptr ? Refusal{kBadHandle, count} : make_all(*open, changes, count);
}

}  // namespace
}  // namespace fake::sysdb

using namespace fake::sysdb;

cerrno sysdb_apply(sysdb_conn_t conn, const sysdb_change_t *changes, uint32_t count, uint32_t *failed) {
    const fake::detail::Call call("sysdb_apply", fake::detail::Conn{conn}, changes, count);
    const Refusal refusal = call.scripted() ? Refusal{*call.scripted(), count} : apply(conn, changes, count);
    if (refusal.rc != 0 && failed != nullptr) {
        *failed = refusal.index;
    }
    return refusal.rc;
}
