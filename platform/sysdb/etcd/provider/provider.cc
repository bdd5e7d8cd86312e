// SPDX-License-Identifier: Apache-2.0
//
// The provider for many nodes: the embedded one, of which the configuration of a node that has
// joined a cluster is changed by way of this node's agent. Everything else, all reading and
// watching too, is the embedded provider's own code, on this node's files.
//
// The mark in the database tells whether the node has joined: processes that run need no restart
// when it joins or leaves, and the provider can be installed where there is no cluster.

#include "provider.hpp"

#include "changes.hpp"
#include "mirror_mark.hpp"
#include "provider/agent_call.hpp"
#include "settings.hpp"

namespace sysdb_etcd {
namespace {

using sysdb_lmdb::ConnectionPtr;

constinit const sysdb_provider_t *g_embedded = nullptr;
constinit sysdb_provider_t g_table{};

bool has_joined() {
    std::optional<sysdb_lmdb::MirrorMark> mark;
    return sysdb_lmdb::read_mirror_mark(mark) == 0 && mark;
}

// A node may join between the look at the mark and the change: the embedded provider looks at it
// in its transaction, and refuses the change as read-only.
bool is_local(const ConnectionPtr &connection) {
    return connection->prefix.tree() == sysdb_lmdb::Tree::kOper || !has_joined();
}

// `operation` replaces that of the only change.
cerrno make_changes(const ConnectionPtr &connection, const sysdb_change_t *changes, std::uint32_t count,
                    std::uint32_t &failed, std::uint32_t operation = 0) {
    std::vector<sysdb_lmdb::PlannedChange> planned;
    cerrno rc = sysdb_lmdb::plan_changes(connection->prefix, changes, count, planned, failed);
    if (rc != 0) {
        return rc;
    }
    Request request{
        Ask::kChange, static_cast<std::uint64_t>(now_ms() + sysdb_lmdb::read_settings().wait_ms), {}};
    request.changes.reserve(count);
    for (const sysdb_lmdb::PlannedChange &change : planned) {
        request.changes.push_back({operation != 0 ? operation : change.operation, change.datatype,
                                   sysdb_lmdb::decode(change.key), std::string(change.value)});
    }
    Answer answer;
    failed = count;
    rc = ask_agent(request, answer);
    if (rc == 0 && answer.code != 0) {
        failed = answer.failed < count ? answer.failed : count;
    }
    return rc == 0 ? answer.code : rc;
}

cerrno item_set(sysdb_conn_t conn, const char *path, uint32_t datatype, const void *value, uint32_t length,
                uint32_t flags) {
    return sysdb_lmdb::on_connection(conn, [&](const ConnectionPtr &connection) {
        if (is_local(connection)) {
            return g_embedded->item_set(conn, path, datatype, value, length, flags);
        }
        const sysdb_change_t change = {SYSDB_CHANGE_SET, datatype, path, value, length};
        std::uint32_t failed = 0;
        return make_changes(connection, &change, 1, failed);
    });
}

cerrno item_delete(sysdb_conn_t conn, const char *path, uint32_t flags) {
    return sysdb_lmdb::on_connection(conn, [&](const ConnectionPtr &connection) {
        if (is_local(connection)) {
            return g_embedded->item_delete(conn, path, flags);
        }
        const bool tree = (flags & SYSDB_DELETE_TREE) != 0;
        // A path without a slash at its end names the directory, too, when all below it goes.
        const sysdb_change_t change = {tree ? SYSDB_CHANGE_PRUNE : SYSDB_CHANGE_DELETE, 0, path, nullptr, 0};
        std::uint32_t failed = 0;
        return make_changes(connection, &change, 1, failed, tree ? kDeleteTree : 0);
    });
}

cerrno apply(sysdb_conn_t conn, const sysdb_change_t *changes, uint32_t count, uint32_t *failed) {
    return sysdb_lmdb::on_connection(conn, [&](const ConnectionPtr &connection) {
        return is_local(connection) ? g_embedded->apply(conn, changes, count, failed)
                                    : make_changes(connection, changes, count, *failed);
    });
}

}  // namespace
}  // namespace sysdb_etcd

extern "C" {

const sysdb_provider_t *sysdb_provider_table(uint32_t abi, const sysdb_host_t *host) {
    using namespace sysdb_etcd;
    if (abi != SYSDB_PROVIDER_ABI || host == nullptr) {
        return nullptr;
    }
    g_embedded = &sysdb_lmdb::embedded_provider(host);
    g_table = *g_embedded;
    g_table.name = "etcd";
    g_table.item_set = item_set;
    g_table.item_delete = item_delete;
    g_table.apply = apply;
    return &g_table;
}

}  // extern "C"
