// SPDX-License-Identifier: Apache-2.0
//
// Opening, checking and making directories.

#include "directory.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "host.hpp"
#include "result.hpp"
#include "settings.hpp"

namespace sysdb_lmdb {
namespace {

// Files in it get its group, whose members may use the database.
constexpr mode_t kMode = 02770;
constexpr mode_t kModeWithoutGroup = 0700;
constexpr mode_t kModeOfParents = 0755;

constexpr int kOpenFlags = O_PATH | O_DIRECTORY;

constexpr int kAttempts = 16;  // to make a directory that no one else has made
constexpr int kDisturbed = ESTALE;

// Zero or errno. The group must be the intended one, and never the one that this process
// happens to have.
int settle(int fd, gid_t group, mode_t mode, const std::string &path) {
    struct stat status;
    if (fstat(fd, &status) != 0) {
        return errno;
    }
    if (mode == kMode && status.st_gid != group && fchown(fd, static_cast<uid_t>(-1), group) != 0) {
        log(kLogWarning,
            "directory %s is for user %u only: this process cannot give it to group %u; make it as root: "
            "install -d -m 2770 -g %u %s",
            path.c_str(), static_cast<unsigned>(geteuid()), static_cast<unsigned>(group),
            static_cast<unsigned>(group), path.c_str());
        mode = kModeWithoutGroup;
    }
    return fchmod(fd, mode) == 0 ? 0 : errno;
}

bool is_empty(int directory) {
    Descriptor readable = open_at(directory, ".", O_RDONLY | O_DIRECTORY);
    DIR *const entries = readable ? fdopendir(readable.get()) : nullptr;
    if (entries == nullptr) {
        return false;
    }
    readable.release();
    int others = 0;
    while (const dirent *entry = readdir(entries)) {
        others += std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0 ? 1 : 0;
    }
    closedir(entries);
    return others == 0;
}

// Whether it can be the one that this process has just made. Who may write the directory
// above may have put another one in its place, whose rights must stay as they are.
bool is_new(int directory) {
    struct stat status;
    return fstat(directory, &status) == 0 && status.st_uid == geteuid() && is_empty(directory);
}

int make_and_settle(int parent, const char *name, gid_t group, mode_t mode, const std::string &path) {
    if (mkdirat(parent, name, kModeWithoutGroup) != 0) {
        return errno;
    }
    const Descriptor made = open_at(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
    return made && is_new(made.get()) ? settle(made.get(), group, mode, path) : EEXIST;
}

// No other process or thread uses it: the number of the process is the same in two
// containers, and a name that others can guess can be taken.
std::string new_name() {
    std::uint64_t number = 0;
    if (getrandom(&number, sizeof number, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof number)) {
        timespec now{};  // shortly after the start of a machine; one that is taken is not used
        clock_gettime(CLOCK_MONOTONIC, &now);
        number = static_cast<std::uint64_t>(now.tv_nsec) << 32 | static_cast<std::uint32_t>(getpid());
    }
    char text[32];
    std::snprintf(text, sizeof text, ".new.%016llx", static_cast<unsigned long long>(number));
    return text;
}

// Under another name first: a process that is killed meanwhile leaves no directory with
// unfinished rights in the place that others use.
int make_in(int parent, const char *name, gid_t group, mode_t mode, const std::string &path) {
    std::string temporary;
    int error = EEXIST;
    for (int i = 0; i < kAttempts && error == EEXIST; ++i) {
        temporary = new_name();
        error = make_and_settle(parent, temporary.c_str(), group, mode, path);
    }
    if (error != 0) {
        return error == EEXIST ? kDisturbed : error;
    }
    if (renameat2(parent, temporary.c_str(), parent, name, RENAME_NOREPLACE) == 0) {
        return 0;
    }
    error = errno;
    unlinkat(parent, temporary.c_str(), AT_REMOVEDIR);
    if (error == EINVAL || error == ENOSYS) {  // not every file system has this rename
        error = make_and_settle(parent, name, group, mode, path);
    }
    return error == EEXIST ? 0 : error;
}

// group: of the nearest directory that exists. Directories that are made on the way may
// get the group that this process happens to have, and it must not be passed on.
int make(const std::string &path, mode_t mode, gid_t &group) {
    const std::string parent = parent_of(path);
    Descriptor above = open_at(AT_FDCWD, parent.c_str(), kOpenFlags);
    struct stat status;
    if (!above && errno == ENOENT && parent != path) {
        const int error = make(parent, kModeOfParents, group);
        if (error != 0) {
            return error;
        }
        above = open_at(AT_FDCWD, parent.c_str(), kOpenFlags);
    } else if (above && fstat(above.get(), &status) == 0) {
        group = status.st_gid;
    }
    if (!above) {
        return errno;
    }
    return make_in(above.get(), name_of(path).c_str(), group_setting().value_or(group), mode, path);
}

// The advised commands do not follow a link that a member of the group puts in the place of
// the directory, as install -d does: the target would be given to the group.
cerrno report(const std::string &path, int error) {
    log(kLogError,
        "directory %s cannot be made: %s; make it as root: mkdir -m 2770 %s && chgrp -h aaa %s (with the "
        "group of the AAA processes), or set %s and %s to other places",
        path.c_str(),
        error == kDisturbed ? "another process takes or replaces what is made beside it"
                            : std::strerror(error),
        path.c_str(), path.c_str(), kCfgVariable, kRunVariable);
    return Result::of_errno(error).code();
}

// Its effective group is the caller's, who would get the database.
cerrno refuse_to_make(const std::string &path) {
    log(kLogError,
        "directory %s is missing, and a program with more rights than its user does not make it; make it as "
        "root: systemd-tmpfiles --create, or mkdir -m 2770 %s && chgrp -h aaa %s (with the group of the AAA "
        "processes)",
        path.c_str(), path.c_str(), path.c_str());
    return SYSDB_ERR_ACCESS;
}

}  // namespace

// The owner of the directory controls what is in it, and its name is the
// administrator's choice; what must not be is that anyone may add files.
cerrno Directory::check() {
    struct stat status;
    if (fstat(descriptor_.get(), &status) != 0) {
        return report(path_, errno);
    }
    owner_ = status.st_uid;
    group_ = status.st_gid;
    mode_ = status.st_mode;
    if ((status.st_mode & S_IWOTH) != 0) {
        log(kLogError,
            "directory %s is not used, because every user may write it; look for files that do not belong "
            "there, then: chmod o-w %s",
            path_.c_str(), path_.c_str());
        descriptor_.reset();
        return SYSDB_ERR_ACCESS;
    }
    return 0;
}

cerrno Directory::open(const std::string &path, Directory &result) {
    result.path_ = path;
    result.descriptor_ = open_at(AT_FDCWD, path.c_str(), kOpenFlags);
    if (!result && errno == ENOENT) {
        if (!has_callers_rights_only()) {
            return refuse_to_make(path);
        }
        gid_t group = 0;
        const int error = make(path, kMode, group);
        if (error != 0) {
            return report(path, error);
        }
        result.descriptor_ = open_at(AT_FDCWD, path.c_str(), kOpenFlags);
    }
    return result ? result.check() : report(path, errno);
}

void Directory::open_name(const Directory &parent, const char *name) {
    path_ = parent.path() + "/" + name;
    descriptor_ = open_at(parent.get(), name, kOpenFlags | O_NOFOLLOW);
}

cerrno Directory::check_below() {
    if (!descriptor_ && (errno == ENOTDIR || errno == ELOOP)) {
        log(kLogError, "%s is not a directory, and is not used; look who made it, then: rm %s", path_.c_str(),
            path_.c_str());
        return SYSDB_ERR_ACCESS;
    }
    return descriptor_ ? check() : report(path_, errno);
}

cerrno Directory::open_below(const Directory &parent, const char *name, Directory &result) {
    result.open_name(parent, name);
    if (!result && errno == ENOENT) {
        if (!parent.may_make_files()) {
            return refuse_to_make(result.path_);
        }
        const mode_t mode = parent.group_may_write() ? kMode : kModeWithoutGroup;
        const int error = make_in(parent.get(), name, parent.group(), mode, result.path_);
        if (error != 0) {
            return report(result.path_, error);
        }
        result.open_name(parent, name);
    }
    return result.check_below();
}

cerrno Directory::find_below(const Directory &parent, const char *name, Directory &result) {
    result.open_name(parent, name);
    if (!result && errno != ENOTDIR && errno != ELOOP) {
        return errno == ENOENT ? SYSDB_ERR_NOT_FOUND : Result::of_errno(errno).code();
    }
    return result.check_below();
}

bool Directory::may_make_files() const {
    return has_callers_rights_only() || geteuid() == 0 || geteuid() == owner_;
}

bool Directory::is_read_only() const {
    return faccessat(get(), ".", W_OK, AT_EACCESS) != 0 && errno == EROFS;
}

void Directory::sync() const {
    const Descriptor readable = open_at(get(), ".", O_RDONLY | O_DIRECTORY);
    if (readable) {
        fsync(readable.get());
    }
}

}  // namespace sysdb_lmdb
