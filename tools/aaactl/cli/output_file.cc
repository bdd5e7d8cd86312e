// SPDX-License-Identifier: Apache-2.0
//
// A regular file is written beside its target and renamed over it; anything else
// is written in place.
//
// The kernel opens the file, and so decides whether a symbolic link may be followed
// and a file of another user be written: in directories that everyone may write, it
// refuses both. The target's name, which only the replacement needs, is found by
// reading the links; it is used only if it is the file that the kernel opened.

#include "cli/output_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>
#include <vector>

#include "cli/output.hpp"
#include "cli/temporary_file.hpp"

namespace aaactl {
namespace {

constexpr mode_t kNewFile = 0666;  // less what the umask takes
constexpr mode_t kPrivateFile = 0640;
constexpr mode_t kAllRights = 07777;
constexpr mode_t kOwnerOnly = 0600;
constexpr int kMostLinks = 40;  // as many as the kernel follows
constexpr int kAttempts = 10;   // while others create and remove the file

Failure failure(const std::string &file) {
    return {ExitCode::failed, escaped(file) + ": " + std::strerror(errno)};
}

class Descriptor {
  public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) {
            const int error = errno;
            ::close(fd_);
            errno = error;
        }
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd) { Descriptor(std::exchange(fd_, fd)); }
    bool close() { return ::close(std::exchange(fd_, -1)) == 0; }

  private:
    int fd_;
};

Failure of_stranger(const std::string &path, const char *what, uid_t owner) {
    return {ExitCode::failed, escaped(path) + ": this " + what + " belongs to another user (uid " +
                                  std::to_string(owner) + "); delete it, or name another file"};
}

bool is_trusted(uid_t owner) {
    return owner == geteuid() || owner == 0;
}

std::vector<std::string> names_in(const std::string &path) {
    std::vector<std::string> names;
    for (size_t at = 0; at < path.size();) {
        const size_t end = std::min(path.find('/', at), path.size());
        names.push_back(path.substr(at, end - at));
        at = end + 1;
    }
    return names;
}

