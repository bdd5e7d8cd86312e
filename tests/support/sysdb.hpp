// SPDX-License-Identifier: Apache-2.0
//
// Shared by the tests of the system database: databases for one test, short
// calls to access items, processes that can be killed.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

#include "platform/sysdb.h"

// Directories for the database files, removed at the end of the process that
// made them. Settings apply to this process and those that it forks.
class DatabaseSandbox {
  public:
    DatabaseSandbox();
    ~DatabaseSandbox();
    DatabaseSandbox(const DatabaseSandbox &) = delete;
    DatabaseSandbox &operator=(const DatabaseSandbox &) = delete;

    const std::string &root() const { return root_; }
    std::string cfg_file() const { return root_ + "/cfg/cfg.mdb"; }
    std::string oper_file() const { return root_ + "/run/oper.mdb"; }
    std::string watchers() const { return root_ + "/run/w"; }

  private:
    std::string root_;
    pid_t owner_;
};

// A connection that unbinds itself.
class Bound {
  public:
    explicit Bound(const std::string &path, uint32_t flags = SYSDB_BIND_PRIVATE);
    ~Bound();
    Bound(const Bound &) = delete;
    Bound &operator=(const Bound &) = delete;

    sysdb_conn_t handle() const { return handle_; }
    cerrno code() const { return code_; }
    void unbind();

  private:
    sysdb_conn_t handle_ = 0;
    cerrno code_;
};

cerrno set_number(sysdb_conn_t conn, const std::string &path, uint32_t value);
cerrno set_text(sysdb_conn_t conn, const std::string &path, const std::string &value);
// The value, or a negative number with the code's low bits on failure.
int64_t get_number(sysdb_conn_t conn, const std::string &path);
// The text, or "!" and the code in hexadecimal.
std::string get_text(sysdb_conn_t conn, const std::string &path);
cerrno existence(sysdb_conn_t conn, const std::string &path);

// Names of a listing in order, or one "!code".
std::vector<std::string> names_in(sysdb_conn_t conn, const std::string &path,
                                  const std::string &pattern = "");
std::string last_in(sysdb_conn_t conn, const std::string &path);

// Waits until the connection's channel is readable; false after the time.
bool wait_readable(int channel, int milliseconds);
int channel_of(sysdb_conn_t conn);

// Runs a body in a separate process; its failed expectations fail the test.
// Returns its standard error.
std::string run_forked(const std::function<void()> &body);

// A process that runs until its body ends or it is killed.
class ForkedProcess {
  public:
    explicit ForkedProcess(const std::function<void()> &body);
    ~ForkedProcess();
    ForkedProcess(ForkedProcess &&other) noexcept : pid_(std::exchange(other.pid_, -1)) {}
    ForkedProcess &operator=(ForkedProcess &&other) noexcept {
        std::swap(pid_, other.pid_);
        return *this;
    }

    pid_t pid() const { return pid_; }
    // Sends SIGKILL and waits.
    void kill_now();
    // Exit status of a process that ended by itself; -1 when a signal ended it.
    int wait();

  private:
    pid_t pid_;
};

// Bytes between processes, one at a time.
class Pipe {
  public:
    Pipe();
    ~Pipe();
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;

    void put(char byte = '.');
    // False at the end or after the time.
    bool take(int milliseconds = 20000);
    int reading_end() const { return ends_[0]; }
    int writing_end() const { return ends_[1]; }
    void close_reading();
    void close_writing();

  private:
    int ends_[2];
};

// How often to repeat: a small number by default, from the environment for long runs.
unsigned repetitions(const char *variable, unsigned usual);
