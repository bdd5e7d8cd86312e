/* SPDX-License-Identifier: Apache-2.0 */
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>

#include "platform/sysdb_provider.h"

static void say(uint32_t severity, const char *mnemonic,
                const char *text) {
    fprintf(stderr, "%u %s: %s\n", severity, mnemonic, text);
}

static int fits(uint32_t datatype, const void *value,
                uint32_t length) {
    return value != NULL &&
           (datatype != SYSDB_TYPE_U32 || length == 4);
}

/* Asks a provider for its table, as the platform does. */
int main(void) {
    static const sysdb_host_t host = {
        SYSDB_PROVIDER_ABI, sizeof(sysdb_host_t), say, fits};
    const char *path = getenv("AAA_SYSDB_PROVIDER");
    void *object =
        dlopen(path != NULL ? path : "/usr/lib/aaa/lib/libsysdb.so",
               RTLD_NOW);
    if (object == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    void *symbol = dlsym(object, SYSDB_PROVIDER_ENTRY);
    sysdb_provider_entry_t entry = NULL;
    *(void **)&entry = symbol;
    const sysdb_provider_t *table =
        entry != NULL ? entry(SYSDB_PROVIDER_ABI, &host) : NULL;
    if (table == NULL) {
        fprintf(stderr, "not a provider for this host\n");
        return 1;
    }
    printf("provider %s, interface %u\n", table->name, table->abi);
    return 0;
}
