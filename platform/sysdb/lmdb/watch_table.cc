// SPDX-License-Identifier: Apache-2.0
//
// Rows of the watch table, wake-ups, and the removal of dead processes.

#include "watch_table.hpp"

#include <dirent.h>
#include <fcntl.h>

#include <algorithm>
#include <new>
#include <vector>

#include "watcher_socket.hpp"

namespace sysdb_lmdb {
namespace {

using Names = std::vector<std::string>;

void insert_once(Names &names, std::string_view name) {
    if (std::find(names.begin(), names.end(), name) == names.end()) {
        names.emplace_back(name);
    }
}

// Sockets in the rows of one key.
Result collect(Cursor &cursor, std::string_view watched, Names &names) {
    MDB_val key = value_of(watched);
    MDB_val value;
    Result rc = cursor.get(key, value, MDB_SET_KEY);
    for (; rc.is_ok(); rc = cursor.get(key, value, MDB_NEXT_DUP)) {
        insert_once(names, view_of(value));
    }
    return rc.ok_if_not_found();
}

// The key itself, and every directory above it.
Result collect_for_key(Cursor &cursor, std::string_view changed, Names &names) {
    Result rc = collect(cursor, changed, names);
    std::size_t slash = changed.find('/', 1);
    while (rc.is_ok() && slash != std::string_view::npos && slash + 1 < changed.size()) {
        rc = collect(cursor, changed.substr(0, slash + 1), names);
        slash = changed.find('/', slash + 1);
    }
    return rc;
}

Result collect_all(Cursor &cursor, Names &names) {
    MDB_val key;
    MDB_val value;
    Result rc = cursor.get(key, value, MDB_FIRST);
    for (; rc.is_ok(); rc = cursor.get(key, value, MDB_NEXT)) {
        insert_once(names, view_of(value));
    }
    return rc.ok_if_not_found();
}

template <typename Collect>
cerrno read_names(Collect collect_names) {
    return Database::instance().read(Tree::kOper, [&](ReadTxn &txn) {
        Cursor cursor;
        Result rc = cursor.open(txn.get(), txn.environment().watches());
        if (rc.is_ok()) {
            rc = collect_names(cursor);
        }
        return txn.report(rc);
    });
}

Result remove_rows(MDB_txn *txn, MDB_dbi table, const Names &dead) {
    Cursor cursor;
    Result rc = cursor.open(txn, table);
    MDB_val key;
    MDB_val value;
    std::vector<std::pair<std::string, std::string>> rows;
    for (rc = rc.is_ok() ? cursor.get(key, value, MDB_FIRST) : rc; rc.is_ok();
         rc = cursor.get(key, value, MDB_NEXT)) {
        if (std::find(dead.begin(), dead.end(), view_of(value)) != dead.end()) {
            rows.emplace_back(view_of(key), view_of(value));
        }
    }
    rc = rc.ok_if_not_found();
    for (auto row = rows.begin(); row != rows.end() && rc.is_ok(); ++row) {
        key = value_of(row->first);
        value = value_of(row->second);
        rc = Result::of_lmdb(mdb_del(txn, table, &key, &value));
    }
    return rc;
}

void remove_dead(const Directory &directory, const Names &dead) {
    if (dead.empty()) {
        return;
    }
    const cerrno rc = Database::instance().with(Tree::kOper, [&](Environment &environment) {
        return environment.write(Environment::Growth::kShrinks,
                                 [&](MDB_txn *txn) { return remove_rows(txn, environment.watches(), dead); });
    });
    for (const std::string &name : dead) {
        if (rc == 0) {
            remove_socket_file(directory, name);
        }
    }
}

// True when there is none too: every socket in it is dead then. False when it may not be
// used.
bool find_watchers(Directory &directory) {
    const cerrno rc = Database::instance().watcher_directory(Database::Missing::kReport, directory);
    return rc == 0 || rc == SYSDB_ERR_NOT_FOUND;
}

// Sockets without a row, of processes that died between making the two.
void add_stray_sockets(const Directory &directory, Names &names) {
    Descriptor readable = open_at(directory.get(), ".", O_RDONLY | O_DIRECTORY);
    DIR *stream = readable ? fdopendir(readable.get()) : nullptr;
    if (stream == nullptr) {
        return;
    }
    readable.release();
    for (const dirent *entry = readdir(stream); entry != nullptr; entry = readdir(stream)) {
        if (entry->d_name[0] != '.') {
            insert_once(names, entry->d_name);
        }
    }
    closedir(stream);
}

}  // namespace

cerrno add_watch(std::string_view key, const std::string &socket_name) {
    return Database::instance().with(Tree::kOper, [&](Environment &environment) {
        return environment.write(Environment::Growth::kGrows, [&](MDB_txn *txn) {
            MDB_val name = value_of(key);
            MDB_val value = value_of(socket_name);
            const auto rc =
                Result::of_lmdb(mdb_put(txn, environment.watches(), &name, &value, MDB_NODUPDATA));
            return rc.is_lmdb(MDB_KEYEXIST) ? Result::unchanged() : rc;
        });
    });
}

cerrno remove_watch(std::string_view key, const std::string &socket_name) {
    return Database::instance().with(Tree::kOper, [&](Environment &environment) {
        return environment.write(Environment::Growth::kShrinks, [&](MDB_txn *txn) {
            MDB_val name = value_of(key);
            MDB_val value = value_of(socket_name);
            const auto rc = Result::of_lmdb(mdb_del(txn, environment.watches(), &name, &value));
            return rc.is_not_found() ? Result::unchanged() : rc;
        });
    });
}

void notify_watchers(const ChangedKeys &keys) try {
    if (keys.empty()) {
        return;
    }
    Names names;
    const cerrno rc = read_names([&](Cursor &cursor) {
        Result result = Result::ok();
        for (auto key = keys.begin(); key != keys.end() && result.is_ok(); ++key) {
            result = collect_for_key(cursor, *key, names);
        }
        return result;
    });
    if (rc != 0 || names.empty()) {
        return;
    }
    Directory directory;
    if (!find_watchers(directory)) {
        return;
    }
    const Descriptor sender = make_sender();
    Names dead;
    for (const std::string &name : names) {
        if (wake_peer(sender, directory, name) == Peer::kDead) {
            dead.push_back(name);
        }
    }
    remove_dead(directory, dead);
} catch (const std::bad_alloc &) {
    // The change is committed; watchers read the log once a second in any case.
}

void sweep_watchers() {
    Directory directory;
    Names names;
    if (!find_watchers(directory) ||
        read_names([&](Cursor &cursor) { return collect_all(cursor, names); }) != 0) {
        return;
    }
    add_stray_sockets(directory, names);
    Names dead;
    for (const std::string &name : names) {
        if (probe_peer(directory, name) == Peer::kDead) {
            dead.push_back(name);
        }
    }
    remove_dead(directory, dead);
}

}  // namespace sysdb_lmdb
