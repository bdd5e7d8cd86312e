// SPDX-License-Identifier: Apache-2.0
//
// The two database connections that the worker keeps open, and the exported
// helpers that put connections on an event manager.
//
// One mutex serialises the functions here that bind, unbind or clear a
// handle. Readers of the handles, and the modules that bind one on first use,
// do not take it.

#include "aaa/lifecycle.h"

#include <pthread.h>

#include <cerrno>
#include <cstring>

#include "aaa/result_codes.h"
#include "internal/lifecycle.hpp"
#include "internal/sysdb_access.hpp"
#include "platform/cerr.h"
#include "platform/event_manager.h"
#include "platform/logging.h"
#include "platform/node.h"
#include "platform/sysdb.h"

uint64_t aaa_sgmap_sysdb_connid;
uint64_t aaa_cfg_sysdb_connid;

namespace aaautil {
namespace {

constexpr uint32_t kNotifyMask = 0x6000;

pthread_mutex_t connection_mutex;

// The trace texts of the functions below, unabridged because operators search for them.
struct Texts {
    const char *lock_failed;
    const char *unlock_failed;
    const char *done;
};

struct Connection {
    uint64_t &handle;
    const char *path;
    Texts init;
    Texts close;
};

constinit const Connection mapping{
    aaa_sgmap_sysdb_connid,
    kServerGroupPath,
    {"Mutex lock failed sgmap sysdb con init", "Mutex unlock failed for sgmap sysdb con init",
     "Done with sgmap sysdb con init"},
    {"Mutex lock failed sgmap sysdb con close", "Mutex unlock failed for sgmap sysdb con close",
     "Done with sgmap sysdb con close"},
};

constinit const Connection configuration{
    aaa_cfg_sysdb_connid,
    kConfigPath,
    {"Mutex lock failed cfg sysdb con init", "Mutex unlock failed for cfg sysdb con init",
     "Done with cfg sysdb con init"},
    {"Mutex lock failed cfg sysdb con close", "Mutex unlock failed for cfg sysdb con close",
     "Done with cfg sysdb con close"},
};

constexpr Texts kCloseBoth{"Mutex lock failed sysdb con close", "Mutex unlock failed for sysdb con close",
                           "Done with sysdb con close"};

int make_connection_mutex() noexcept {
    pthread_mutexattr_t attr{};
    const bool made = pthread_mutexattr_init(&attr) == 0;
    if (made) {
        pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_ERRORCHECK);
    }
    // Set again after any failure above: the type is required.
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_ERRORCHECK);
    std::memset(&connection_mutex, 0, sizeof connection_mutex);
    const int rc = pthread_mutex_init(&connection_mutex, &attr);
    if (made) {
        pthread_mutexattr_destroy(&attr);
    }
    return rc;
}

// A thread that has to wait reports the name of the waiting function and the
// place to the platform, which reports stuck threads.
bool lock_connections(const char *function, int line) noexcept {
    const int rc = pthread_mutex_trylock(&connection_mutex);
    if (rc != EBUSY) {
        return rc == 0;
    }
    ptd_set_mutex_block(&connection_mutex, function, line);
    const int waited = pthread_mutex_lock(&connection_mutex);
    ptd_unset_mutex_block();
    return waited == 0;
}

void unlock_connections(const Texts &texts) noexcept {
    if (pthread_mutex_unlock(&connection_mutex) != 0) {
        aaa_debug(0, texts.unlock_failed);
    }
    aaa_debug(0, texts.done);
}

// Closes the connection, then sets the handle to 0: while it is not 0 no other
// thread binds a second connection. While the database's library is absent the
// connection is forgotten without an unbind.
void drop(uint64_t &handle) noexcept {
    const uint64_t held = shared_handle(handle);
    if (held != 0) {
        unbind(held, lifecycle_presence);
        __atomic_store_n(&handle, uint64_t{0}, __ATOMIC_RELEASE);
    }
}

int32_t channel_of(uint64_t &handle) noexcept {
    // The platform may write more than the 32 bits that are meant.
    struct alignas(8) {
        int32_t id;
        uint32_t slack;
    } channel{-1, 0};
    if (sysdb_conn_to_coid(shared_handle(handle), &channel.id) != 0) {
        drop(handle);
        return -1;
    }
    return channel.id;
}

