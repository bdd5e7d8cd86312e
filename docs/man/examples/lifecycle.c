/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>
#include <unistd.h>

#include "aaa/lifecycle.h"
#include "platform/event_manager.h"

static int pipe_ends[2];

static int32_t up(void *conn, void *ctx) {
    (void)conn;
    (void)ctx;
    /* the descriptor to watch; -1 would mean: not now, try again */
    return pipe_ends[0];
}

static int32_t readable(void *conn, void *ctx) {
    (void)conn;
    char byte = 0;
    if (read(pipe_ends[0], &byte, 1) == 1) {
        printf("%s got '%c'\n", (const char *)ctx, byte);
    }
    return 0;
}

int main(void) {
    event_manager_t evm =
        event_manager_create(0, "example", 0, NULL);
    void *conn = NULL;
    static char buffer[256];
    if (evm == NULL || pipe(pipe_ends) != 0 ||
        aaa_util_ecm_fd_conn(evm, &conn, up, readable, "example") ||
        write(pipe_ends[1], "x", 1) != 1) {
        return 1;
    }
    event_block_ctx_t ctx = {
        .evm = evm, .buffer = buffer, .size = sizeof buffer};
    if (event_block(&ctx) == 0) {
        qm_event_dispatch(&ctx, 0);
    }
    event_manager_destroy(evm);
    return 0;
}
