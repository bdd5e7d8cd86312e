// SPDX-License-Identifier: Apache-2.0
//
// Opening, checking and locking the journal's directory.
#include "records/directory.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

namespace accounting {

namespace {

constexpr char kLockName[] = "lock";

std::string reason() {
    return std::strerror(errno);
}

std::string parent_of(const std::string &path) {
    const std::size_t slash = path.rfind('/');
    return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

// Root makes it, who is not the one to use it.
std::string how_to_make(const std::string &path) {
    return "; make it with: install -d -m 0700 -o " + std::to_string(geteuid()) + " " + path;
}

// A new directory must survive a loss of power before records in it do.
bool sync_path(Files &files, const std::string &path) {
    const net::Descriptor directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return directory && files.sync(directory.get()) == 0;
}

}  // namespace

bool Directory::open(const std::string &path, std::string &error) {
    path_ = path;
    while (path_.size() > 1 && path_.ends_with('/')) {
        path_.pop_back();
    }
    if (!path_.starts_with('/')) {
        error =
            "the directory of accounting records is \"" + path + "\"; name it with a path that begins with /";
        return false;
    }
    if (mkdir(path_.c_str(), 0700) == 0) {
        if (!sync_path(files_, parent_of(path_))) {
            error = "cannot make " + path_ + " durable: " + reason();
            return false;
        }
    } else if (errno != EEXIST) {
        error = "cannot make the directory " + path_ + ": " + reason() + how_to_make(path_);
        return false;
    }
    return open_checked(error) && lock(error);
}

bool Directory::open_checked(std::string &error) {
    // Whoever may rename the directories above could put another directory into this
    // place, but not one of the service's user.
    directory_ = net::Descriptor(::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status;
    if (!directory_ || fstat(directory_.get(), &status) != 0) {
        error = errno == ENOTDIR || errno == ELOOP
                    ? path_ + " is no directory, or a symbolic link; name the directory itself"
                    : "cannot open the directory " + path_ + ": " + reason();
        return false;
    }
    if (status.st_uid != geteuid()) {
        error = path_ + " belongs to user " + std::to_string(status.st_uid) + "; the service runs as user " +
                std::to_string(geteuid()) + ". Move it away, or: chown -R " + std::to_string(geteuid()) +
                " " + path_;
        return false;
    }
    if ((status.st_mode & 077) != 0) {
        error = "other users may enter " + path_ + "; check the files in it, then: chmod 0700 " + path_;
        return false;
    }
    return true;
}

std::string Directory::fault_of(const std::string &path) {
    struct stat status;
    if (lstat(path.c_str(), &status) != 0) {
        const bool can_be_made = errno == ENOENT && access(parent_of(path).c_str(), F_OK) == 0;
        return can_be_made ? "" : path + ": " + reason() + how_to_make(path);
    }
    if (!S_ISDIR(status.st_mode)) {
        return path + " is no directory, or a symbolic link; name the directory itself";
    }
    return (status.st_mode & 077) == 0
               ? ""
               : "other users may enter " + path + "; check the files in it, then: chmod 0700 " + path;
}

bool Directory::lock(std::string &error) {
    lock_ = open_file(kLockName, O_RDWR | O_CREAT);
    if (!lock_) {
        error = "cannot open " + path_ + "/" + kLockName + ": " + reason();
        return false;
    }
    if (flock(lock_.get(), LOCK_EX | LOCK_NB) != 0) {
        const int failure = errno;
        std::string holder;
        files_.read_up_to(lock_.get(), 20, 0, holder);
        holder = holder.substr(0, holder.find_first_not_of("0123456789"));
        error = failure != EWOULDBLOCK ? "cannot lock " + path_ + ": " + std::strerror(failure)
                                       : "another process" + (holder.empty() ? "" : ", " + holder + ",") +
                                             " uses " + path_ + "; end it first, or use another directory";
        return false;
    }
    // For the message above only, so failures, such as a full disk, do not matter.
    files_.truncate(lock_.get(), 0);
    files_.write_all(lock_.get(), std::to_string(getpid()) + "\n", 0);
    return true;
}

net::Descriptor Directory::open_file(const std::string &name, int flags) const {
    net::Descriptor file = files_.open(directory_.get(), name, flags);
    struct stat status;
    if (!file || fstat(file.get(), &status) != 0) {
        return {};
    }
    if (!S_ISREG(status.st_mode) || status.st_uid != geteuid() || status.st_nlink > 1) {
        errno = EPERM;
        return {};
    }
    if ((status.st_mode & 077) != 0) {
        fchmod(file.get(), 0600);
    }
    return file;
}

bool Directory::sync() const {
    return files_.sync(directory_.get()) == 0;
}

bool Directory::names(std::vector<std::string> &names) const {
    // A copy of the descriptor would share its place in the directory.
    const net::Descriptor again(openat(directory_.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const int fd = again ? fcntl(again.get(), F_DUPFD_CLOEXEC, 3) : -1;
    const std::unique_ptr<DIR, int (*)(DIR *)> stream(fd >= 0 ? fdopendir(fd) : nullptr, closedir);
    if (stream == nullptr) {
        if (fd >= 0) {
            close(fd);
        }
        return false;
    }
    for (;;) {
        errno = 0;
        const dirent *entry = readdir(stream.get());
        if (entry == nullptr) {
            break;
        }
        names.emplace_back(entry->d_name);
    }
    std::sort(names.begin(), names.end());
    return errno == 0;
}

bool Directory::rename(const std::string &from, const std::string &to) const {
    return files_.rename(directory_.get(), from, to) == 0;
}

bool Directory::remove(const std::string &name) const {
    return files_.remove(directory_.get(), name) == 0;
}

}  // namespace accounting
