// SPDX-License-Identifier: Apache-2.0
//
// Presence check and connections of the system database.

#include "internal/sysdb_access.hpp"

#include <unistd.h>

namespace aaautil {
namespace {

constexpr char kSysdbLibrary[] = AAA_PKG_ROOT "/lib/libsysdb.so";

cerrno bind(sysdb_conn_t *conn, const char *path, uint32_t flags, SysdbPresence &presence) noexcept {
    return presence.check() ? _sysdb_bind(conn, path, flags) : SYSDB_ERR_LIB_ABSENT;
}

}  // namespace

constinit SysdbPresence lifecycle_presence;
constinit SysdbPresence server_group_presence;
constinit SysdbPresence method_list_presence;

bool SysdbPresence::check() noexcept {
    if (seen_.load(std::memory_order_relaxed) != 0) {
        return true;
    }
    if (access(kSysdbLibrary, R_OK) != 0) {
        return false;
    }
    seen_.store(1, std::memory_order_relaxed);
    return true;
}

cerrno bind_shared(uint64_t &handle, const char *path, SysdbPresence &presence) noexcept {
    if (shared_handle(handle) != 0) {
        return 0;
    }
    // Not into the exported word: when a program calls right after loading the
    // library, its first lookup and the worker bind at the same time. The connection
    // that was stored first would be lost and never closed.
    sysdb_conn_t made = 0;
    const cerrno rc = bind(&made, path, SYSDB_BIND_SHARED, presence);
    if (rc != 0) {
        return rc;
    }
    uint64_t expected = 0;
    if (!__atomic_compare_exchange_n(&handle, &expected, made, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE)) {
        _sysdb_unbind(made);
    }
    return 0;
}

cerrno bind_private(sysdb_conn_t *conn, const char *path, SysdbPresence &presence) noexcept {
    return bind(conn, path, SYSDB_BIND_PRIVATE, presence);
}

cerrno unbind(sysdb_conn_t conn, SysdbPresence &presence) noexcept {
    return presence.check() ? _sysdb_unbind(conn) : SYSDB_ERR_LIB_ABSENT;
}

}  // namespace aaautil
