// SPDX-License-Identifier: Apache-2.0
//
// The system calls of LMDB. LMDB reads errno after calls that have succeeded: a
// successful call leaves it as it was.

#include "lmdb_system.h"

#include <linux/futex.h>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <ctime>

#include "database_files.hpp"
#include "deadline.hpp"
#include "page_layout.hpp"

namespace sysdb_lmdb {
namespace {

constexpr std::size_t kSmallestLockFile = 192;  // with one reader

// ---- limited waits

// The first word of a robust mutex is the kernel's: the number of the thread that holds
// it. So the holder is known whichever program, or older provider, it runs. Who may write
// the file can write any number.
pid_t holder_of(const pthread_mutex_t *mutex) {
    int word = 0;
    __atomic_load(reinterpret_cast<const int *>(mutex), &word, __ATOMIC_RELAXED);
    return static_cast<pid_t>(static_cast<unsigned>(word) & FUTEX_TID_MASK);
}

int lock_for(pthread_mutex_t *mutex, long milliseconds) {
#if defined(__SANITIZE_THREAD__)  // gcc 12's does not know the other function
    const timespec deadline = after(milliseconds, CLOCK_REALTIME);
    return pthread_mutex_timedlock(mutex, &deadline);
#else
    const timespec deadline = after(milliseconds);
    return pthread_mutex_clocklock(mutex, CLOCK_MONOTONIC, &deadline);
#endif
}

int lock_mutex(const DatabaseFiles &files, pthread_mutex_t *mutex) {
    int rc = pthread_mutex_trylock(mutex);
    if (rc != EBUSY) {
        return rc;
    }
    rc = lock_for(mutex, files.wait_ms());
    if (rc == ETIMEDOUT) {
        files.report_holder(holder_of(mutex), Witness::kLockFile);
    }
    return rc;
}

// The kernel cannot wait for a record lock until a time, only for ever.
int lock_record(const DatabaseFiles &files, int fd, const struct flock &wanted) {
    const timespec deadline = after(files.wait_ms());
    for (;;) {
        struct flock lock = wanted;
        if (fcntl(fd, F_SETLK, &lock) == 0) {
            return 0;
        }
        if (errno != EAGAIN && errno != EACCES) {
            return -1;
        }
        if (has_passed(deadline)) {
            lock = wanted;
            const bool known = fcntl(fd, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
            files.report_holder(known ? lock.l_pid : 0, Witness::kKernel);
            errno = ETIMEDOUT;
            return -1;
        }
        pause_briefly();
    }
}

// ---- blocks

// Zero or errno. A signal ends the call in the middle, also one that restarts others.
int reserve_blocks(int fd, off_t length) {
    int rc = 0;
    do {
        rc = fallocate(fd, 0, 0, length) == 0 ? 0 : errno;
    } while (rc == EINTR);
    return rc == EOPNOTSUPP ? posix_fallocate(fd, 0, length) : rc;  // writes into each block
}

// Writing to a page of a mapped file whose block cannot be had ends the process.
int reserve(int fd, off_t length) {
    const int error = errno;
    const int rc = reserve_blocks(fd, length);
    errno = rc != 0 ? rc : error;
    return rc != 0 ? -1 : 0;
}

// ---- whole writes

// Blocks the signal of the limit of file sizes, which would end the process: the write
// then fails with EFBIG.
class SizeSignalBlocked {
  public:
    SizeSignalBlocked() {
        sigemptyset(&signal_);
        sigaddset(&signal_, SIGXFSZ);
        sigset_t pending;
        was_pending_ = sigpending(&pending) == 0 && sigismember(&pending, SIGXFSZ) == 1;
        pthread_sigmask(SIG_BLOCK, &signal_, &before_);
    }
    ~SizeSignalBlocked() {
        const int error = errno;
        const timespec now = {0, 0};
        if (!was_pending_) {
            sigtimedwait(&signal_, nullptr, &now);
        }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        errno = error;
    }
    SizeSignalBlocked(const SizeSignalBlocked &) = delete;
    SizeSignalBlocked &operator=(const SizeSignalBlocked &) = delete;

  private:
    sigset_t signal_{};
    sigset_t before_{};
    bool was_pending_ = false;
};

// The rest of a write that stopped: on a full disk the next attempt tells the reason,
// which LMDB would not ask for.
bool write_rest(int fd, const char *bytes, std::size_t count, off_t offset) {
    const SizeSignalBlocked blocked;
    while (count > 0) {
        const ssize_t n = pwrite(fd, bytes, count, offset);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            errno = n == 0 ? EIO : errno;
            return false;
        }
        bytes += n;
        count -= static_cast<std::size_t>(n);
        offset += n;
    }
    return true;
}

bool write_rest(int fd, const iovec *parts, int count, std::size_t written, off_t offset) {
    for (int i = 0; i < count; ++i) {
        const std::size_t done = std::min(written, parts[i].iov_len);
        written -= done;
        const auto *bytes = static_cast<const char *>(parts[i].iov_base) + done;
        const std::size_t rest = parts[i].iov_len - done;
        if (rest > 0 && !write_rest(fd, bytes, rest, offset + static_cast<off_t>(done))) {
            return false;
        }
        offset += static_cast<off_t>(parts[i].iov_len);
    }
    return true;
}

std::size_t bytes_of(const iovec *parts, int count) {
    std::size_t bytes = 0;
    for (int i = 0; i < count; ++i) {
        bytes += parts[i].iov_len;
    }
    return bytes;
}

ssize_t write_whole(int fd, const iovec *parts, int count, off_t offset, bool limited) {
    const std::size_t wanted = bytes_of(parts, count);
    const int error = errno;
    ssize_t n = 0;
    do {
        if (limited) {
            const SizeSignalBlocked blocked;
            n = pwritev(fd, parts, count, offset);
        } else {
            n = pwritev(fd, parts, count, offset);
        }
    } while (n < 0 && errno == EINTR);
    if (n < 0 || (static_cast<std::size_t>(n) < wanted &&
                  !write_rest(fd, parts, count, static_cast<std::size_t>(n), offset))) {
        return -1;
    }
    errno = error;
    return static_cast<ssize_t>(wanted);
}

// LMDB writes a head from its map's size on; the number of the transaction is its end.
constexpr std::size_t kHeadBytes = sizeof(layout::Meta) - offsetof(layout::Meta, map_bytes);
static_assert(offsetof(layout::Meta, txnid) + sizeof(std::uint64_t) == sizeof(layout::Meta));

std::uint64_t txnid_of(const iovec &head) {
    std::uint64_t txnid = 0;
    std::memcpy(&txnid, static_cast<const char *>(head.iov_base) + head.iov_len - sizeof txnid, sizeof txnid);
    return txnid;
}

ssize_t write_database(int fd, const iovec *parts, int count, off_t offset) {
    DatabaseFiles *files = DatabaseFiles::of_descriptor(fd);
    if (files == nullptr) {
        return pwritev(fd, parts, count, offset);
    }
    files->before_write();
    const ssize_t written = write_whole(fd, parts, count, offset, files->is_size_limited());
    if (written < 0) {
        const int error = errno;
        files->after_failure();
        errno = error;
    } else if (files->is_head(fd) && count == 1 && parts[0].iov_len == kHeadBytes) {
        files->after_head(txnid_of(parts[0]));
    }
    return written;
}

}  // namespace
}  // namespace sysdb_lmdb

