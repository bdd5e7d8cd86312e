/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_SYSDB_PROVIDER_H
#define PLATFORM_SYSDB_PROVIDER_H

/**
 * @file
 * @brief Interface of sysdb providers.
 *
 * A provider is a shared object that exports one function,
 * sysdb_provider_table(), which returns a stamped table. The platform loads it
 * once per process, never unloads it, and forwards every call of
 * platform/sysdb.h to it.
 *
 * 1. The meaning of each call, its ownership rules and its codes are those of
 *    platform/sysdb.h. Before it forwards, the platform has checked that pointers
 *    that must not be null are not null, and that a value passed to item_set fits
 *    its type (four bytes, a string ended by its NUL, a tuple of the right form).
 *    The provider checks the rest: handles, paths, flags, sizes.
 * 2. Every function may be called by any number of threads at once.
 * 3. A provider calls back (notifications) only inside dispatch and
 *    dispatch_channel, holding no lock.
 * 4. bind, unbind, conn_to_coid, dispatch and dispatch_channel run on a thread
 *    that another one may be joining while it holds the dynamic loader's lock.
 *    They must not use anything that takes that lock: dlopen and its family,
 *    pthread_exit, thread-local objects with destructors, the name services,
 *    iconv_open, backtrace.
 * 5. Values come from malloc: the platform's callers free() them.
 * 6. After fork the child must be able to use the handles that it inherited;
 *    notifications remain with the parent.
 * 7. New members are added at the end of the table, with a larger size. A
 *    change of meaning is a new SYSDB_PROVIDER_ABI. A provider whose table ends
 *    before such a member is used without it.
 */

#include <stdint.h>
#include "platform/sysdb.h"
#include "platform/sysdb_changes.h"

#ifdef __cplusplus
extern "C" {
#endif

#define SYSDB_PROVIDER_ABI   1u
#define SYSDB_PROVIDER_ENTRY "sysdb_provider_table"

/** Services of the platform for its provider. Valid to the end of the process. */
typedef struct sysdb_host {
    uint32_t abi;  /**< SYSDB_PROVIDER_ABI */
    uint32_t size; /**< sizeof(sysdb_host_t) of the platform */
    /**
     * Logs one line; severity as for syslog(3), mnemonic in capitals. Any thread, no line feed in the text.
     */
    void (*log)(uint32_t severity, const char *mnemonic, const char *text);
    /**
     * Tells whether stored bytes fit their type, as item_set requires: 1, else 0. Bytes stored by another
     * process may not; they must not reach a notification callback. Any thread, takes no lock. May be
     * missing: see size.
     */
    int (*value_fits)(uint32_t datatype, const void *value, uint32_t length);
} sysdb_host_t;

typedef struct sysdb_provider {
    uint32_t abi;     /**< SYSDB_PROVIDER_ABI */
    uint32_t size;    /**< sizeof(sysdb_provider_t) of the provider */
    const char *name; /**< for log lines, e.g. "lmdb" */

    cerrno (*bind)(sysdb_conn_t *conn, const char *path, uint32_t flags);
    cerrno (*unbind)(sysdb_conn_t conn);
    cerrno (*conn_to_coid)(sysdb_conn_t conn, int32_t *coid);

    cerrno (*item_get)(sysdb_conn_t conn, const char *path, uint32_t *datatype, void **value,
                       uint32_t *length, uint32_t flags);
    cerrno (*item_set)(sysdb_conn_t conn, const char *path, uint32_t datatype, const void *value,
                       uint32_t length, uint32_t flags);
    cerrno (*item_delete)(sysdb_conn_t conn, const char *path, uint32_t flags);

    cerrno (*list)(sysdb_conn_t conn, const char *path, const char *pattern, uint32_t *count,
                   sysdb_list_t *list, uint32_t flags);
    cerrno (*list_start)(sysdb_list_t list);
    cerrno (*list_next)(sysdb_list_t list, char **name, uint32_t *type, uint32_t flags);
    void (*list_free)(sysdb_list_t list);
    cerrno (*find)(sysdb_conn_t conn, const char *path, const char *pattern, uint32_t *count,
                   sysdb_list_t *list, uint32_t flags, uint32_t depth);
    cerrno (*directory_get_last)(sysdb_conn_t conn, const char *path, char **name, uint32_t *type,
                                 uint32_t flags);

    cerrno (*register_notification)(sysdb_conn_t conn, const char *path, uint32_t events, uint32_t mode,
                                    aaa_notify_cb_t callback, void *callback_arg, void *user_ctx,
                                    uint64_t *notification);
    cerrno (*notification_unregister)(sysdb_conn_t conn, uint64_t notification);

    /** Calls the pending callbacks of one connection. */
    cerrno (*dispatch)(sysdb_conn_t conn);
    /** The same by the connection's channel id; for the event manager, which knows only the id. */
    cerrno (*dispatch_channel)(int32_t coid);

    /* Added after the first tables; see rule 7. */

    /** Makes several changes as one; failed is never null, and equals count until a change is refused. */
    cerrno (*apply)(sysdb_conn_t conn, const sysdb_change_t *changes, uint32_t count, uint32_t *failed);

    /** As register_notification, for a mode with SYSDB_NOTIFY_SINCE. */
    cerrno (*register_since)(sysdb_conn_t conn, const char *path, uint32_t events, uint32_t mode,
                             uint64_t revision, aaa_notify_cb_t callback, void *callback_arg, void *user_ctx,
                             uint64_t *notification);
} sysdb_provider_t;

/** The provider's one export, as the platform finds it. */
typedef const sysdb_provider_t *(*sysdb_provider_entry_t)(uint32_t abi, const sysdb_host_t *host);

/**
 * Gives the provider's table; the one export of a provider.
 *
 * @param[in] abi  the version that the platform speaks, SYSDB_PROVIDER_ABI
 * @param[in] host services of the platform
 *
 * Ownership: *Borrowed* to the end of the process.
 *
 * @return the table, or null when the provider does not speak that version
 */
PLATFORM_API const sysdb_provider_t *sysdb_provider_table(uint32_t abi, const sysdb_host_t *host);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_SYSDB_PROVIDER_H */
