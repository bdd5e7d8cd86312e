// SPDX-License-Identifier: Apache-2.0
//
// Checks, rights and making of files.

#include "files.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host.hpp"
#include "new_directory.hpp"
#include "result.hpp"
#include "room.hpp"
#include "settings.hpp"

namespace sysdb_lmdb {
namespace {

constexpr mode_t kSharedMode = 0660;
constexpr mode_t kPrivateMode = 0600;
constexpr mode_t kRightsMask = 07777;

constexpr auto kSameUser = static_cast<uid_t>(-1);

void refuse(const Directory &directory, const std::string &name, const char *why, const char *remedy) {
    const std::string path = directory.path() + "/" + name;
    log(kLogError, "%s is not used, because it %s; %s %s", path.c_str(), why, remedy,
        shell_word(path).c_str());
}

// Its content counts for every process, so it must come from someone who may give it:
// root, the owner of the directory, this user, or a member of a group that may write
// here and to which the file belongs.
bool is_owner_trusted(const Directory &directory, const struct stat &status) {
    return status.st_uid == 0 || status.st_uid == directory.owner() || status.st_uid == geteuid() ||
           (directory.group_may_write() && status.st_gid == directory.group());
}

bool is_acceptable(const Directory &directory, const std::string &name, const struct stat &status) {
    if (S_ISLNK(status.st_mode)) {
        refuse(directory, name, "is a symbolic link", "look who made it and where it leads, then: rm");
    } else if (!S_ISREG(status.st_mode)) {
        refuse(directory, name, "is not a regular file", "look who made it, then: rm -r");
    } else if (status.st_nlink != 1) {
        refuse(directory, name, "has another name elsewhere, by which others may reach it",
               "remove that name; it is found by: find / -xdev -samefile");
    } else if (!is_owner_trusted(directory, status)) {
        refuse(directory, name, "belongs to a user who may not write the directory",
               "look what it contains, then remove it, or make it root's: chown -h 0");
    } else {
        return true;
    }
    return false;
}

// Zero or errno. Before the file has a name or contents.
int give_rights(int fd, FileRights rights) {
    if (fchown(fd, kSameUser, rights.group) != 0) {
        struct stat status;
        if (fstat(fd, &status) != 0 || status.st_gid != rights.group) {
            rights.mode = kPrivateMode;  // and not to a group that it happens to have
        }
    }
    return fchmod(fd, rights.mode) == 0 ? 0 : errno;
}

// A file without a name gets its rights, then its name: at no moment is there a file with
// other rights. EOPNOTSUPP where that cannot be done.
int make_whole(const Directory &directory, const std::string &name, FileRights rights) {
    const Descriptor file = open_at(directory.get(), ".", O_TMPFILE | O_RDWR, kPrivateMode);
    if (!file) {
        return errno == EISDIR || errno == EINVAL || errno == EOPNOTSUPP ? EOPNOTSUPP : errno;
    }
    const int error = give_rights(file.get(), rights);
    if (error != 0) {
        return error;
    }
    const DescriptorPath source(file.get());
    if (linkat(AT_FDCWD, source.get(), directory.get(), name.c_str(), AT_SYMLINK_FOLLOW) == 0) {
        return 0;
    }
    return errno == ENOENT || errno == EPERM ? EOPNOTSUPP : errno;  // no /proc
}

// For file systems without nameless files. A process that is killed before the last step
// leaves an empty file, whose rights the next one repairs.
int make_in_place(const Directory &directory, const std::string &name, FileRights rights) {
    const Descriptor file =
        open_at(directory.get(), name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, kPrivateMode);
    return file ? give_rights(file.get(), rights) : errno;
}

cerrno refuse_to_make(const Directory &directory, const std::string &name) {
    log(kLogError,
        "database %s/%s is missing, and a program that runs with another group's rights does not make it; "
        "make it as root: aaactl sysdb ls /cfg/ && aaactl sysdb ls /oper/",
        directory.path().c_str(), name.c_str());
    return SYSDB_ERR_ACCESS;
}

cerrno report(const Directory &directory, const std::string &name, int error, const char *what) {
    const Result result = Result::of_errno(error);
    if (result.is_no_room()) {
        return report_no_room(directory.get(), directory.path() + "/" + name, error);
    }
    log(kLogError, "%s/%s cannot be %s: %s; check the directory and its permissions",
        directory.path().c_str(), name.c_str(), what, std::strerror(error));
    return result.code();
}

}  // namespace

FileIdentity identity_of(const struct stat &status) {
    return {status.st_dev, status.st_ino};
}

bool identify(const std::string &path, FileIdentity &identity) {
    struct stat status;
    if (lstat(path.c_str(), &status) != 0) {
        return false;
    }
    identity = identity_of(status);
    return true;
}

FileRights rights_in(const Directory &directory) {
    return {directory.group_may_search() ? kSharedMode : kPrivateMode, directory.group()};
}

cerrno check_file(const Directory &directory, const std::string &name, CheckedFile &file) {
    struct stat status;
    if (fstatat(directory.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno == ENOENT ? SYSDB_ERR_NOT_FOUND : report(directory, name, errno, "used");
    }
    if (!is_acceptable(directory, name, status)) {
        return SYSDB_ERR_ACCESS;
    }
    file = {identity_of(status), status.st_mode & kRightsMask, status.st_gid, status.st_size};
    return 0;
}

cerrno make_file(const Directory &directory, const std::string &name, FileRights rights, CheckedFile &file) {
    if (!directory.may_make_files()) {
        return refuse_to_make(directory, name);
    }
    int error = make_whole(directory, name, rights);
    if (error == EOPNOTSUPP) {
        error = make_in_place(directory, name, rights);
    }
    if (error != 0 && error != EEXIST) {
        return report(directory, name, error, "made");
    }
    directory.sync();
    const cerrno rc = check_file(directory, name, file);
    return rc == SYSDB_ERR_NOT_FOUND ? report(directory, name, ENOENT, "made") : rc;
}

// The descriptor has no rights to the contents, and closing it drops no lock.
void repair_rights(const Directory &directory, const std::string &name, FileRights rights,
                   CheckedFile &file) {
    // A file gets its group while it is empty. One with contents and another group may be
    // a private file that a member of the group has moved here to read it.
    if (file.group != rights.group && file.size != 0) {
        return;
    }
    if ((file.mode == rights.mode && file.group == rights.group) || !directory.may_make_files()) {
        return;
    }
    const Descriptor found = open_at(directory.get(), name.c_str(), O_PATH | O_NOFOLLOW);
    struct stat status;
    if (!found || fstat(found.get(), &status) != 0 || identity_of(status) != file.identity ||
        status.st_uid != geteuid()) {
        return;
    }
    if (file.group != rights.group &&
        fchownat(found.get(), "", kSameUser, rights.group, AT_EMPTY_PATH) != 0) {
        return;
    }
    if (chmod(DescriptorPath(found.get()).get(), rights.mode) == 0) {
        file.mode = rights.mode;
        file.group = rights.group;
    }
}

Descriptor open_checked(const Directory &directory, const std::string &name, const FileIdentity &identity,
                        int flags) {
    // Without O_NONBLOCK a pipe that takes the name now would stop the process.
    Descriptor file = open_at(directory.get(), name.c_str(), flags | O_NOFOLLOW | O_NONBLOCK);
    struct stat status;
    if (file && (fstat(file.get(), &status) != 0 || identity_of(status) != identity)) {
        file.reset();
        errno = ESTALE;
    }
    return file;
}

}  // namespace sysdb_lmdb
