// SPDX-License-Identifier: Apache-2.0
//
// The embedded provider, and what a provider that stores elsewhere and reads here builds on.
#pragma once

#include <new>
#include <stdexcept>

#include "connections.hpp"
#include "platform/sysdb_provider.h"

namespace sysdb_lmdb {

// The embedded provider's table.
const sysdb_provider_t &embedded_provider(const sysdb_host_t *host);

template <typename Call>
cerrno guarded(Call call) {
    try {
        return call();
    } catch (const std::bad_alloc &) {
        return SYSDB_ERR_NOMEM;
    } catch (const std::length_error &) {
        return SYSDB_ERR_NOMEM;
    }
}

// call(connection) for a handle that is valid.
template <typename Call>
cerrno on_connection(sysdb_conn_t conn, Call call) {
    return guarded([&]() -> cerrno {
        const ConnectionPtr connection = Connections::instance().find(conn);
        return connection != nullptr ? call(connection) : SYSDB_ERR_BAD_HANDLE;
    });
}

}  // namespace sysdb_lmdb
