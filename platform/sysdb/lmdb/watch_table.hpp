// SPDX-License-Identifier: Apache-2.0
//
// Who watches what: a table in the operational database with a row per
// watched key and process. The row's value is the name of the process's
// datagram socket in the watcher directory. A datagram says no more than "look
// at the change log"; it may be lost or superfluous without harm.
//
// The table lies in the operational database for both trees, so a process
// needs no permission to write configuration in order to watch it, and the
// rows vanish with the sockets when the machine starts anew.
#pragma once

#include <string>
#include <string_view>

#include "items.hpp"

namespace sysdb_lmdb {

cerrno add_watch(std::string_view key, const std::string &socket_name);
cerrno remove_watch(std::string_view key, const std::string &socket_name);

// Wakes every process that watches one of the keys or a directory above it.
// Rows of processes that are gone are removed. Failures are not reported: the
// change is committed, and watchers also look by themselves once a second.
void notify_watchers(const ChangedKeys &keys);

// Removes rows and sockets of processes that are gone.
void sweep_watchers();

}  // namespace sysdb_lmdb
