/* SPDX-License-Identifier: Apache-2.0 */

/*
 * An example AAA server process: answers authentication, authorization and
 * accounting requests that arrive over a Unix socket, as io-vector messages
 * or as session packets. Bytes from clients are read with the checked functions.
 * Every message gets an answer, and no message stops the server.
 */

#define _GNU_SOURCE
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "aaa/aaautil.h"
#include "aaa/transport.h"
#include "clients.h"
#include "group_maps.h"
#include "platform/cerr.h"
#include "requests.h"
#include "users.h"

static volatile sig_atomic_t stopping;

static void on_stop_signal(int signal_number) {
    (void)signal_number;
    stopping = 1;
}

/* ---- the loop ------------------------------------------------------------ */

/* Handles one message of a client, so that a client with many messages does not delay the others. */
static void serve_client(server_t *server, clients_t *clients, nfds_t slot) {
    static aaa_transport_msg_t msg;
    aaa_transport_t *client = clients->connected[slot];
    cerrno rc = aaa_transport_receive(client, &msg, AAA_TRANSPORT_NOW);
    if (rc == AAA_OK) {
        clients_heard(clients, slot);
        requests_answer(server, client, &msg);
    } else if (rc == AAA_ERR_INVALID_MSG_SIZE) {
        requests_refuse(client, rc);
    } else if (rc != AAA_ERR_TIMEOUT) {
        clients_drop(clients, slot);
    }
    explicit_bzero(msg.u.bytes, msg.len); /* it may have held a password */
}

static void serve(server_t *server, aaa_transport_t *listener, int database, const sigset_t *let_in) {
    static clients_t clients;
    clients_init(&clients, listener, database);
    while (!stopping) {
        if (!clients_wait(&clients, let_in)) {
            continue; /* a signal came: test the flag */
        }
        if (clients.polled[CLIENTS_OTHER].revents != 0) {
            group_maps_dispatch();
        }
        for (nfds_t i = clients.count; i-- > CLIENTS_FIRST;) {
            if (clients.polled[i].revents != 0) {
                serve_client(server, &clients, i);
            }
        }
        if (clients.polled[CLIENTS_LISTENER].revents != 0) {
            clients_accept(&clients);
        }
    }
    clients_drop_all(&clients);
}

/* Unblocks stop signals only while the server waits, so that none is missed
 * between testing the flag and waiting. Ignores SIGPIPE: the server goes on when
 * the reader of its output ends. Returns the signal mask for the wait. */
static sigset_t set_up_signals(void) {
    struct sigaction action = {.sa_handler = on_stop_signal};
    sigset_t stop, before;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    sigaddset(&stop, SIGINT);
    sigprocmask(SIG_BLOCK, &stop, &before);
    sigdelset(&before, SIGTERM);
    sigdelset(&before, SIGINT);
    sigaction(SIGTERM, &action, NULL);
    sigaction(SIGINT, &action, NULL);
    signal(SIGPIPE, SIG_IGN);
    return before;
}

/* Listens at the path. Prints the reason and returns null on failure. */
static aaa_transport_t *listen_at(const char *program, const char *path) {
    aaa_transport_t *listener = NULL;
    cerrno rc = aaa_transport_create(&listener);
    if (rc == AAA_OK) {
        rc = aaa_transport_listen(listener, path);
    }
    if (rc != AAA_OK) {
        int error = aaa_transport_errno(listener);
        fprintf(stderr, "%s: %s: %s\n", program, path, error != 0 ? strerror(error) : cerr_strerror(rc));
        aaa_transport_free(listener);
        return NULL;
    }
    return listener;
}

int main(int argc, char **argv) {
    if (argc != 4) {
        fprintf(stderr, "usage: %s SOCKET USERS_FILE ACCOUNTING_FILE\n", argv[0]);
        return 2;
    }
    static server_t server;
    server.users = users_load(argv[2]);
    server.accounting_path = argv[3];
    if (server.users == NULL) {
        fprintf(stderr, "%s: %s holds no valid user\n", argv[0], argv[2]);
        return 1;
    }
    sigset_t let_in = set_up_signals();
    umask(0077);
    aaa_transport_t *listener = listen_at(argv[0], argv[1]);
    if (listener == NULL) {
        users_free(server.users);
        return 1;
    }
    int database = -1;
    cerrno rc = group_maps_start(&database);
    if (rc != AAA_OK) {
        fprintf(stderr, "%s: server groups are not published: %s\n", argv[0], cerr_strerror(rc));
    }
    printf("ready\n");
    fflush(stdout);
    serve(&server, listener, database, &let_in);
    group_maps_stop();
    unlink(argv[1]);
    aaa_transport_free(listener);
    users_free(server.users);
    return 0;
}
