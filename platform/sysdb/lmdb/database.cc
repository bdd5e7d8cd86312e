// SPDX-License-Identifier: Apache-2.0
//
// Opening the database files on first use and again when they were replaced.

#include "database.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <ctime>
#include <vector>

#include "host.hpp"

namespace sysdb_lmdb {
namespace {

constexpr char kWatcherDirectory[] = "w";
constexpr int kCloseAttempts = 1000;  // of a millisecond
constexpr timespec kCloseInterval = {0, 1'000'000};

std::time_t coarse_seconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return now.tv_sec;
}

// Environments of the parent. Their reader places and locks are the parent's, and
// closing them would disturb it: they are kept.
std::vector<EnvironmentPtr> &inherited() {
    static auto &environments = *new std::vector<EnvironmentPtr>;
    return environments;
}

}  // namespace

// Never destroyed: other threads may use it while the process exits.
Database &Database::instance() {
    static Database &database = *new Database;
    return database;
}

const Settings &Database::settings() {
    if (!settings_) {
        settings_ = read_settings();
    }
    return *settings_;
}

// A file that cannot be looked at is there: opening it says what is wrong.
bool Database::exists(Tree tree) {
    const std::lock_guard lock(mutex_);
    const std::string &file = tree == Tree::kCfg ? settings().cfg_file : settings().oper_file;
    struct stat status;
    return slot_of(tree).current != nullptr || stat(file.c_str(), &status) == 0 || errno != ENOENT;
}

cerrno Database::watcher_directory(Missing missing, Directory &directory) {
    return with(Tree::kOper, [&](const Environment &environment) {
        return missing == Missing::kMake
                   ? Directory::open_below(environment.directory(), kWatcherDirectory, directory)
                   : Directory::find_below(environment.directory(), kWatcherDirectory, directory);
    });
}

void Database::retire(Slot &slot) {
    slot.closing = slot.current;
    slot.not_closed = slot.current->presence();
    slot.current.reset();
}

// Waits, unlocked, for the last user of the retired environment: transactions
// are short. Two openings of one file must not overlap.
cerrno Database::open(Slot &slot, Tree tree, std::unique_lock<std::mutex> &lock) {
    for (int attempt = 0; !slot.not_closed.expired(); ++attempt) {
        if (attempt == kCloseAttempts) {
            return SYSDB_ERR_BUSY;
        }
        lock.unlock();
        nanosleep(&kCloseInterval, nullptr);
        lock.lock();
        if (slot.current != nullptr) {
            return 0;
        }
    }
    const cerrno rc = Environment::open(tree, settings(), slot.current);
    slot.next_check = coarse_seconds() + 1;
    return rc;
}

// Once a second the file of this name is compared with the open one, so that a
// database that was restored, removed or given other permissions is noticed
// without a cost per call.
cerrno Database::obtain(Tree tree, EnvironmentPtr &environment) {
    std::unique_lock lock(mutex_);
    Slot &slot = slot_of(tree);
    if (slot.current != nullptr && slot.current->broken()) {
        retire(slot);
    }
    if (slot.current != nullptr && coarse_seconds() >= slot.next_check) {
        slot.next_check = coarse_seconds() + 1;
        const char *why = slot.current->outdated();
        if (why != nullptr) {
            log(kLogWarning, "database %s %s; opening it again", slot.current->file().c_str(), why);
            retire(slot);
        }
    }
    if (slot.current == nullptr) {
        const cerrno rc = open(slot, tree, lock);
        if (rc != 0) {
            return rc;
        }
    }
    environment = slot.current;
    return 0;
}

void Database::reset_in_child() {
    for (Slot &slot : slots_) {
        if (slot.current != nullptr) {
            slot.current->forget();
            inherited().push_back(slot.current);
        }
        if (EnvironmentPtr closing = slot.closing.lock()) {
            closing->forget();
            inherited().push_back(closing);
        }
        slot = Slot{};
    }
    mutex_.unlock();
}

}  // namespace sysdb_lmdb
