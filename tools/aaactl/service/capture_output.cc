// SPDX-License-Identifier: Apache-2.0

#include "service/capture_output.hpp"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "cli/output.hpp"
#include "cli/output_file.hpp"

namespace aaactl {
namespace {

constexpr mode_t kOwnerOnly = 0600;

}  // namespace

CaptureOutput::CaptureOutput(const std::string &file)
    : file_(file.substr(file.rfind('/') + 1)), name_(file == "-" ? "standard output" : escaped(file)) {
    if (file == "-") {
        fd_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    } else {
        directory_ = open_trusted_directory(file);
        fd_ = openat(directory_, file_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                     kOwnerOnly);
        is_new_ = fd_ >= 0;
        if (fd_ < 0 && errno == EEXIST) {
            fd_ = openat(directory_, file_.c_str(), O_WRONLY | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC);
        }
    }
    struct stat found {};
    if (fd_ < 0 || fstat(fd_, &found) != 0) {
        const int error = errno;
        close_all();
        fail(error == ELOOP ? "it is a symbolic link; name the file itself, or - for standard output"
                            : std::strerror(error));
    }
    device_ = found.st_dev;
    inode_ = found.st_ino;
    is_regular_ = S_ISREG(found.st_mode) && file != "-";
    if (file != "-" && !S_ISCHR(found.st_mode)) {
        try {
            check_owner();
        } catch (...) {
            close_all();
            throw;
        }
    }
}

CaptureOutput::~CaptureOutput() {
    if (is_new_) {
        unlinkat(directory_, file_.c_str(), 0);
    }
    close_all();
}

void CaptureOutput::close_all() {
    for (const int fd : {fd_, directory_}) {
        if (fd >= 0) {
            close(fd);
        }
    }
}

void CaptureOutput::lock() {
    if (is_regular_ && flock(fd_, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        is_new_ = false;  // the other one has opened it meanwhile
        fail("another capture writes into it; name another file");
    }
}

void CaptureOutput::fail(const std::string &what) const {
    throw Failure(ExitCode::failed, name_ + ": " + what);
}

void CaptureOutput::check_owner() const {
    struct stat found {};
    fstat(fd_, &found);
    if (found.st_uid != geteuid()) {
        fail("it belongs to user " + std::to_string(found.st_uid) + "; name a file of your own");
    }
    if (is_regular_ && found.st_nlink != 1) {
        fail("it has other names too (hard links); name another file");
    }
}

void CaptureOutput::begin() {
    is_new_ = false;
    if (is_regular_ && (fchmod(fd_, kOwnerOnly) != 0 || ftruncate(fd_, 0) != 0)) {
        fail(std::strerror(errno));
    }
}

bool CaptureOutput::wait(int end) const {
    pollfd ready[2] = {{fd_, POLLOUT, 0}, {end, POLLIN, 0}};
    while (poll(ready, 2, -1) < 0 && errno == EINTR) {
    }
    return ready[0].revents != 0;
}

bool CaptureOutput::write(std::string_view bytes, int end) {
    while (!bytes.empty()) {
        // A pipe that can be written takes so many bytes at once: a reader that stops cannot hold this
        // program in a call.
        const std::string_view part = is_regular_ ? bytes : bytes.substr(0, PIPE_BUF);
        if (!is_regular_ && !wait(end)) {
            return false;
        }
        const ssize_t sent = ::write(fd_, part.data(), part.size());
        if (sent >= 0) {
            bytes.remove_prefix(static_cast<size_t>(sent));
        } else if (errno == EPIPE) {
            return false;
        } else if (errno != EINTR && errno != EAGAIN) {
            const int error = errno;
            // The frames before this one can be read.
            if (is_regular_ && ftruncate(fd_, written_) == 0) {
                fail(std::strerror(error) + std::string("; it ends with the last frame that fits"));
            }
            fail(std::strerror(error));
        }
        if (sent > 0 && is_regular_ && bytes.empty()) {
            written_ = lseek(fd_, 0, SEEK_CUR);
        }
    }
    return true;
}

}  // namespace aaactl
