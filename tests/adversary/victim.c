/* SPDX-License-Identifier: Apache-2.0 */

/*
 * The attacked program: an ordinary user of the library, started with the rights of
 * root, of a member of the group or of a set-user-ID program.
 *
 *     victim set PATH NUMBER     victim get PATH       victim watch PATH
 *     victim loop PATH           stores 0, 1, 2 ... until it is killed, or cannot
 *     victim read PATH           reads again and again until it is killed
 *     victim stop PATH           stores a number, and stops itself
 *     victim log TEXT            binds the database and logs an error
 *     victim load                only loads the library
 *
 * Prints the result code in hexadecimal, or the value, to standard output.
 */

#define _GNU_SOURCE
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "aaa/aaautil.h"
#include "platform/logging.h"
#include "platform/sysdb.h"

/* Leaks cannot be searched in a set-user-ID process, which no other process may trace. */
const char *__asan_default_options(void);
const char *__asan_default_options(void) {
    return "detect_leaks=0";
}

static int print_code(cerrno code) {
    printf("0x%08x\n", code);
    return code == 0 ? 0 : 1;
}

static cerrno set(sysdb_conn_t conn, const char *path, uint32_t number) {
    return sysdb_item_set(conn, path, SYSDB_TYPE_U32, &number, sizeof number, 0);
}

static int get(sysdb_conn_t conn, const char *path) {
    uint32_t type = SYSDB_TYPE_U32;
    void *value = NULL;
    uint32_t length = 0;
    cerrno code = sysdb_item_get(conn, path, &type, &value, &length, 0);
    if (code != 0) {
        return print_code(code);
    }
    uint32_t number = 0;
    memcpy(&number, value, length < sizeof number ? length : sizeof number);
    printf("%u\n", number);
    free(value);
    return 0;
}

static int32_t changed(const void *notification, void *argument, void *context) {
    (void)notification;
    (void)argument;
    (void)context;
    printf("changed\n");
    fflush(stdout);
    return 0;
}

static int watch(sysdb_conn_t conn, const char *path) {
    uint64_t notification = 0;
    int32_t channel = -1;
    cerrno code = _sysdb_register_notification(conn, path, SYSDB_EVENT_SET, SYSDB_NOTIFY_CHANGES, changed,
                                               NULL, 0, NULL, 0, &notification);
    code = code != 0 ? code : sysdb_conn_to_coid(conn, &channel);
    print_code(code);
    fflush(stdout);
    struct pollfd ready[2] = {{channel, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    while (code == 0 && poll(ready, 2, -1) > 0 && ready[1].revents == 0) {
        sysdb_dispatch(conn);
    }
    return code == 0 ? 0 : 1;
}

static int loop(sysdb_conn_t conn, const char *path) {
    for (uint32_t number = 0;; number++) {
        cerrno code = set(conn, path, number);
        if (code != 0) {
            return print_code(code);
        }
        if (number == 0) { /* the database is open now */
            printf("ready\n");
            fflush(stdout);
        }
    }
}

static int read_again(sysdb_conn_t conn, const char *path) {
    printf("ready\n");
    fflush(stdout);
    for (;;) {
        uint32_t type = SYSDB_TYPE_U32;
        void *value = NULL;
        uint32_t length = 0;
        cerrno code = sysdb_item_get(conn, path, &type, &value, &length, 0);
        if (code != 0) {
            return print_code(code);
        }
        free(value);
    }
}

/* Has everything open, and tells it without a descriptor. */
static int stop(sysdb_conn_t conn, const char *path) {
    const cerrno code = set(conn, path, 1);
    raise(SIGSTOP);
    return code == 0 ? 0 : 1;
}

static int log_error(const char *text) {
    kel_errmsg(&kel_msg_rec_aaa_debug_error, 3, text, "of the test");
    return 0;
}

int main(int argc, char **argv) {
    const char *command = argc > 1 ? argv[1] : "";
    const char *operand = argc > 2 ? argv[2] : "";
    sysdb_conn_t conn = 0;
    if (strcmp(command, "load") == 0) {
        return 0;
    }
    const char *tree = strncmp(operand, "/oper/", 6) == 0 ? "/oper/" : "/cfg/";
    cerrno code = _sysdb_bind(&conn, tree, SYSDB_BIND_PRIVATE);
    if (code != 0) {
        return print_code(code);
    }
    const char *path = strncmp(operand, tree, strlen(tree)) == 0 ? operand + strlen(tree) : operand;
    int status = 64;
    if (strcmp(command, "set") == 0) {
        status = print_code(set(conn, path, argc > 3 ? (uint32_t)strtoul(argv[3], NULL, 10) : 1));
    } else if (strcmp(command, "get") == 0) {
        status = get(conn, path);
    } else if (strcmp(command, "watch") == 0) {
        status = watch(conn, path);
    } else if (strcmp(command, "loop") == 0) {
        status = loop(conn, path);
    } else if (strcmp(command, "read") == 0) {
        status = read_again(conn, path);
    } else if (strcmp(command, "stop") == 0) {
        status = stop(conn, path);
    } else if (strcmp(command, "log") == 0) {
        status = log_error(operand);
    }
    _sysdb_unbind(conn);
    return status;
}