int32_t bring_up(const Connection &connection, const char *function, int line) noexcept {
    if (!lock_connections(function, line)) {
        aaa_debug(0, connection.init.lock_failed);
        return -1;
    }
    int32_t channel = -1;
    if (bind_shared(connection.handle, connection.path, lifecycle_presence) == 0) {
        channel = channel_of(connection.handle);
    }
    unlock_connections(connection.init);
    return channel;
}

int32_t take_down(const Connection &connection, const char *function, int line) noexcept {
    if (!lock_connections(function, line)) {
        aaa_debug(0, connection.close.lock_failed);
        return 0;
    }
    drop(connection.handle);
    unlock_connections(connection.close);
    return 0;
}

// ---- Callbacks of the two event connections. The platform shows their names for
// ---- threads that wait in them.

int32_t aaa_util_sgmap_lib_sysdb_init(void *, void *) {
    return bring_up(mapping, __func__, __LINE__);
}

int32_t aaa_util_lib_sgmap_sysdb_shutdown(void *, void *) {
    return take_down(mapping, __func__, __LINE__);
}

int32_t aaa_util_cfg_lib_sysdb_init(void *, void *) {
    return bring_up(configuration, __func__, __LINE__);
}

int32_t aaa_util_lib_cfg_sysdb_shutdown(void *, void *) {
    return take_down(configuration, __func__, __LINE__);
}

}  // namespace

void init_connection_mutex() noexcept {
    if (make_connection_mutex() != 0) {
        aaa_debug(0, "Failed to init lib util sysdb con mutex");
    }
    aaa_debug(0, "Done with lib util sysdb con mutex init");
}

void reset_connection_mutex() noexcept {
    make_connection_mutex();
}

void open_event_connections(void *evm) noexcept {
    void *slot = nullptr;  // for both in turn; the event manager keeps what it needs
    if (aaa_util_ecm_sysdb_conn(evm, &slot, aaa_util_sgmap_lib_sysdb_init, aaa_util_lib_sgmap_sysdb_shutdown,
                                evm) == 0) {
        aaa_util_ecm_sysdb_conn(evm, &slot, aaa_util_cfg_lib_sysdb_init, aaa_util_lib_cfg_sysdb_shutdown,
                                evm);
    }
}

void aaa_close_sysdb_connections() noexcept {
    if (!lock_connections(__func__, __LINE__)) {
        aaa_debug(0, kCloseBoth.lock_failed);
        return;
    }
    drop(aaa_sgmap_sysdb_connid);
    drop(aaa_cfg_sysdb_connid);
    unlock_connections(kCloseBoth);
}

}  // namespace aaautil

namespace {

cerrno open_sysdb_conn(void *evm, void **conn_out, aaa_event_cb_t up_cb, aaa_event_cb_t down_cb,
                       void *ctx) noexcept {
    cerrno rc = event_conn_create(conn_out, evm, up_cb, ctx, EVENT_CONN_TYPE_SYSDB);
    if (rc == 0) {
        rc = event_conn_notify(*conn_out, aaautil::kNotifyMask, down_cb);
    }
    return rc == 0 ? event_conn_open(*conn_out) : rc;
}

}  // namespace

extern "C" {

cerrno aaa_util_ecm_sysdb_conn(void *evm, void **conn_out, aaa_event_cb_t up_cb, aaa_event_cb_t down_cb,
                               void *ctx) {
    if (evm == nullptr || conn_out == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    const cerrno rc = open_sysdb_conn(evm, conn_out, up_cb, down_cb, ctx);
    if (rc == EVENT_CONN_RETRY) {
        aaa_debug(5, "SysDB connection error retry %u", EVENT_CONN_RETRY);
        return AAA_OK;
    }
    return rc;
}

cerrno aaa_util_ecm_fd_conn(void *evm, void **conn_out, aaa_event_cb_t up_cb, aaa_event_cb_t handler_cb,
                            void *ctx) {
    if (evm == nullptr || conn_out == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    cerrno rc = event_conn_create(conn_out, evm, up_cb, ctx, EVENT_CONN_TYPE_FD);
    if (rc == 0) {
        rc = event_conn_evm_handler(*conn_out, 1, handler_cb, nullptr);
    }
    if (rc != 0) {
        return rc;  // also the retry code: only the opening itself is retried
    }
    rc = event_conn_open(*conn_out);
    if (rc == EVENT_CONN_RETRY) {
        kel_errmsg(kel_msg_rec_aaa_err_ecm_getfn(), 7, "file descriptor", cerr_strerror(EVENT_CONN_RETRY));
        return AAA_OK;
    }
    return rc;
}

}  // extern "C"
