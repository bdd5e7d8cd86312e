// SPDX-License-Identifier: Apache-2.0
//
// The files of one environment: the data file, the lock file with LMDB's mutexes and its
// table of readers, and the clean mark. LMDB opens, locks and writes them through the
// functions of lmdb_system.h, which find the object by a path, a descriptor or the
// address of a mutex, and ask it.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "clean_mark.hpp"
#include "directory.hpp"
#include "files.hpp"
#include "holder.hpp"
#include "readers.hpp"

namespace sysdb_lmdb {

class DatabaseFiles {
  public:
    DatabaseFiles(std::string path, long wait_ms);
    ~DatabaseFiles();
    DatabaseFiles(const DatabaseFiles &) = delete;
    DatabaseFiles &operator=(const DatabaseFiles &) = delete;

    // In a child: LMDB does not use it there any more.
    void forget();

    // Opens the directory, and finds or makes the files. Logs a failure.
    cerrno prepare();

    const std::string &path() const { return path_; }
    std::string lock_path() const { return path_ + "-lock"; }
    std::string mark_name() const { return name_ + "-state"; }
    const Directory &directory() const { return directory_; }
    const FileIdentity &identity() const { return data_.identity; }
    int data_fd() const { return data_fd_; }
    // A descriptor of its own to read the data file; empty with errno.
    Descriptor open_to_read() const;
    // Whether the data file is empty and once was not.
    bool has_lost_contents(int fd) const;

    // Between these two, LMDB's calls of open() with the file's path are for this object.
    void begin_opening();
    void end_opening(bool is_open);
    // From here on, LMDB's calls are the plain ones. It makes none that waits.
    void begin_closing();

    // For as long as it exists, locks are waited for in vain only briefly, and silently.
    class BriefWait {
      public:
        explicit BriefWait(DatabaseFiles &files) : files_(files) { files_.brief_ = true; }
        ~BriefWait() { files_.brief_ = false; }
        BriefWait(const BriefWait &) = delete;
        BriefWait &operator=(const BriefWait &) = delete;

      private:
        DatabaseFiles &files_;
    };

    // The mark. All of these under the writer's lock, except is_marked().
    bool is_marked(std::uint64_t txnid) const;
    bool current_state(std::uint64_t txnid, FileState &state) const;
    void mark(std::uint64_t txnid);
    // A transaction follows that is based on this one.
    void begin_transaction(std::uint64_t based_on);

    // ---- for LMDB's system calls

    // The object that uses a path, a descriptor or a mutex, or null.
    static DatabaseFiles *of_path(const char *path);
    static DatabaseFiles *of_descriptor(int fd);
    static DatabaseFiles *of_mutex(const void *mutex);

    int open(const char *path, int flags);
    bool is_lock_file(int fd) const { return fd == lock_fd_; }
    void set_map(const void *address, std::size_t bytes);
    long wait_ms() const;
    // The lock's holder did not give it back; thread 0 when unknown.
    void report_holder(pid_t holder, Witness witness) const;

    // Whether the process of an entry in the table of readers lives.
    bool is_alive(const Reader &reader) const { return is_reader_alive(lock_fd_, reader.number); }
    // A reader kept room in a full map for as long as others wait.
    void report_reader(const Reader &reader) const { log_reader(path_, lock_fd_, reader, wait_ms_); }

    // Around a write to the data file; a head is the last write of a transaction.
    bool is_head(int fd) const { return fd == head_fd_; }
    void before_write();
    void after_head(std::uint64_t txnid);
    void after_failure();
    // Writing beyond the limit of file sizes would end the process with a signal.
    bool is_size_limited() const { return size_limited_; }

  private:
    // What is known of the mark in the current transaction.
    enum class Chain { kIdle, kUnknown, kHolds, kBroken };

    cerrno prepare_data();
    cerrno prepare_lock();
    bool has_no_transaction() const;
    bool is_registered() const;
    void clear_descriptors();

    const std::string path_;
    const std::string name_;
    const long wait_ms_;
    Directory directory_;
    CheckedFile data_;
    CheckedFile lock_;
    CleanMark mark_;

    std::atomic<bool> opening_{false};
    std::atomic<bool> brief_{false};
    std::atomic<int> data_fd_{-1};
    std::atomic<int> head_fd_{-1};
    std::atomic<int> lock_fd_{-1};
    std::atomic<std::uintptr_t> map_{0};
    std::atomic<std::size_t> map_bytes_{0};

    // Guarded by LMDB's writer's lock.
    Chain chain_ = Chain::kIdle;
    std::uint64_t based_on_ = 0;
    bool size_limited_ = false;
};

}  // namespace sysdb_lmdb
