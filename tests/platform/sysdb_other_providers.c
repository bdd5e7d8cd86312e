/* SPDX-License-Identifier: Apache-2.0
 *
 * Providers that do not fit, or fail. Which one is made is chosen at compile time:
 *   OTHER_ABI      a table of another interface version
 *   SHORT_TABLE    a table that lacks members
 *   FIRST_TABLE    a table without the members that were added later
 *   NO_TABLE       a provider that does not support this version
 *   NO_ENTRY       an object that is not a provider
 *   LOSES          a provider that loses every connection at its first event */

#include <stddef.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "platform/sysdb_provider.h"

#if defined(NO_ENTRY)
int not_a_provider(void);
int not_a_provider(void) {
    return 1;
}
#else
#ifdef LOSES
static int channel = -1;

static cerrno bind_channel(sysdb_conn_t *conn, const char *path, uint32_t flags) {
    (void)path;
    (void)flags;
    channel = eventfd(1, EFD_CLOEXEC); /* readable from the beginning */
    *conn = 1;
    return channel >= 0 ? 0 : SYSDB_ERR_STORAGE;
}

static cerrno unbind_channel(sysdb_conn_t conn) {
    (void)conn;
    close(channel);
    channel = -1;
    return 0;
}

static cerrno tell_channel(sysdb_conn_t conn, int32_t *coid) {
    (void)conn;
    *coid = channel;
    return 0;
}

static cerrno lose_channel(int32_t coid) {
    return coid == channel ? SYSDB_ERR_CONNECTION_LOST : SYSDB_ERR_BAD_HANDLE;
}
#endif

#ifdef FIRST_TABLE
static cerrno bind_number(sysdb_conn_t *conn, const char *path, uint32_t flags) {
    (void)path;
    (void)flags;
    *conn = 1;
    return 0;
}
#endif

static const sysdb_provider_t table = {
#if defined(OTHER_ABI)
    .abi = SYSDB_PROVIDER_ABI + 1,
    .size = sizeof(sysdb_provider_t),
#elif defined(FIRST_TABLE)
    .abi = SYSDB_PROVIDER_ABI,
    .size = offsetof(sysdb_provider_t, apply),
    .bind = bind_number,
#elif defined(LOSES)
    .abi = SYSDB_PROVIDER_ABI,
    .size = sizeof(sysdb_provider_t),
    .bind = bind_channel,
    .unbind = unbind_channel,
    .conn_to_coid = tell_channel,
    .dispatch_channel = lose_channel,
#else
    .abi = SYSDB_PROVIDER_ABI,
    .size = offsetof(sysdb_provider_t, dispatch),
#endif
    .name = "other",
};

const sysdb_provider_t *sysdb_provider_table(uint32_t abi, const sysdb_host_t *host) {
    (void)abi;
    (void)host;
#if defined(NO_TABLE)
    return table.abi != abi ? &table : NULL;
#else
    return &table;
#endif
}
#endif
