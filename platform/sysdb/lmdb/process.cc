// SPDX-License-Identifier: Apache-2.0
//
// Reading /proc.

#include "process.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace sysdb_lmdb {
namespace {

// The value of a line "Name:\tvalue" of a status file.
std::string field(const std::string &status, const std::string &name) {
    const auto at = status.find(name + ":\t");
    if (at == std::string::npos) {
        return "";
    }
    const auto begin = at + name.size() + 2;
    return status.substr(begin, status.find('\n', begin) - begin);
}

// The program chooses its name.
std::string printable(std::string name) {
    for (char &c : name) {
        if (c < ' ' || c > '~') {
            c = '?';
        }
    }
    return name;
}

// In a container that has the /proc of another one, a number there is not the process that
// has it here.
bool shows_numbers_of_this_container() {
    char text[32];
    const ssize_t n = readlink("/proc/self", text, sizeof text - 1);
    if (n <= 0) {
        return false;
    }
    text[n] = '\0';
    return std::strtol(text, nullptr, 10) == getpid();
}

// Without asking a file system that may not answer: the file can be one of the process's own.
bool identify(int directory, const char *name, FileIdentity &identity) {
    struct statx status;
    if (statx(directory, name, AT_STATX_DONT_SYNC, STATX_INO, &status) != 0) {
        return false;
    }
    identity = {makedev(status.stx_dev_major, status.stx_dev_minor), static_cast<ino_t>(status.stx_ino)};
    return true;
}

using OpenDirectory = std::unique_ptr<DIR, decltype([](DIR *directory) { closedir(directory); })>;

}  // namespace

Descriptor process_directory(pid_t thread) {
    if (!shows_numbers_of_this_container()) {
        return Descriptor();
    }
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%ld", static_cast<long>(thread));
    return open_at(AT_FDCWD, path, O_PATH | O_DIRECTORY);
}

Process process_of(pid_t thread, const Descriptor &directory) {
    const Descriptor file = directory ? open_at(directory.get(), "status", O_RDONLY) : Descriptor();
    char buffer[4096];
    const ssize_t n = file ? read(file.get(), buffer, sizeof buffer) : -1;
    Process process{.pid = thread};
    if (n <= 0) {
        return process;
    }
    const std::string status(buffer, static_cast<std::size_t>(n));
    process.name = printable(field(status, "Name"));
    process.is_stopped = field(status, "State").starts_with("T") || field(status, "State").starts_with("t");
    const long pid = std::strtol(field(status, "Tgid").c_str(), nullptr, 10);
    process.pid = pid > 0 ? static_cast<pid_t>(pid) : thread;
    return process;
}

const char *doubt_that_it_uses(const Descriptor &process, const FileIdentity &file) {
    if (!process) {
        return "does not exist here";
    }
    Descriptor descriptors = open_at(process.get(), "fd", O_RDONLY | O_DIRECTORY);
    const OpenDirectory directory(descriptors ? fdopendir(descriptors.get()) : nullptr);
    if (directory == nullptr) {
        return "this user may not look at";
    }
    descriptors.release();
    bool is_hidden = false;
    while (const dirent *entry = readdir(directory.get())) {
        FileIdentity found;
        if (!identify(dirfd(directory.get()), entry->d_name, found)) {
            is_hidden |= errno != ENOENT;  // closed meanwhile
        } else if (found == file) {
            return nullptr;
        }
    }
    return is_hidden ? "this user may not look at" : "does not have it open";
}

}  // namespace sysdb_lmdb
