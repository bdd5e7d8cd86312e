/* SPDX-License-Identifier: Apache-2.0
 *
 * A small library: its load and unload hooks use the platform like those of the
 * real one. The test that loads it sets what it does at unload and reports. */

#include <pthread.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "platform/event_manager.h"
#include "platform/node.h"
#include "platform/sysdb.h"

#define EXPORTED __attribute__((visibility("default")))

/* Set by the test after loading; the code is the result of the bind at unload. */
EXPORTED void (*module_unloading)(int in_dlclose);
EXPORTED cerrno module_bind_code = 0xffffffffu;
EXPORTED int module_bind_at_unload;
/* The wake-up of the thread is not sent, as if there were no memory for it. */
EXPORTED int module_wakes_nobody;

static event_manager_t manager;
static int32_t wakeup;
static pthread_t worker;
static int stop;

static void *work(void *unused) {
    char buffer[256];
    event_block_ctx_t ctx = {0};
    ctx.evm = manager;
    ctx.buffer = buffer;
    ctx.size = sizeof buffer;
    do {
        if (event_block(&ctx) != -1) {
            qm_event_dispatch(&ctx, 0);
        }
    } while (!__atomic_load_n(&stop, __ATOMIC_ACQUIRE));
    return unused;
}

static void *bind_something(void *unused) {
    sysdb_conn_t conn = 0;
    module_bind_code = _sysdb_bind(&conn, "/cfg/module/", SYSDB_BIND_PRIVATE);
    return unused;
}

__attribute__((constructor)) static void load(void) {
    _init_libc_globals();
    manager = event_manager_create(0, "module", 0, NULL);
    wakeup = event_async_attach(manager, 128, NULL, NULL);
    if (wakeup >= 0) {
        pthread_create(&worker, NULL, work, NULL);
    }
}

__attribute__((destructor)) static void unload(void) {
    const int in_dlclose = __in_dlclose();
    if (in_dlclose != 0) {
        if (module_bind_at_unload) {
            /* A worker may be binding while the loader's lock is held and it is joined. */
            pthread_t binder;
            pthread_create(&binder, NULL, bind_something, NULL);
            pthread_join(binder, NULL);
        }
        __atomic_store_n(&stop, 1, __ATOMIC_RELEASE);
        if (module_wakes_nobody) {
            pthread_detach(worker);
        } else if (event_send_async(manager, wakeup, 0) == 0) {
            pthread_join(worker, NULL);
        }
    }
    if (getenv("LOADER_MODULE_REPORT") != NULL) {
        dprintf(STDOUT_FILENO, "in dlclose: %d\n", in_dlclose);
    }
    if (module_unloading != NULL) {
        module_unloading(in_dlclose);
    }
}