using namespace sysdb_lmdb;

extern "C" {

int sysdb_lmdb_open(const char *path, int flags, mode_t mode) {
    DatabaseFiles *files = DatabaseFiles::of_path(path);
    return files != nullptr ? files->open(path, flags) : open_at(AT_FDCWD, path, flags, mode).release();
}

int sysdb_lmdb_fcntl(int fd, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    int rc = -1;
    if (command == F_GETLK || command == F_SETLK || command == F_SETLKW) {
        auto *lock = va_arg(arguments, struct flock *);
        const DatabaseFiles *files = command == F_SETLKW ? DatabaseFiles::of_descriptor(fd) : nullptr;
        rc = files != nullptr ? lock_record(*files, fd, *lock) : fcntl(fd, command, lock);
    } else if (command == F_GETFD || command == F_GETFL) {
        rc = fcntl(fd, command);
    } else {
        rc = fcntl(fd, command, va_arg(arguments, int));
    }
    va_end(arguments);
    return rc;
}

int sysdb_lmdb_ftruncate(int fd, off_t length) {
    const DatabaseFiles *files = DatabaseFiles::of_descriptor(fd);
    return files != nullptr && files->is_lock_file(fd) ? reserve(fd, length) : ftruncate(fd, length);
}

void *sysdb_lmdb_mmap(void *address, size_t length, int protection, int flags, int fd, off_t offset) {
    DatabaseFiles *files = DatabaseFiles::of_descriptor(fd);
    const bool is_lock_file = files != nullptr && files->is_lock_file(fd);
    if (is_lock_file && length < kSmallestLockFile) {  // someone has truncated it; LMDB would not notice
        errno = EINVAL;
        return MAP_FAILED;
    }
    // An older provider has made it without blocks.
    if (is_lock_file && reserve(fd, static_cast<off_t>(length)) != 0) {
        return MAP_FAILED;
    }
    void *map = mmap(address, length, protection, flags, fd, offset);
    if (is_lock_file && map != MAP_FAILED) {
        files->set_map(map, length);
    }
    return map;
}

ssize_t sysdb_lmdb_pwrite(int fd, const void *bytes, size_t count, off_t offset) {
    const iovec part = {const_cast<void *>(bytes), count};
    return write_database(fd, &part, 1, offset);
}

ssize_t sysdb_lmdb_pwritev(int fd, const struct iovec *parts, int count, off_t offset) {
    return write_database(fd, parts, count, offset);
}

int sysdb_lmdb_mutex_lock(pthread_mutex_t *mutex) {
    const DatabaseFiles *files = DatabaseFiles::of_mutex(mutex);
    return files != nullptr ? lock_mutex(*files, mutex) : pthread_mutex_lock(mutex);
}

}  // extern "C"
