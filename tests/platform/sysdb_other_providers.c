/* SPDX-License-Identifier: Apache-2.0
 *
 * Providers that do not fit. Which one is made is chosen at compile time:
 *   OTHER_ABI      a table of another interface version
 *   SHORT_TABLE    a table that lacks members
 *   NO_TABLE       a provider that does not speak this version
 *   NO_ENTRY       an object that is no provider */

#include <stddef.h>

#include "platform/sysdb_provider.h"

#ifdef NO_ENTRY
int not_a_provider(void);
int not_a_provider(void) {
    return 1;
}
#else
static const sysdb_provider_t table = {
#if defined(OTHER_ABI)
    .abi = SYSDB_PROVIDER_ABI + 1,
    .size = sizeof(sysdb_provider_t),
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