// One step of a path: a directory, or the names to go on with where it is a link.
int step(int directory, const std::string &name, const std::string &file, std::string &target) {
    Descriptor next(openat(directory, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat found {};
    if (next.get() < 0 || fstat(next.get(), &found) != 0) {
        throw failure(file);
    }
    if (!S_ISLNK(found.st_mode)) {
        return next.release();
    }
    if (!is_trusted(found.st_uid)) {
        throw Failure(ExitCode::failed, escaped(file) + ": the symbolic link " + escaped(name) +
                                            " in this path belongs to another user (uid " +
                                            std::to_string(found.st_uid) +
                                            "); name the directory that it leads to");
    }
    char text[PATH_MAX];
    const ssize_t n = readlinkat(next.get(), "", text, sizeof text);
    if (n <= 0) {
        throw failure(file);
    }
    target.assign(text, static_cast<size_t>(n));
    return -1;
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

// A directory and a name in it.
class Place {
  public:
    explicit Place(const std::string &path)
        : name_(path.substr(path.rfind('/') + 1)),
          directory_(open(directory_of(path).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {}

    // Where the links of a path lead.
    static std::string resolved(const std::string &file) {
        std::string path = file;
        int links = 0;
        for (std::string target; !(target = link_target(path)).empty() && links < kMostLinks; ++links) {
            path = target;
        }
        return path;
    }

    const std::string &name() const { return name_; }
    int directory() const { return directory_.get(); }

    bool holds(const struct stat &file) const {
        struct stat found {};
        return fstatat(directory_.get(), name_.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0 &&
               found.st_dev == file.st_dev && found.st_ino == file.st_ino;
    }

  private:
    static std::string directory_of(const std::string &path) {
        const size_t end = path.rfind('/') + 1;  // 0 when there is none
        return end == 0 ? "." : path.substr(0, end);
    }

    std::string name_;
    Descriptor directory_;
};

// For a file that is seen when it is complete. False when the name is taken meanwhile.
bool create(const std::string &file, mode_t most, std::string_view bytes) {
    const Place place(file);
    if (place.directory() < 0) {
        throw failure(file);
    }
    TemporaryFile made(place.directory(), most);
    if (!made.made() || !made.fill(bytes)) {
        throw failure(file);
    }
    if (made.put_at(place.name())) {
        return true;
    }
    if (errno != EEXIST) {
        throw failure(file);
    }
    return false;
}

void write_in_place(const std::string &file, Descriptor &opened, std::string_view bytes) {
    if (!write_all(opened.get(), bytes) || !opened.close()) {
        throw failure(file);
    }
}

void replace(const std::string &file, const Place &place, const struct stat &before, std::string_view bytes) {
    TemporaryFile made(place.directory(), kOwnerOnly);
    if (!made.made() || !made.take_after(before) || !made.fill(bytes) || !made.replace(place.name())) {
        throw failure(file);
    }
}

// An empty file at the end of a link, which the kernel has just created, is removed again on failure.
void replace_created(const std::string &file, const Place &place, const struct stat &before,
                     std::string_view bytes) {
    try {
        replace(file, place, before, bytes);
    } catch (const Failure &) {
        if (place.holds(before)) {
            unlinkat(place.directory(), place.name().c_str(), 0);
        }
        throw;
    }
}

// A file that exists, or a link to one that may not. O_CREAT is what makes the kernel protect
// files of others.
void write_opened(const std::string &file, bool exists, mode_t most, std::string_view bytes) {
    Descriptor opened(open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY, most));
    struct stat before {};
    if (opened.get() < 0 || fstat(opened.get(), &before) != 0) {
        throw failure(file);
    }
    const Place place(Place::resolved(file));
    const bool regular = S_ISREG(before.st_mode);
    before.st_mode &= ~kAllRights | most;
    if (regular && place.holds(before)) {
        (exists ? replace : replace_created)(file, place, before, bytes);
        return;
    }
    // A regular file without a name, as a descriptor may have, cannot be replaced.
    if (regular && ftruncate(opened.get(), 0) != 0) {
        throw failure(file);
    }
    write_in_place(file, opened, bytes);
}

// Whether nothing has the name, not even a link.
bool is_free(const std::string &file) {
    struct stat found {};
    return lstat(file.c_str(), &found) != 0 && errno == ENOENT;
}

// What a private file may replace. The kernel's own protection can be switched off, and covers only
// directories that everyone may write.
void refuse_of_strangers(const std::string &file) {
    std::string path = file;
    struct stat found {};
    for (int links = 0; links < kMostLinks && lstat(path.c_str(), &found) == 0; ++links) {
        if (!S_ISLNK(found.st_mode)) {
            struct stat directory {};
            const Place place(path);
            if (S_ISREG(found.st_mode) && !is_trusted(found.st_uid) &&
                (fstat(place.directory(), &directory) != 0 || directory.st_uid != found.st_uid)) {
                throw of_stranger(path, "file", found.st_uid);
            }
            return;
        }
        if (!is_trusted(found.st_uid)) {
            throw of_stranger(path, "symbolic link", found.st_uid);
        }
        path = link_target(path);
        Descriptor(open_trusted_directory(path));
    }
}

bool exists(const std::string &file) {
    struct stat found {};
    if (stat(file.c_str(), &found) == 0) {
        return true;
    }
    if (errno != ENOENT) {
        throw failure(file);
    }
    return false;
}

void write(const std::string &file, mode_t most, std::string_view bytes) {
    for (int i = 0; i < kAttempts; ++i) {
        if (most == kPrivateFile) {
            refuse_of_strangers(file);
        }
        const bool there = exists(file);
        if (there || !is_free(file)) {
            write_opened(file, there, most, bytes);
            return;
        }
        if (create(file, most, bytes)) {
            return;
        }
    }
    errno = EEXIST;
    throw failure(file);
}

}  // namespace

void write_file(const std::string &file, std::string_view bytes) {
    write(file, kNewFile, bytes);
}

int open_trusted_directory(const std::string &file) {
    std::vector<std::string> names = names_in(file.substr(0, file.rfind('/') + 1));
    Descriptor at(open(file.starts_with('/') ? "/" : ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    std::reverse(names.begin(), names.end());
    for (int links = 0; !names.empty();) {
        const std::string name = names.back();
        names.pop_back();
        if (name.empty()) {
            continue;
        }
        std::string target;
        if (const int next = step(at.get(), name, file, target); next >= 0) {
            at.reset(next);
            continue;
        }
        if (++links > kMostLinks) {
            errno = ELOOP;
            throw failure(file);
        }
        if (target.starts_with('/')) {
            at.reset(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
        }
        const std::vector<std::string> more = names_in(target);
        names.insert(names.end(), more.rbegin(), more.rend());
    }
    return at.release();
}

// The directory is held, so that its owner's changes to the path lead nowhere else.
void write_private_file(const std::string &file, std::string_view bytes) {
    const Descriptor directory(open_trusted_directory(file));
    const std::string held = "/proc/self/fd/" + std::to_string(directory.get());
    if (access(held.c_str(), F_OK) != 0) {
        write(file, kPrivateFile, bytes);  // a machine without /proc
        return;
    }
    const std::string path = held + "/" + file.substr(file.rfind('/') + 1);
    try {
        write(path, kPrivateFile, bytes);
    } catch (const Failure &found) {
        const std::string what = found.what();
        throw Failure(found.code(), what.starts_with(path) ? escaped(file) + what.substr(path.size()) : what);
    }
}

}  // namespace aaactl
