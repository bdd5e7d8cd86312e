// SPDX-License-Identifier: Apache-2.0
//
// The watch table: a row in the operational database per watched key and process.
// The row's value is the name of the process's datagram socket in the watcher
// directory. A datagram means "read the change log"; a lost or superfluous one
// does no harm.
//
// The table is in the operational database for both trees: a process needs no
// permission to write configuration in order to watch it, and rows and sockets
// are both removed by a reboot.
#pragma once

#include <string>
#include <string_view>

#include "items.hpp"

namespace sysdb_lmdb {

cerrno add_watch(std::string_view key, const std::string &socket_name);
cerrno remove_watch(std::string_view key, const std::string &socket_name);

// Wakes every process that watches one of the keys or a directory above it.
// Rows of processes that have ended are removed. Failures are not reported: the
// change is committed, and watchers read the log once a second in any case.
void notify_watchers(const ChangedKeys &keys);

// Removes rows and sockets of processes that have ended.
void sweep_watchers();

}  // namespace sysdb_lmdb
