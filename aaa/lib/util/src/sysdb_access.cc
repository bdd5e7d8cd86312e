// SPDX-License-Identifier: Apache-2.0
//
// Presence check and connections of the system database.

#include "internal/sysdb_access.hpp"

#include <unistd.h>

namespace aaautil {
namespace {

constexpr char kSysdbLibrary[] = AAA_PKG_ROOT "/lib/libsysdb.so";

cerrno bind(sysdb_conn_t *conn, const char *path, uint32_t flags, SysdbPresence &presence) noexcept {
    *conn = 0;
    if (!presence.check()) {
        return SYSDB_ERR_LIB_ABSENT;
    }
    const cerrno rc = _sysdb_bind(conn, path, flags);
    if (rc != 0) {
        *conn = 0;
    }
    return rc;
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
    if (!presence.check()) {
        return SYSDB_ERR_LIB_ABSENT;
    }
    // The exported word itself is handed over, as for every shared handle: the
    // platform stores the connection in it.
    return _sysdb_bind(&handle, path, SYSDB_BIND_SHARED);
}

cerrno bind_private(sysdb_conn_t *conn, const char *path, SysdbPresence &presence) noexcept {
    return bind(conn, path, SYSDB_BIND_PRIVATE, presence);
}

cerrno unbind(sysdb_conn_t conn, SysdbPresence &presence) noexcept {
    return presence.check() ? _sysdb_unbind(conn) : SYSDB_ERR_LIB_ABSENT;
}

}  // namespace aaautil
