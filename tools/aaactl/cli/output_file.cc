// SPDX-License-Identifier: Apache-2.0
//
// A regular file is written beside its target and renamed over it; anything else
// is written in place.

#include "cli/output_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

#include "cli/output.hpp"

namespace aaactl {
namespace {

constexpr mode_t kNewFile = 0666;  // less what the umask takes
constexpr mode_t kOwnerOnly = 0600;
constexpr mode_t kPermissions = 0777;
constexpr int kMostLinks = 40;   // as many as the kernel follows
constexpr int kAttempts = 1000;  // to find a free name: killed processes leave files

Failure failure(const std::string &file) {
    return {ExitCode::failed, escaped(file) + ": " + std::strerror(errno)};
}

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

void write_in_place(const std::string &file, std::string_view bytes) {
    const int fd = open(file.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
    const bool written = fd >= 0 && write_all(fd, bytes);
    const int error = errno;
    const bool closed = fd < 0 || close(fd) == 0;
    if (!written || !closed) {
        errno = written ? errno : error;
        throw failure(file);
    }
}

// The target of a symbolic link, one step; "" for anything else.
std::string link_target(const std::string &file) {
    char text[PATH_MAX];
    const ssize_t n = readlink(file.c_str(), text, sizeof text);
    if (n <= 0) {
        return "";
    }
    const std::string target(text, static_cast<size_t>(n));
    return target.starts_with('/') ? target : file.substr(0, file.rfind('/') + 1) + target;
}

// The target of a symbolic link, whether it exists or not: the link itself is kept, as when a shell writes to
// it.
std::string resolved(const std::string &file) {
    std::string path = file;
    int links = 0;
    for (std::string target; !(target = link_target(path)).empty(); path = target) {
        if (++links > kMostLinks) {
            errno = ELOOP;
            throw failure(file);
        }
    }
    return path;
}

// A temporary file in the directory of its target, because rename() does not cross file systems. It is
// removed at the end unless it has replaced the target. Each step returns false and sets errno on failure.
class Temporary {
  public:
    Temporary(const std::string &target, mode_t mode) {
        const std::string directory = target.substr(0, target.rfind('/') + 1);
        for (int i = 0; i < kAttempts && fd_ < 0 && (i == 0 || errno == EEXIST); ++i) {
            name_ = directory + ".aaactl-" + std::to_string(getpid()) + "-" + std::to_string(i);
            fd_ = open(name_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
        }
        made_ = fd_ >= 0;
    }
    ~Temporary() {
        if (fd_ >= 0) {
            close(fd_);
        }
        if (made_) {
            unlink(name_.c_str());
        }
    }
    Temporary(const Temporary &) = delete;
    Temporary &operator=(const Temporary &) = delete;

    bool made() const { return made_; }
    // EPERM is accepted: only root may give files away.
    bool take_after(const struct stat &before) {
        const bool given = fchown(fd_, before.st_uid, before.st_gid) == 0 || errno == EPERM;
        return given && fchmod(fd_, before.st_mode & kPermissions) == 0;
    }
    // Synced to the disk: otherwise a loss of power might leave neither the old bytes nor the new ones.
    bool fill(std::string_view bytes) {
        const bool stored = write_all(fd_, bytes) && fsync(fd_) == 0;
        return stored && close(std::exchange(fd_, -1)) == 0;
    }
    bool replace(const std::string &target) {
        const bool replaced = rename(name_.c_str(), target.c_str()) == 0;
        made_ = !replaced;
        return replaced;
    }

  private:
    std::string name_;
    int fd_ = -1;
    bool made_ = false;
};

}  // namespace

void write_file(const std::string &file, std::string_view bytes) {
    struct stat before {};
    const bool exists = stat(file.c_str(), &before) == 0;
    if (exists && !S_ISREG(before.st_mode)) {
        write_in_place(file, bytes);
        return;
    }
    const std::string target = resolved(file);
    Temporary temporary(target, exists ? kOwnerOnly : kNewFile);
    if (!temporary.made() || (exists && !temporary.take_after(before)) || !temporary.fill(bytes) ||
        !temporary.replace(target)) {
        throw failure(file);
    }
}

}  // namespace aaactl
