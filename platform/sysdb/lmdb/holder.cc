// SPDX-License-Identifier: Apache-2.0
//
// Reading /proc for the name and the state of a process.

#include "holder.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

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

// A lock holds the number of a thread; its process is what people see and signal.
Process process_of(pid_t thread) {
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%ld/status", static_cast<long>(thread));
    const Descriptor file = open_at(AT_FDCWD, path, O_RDONLY);
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

}  // namespace

void log_holder(const std::string &file, pid_t thread, long waited_ms) {
    if (thread <= 0) {
        log(kLogError, "database %s: another process has kept a lock for more than %ld ms; try again",
            file.c_str(), waited_ms);
        return;
    }
    const Process holder = process_of(thread);
    log(kLogError,
        "database %s: process %ld (%s)%s has kept a lock for more than %ld ms; let it go on: kill -CONT %ld, "
        "or end it: kill -KILL %ld",
        file.c_str(), static_cast<long>(holder.pid), holder.name.c_str(),
        holder.is_stopped ? ", which is stopped," : "", waited_ms, static_cast<long>(holder.pid),
        static_cast<long>(holder.pid));
}

}  // namespace sysdb_lmdb
