// SPDX-License-Identifier: Apache-2.0
//
// Opening and checking directories.

#include "directory.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host.hpp"
#include "new_directory.hpp"
#include "result.hpp"
#include "settings.hpp"

namespace sysdb_lmdb {
namespace {

constexpr mode_t kModeOfParents = 0755;

constexpr int kOpenFlags = O_PATH | O_DIRECTORY;

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
    return make_directory(above.get(), name_of(path), {mode, group_of_new_directory(path, group)}, path);
}

// The advised commands do not follow a link that a member of the group puts in the place of
// the directory, as install -d does: the target would be given to the group.
cerrno report(const std::string &path, int error) {
    const std::string word = shell_word(path);
    log(kLogError,
        "directory %s cannot be made: %s; make it as root: mkdir -m 2770 %s && chgrp -h aaa %s (with the "
        "group of the AAA processes), or set %s and %s to other places",
        path.c_str(),
        error == kDisturbedMaking ? "another process takes or replaces what is made beside it"
                                  : std::strerror(error),
        word.c_str(), word.c_str(), kCfgVariable, kRunVariable);
    return Result::of_errno(error).code();
}

// Its effective group is the caller's, who would get the database.
cerrno refuse_to_make(const std::string &path) {
    const std::string word = shell_word(path);
    log(kLogError,
        "directory %s is missing, and a program with more rights than its user does not make it; make it as "
        "root: systemd-tmpfiles --create, or mkdir -m 2770 %s && chgrp -h aaa %s (with the group of the AAA "
        "processes)",
        path.c_str(), word.c_str(), word.c_str());
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
            "there, then as root: %s",
            path_.c_str(), command_inside(place_of(descriptor_.get(), path_), "chmod o-w .").c_str());
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
        const int error = make(path, kSharedDirectory, group);
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
            shell_word(path_).c_str());
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
        const mode_t mode = parent.group_may_write() ? kSharedDirectory : kPrivateDirectory;
        const int error = make_directory(parent.get(), name, {mode, parent.group()}, result.path_);
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
