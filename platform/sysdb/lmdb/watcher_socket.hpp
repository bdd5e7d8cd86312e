// SPDX-License-Identifier: Apache-2.0
//
// Datagram sockets in the watcher directory. Its names are written by other processes:
// a name is used only if it is one of a watcher's, and if it belongs to a socket. A link
// is not followed.
#pragma once

#include <string>

#include "descriptor.hpp"
#include "directory.hpp"
#include "platform/sysdb.h"

namespace sysdb_lmdb {

// Binds a new socket under a name of this process's own.
cerrno bind_watcher_socket(const Directory &directory, Descriptor &socket, std::string &name);

// A socket without a name, to send from.
Descriptor make_sender();

enum class Peer { kAlive, kDead };

// Sends the wake-up. A name that is not a watcher's is dead.
Peer wake_peer(const Descriptor &sender, const Directory &directory, const std::string &name);
// Tells, without sending anything, whether a process holds the socket.
Peer probe_peer(const Directory &directory, const std::string &name);

// Does nothing for a name that is not a watcher's, or does not belong to a socket.
void remove_socket_file(const Directory &directory, const std::string &name);
bool socket_file_exists(const Directory &directory, const std::string &name);

// Reads and discards all received datagrams.
void drain_socket(int fd);

}  // namespace sysdb_lmdb
