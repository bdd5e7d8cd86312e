// SPDX-License-Identifier: Apache-2.0
//
// The event manager's C interface: handles, argument checks, and the registry
// in which handles are looked up.

#include "event_manager.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include <pthread.h>

#include "loader.hpp"
#include "platform/node.h"

namespace aaaplatform {
namespace {

struct Registered {
    ManagerPtr manager;
    ConnectionPtr connection;  // null for the manager's own entry
    bool retired = false;
};

struct Registry {
    std::mutex mutex;
    std::unordered_map<std::uint64_t, Registered> entries;
    std::uint64_t last_id = 0;
};

// Never destroyed: threads may be in event_block while the process exits.
Registry &registry() {
    static Registry &instance = *new Registry;
    return instance;
}

std::uint64_t id_of(const void *handle) {
    return reinterpret_cast<std::uintptr_t>(handle);
}

void *handle_of(std::uint64_t id) {
    return reinterpret_cast<void *>(static_cast<std::uintptr_t>(id));
}

// Both kinds of handle share one sequence of numbers, so neither is mistaken for
// the other.
Registered look_up(const void *handle, bool connection) {
    Registry &all = registry();
    const std::lock_guard lock(all.mutex);
    const auto found = all.entries.find(id_of(handle));
    if (found == all.entries.end() || (found->second.connection != nullptr) != connection) {
        return {};
    }
    return found->second;
}

ManagerPtr find_manager(const void *handle) {
    ManagerPtr manager = look_up(handle, false).manager;
    if (manager == nullptr) {
        errno = EINVAL;
    } else if (manager->inherited()) {
        errno = EPERM;
        manager.reset();
    }
    return manager;
}

std::uint64_t enter(Registered entry) {
    Registry &all = registry();
    const std::lock_guard lock(all.mutex);
    const std::uint64_t id = ++all.last_id;
    if (entry.connection != nullptr) {
        entry.connection->id = id;
    }
    all.entries.emplace(id, std::move(entry));
    return id;
}

// Removes the managers that match, with their connections, from the registry.
template <typename Matches>
std::vector<ManagerPtr> withdraw(Matches matches) {
    std::vector<ManagerPtr> withdrawn;
    Registry &all = registry();
    const std::lock_guard lock(all.mutex);
    for (auto &[id, entry] : all.entries) {
        if (entry.connection == nullptr && matches(id, entry)) {
            withdrawn.push_back(entry.manager);
        }
    }
    std::erase_if(all.entries, [&](const auto &item) {
        return std::find(withdrawn.begin(), withdrawn.end(), item.second.manager) != withdrawn.end();
    });
    return withdrawn;
}

void close_all(const std::vector<ManagerPtr> &managers) {
    for (const ManagerPtr &manager : managers) {
        if (!manager->inherited()) {
            manager->close();
        }
    }
}

// Calls call(manager, connection), unless the handle is refused.
template <typename Call>
cerrno on_connection(event_conn_t handle, Call call) {
    if (handle == nullptr) {
        return EVENT_ERR_INVALID_ARG;
    }
    const Registered entry = look_up(handle, true);
    if (entry.connection == nullptr) {
        return EVENT_ERR_BAD_HANDLE;
    }
    if (entry.manager->inherited()) {
        return EVENT_ERR_FORKED;
    }
    try {
        return call(*entry.manager, entry.connection);
    } catch (const std::bad_alloc &) {
        return EVENT_ERR_NOMEM;
    }
}

__attribute__((constructor)) void watch_forks() {
    pthread_atfork([] { registry().mutex.lock(); }, [] { registry().mutex.unlock(); },
                   [] { registry().mutex.unlock(); });
}

}  // namespace

void retire_event_managers(const void *object_base) {
    if (object_base == nullptr) {
        return;
    }
    Registry &all = registry();
    const std::lock_guard lock(all.mutex);
    for (auto &[id, entry] : all.entries) {
        if (entry.manager->owner() == object_base) {
            entry.retired = true;
            entry.manager->retire();
        }
    }
}

void release_retired_event_managers() {
    for (const ManagerPtr &manager :
         withdraw([](std::uint64_t, const Registered &entry) { return entry.retired; })) {
        if (!manager->inherited()) {
            manager->abandon();
        }
    }
}

}  // namespace aaaplatform

using namespace aaaplatform;

