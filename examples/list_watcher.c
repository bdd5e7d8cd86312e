/* SPDX-License-Identifier: Apache-2.0 */

/*
 * Prints the methods of a method list, and prints them again whenever the list
 * changes, until it has seen the given number of changes:
 *
 *     list_watcher CHANGES      (the default list of login authentication)
 */

#include <poll.h>
#include <stdio.h>
#include <stdlib.h>

#include "aaa/aaautil.h"
#include "methods.h"
#include "platform/cerr.h"
#include "platform/sysdb.h"

#define LIST_PATH     "authentication/login/default"
#define TIME_LIMIT_MS 30000 /* the demo must end even without a change */

static int32_t on_change(const void *notification, void *callback_arg, void *user_ctx) {
    (void)notification;
    (void)user_ctx;
    --*(int *)callback_arg;
    printf("  the list has changed:\n");
    methods_print(LIST_PATH);
    return 0;
}

int main(int argc, char **argv) {
    int changes_left = argc == 2 ? atoi(argv[1]) : 1;
    aaa_mlist_reg_t registration = {0, 0};
    int32_t channel = -1;
    /* Register before reading: a change between the two is reported, not lost. */
    cerrno rc = aaa_mlist_change_register(AAA_FUNC_AUTHEN, AAA_SVC_LOGIN, "default", on_change, &changes_left,
                                          NULL, &registration);
    if (rc == AAA_OK) {
        rc = sysdb_conn_to_coid(registration.connection, &channel);
    }
    if (rc != AAA_OK) {
        fprintf(stderr, "%s: %s\n", argv[0], cerr_strerror(rc));
        return 1;
    }
    methods_print(LIST_PATH);
    while (changes_left > 0) {
        struct pollfd ready = {.fd = channel, .events = POLLIN};
        if (poll(&ready, 1, TIME_LIMIT_MS) <= 0) {
            fprintf(stderr, "%s: no change within %d seconds\n", argv[0], TIME_LIMIT_MS / 1000);
            break;
        }
        sysdb_dispatch(registration.connection);
    }
    aaa_mlist_change_unregister(&registration);
    return changes_left > 0 ? 1 : 0;
}
