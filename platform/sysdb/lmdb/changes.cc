// SPDX-License-Identifier: Apache-2.0
//
// Planning several changes, and making them in one transaction.

#include "changes.hpp"

#include <algorithm>
#include <cerrno>
#include <new>
#include <numeric>
#include <unordered_set>

#include "change_log.hpp"

namespace sysdb_lmdb {
namespace {

using KeySet = std::unordered_set<std::string_view>;

cerrno append_path(const sysdb_change_t &change, Key &key) {
    const std::string_view path(change.path);
    const bool typed = change.operation == SYSDB_CHANGE_SET || change.operation == SYSDB_CHANGE_EXPECT;
    if (typed && change.datatype == SYSDB_TYPE_DIRECTORY) {
        return path.ends_with('/') ? key.append_directory(path) : SYSDB_ERR_BAD_PATH;
    }
    const bool directory =
        change.operation == SYSDB_CHANGE_PRUNE ||
        (change.operation == SYSDB_CHANGE_DELETE && path.ends_with('/')) ||
        (change.operation == SYSDB_CHANGE_EXPECT && change.datatype == SYSDB_TYPE_ANY && path.ends_with('/'));
    return directory ? key.append_directory(path) : key.append_item(path);
}

bool names_one_to_keep(const PlannedChange &change) {
    return change.operation == SYSDB_CHANGE_SET ||
           (change.operation == SYSDB_CHANGE_EXPECT && change.datatype != SYSDB_TYPE_ANY);
}

KeySet keys_to_keep(const std::vector<PlannedChange> &planned) {
    KeySet keys;
    for (const PlannedChange &change : planned) {
        if (names_one_to_keep(change)) {
            keys.insert(change.key);
        }
    }
    return keys;
}

// One attempt of the transaction.
class Attempt {
  public:
    Attempt(const Environment &environment, MDB_txn *txn, const KeySet &keep, ChangedKeys &changed)
        : environment_(environment), txn_(txn), keep_(keep), changed_(changed) {}

    Result make(const PlannedChange &change) {
        Result rc = Result::ok();
        switch (change.operation) {
            case SYSDB_CHANGE_SET:
                rc = store_in(environment_, txn_, change.key, change.datatype, change.value);
                break;
            case SYSDB_CHANGE_DELETE:
                rc = delete_in(environment_, txn_, change.key);
                break;
            case SYSDB_CHANGE_PRUNE:
                return prune(change.key);
            default:
                return expect(change);
        }
        if (rc.is_ok()) {
            changed_.emplace_back(change.key);
        }
        return rc.ok_if_unchanged();
    }

  private:
    Result expect(const PlannedChange &change) {
        if (change.datatype == SYSDB_TYPE_ANY && change.key.ends_with('/')) {
            return expect_nothing_in(change.key);
        }
        MDB_val name = value_of(change.key);
        MDB_val stored;
        const auto rc = Result::of_lmdb(mdb_get(txn_, environment_.items(), &name, &stored));
        if (!rc.ok_if_not_found().is_ok()) {
            return rc;
        }
        const bool met = change.datatype == SYSDB_TYPE_ANY
                             ? rc.is_not_found()
                             : rc.is_ok() && same_item(stored, change.datatype, change.value);
        return met ? Result::ok() : Result::conflict();
    }

    Result expect_nothing_in(std::string_view directory) {
        Cursor cursor;
        Result rc = cursor.open(txn_, environment_.items());
        MDB_val key = value_of(directory);
        MDB_val value;
        rc = rc.is_ok() ? cursor.get(key, value, MDB_SET_RANGE) : rc;
        const bool found = rc.is_ok() && view_of(key).starts_with(directory);
        return found ? Result::conflict() : rc.ok_if_not_found();
    }

