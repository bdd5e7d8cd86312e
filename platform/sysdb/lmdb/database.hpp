// SPDX-License-Identifier: Apache-2.0
//
// The two database files of this process, opened on first use and again after
// they have been replaced or found damaged.
#pragma once

#include <array>
#include <memory>
#include <mutex>
#include <optional>

#include "environment.hpp"

namespace sysdb_lmdb {

class Database {
  public:
    static Database &instance();

    // Runs body(environment) on the tree's file. If the file has to be opened
    // again, does so and runs the body once more: other processes may exchange the file,
    // or use larger and larger maps, so more than once in a row.
    template <typename Body>
    cerrno with(Tree tree, Body body);

    // The same with a transaction: body(txn), a ReadTxn, whose view ends with the body.
    template <typename Body>
    cerrno read(Tree tree, Body body);

    // The same for a caller that only looks: SYSDB_ERR_NOT_FOUND when there is no database yet, and none is
    // made.
    template <typename Body>
    cerrno look(Tree tree, Body body);

    // False when the tree's file, or its directory, is not there.
    bool exists(Tree tree);

    // The directory of the processes' sockets, in that of the operational database; it is
    // made if it is missing, or else SYSDB_ERR_NOT_FOUND.
    enum class Missing { kMake, kReport };
    cerrno watcher_directory(Missing missing, Directory &directory);

    void lock_before_fork() { mutex_.lock(); }
    void unlock_in_parent() { mutex_.unlock(); }
    void reset_in_child();

  private:
    static constexpr int kMostRepeats = 3;

    struct Slot {
        EnvironmentPtr current;
        // Closed with its last user; the file must not be opened before that.
        std::weak_ptr<Environment> closing;
        std::weak_ptr<const void> not_closed;
        std::time_t next_check = 0;
    };

    cerrno obtain(Tree tree, EnvironmentPtr &environment);
    cerrno open(Slot &slot, Tree tree, std::unique_lock<std::mutex> &lock);
    void retire(Slot &slot);
    Slot &slot_of(Tree tree) { return slots_[tree == Tree::kCfg ? 0 : 1]; }
    const Settings &settings();

    std::mutex mutex_;
    std::array<Slot, 2> slots_;
    std::optional<Settings> settings_;
};

template <typename Body>
cerrno Database::with(Tree tree, Body body) {
    for (int attempt = 0;; ++attempt) {
        EnvironmentPtr environment;
        cerrno rc = obtain(tree, environment);
        if (rc != 0) {
            return rc;
        }
        rc = body(*environment);
        if (rc == 0 || attempt == kMostRepeats || !environment->broken()) {
            return rc;
        }
    }
}

template <typename Body>
cerrno Database::read(Tree tree, Body body) {
    return with(tree, [&body](Environment &environment) {
        ReadTxn txn(environment);
        const cerrno rc = txn.begin();
        return rc == 0 ? body(txn) : rc;
    });
}

template <typename Body>
cerrno Database::look(Tree tree, Body body) {
    return exists(tree) ? read(tree, body) : SYSDB_ERR_NOT_FOUND;
}

}  // namespace sysdb_lmdb
