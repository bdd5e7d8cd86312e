// SPDX-License-Identifier: Apache-2.0
//
// Reading /proc for the name, the state and the open files of a process.

#include "holder.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "descriptor.hpp"
#include "host.hpp"

namespace sysdb_lmdb {
namespace {

struct Process {
    pid_t pid = 0;
    std::string name = "?";
    bool is_stopped = false;
};

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

// Everything is read through this descriptor: it never becomes that of another process, even
// if its number does.
Descriptor directory_of(pid_t thread) {
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%ld", static_cast<long>(thread));
    return open_at(AT_FDCWD, path, O_PATH | O_DIRECTORY);
}

// A lock holds the number of a thread; its process is what people see and signal.
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

// Null when the process has the file open, or why that is not certain.
const char *doubt(const Descriptor &process, const FileIdentity &file) {
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

}  // namespace

void log_holder(const std::string &database, const FileIdentity &lock_file, pid_t thread, Witness witness,
                long waited_ms) {
    if (thread <= 0) {
        log(kLogError, "database %s: another process has kept a lock for more than %ld ms; try again",
            database.c_str(), waited_ms);
        return;
    }
    const Descriptor directory = directory_of(thread);
    const char *why = witness == Witness::kKernel ? nullptr : doubt(directory, lock_file);
    if (why != nullptr) {
        log(kLogError,
            "database %s: a lock has been kept for more than %ld ms; %s-lock names process %ld, which %s, so "
            "that it could not be verified; look as root who uses the database: fuser -v %s-lock",
            database.c_str(), waited_ms, database.c_str(), static_cast<long>(thread), why, database.c_str());
        return;
    }
    const Process holder = process_of(thread, directory);
    log(kLogError,
        "database %s: process %ld (%s)%s has kept a lock for more than %ld ms; let it go on: kill -CONT %ld, "
        "or end it: kill -KILL %ld",
        database.c_str(), static_cast<long>(holder.pid), holder.name.c_str(),
        holder.is_stopped ? ", which is stopped," : "", waited_ms, static_cast<long>(holder.pid),
        static_cast<long>(holder.pid));
}

}  // namespace sysdb_lmdb
