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
    // again, does so and runs the body once more.
    template <typename Body>
    cerrno with(Tree tree, Body body);

    // The same with a transaction: body(txn), a ReadTxn.
    template <typename Body>
    cerrno read(Tree tree, Body body);

    std::string watcher_directory();

    void lock_before_fork() { mutex_.lock(); }
    void unlock_in_parent() { mutex_.unlock(); }
    void reset_in_child();

  private:
    struct Slot {
        EnvironmentPtr current;
        // Closed with its last user; the file must not be opened before that.
        std::weak_ptr<Environment> closing;
        std::time_t next_check = 0;
    };

    cerrno obtain(Tree tree, EnvironmentPtr &environment);
    cerrno open(Slot &slot, Tree tree, std::unique_lock<std::mutex> &lock);
    void retire(Slot &slot);
    Slot &slot_of(Tree tree) { return slots_[tree == Tree::kCfg ? 0 : 1]; }
    const Configuration &configuration();

    std::mutex mutex_;
    std::array<Slot, 2> slots_;
    std::optional<Configuration> configuration_;
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
        if (rc == 0 || attempt > 0 || !environment->broken()) {
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

}  // namespace sysdb_lmdb
