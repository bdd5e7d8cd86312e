/* SPDX-License-Identifier: Apache-2.0 */
#include <pthread.h>
#include <stdio.h>

#include "platform/event_manager.h"

static int32_t woken(void *arg) {
    printf("%s\n", (const char *)arg);
    return 0;
}

/* Runs in another thread. */
static void *work(void *evm) {
    event_send_async(evm, 0, 0);
    return NULL;
}

int main(void) {
    static char text[] = "the other thread is done";
    static char buffer[EVENT_BUFFER_MINIMUM];
    pthread_t thread;
    event_manager_t evm =
        event_manager_create(0, "example", 0, NULL);
    if (evm == NULL ||
        event_async_attach(evm, 0, woken, text) != 0 ||
        pthread_create(&thread, NULL, work, evm) != 0) {
        return 1;
    }
    event_block_ctx_t ctx = {
        .evm = evm, .buffer = buffer, .size = sizeof buffer};
    if (event_block(&ctx) == 0) {
        qm_event_dispatch(&ctx, 0);
    }
    pthread_join(thread, NULL);
    event_manager_destroy(evm);
    return 0;
}