    // The log is written afterwards: its records may move the pages under the cursor.
    Result prune(std::string_view directory) {
        const std::size_t first = changed_.size();
        Result rc = delete_unkept(directory);
        for (std::size_t i = first; i < changed_.size() && rc.is_ok(); ++i) {
            rc = append_change(environment_, txn_, SYSDB_EVENT_DELETE, changed_[i]);
        }
        return rc;
    }

    Result delete_unkept(std::string_view directory) {
        Cursor cursor;
        Result rc = cursor.open(txn_, environment_.items());
        MDB_val key = value_of(directory);
        MDB_val value;
        rc = rc.is_ok() ? cursor.get(key, value, MDB_SET_RANGE) : rc;
        while (rc.is_ok() && view_of(key).starts_with(directory)) {
            if (keep_.contains(view_of(key))) {
                rc = cursor.get(key, value, MDB_NEXT);
                continue;
            }
            changed_.emplace_back(view_of(key));
            rc = cursor.erase();
            key = value_of(changed_.back());  // the next key follows it
            rc = rc.is_ok() ? cursor.get(key, value, MDB_SET_RANGE) : rc;
        }
        return rc.ok_if_not_found();
    }

    const Environment &environment_;
    MDB_txn *txn_;
    const KeySet &keep_;
    ChangedKeys &changed_;
};

// Exhausted memory must not leave the transaction open: it holds the writer's lock.
Result make_all(const Environment &environment, MDB_txn *txn, const std::vector<PlannedChange> &planned,
                const KeySet &keep, ChangedKeys &changed, std::uint32_t &failed) try {
    changed.clear();
    failed = static_cast<std::uint32_t>(planned.size());
    Attempt attempt(environment, txn, keep, changed);
    for (std::size_t i = 0; i < planned.size(); ++i) {
        const Result rc = attempt.make(planned[i]);
        if (!rc.is_ok()) {
            failed = static_cast<std::uint32_t>(i);
            return rc;
        }
    }
    return changed.empty() ? Result::unchanged() : Result::ok();
} catch (const std::bad_alloc &) {
    return Result::of_errno(ENOMEM);
}

std::size_t bytes_of(const std::vector<PlannedChange> &planned) {
    return std::accumulate(planned.begin(), planned.end(), std::size_t{0},
                           [](std::size_t bytes, const PlannedChange &change) {
                               return bytes + (names_one_to_keep(change) ? change.value.size() : 0);
                           });
}

bool only_shrinks(const std::vector<PlannedChange> &planned) {
    return std::none_of(planned.begin(), planned.end(),
                        [](const PlannedChange &change) { return change.operation == SYSDB_CHANGE_SET; });
}

}  // namespace

cerrno plan_changes(const Key &prefix, const sysdb_change_t *changes, std::uint32_t count,
                    std::vector<PlannedChange> &planned, std::uint32_t &failed) {
    planned.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        Key key = prefix;
        const cerrno path = append_path(changes[i], key);
        const PlannedChange change{changes[i].operation,
                                   changes[i].datatype,
                                   std::string(key.view()),
                                   {static_cast<const char *>(changes[i].value), changes[i].length}};
        const bool too_large = names_one_to_keep(change) && changes[i].length > kMaxValue;
        if (path != 0 || too_large) {
            failed = i;
            return path != 0 ? path : SYSDB_ERR_VALUE_TOO_LARGE;
        }
        planned.push_back(change);
    }
    return 0;
}

cerrno make_changes(Tree tree, const std::vector<PlannedChange> &planned, ChangedKeys &changed,
                    std::uint32_t &failed) {
    const KeySet keep = keys_to_keep(planned);
    const auto growth = only_shrinks(planned) ? Environment::Growth::kShrinks : Environment::Growth::kGrows;
    return Database::instance().with(tree, [&](Environment &environment) {
        return environment.write(
            growth, [&](MDB_txn *txn) { return make_all(environment, txn, planned, keep, changed, failed); },
            bytes_of(planned));
    });
}

}  // namespace sysdb_lmdb
