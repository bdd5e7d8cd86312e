// SPDX-License-Identifier: Apache-2.0
//
// Other processes, as /proc shows them: name, state and open files.
#pragma once

#include <sys/types.h>

#include <string>

#include "descriptor.hpp"
#include "files.hpp"

namespace sysdb_lmdb {

struct Process {
    pid_t pid = 0;
    std::string name = "?";  // printable
    bool is_stopped = false;
};

// The directory of a process or thread in /proc; empty when there is none, or when /proc
// shows the numbers of another container. Everything is read through this descriptor: it
// never becomes that of another process, even if its number does.
Descriptor process_directory(pid_t thread);

// A lock holds the number of a thread; its process is what people see and signal.
Process process_of(pid_t thread, const Descriptor &directory);

// Null when the process has the file open, or why that is not certain.
const char *doubt_that_it_uses(const Descriptor &process, const FileIdentity &file);

}  // namespace sysdb_lmdb
