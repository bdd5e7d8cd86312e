// SPDX-License-Identifier: Apache-2.0
//
// The table of connections.

#include "connections.hpp"

namespace sysdb_lmdb {

// Never destroyed: other threads may use it while the process exits.
Connections &Connections::instance() {
    static Connections &connections = *new Connections;
    return connections;
}

std::uint64_t Connections::add(const Key &prefix) {
    auto connection = std::make_shared<Connection>();
    connection->prefix = prefix;
    const std::lock_guard lock(mutex_);
    connection->id = ++last_id_;
    connections_.emplace(connection->id, connection);
    return connection->id;
}

ConnectionPtr Connections::find(std::uint64_t id) {
    const std::lock_guard lock(mutex_);
    const auto found = connections_.find(id);
    return found != connections_.end() ? found->second : nullptr;
}

ConnectionPtr Connections::remove(std::uint64_t id) {
    const std::lock_guard lock(mutex_);
    const auto found = connections_.find(id);
    if (found == connections_.end()) {
        return nullptr;
    }
    ConnectionPtr connection = std::move(found->second);
    connections_.erase(found);
    return connection;
}

std::vector<ConnectionPtr> Connections::all() {
    const std::lock_guard lock(mutex_);
    std::vector<ConnectionPtr> result;
    for (const auto &[id, connection] : connections_) {
        result.push_back(connection);
    }
    return result;
}

}  // namespace sysdb_lmdb
