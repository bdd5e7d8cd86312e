// SPDX-License-Identifier: Apache-2.0
//
// Keeps the configuration up to date: a thread reads files and system database, is told of
// changes by the database, and hands each new snapshot to the loop. Logins never wait for a
// file or for the database.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "config/alarms.hpp"
#include "config/database.hpp"
#include "config/snapshot.hpp"
#include "net/descriptor.hpp"
#include "net/loop.hpp"
#include "platform/event_manager.h"

namespace service {

struct KeeperOptions {
    std::string settings_path = "/etc/aaa/aaad.conf";
    std::string socket;  // of the command line; empty: that of the settings
    bool force = false;
};

// What can be read without the database.
struct FilesRead {
    std::shared_ptr<const Settings> settings;  // null: the file has faults
    std::shared_ptr<const Users> users;        // null: there is no usable file
    std::shared_ptr<const Names> host_names;   // of the accounts in /etc/passwd
    std::vector<std::string> faults;           // "PATH:LINE: TEXT"
    std::vector<std::string> warnings;         // the files are used, and do not do what they say
};
// Reads both files. A settings file that is missing means the built-in settings.
FilesRead read_files(const KeeperOptions &options, const Accounts &accounts);

class Keeper {
  public:
    // Called on the keeper's thread with each new snapshot.
    using Apply = std::function<void(SnapshotPtr)>;

    Keeper(KeeperOptions options, Apply apply);
    ~Keeper();
    Keeper(const Keeper &) = delete;
    Keeper &operator=(const Keeper &) = delete;

    // Makes the first snapshot on the caller's thread, and starts the thread, which reads the
    // database as soon as it is there. False, with log lines, when the settings are faulty or
    // the system refuses a thread.
    bool start();
    // Reads everything again. `done` is called on the keeper's thread.
    void reload(std::function<void()> done);
    // Has a change of the database made on the keeper's thread, with a connection bound at
    // /cfg/gl/aaa/, or 0 while the database is away. `done` is called on that thread with the
    // result, and after a change when the new snapshot has been handed over. False when the
    // keeper has stopped.
    bool change(std::function<cerrno(sysdb_conn_t)> change, std::function<void(cerrno)> done);
    void stop();

    // For figures, in any thread: when the database was read last, in nanoseconds of
    // CLOCK_MONOTONIC (0: never), and how often it, or a file, could not be used.
    net::Time read_at() const { return read_at_; }
    std::uint64_t failed_reads() const { return failed_reads_; }
    // What is wrong now; in any thread.
    std::vector<Alarm> alarms() const { return alarms_.all(); }
    // Raises one that another part has found, or ends it with an empty text; in any thread.
    void set_alarm(const std::string &word, const std::string &text) { alarms_.set(word, text); }
    // Reads the database again if keys of servers could not be opened: the file of master keys tells
    // no one that it has changed. In any thread.
    void try_keys_again();

  private:
    void run();
    bool post(std::function<void()> job);
    void handle_jobs();
    void read_users_again();
    void read_everything(const std::function<void()> &done);
    // Makes a snapshot of what is known and applies it, unless it locks everybody out.
    void make_snapshot();
    bool read_lists(Snapshot &snapshot);
    void go_on_with_last(Snapshot &snapshot) const;
    void refuse_lockout(Snapshot &snapshot);
    bool connect_database();
    void reconnect();
    void watch_users();
    void lose_database(const std::string &why);
    void raise_alarms(const Snapshot &snapshot, const ReadResult &result);
    void take_faults(const std::vector<std::string> &faults, std::vector<std::string> &reported);

    // Callbacks of the event manager.
    int32_t bring_up();
    void bring_down();
    int32_t open_watch();
    void drain_watch();

    KeeperOptions options_;
    Apply apply_;
    Accounts accounts_ = host_accounts();

    event_manager_t events_ = nullptr;
    event_conn_t database_event_ = nullptr;
    event_conn_t watch_event_ = nullptr;
    int32_t wake_ = -1;

    std::mutex mutex_;
    std::vector<std::function<void()>> jobs_;
    bool stopping_ = false;
    std::thread thread_;

    std::atomic<net::Time> read_at_ = 0;
    std::atomic<std::uint64_t> failed_reads_ = 0;
    std::atomic<bool> keys_fail_ = false;
    Alarms alarms_;

    // Of the keeper's thread.
    DatabaseConnection config_;
    DatabaseConnection maps_;
    OpenedKeys keys_;
    net::Descriptor watch_;       // of the directory of the users' file
    bool connected_ = false;      // the event manager has a channel of the database
    bool watch_failed_ = false;   // logged
    bool changed_ = false;        // the database says so
    bool users_changed_ = false;  // the directory of the users' file says so
    bool database_lost_ = false;  // logged
    std::shared_ptr<const Settings> settings_;
    std::shared_ptr<const Users> users_;
    std::shared_ptr<const Names> host_names_;
    SnapshotPtr current_;
    std::uint64_t made_ = 0;
    std::vector<std::string> reported_database_, reported_files_;  // each fault is logged once
    std::string reported_refusal_;
};

}  // namespace service
