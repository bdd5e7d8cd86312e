// SPDX-License-Identifier: Apache-2.0
//
// Creating, rotating, retiring and listing master keys, for the tools.

#include <sodium.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "log.hpp"
#include "master_keys.hpp"
#include "platform/control.h"
#include "platform_codes.hpp"

namespace aaaplatform {

namespace {

constexpr unsigned kFirstGeneration = 1;

// Of which a shell changes none.
constexpr char kPlainCharacters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_./-";

constexpr long kLockWaitMs = 5000;
constexpr long kLockRetryMs = 20;

void sleep_ms(long ms) {
    timespec left = {ms / 1000, ms % 1000 * 1000000};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

// Two rotations at once would each add a key and keep one. The lock is on the
// directory, because the file itself is replaced. Everyone who may read the directory
// can lock it, and a process that holds the lock can be stopped: the wait is limited.
class DirectoryLock {
  public:
    explicit DirectoryLock(const char *path) : fd_(open_directory_of(path)) {
        for (long waited = 0; fd_ >= 0 && !held_ && waited <= kLockWaitMs; waited += kLockRetryMs) {
            held_ = flock(fd_, LOCK_EX | LOCK_NB) == 0;
            if (!held_ && errno == EWOULDBLOCK) {
                sleep_ms(kLockRetryMs);
                errno = EWOULDBLOCK;
            } else if (!held_ && errno != EINTR) {
                break;
            }
        }
    }
    ~DirectoryLock() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    DirectoryLock(const DirectoryLock &) = delete;
    DirectoryLock &operator=(const DirectoryLock &) = delete;
    [[nodiscard]] bool held() const { return held_; }

  private:
    int fd_;
    bool held_ = false;
};

const char *path_or_usual(const char *path) {
    return path != nullptr ? path : master_keys_path();
}

// Says how to make a directory that is missing, with a command that a shell takes unchanged.
cerrno no_directory(const char *path) {
    const char *slash = std::strrchr(path, '/');
    const int length = slash != nullptr ? static_cast<int>(slash - path) : 0;
    if (std::strcmp(path, kUsualMasterKeys) == 0) {
        log(kLogError, "MASTER_KEYS",
            "%s: its directory does not exist; make it as root: systemd-tmpfiles --create aaa.conf, or "
            "without "
            "the packages: install -d -m 0750 -g aaa /etc/aaa",
            path);
    } else if (std::strspn(path, kPlainCharacters) == std::strlen(path)) {
        log(kLogError, "MASTER_KEYS", "%s: its directory does not exist; make it: install -d -m 0700 -- %.*s",
            path, length, path);
    } else {
        log(kLogError, "MASTER_KEYS", "%s: its directory does not exist; make it, with mode 0700", path);
    }
    return ENOENT;
}

cerrno failed(const char *path, int error) {
    if (error == ENOENT) {
        return no_directory(path);
    }
    log(kLogError, "MASTER_KEYS", "%s: it cannot be written: %s; the keys are unchanged", path,
        strerrordesc_np(error));
    return static_cast<cerrno>(error);
}

cerrno not_locked(const char *path, int error) {
    if (error != EWOULDBLOCK) {
        return failed(path, error);
    }
    log(kLogError, "MASTER_KEYS",
        "%s: another process has locked its directory for %ld seconds; the keys are unchanged; \"lslocks\" "
        "names that process: continue or end it",
        path, kLockWaitMs / 1000);
    return EBUSY;
}

}  // namespace

}  // namespace aaaplatform

using namespace aaaplatform;

extern "C" {

cerrno aaa_platform_master_keys_create(const char *path) {
    path = path_or_usual(path);
    if (sodium_init() < 0) {
        return failed(path, EIO);
    }
    const DirectoryLock lock(path);
    if (!lock.held()) {
        return not_locked(path, errno);
    }
    MasterKeys keys;
    keys.add(kFirstGeneration);
    keys.admit_service(path);
    const int error = keys.write(path, false);
    return error == EEXIST ? HOST_KEYS_EXIST : static_cast<cerrno>(error);
}

cerrno aaa_platform_master_keys_rotate(const char *path, uint32_t *generation) {
    path = path_or_usual(path);
    if (sodium_init() < 0) {
        return failed(path, EIO);
    }
    const DirectoryLock lock(path);
    if (!lock.held()) {
        return not_locked(path, errno);
    }
    MasterKeys keys;
    if (!keys.read(path)) {
        return HOST_KEYS_UNUSABLE;
    }
    const unsigned next = (keys.newest()->generation + 1) % kGenerations;
    if (!keys.add(next)) {
        log(kLogError, "MASTER_KEYS",
            "%s: generation %02u still exists; seal the server keys of that generation again and retire it",
            path, next);
        return HOST_KEYS_EXHAUSTED;
    }
    const int error = keys.write(path, true);
    if (error != 0) {
        return static_cast<cerrno>(error);
    }
    if (generation != nullptr) {
        *generation = next;
    }
    return 0;
}

cerrno aaa_platform_master_keys_retire(const char *path, uint32_t generation) {
    path = path_or_usual(path);
    const DirectoryLock lock(path);
    if (!lock.held()) {
        return not_locked(path, errno);
    }
    MasterKeys keys;
    if (!keys.read(path)) {
        return HOST_KEYS_UNUSABLE;
    }
    if (keys.find(generation) == nullptr) {
        return HOST_KEYS_NO_GENERATION;
    }
    if (keys.newest()->generation == generation) {
        return HOST_KEYS_NEWEST;
    }
    keys.remove(generation);
    return static_cast<cerrno>(keys.write(path, true));
}

cerrno aaa_platform_master_keys_list(const char *path, aaa_platform_master_key_t *out, uint32_t capacity,
                                     uint32_t *count) {
    if (count == nullptr || (out == nullptr && capacity != 0)) {
        return HOST_INVALID_ARG;
    }
    MasterKeys keys;
    if (!keys.read(path_or_usual(path))) {
        return HOST_KEYS_UNUSABLE;
    }
    for (unsigned i = 0; i < keys.count() && i < capacity; ++i) {
        out[i] = aaa_platform_master_key_t{keys.at(i).generation, i + 1 == keys.count() ? 1u : 0u,
                                           static_cast<int64_t>(keys.at(i).created)};
    }
    *count = keys.count();
    return 0;
}

cerrno aaa_platform_master_keys_checked(const char *path, uint32_t *checked) {
    if (checked == nullptr) {
        return HOST_INVALID_ARG;
    }
    MasterKeys keys;
    if (!keys.read(path_or_usual(path))) {
        return HOST_KEYS_UNUSABLE;
    }
    *checked = keys.checked() ? 1 : 0;
    return 0;
}

const char *aaa_platform_master_keys_path(void) {
    return master_keys_path();
}

}  // extern "C"
