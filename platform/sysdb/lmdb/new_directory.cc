// SPDX-License-Identifier: Apache-2.0
//
// A directory is made under a random name, gets its rights, and then its own name: a process
// that is killed meanwhile leaves no directory with unfinished rights in the place that
// others use. What it leaves is removed by the next one. A living process keeps a lock on the
// directory that it makes, which the kernel frees when the process dies, in a container too.

#include "new_directory.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <string_view>

#include "descriptor.hpp"
#include "host.hpp"

namespace sysdb_lmdb {
namespace {

constexpr int kAttempts = 16;  // to make a directory that no one else has made
constexpr int kOpenFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW;

constexpr std::string_view kPrefix = ".new.";
constexpr std::size_t kDigits = 16;

using OpenDirectory = std::unique_ptr<DIR, decltype([](DIR *directory) { closedir(directory); })>;

OpenDirectory entries_of(int directory) {
    Descriptor readable = open_at(directory, ".", O_RDONLY | O_DIRECTORY);
    OpenDirectory entries(readable ? fdopendir(readable.get()) : nullptr);
    if (entries != nullptr) {
        readable.release();
    }
    return entries;
}

// ---- what killed processes have left

bool is_temporary(std::string_view name) {
    return name.starts_with(kPrefix) && name.size() == kPrefix.size() + kDigits &&
           name.find_first_not_of("0123456789abcdef", kPrefix.size()) == std::string_view::npos;
}

bool is_locked_by_another(int directory) {
    return flock(directory, LOCK_EX | LOCK_NB) != 0;
}

// Only an empty directory of this user, which no one makes at the moment. Who puts another
// one in its place now could have removed that one too.
void remove_abandoned(int parent, const char *name) {
    const Descriptor found = open_at(parent, name, kOpenFlags);
    struct stat status;
    if (found && fstat(found.get(), &status) == 0 && status.st_uid == geteuid() &&
        !is_locked_by_another(found.get())) {
        unlinkat(parent, name, AT_REMOVEDIR);
    }
}

void remove_all_abandoned(int parent) {
    const OpenDirectory entries = entries_of(parent);
    while (const dirent *entry = entries != nullptr ? readdir(entries.get()) : nullptr) {
        if (is_temporary(entry->d_name)) {
            remove_abandoned(parent, entry->d_name);
        }
    }
}

// ---- making

// Zero or errno. The group must be the intended one, and never the one that this process
// happens to have.
int settle(int fd, DirectoryRights rights, const std::string &path, const std::string &place) {
    struct stat status;
    if (fstat(fd, &status) != 0) {
        return errno;
    }
    if (rights.mode == kSharedDirectory && status.st_gid != rights.group &&
        fchown(fd, static_cast<uid_t>(-1), rights.group) != 0) {
        const std::string group = std::to_string(rights.group);
        log(kLogWarning,
            "directory %s is for user %u only: this process cannot give it to group %s; do it as root: %s",
            path.c_str(), static_cast<unsigned>(geteuid()), group.c_str(),
            command_inside(place, "chgrp " + group + " . && chmod 2770 .").c_str());
        rights.mode = kPrivateDirectory;
    }
    return fchmod(fd, rights.mode) == 0 ? 0 : errno;
}

bool is_empty(DIR *entries) {
    int others = 0;
    while (const dirent *entry = readdir(entries)) {
        others += std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0 ? 1 : 0;
    }
    return others == 0;
}

// Zero if it can be the one that this process has just made, EEXIST if it is another one, or
// errno. Who may write the directory above may have put another one in its place, whose rights
// must stay as they are. Who removes what is left may have taken it before it was locked.
int check_new(int directory) {
    struct stat status;
    if (flock(directory, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        return EEXIST;
    }
    if (fstat(directory, &status) != 0) {
        return errno;
    }
    if (status.st_uid != geteuid() || status.st_nlink == 0) {
        return EEXIST;
    }
    const OpenDirectory entries = entries_of(directory);
    if (entries == nullptr) {
        return errno;
    }
    return is_empty(entries.get()) ? 0 : EEXIST;
}

// Whether opening failed because another process has removed the name or given it to
// something else.
bool is_another_in_its_place(int error) {
    return error == ENOENT || error == ENOTDIR || error == ELOOP || error == EACCES;
}

// Zero or errno, EEXIST when the name is another's. The lock lasts as long as the descriptor.
int make_and_settle(int parent, const char *name, DirectoryRights rights, const std::string &path,
                    const std::string &place, Descriptor &made) {
    if (mkdirat(parent, name, kPrivateDirectory) != 0) {
        return errno;
    }
    made = open_at(parent, name, kOpenFlags);
    if (!made) {
        return is_another_in_its_place(errno) ? EEXIST : errno;
    }
    const int error = check_new(made.get());
    return error == 0 ? settle(made.get(), rights, path, place) : error;
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
    char text[kDigits + 1];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(number));
    return std::string(kPrefix) + text;
}

}  // namespace

int make_directory(int parent, const std::string &name, DirectoryRights rights, const std::string &path) {
    remove_all_abandoned(parent);
    const std::string above = place_of(parent, path.substr(0, path.rfind('/')));
    const std::string place = above + (above.ends_with('/') ? "" : "/") + name;
    std::string temporary;
    Descriptor made;
    int error = EEXIST;
    for (int i = 0; i < kAttempts && error == EEXIST; ++i) {
        temporary = new_name();
        error = make_and_settle(parent, temporary.c_str(), rights, path, place, made);
    }
    if (error == EEXIST) {
        return kDisturbedMaking;
    }
    if (error != 0) {  // such as no more descriptors, with which no process could remove it later
        unlinkat(parent, temporary.c_str(), AT_REMOVEDIR);
        return error;
    }
    if (renameat2(parent, temporary.c_str(), parent, name.c_str(), RENAME_NOREPLACE) == 0) {
        return 0;
    }
    error = errno;
    unlinkat(parent, temporary.c_str(), AT_REMOVEDIR);
    if (error == EINVAL || error == ENOSYS) {  // not every file system has this rename
        error = make_and_settle(parent, name.c_str(), rights, path, place, made);
    }
    return error == EEXIST ? 0 : error;
}

std::string place_of(int directory, const std::string &path) {
    char text[4096];
    const ssize_t n = readlink(DescriptorPath(directory).get(), text, sizeof text);
    return n > 0 && static_cast<std::size_t>(n) < sizeof text ? std::string(text, static_cast<std::size_t>(n))
                                                              : path;
}

std::string shell_word(const std::string &text) {
    constexpr char kPlain[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-+,:@%=";
    if (text.find_first_not_of(kPlain) == std::string::npos) {
        return text;
    }
    std::string word = "'";
    for (const char c : text) {
        word += c == '\'' ? "'\\''" : std::string(1, c);
    }
    return word + "'";
}

std::string command_inside(const std::string &place, const std::string &command) {
    const std::string word = shell_word(place);
    return "(cd " + word + " && [ \"$(pwd -P)\" = " + word + " ] && " + command + ")";
}

}  // namespace sysdb_lmdb
