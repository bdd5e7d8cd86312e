// SPDX-License-Identifier: Apache-2.0
//
// A file without a name is gone when the process is killed. Replacing another file
// needs a name for a moment: between two system calls, with signals held back.

#include "cli/temporary_file.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>

namespace aaactl {
namespace {

constexpr mode_t kPermissions = 0777;
constexpr mode_t kGroup = 0070;
constexpr int kAttempts = 1000;  // to find a free name: killed processes leave files

// Control-C waits until the file is in place.
class SignalsHeld {
  public:
    SignalsHeld() {
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsHeld() {
        const int error = errno;
        sigprocmask(SIG_SETMASK, &before_, nullptr);
        errno = error;
    }
    SignalsHeld(const SignalsHeld &) = delete;
    SignalsHeld &operator=(const SignalsHeld &) = delete;

  private:
    sigset_t before_{};
};

// Calls with one name after the other until the name is not taken. "" when the call has failed.
template <typename Call>
std::string first_free_name(const Call &call) {
    for (int i = 0; i < kAttempts; ++i) {
        const std::string name = ".aaactl-" + std::to_string(getpid()) + "-" + std::to_string(i);
        if (call(name)) {
            return name;
        }
        if (errno != EEXIST) {
            break;
        }
    }
    return "";
}

// A file without a name gets one through /proc.
bool can_be_named_later() {
    return access("/proc/self/fd", X_OK) == 0;
}

}  // namespace

bool write_all(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t n = write(fd, bytes.data(), bytes.size());
        if (n < 0 && errno != EINTR) {
            return false;
        }
        bytes.remove_prefix(n > 0 ? static_cast<size_t>(n) : 0);
    }
    return true;
}

TemporaryFile::TemporaryFile(int directory, mode_t mode) : directory_(directory) {
    if (!can_be_named_later()) {
        make_named(mode);
        return;
    }
    fd_ = openat(directory, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, mode);
    // A file system without such files answers EOPNOTSUPP, and some answer what they like.
    if (fd_ < 0 && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL)) {
        make_named(mode);
    }
}

TemporaryFile::~TemporaryFile() {
    const int error = errno;
    if (fd_ >= 0) {
        close(fd_);
    }
    if (!name_.empty()) {
        unlinkat(directory_, name_.c_str(), 0);
    }
    errno = error;
}

void TemporaryFile::make_named(mode_t mode) {
    name_ = first_free_name([&](const std::string &name) {
        fd_ = openat(directory_, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
        return fd_ >= 0;
    });
}

bool TemporaryFile::take_after(const struct stat &before) {
    mode_t mode = before.st_mode & kPermissions;
    if (fchown(fd_, before.st_uid, before.st_gid) != 0) {
        if (errno != EPERM) {
            return false;
        }
        if (fchown(fd_, static_cast<uid_t>(-1), before.st_gid) != 0) {
            mode &= ~kGroup;
        }
    }
    return fchmod(fd_, mode) == 0;
}

bool TemporaryFile::fill(std::string_view bytes) {
    return write_all(fd_, bytes) && fsync(fd_) == 0;
}

bool TemporaryFile::link_at(const std::string &name) const {
    char self[32];
    std::snprintf(self, sizeof self, "/proc/self/fd/%d", fd_);
    return linkat(AT_FDCWD, self, directory_, name.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

bool TemporaryFile::name_it() {
    if (name_.empty()) {
        name_ = first_free_name([&](const std::string &name) { return link_at(name); });
    }
    return !name_.empty();
}

// A second name never replaces a file; a file system that can only rename over files may
// know it.
bool TemporaryFile::put_by_link(const std::string &name) {
    if (linkat(directory_, name_.c_str(), directory_, name.c_str(), 0) != 0) {
        errno = errno == EPERM ? EOPNOTSUPP : errno;  // it does not know second names either
        return false;
    }
    unlinkat(directory_, name_.c_str(), 0);
    return true;
}

bool TemporaryFile::put_at(const std::string &name) {
    if (name_.empty()) {
        return link_at(name);
    }
    bool put = renameat2(directory_, name_.c_str(), directory_, name.c_str(), RENAME_NOREPLACE) == 0;
    if (!put && (errno == EINVAL || errno == ENOSYS)) {
        put = put_by_link(name);
    }
    if (put) {
        name_.clear();
    }
    return put;
}

bool TemporaryFile::replace(const std::string &name) {
    const SignalsHeld held;
    if (!name_it() || renameat(directory_, name_.c_str(), directory_, name.c_str()) != 0) {
        return false;
    }
    name_.clear();
    return true;
}

}  // namespace aaactl