extern "C" {

event_manager_t event_manager_create(uint32_t flags, const char *, uint32_t, void *) {
    const void *owner = object_base(__builtin_return_address(0));
    if (flags != 0) {
        errno = EINVAL;
        return nullptr;
    }
    try {
        release_retired_event_managers();
        ManagerPtr manager = EventManager::create(owner);
        if (manager == nullptr) {
            return nullptr;
        }
        return handle_of(enter({std::move(manager), nullptr}));
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return nullptr;
    }
}

void event_manager_destroy(event_manager_t evm) {
    if (evm != nullptr) {
        close_all(withdraw([evm](std::uint64_t id, const Registered &) { return id == id_of(evm); }));
    }
}

int32_t event_async_attach(event_manager_t evm, uint32_t, event_async_handler_t handler, void *arg) {
    const ManagerPtr manager = find_manager(evm);
    if (manager == nullptr) {
        return -1;
    }
    try {
        return manager->attach(handler, arg);
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return -1;
    }
}

int32_t event_send_async(event_manager_t evm, int32_t code, uint64_t) {
    const ManagerPtr manager = find_manager(evm);
    if (manager == nullptr) {
        return -1;
    }
    try {
        return manager->send(code) ? 0 : -1;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return -1;
    }
}

int32_t event_block(event_block_ctx_t *ctx) {
    if (ctx == nullptr || ctx->buffer == nullptr || ctx->size < EVENT_BUFFER_MINIMUM) {
        errno = EINVAL;
        return -1;
    }
    const ManagerPtr manager = find_manager(ctx->evm);
    EventRecord record{};
    if (manager == nullptr || !manager->wait(record)) {
        return -1;
    }
    memcpy(ctx->buffer, &record, sizeof record);
    return 0;
}

int32_t qm_event_dispatch(event_block_ctx_t *ctx, uint32_t) {
    if (ctx == nullptr || ctx->buffer == nullptr || ctx->size < EVENT_BUFFER_MINIMUM) {
        errno = EINVAL;
        return -1;
    }
    const ManagerPtr manager = find_manager(ctx->evm);
    if (manager == nullptr) {
        return -1;
    }
    EventRecord record;
    memcpy(&record, ctx->buffer, sizeof record);
    manager->dispatch(record);
    return 0;
}

cerrno event_conn_create(event_conn_t *conn_out, event_manager_t evm, aaa_event_cb_t up_cb, void *ctx,
                         uint32_t type) {
    if (conn_out == nullptr || evm == nullptr || up_cb == nullptr) {
        return EVENT_ERR_INVALID_ARG;
    }
    if (type != EVENT_CONN_TYPE_SYSDB && type != EVENT_CONN_TYPE_FD) {
        return EVENT_ERR_INVALID_ARG;
    }
    const ManagerPtr manager = look_up(evm, false).manager;
    if (manager == nullptr) {
        return EVENT_ERR_BAD_HANDLE;
    }
    if (manager->inherited()) {
        return EVENT_ERR_FORKED;
    }
    try {
        auto connection = std::make_shared<EventConnection>();
        connection->type = type;
        connection->up = up_cb;
        connection->context = ctx;
        const std::uint64_t id = enter({manager, connection});
        manager->add(connection);
        *conn_out = handle_of(id);
    } catch (const std::bad_alloc &) {
        return EVENT_ERR_NOMEM;
    }
    return 0;
}

cerrno event_conn_notify(event_conn_t conn, uint32_t mask, aaa_event_cb_t down_cb) {
    return on_connection(conn, [=](EventManager &manager, const ConnectionPtr &connection) {
        return manager.set_down(connection, mask, down_cb);
    });
}

cerrno event_conn_evm_handler(event_conn_t conn, uint32_t arg, aaa_event_cb_t handler_cb, void *) {
    return on_connection(conn, [=](EventManager &manager, const ConnectionPtr &connection) {
        return manager.set_handler(connection, arg, handler_cb);
    });
}

cerrno event_conn_open(event_conn_t conn) {
    return on_connection(conn, [](EventManager &manager, const ConnectionPtr &connection) {
        return manager.open(connection);
    });
}

cerrno event_conn_close(event_conn_t conn) {
    return on_connection(conn, [conn](EventManager &manager, const ConnectionPtr &connection) -> cerrno {
        {
            const std::lock_guard lock(registry().mutex);
            registry().entries.erase(id_of(conn));
        }
        manager.remove(connection);
        return 0;
    });
}

}  // extern "C"
