// SPDX-License-Identifier: Apache-2.0
//
// The table of readers in the lock file. Pages that the oldest reader may still read are not
// used again, so one that is stopped fills the map.
#pragma once

#include <lmdb.h>
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

namespace sysdb_lmdb {

// A transaction that reads. Members of the group may write the table.
struct Reader {
    pid_t number = 0;  // of its process, in the container of that process
    std::uint64_t thread = 0;
    std::uint64_t txnid = 0;  // of the state that it reads
    bool operator==(const Reader &) const = default;
};

// The one that reads the oldest state, if any does.
std::optional<Reader> oldest_reader(MDB_env *env);

// Whether a living process of that number, in its container, uses the lock file.
bool is_reader_alive(int lock_fd, pid_t number);

// Logs that a reader has kept a full map from using pages again for longer than others wait.
// The line advises to end a process only if the kernel names it as the user of the table's entry.
void log_reader(const std::string &database, int lock_fd, const Reader &reader, long waited_ms);

}  // namespace sysdb_lmdb
