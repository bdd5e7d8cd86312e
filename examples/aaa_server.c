/* SPDX-License-Identifier: Apache-2.0 */

/*
 * An example AAA server process: answers authentication, authorization and
 * accounting requests that arrive over a Unix socket, as io-vector messages
 * or as session packets. Bytes from clients are read with the checked functions.
 * Every message gets an answer, and no message stops the server.
 */

#define _GNU_SOURCE
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "aaa/aaautil.h"
#include "aaa/transport.h"
#include "attributes.h"
#include "clients.h"
#include "group_maps.h"
#include "platform/cerr.h"
#include "running_config.h"
#include "users.h"

#define TEXT_MAX 1024 /* longest text attribute that the server works with, bytes */

typedef struct server {
    user_t *users;
    const char *accounting_path;
    running_config_t config; /* changed by configuration messages */
} server_t;

/* One request being answered. */
typedef struct request {
    aaa_transport_t *client;
    int session; /* arrived as a session packet */
    uint32_t type;
    aaa_sess_ctx_t context;
    avlist *list; /* its attributes, null when its type carries none */
} request_t;

static volatile sig_atomic_t stopping;

static void on_stop_signal(int signal_number) {
    (void)signal_number;
    stopping = 1;
}

/* ---- reading attributes ------------------------------------------------ */

/* Copies a text attribute and terminates it. An absent, over-long or binary
 * value gives an empty text and 0. */
static int get_text(const avlist *list, uint32_t type, char *text) {
    uint32_t len = 0;
    text[0] = '\0';
    if (aaa_util_avlist_value_copy(list, type, 0, text, TEXT_MAX - 1, &len) != AAA_OK) {
        text[0] = '\0';
        return 0;
    }
    text[len] = '\0';
    /* The stored length counts the terminator. A value with more bytes after it is not a text. */
    if (strlen(text) + 1 < len) {
        text[0] = '\0';
    }
    return text[0] != '\0';
}

/* As get_text, for log files: blanks and control bytes become question marks. */
static const char *get_word(const avlist *list, uint32_t type, char *text) {
    if (!get_text(list, type, text)) {
        return "-";
    }
    for (char *p = text; *p != '\0'; p++) {
        if (*p <= ' ' || *p > '~') {
            *p = '?';
        }
    }
    return text;
}

/* ---- answering ---------------------------------------------------------- */

typedef cerrno (*list_reply_fn)(void *, iov_t **, uint32_t *, char *, uint32_t, avlist *, uint32_t,
                                aaa_sess_ctx_t *);

/* Sends a composed reply: an io-vector, or a session packet. */
static void send_reply(const request_t *request, iov_t *reply, uint32_t count) {
    if (reply == NULL) {
        return;
    }
    cerrno rc = request->session
                    ? aaa_transport_send_packet(request->client, reply,
                                                aaa_transport_response_size(request->type), AAA_TRANSPORT_NOW)
                    : aaa_transport_send(request->client, reply, count, AAA_TRANSPORT_NOW);
    if (rc != AAA_OK) {
        fprintf(stderr, "aaa_server: reply not sent: %s\n", cerr_strerror(rc));
        /* The client is gone or does not read; the next round drops it. */
        shutdown(aaa_transport_descriptor(request->client), SHUT_RDWR);
    }
    free(reply);
}

/* Answers with a list, which is freed. */
static void reply_with_list(request_t *request, list_reply_fn compose, avlist *list) {
    static char buffer[AAA_TRANSPORT_MAX];
    aaa_reply_hdr_t header = {.status = AAA_OK};
    iov_t *reply = NULL;
    uint32_t count = 0;
    cerrno rc = compose(&header, &reply, &count, buffer, sizeof buffer, list, (uint32_t)request->session,
                        &request->context);
    if (rc != AAA_OK) {
        fprintf(stderr, "aaa_server: reply not composed: %s\n", cerr_strerror(rc));
    }
    send_reply(request, reply, count);
    if (!request->session || reply == NULL) { /* the receiver of a session packet owns the list */
        aaa_avpair_free_list(list);
    }
}

/* Answers that a request cannot be processed. */
static void reply_error(request_t *request, cerrno error) {
    aaa_reply_hdr_t header = {.status = error};
    iov_t *reply = NULL;
    uint32_t count = 0;
    fprintf(stderr, "aaa_server: request refused: %s\n", cerr_strerror(error));
    if (request->session) {
        void *packet = NULL;
        aaa_session_fill_response(&packet, NULL, &request->context, error, 0, AAA_STAT_ERROR, 0, 0, 0);
        reply = packet;
    }
    if (reply == NULL) { /* a type without a response packet is answered in the classic form */
        request->session = 0;
        aaa_util_reply_compose(&header, &reply, &count, NULL, 0, NULL, 0, NULL);
    }
    send_reply(request, reply, count);
}

/* Makes the list of an answer: status, and a message and privilege level if given. */
static avlist *make_answer(const char *name, uint32_t status, const char *message, const uint32_t *level) {
    avlist *list = NULL;
    if (aaa_avpair_create_list(name, &list) != AAA_OK) {
        return NULL;
    }
    cerrno rc = aaa_util_avlist_status_add(status, 4, list);
    if (rc == AAA_OK && message != NULL) {
        rc = aaa_util_avpair_add_attr(list, AAA_REPLYMSG_ATTR, message, (uint32_t)strlen(message) + 1, 0);
    }
    if (rc == AAA_OK && level != NULL) {
        rc = aaa_util_avlist_priv_add(list, *level);
    }
    if (rc != AAA_OK) {
        aaa_avpair_free_list(list);
        return NULL;
    }
    return list;
}

static void answer(request_t *request, list_reply_fn compose, const char *name, uint32_t status,
                   const char *message, const uint32_t *level) {
    avlist *list = make_answer(name, status, message, level);
    if (list == NULL) {
        reply_error(request, AAA_ERR_NOMEM);
        return;
    }
    reply_with_list(request, compose, list);
}

/* ---- the three services -------------------------------------------------- */

static void authenticate(const server_t *server, request_t *request) {
    static const char name[] = "Authentication Reply";
    char user_name[TEXT_MAX];
    char password[TEXT_MAX];
    /* The client library silently omits a name that does not fit a request, so
     * a request without one must never pass. */
    if (!get_text(request->list, AAA_USERNAME_ATTR, user_name)) {
        answer(request, aaa_util_reply_authen_compose, name, AAA_STAT_GETUSER, "No user name given", NULL);
        return;
    }
    get_text(request->list, AAA_PASSWORD_ATTR, password);
    const user_t *user = users_find(server->users, user_name);
    int passed = users_check_password(user, password);
    explicit_bzero(password, sizeof password);
    if (user == NULL) {
        answer(request, aaa_util_reply_authen_compose, name, AAA_STAT_GETUSER, "User is not known here",
               NULL);
    } else if (!passed) {
        answer(request, aaa_util_reply_authen_compose, name, AAA_STAT_FAIL, "Password is wrong", NULL);
    } else {
        answer(request, aaa_util_reply_authen_compose, name, AAA_STAT_PASS, "Welcome", &user->level);
    }
}

static void authorize(const server_t *server, request_t *request) {
    static const char name[] = "Authorization Reply";
    char user_name[TEXT_MAX];
    char command[TEXT_MAX];
    get_text(request->list, AAA_USERNAME_ATTR, user_name);
    const user_t *user = users_find(server->users, user_name);
    if (user == NULL || !get_text(request->list, AAA_CMD_ATTR, command)) {
        answer(request, aaa_util_reply_author_compose, name, AAA_STAT_FAIL, "No such user, or no command",
               NULL);
    } else if (!users_may_run(user, command)) {
        answer(request, aaa_util_reply_author_compose, name, AAA_STAT_FAIL, "Command is not allowed", NULL);
    } else {
        answer(request, aaa_util_reply_author_compose, name, AAA_STAT_PASS, NULL, &user->level);
    }
}

static cerrno append_record(const server_t *server, const avlist *list) {
    char when[32];
    char user[TEXT_MAX];
    char tty[TEXT_MAX];
    char from[TEXT_MAX];
    time_t now = time(NULL);
    struct tm utc;
    FILE *file = fopen(server->accounting_path, "ae");
    if (file == NULL) {
        fprintf(stderr, "aaa_server: %s: %s\n", server->accounting_path, strerror(errno));
        return AAA_ERR_ACCT_SERVICE;
    }
    strftime(when, sizeof when, "%Y-%m-%dT%H:%M:%SZ", gmtime_r(&now, &utc));
    int written =
        fprintf(file, "%s %s user=%s tty=%s from=%s session=%u\n", when,
                aaa_print_msgtype(attribute_number(list, AAA_TYPE_ATTR)),
                get_word(list, AAA_USERNAME_ATTR, user), get_word(list, AAA_TTYNAME_ATTR, tty),
                get_word(list, AAA_REMOTE_ADDR_ATTR, from), attribute_number(list, AAA_ACCT_SESSID_ATTR));
    return fclose(file) == 0 && written > 0 ? AAA_OK : AAA_ERR_ACCT_SERVICE;
}

static void account(const server_t *server, request_t *request) {
    iov_t *reply = NULL;
    uint32_t count = 0;
    aaa_reply_hdr_t header = {0};
    cerrno rc = append_record(server, request->list);
    if (rc != AAA_OK) {
        reply_error(request, rc);
        return;
    }
    rc = aaa_util_reply_acct_compose(&header, &reply, &count, (uint32_t)request->session, &request->context);
    if (rc != AAA_OK) {
        reply_error(request, rc);
        return;
    }
    send_reply(request, reply, count);
}

/* ---- configuration ------------------------------------------------------- */

static void configure(server_t *server, request_t *request) {
    cerrno rc = config_apply(&server->config, request->type, request->list);
    aaa_reply_hdr_t header = {.status = rc};
    iov_t *reply = NULL;
    uint32_t count = 0;
    printf("configuration message %u: %s; running configuration is now\n", request->type,
           rc == AAA_OK ? "applied" : cerr_strerror(rc));
    config_print(&server->config, stdout);
    fflush(stdout);
    rc = aaa_util_reply_cfg_compose(&header, &reply, &count, rc, (uint32_t)request->session,
                                    &request->context);
    if (rc != AAA_OK) {
        reply_error(request, rc);
        return;
    }
    send_reply(request, reply, count);
}

/* ---- requests without a list -------------------------------------------- */

static void answer_plain(request_t *request) {
    aaa_reply_hdr_t header = {0};
    iov_t *reply = NULL;
    uint32_t count = 0;
    uint32_t session = (uint32_t)request->session;
    cerrno rc = AAA_ERR_INVALID_MSG_TYPE;
    switch (request->type) {
        case AAA_REQ_CONNECT:
            rc = aaa_util_reply_conn_compose(&header, AAA_OK, &reply, &count, session, &request->context);
            break;
        case AAA_REQ_DISCONNECT:
            rc = aaa_util_reply_disconn_compose(&header, &reply, &count, session, &request->context);
            break;
        case AAA_REQ_PING:
            rc = aaa_util_reply_ping_compose(&header, &reply, &count, session, &request->context);
            break;
        default:
            break;
    }
    if (rc != AAA_OK) {
        reply_error(request, rc);
        return;
    }
    send_reply(request, reply, count);
}

/* ---- reading a message ---------------------------------------------------- */

/* Fills a request from a message. A code other than AAA_OK is the answer to the client. */
static cerrno parse_request(const aaa_transport_msg_t *msg, request_t *request) {
    aaa_transport_head_t head;
    cerrno rc = aaa_transport_read_request(msg, &head);
    request->session = head.kind == AAA_TRANSPORT_SESSION;
    request->type = head.type;
    request->context = (aaa_sess_ctx_t){.type = head.type, .key = head.key};
    if (rc == AAA_OK && head.list_at != 0) {
        rc = aaa_transport_unpack(msg, head.list_at, &request->list);
    }
    return rc;
}

static void handle_message(server_t *server, aaa_transport_t *client, const aaa_transport_msg_t *msg) {
    request_t request = {.client = client};
    cerrno rc = parse_request(msg, &request);
    if (rc != AAA_OK) {
        reply_error(&request, rc);
        return;
    }
    switch (request.type) {
        case AAA_REQ_AUTHEN:
            authenticate(server, &request);
            break;
        case AAA_REQ_AUTHOR:
            authorize(server, &request);
            break;
        case AAA_REQ_ACCT:
        case AAA_REQ_ACCT_UPDATE:
            account(server, &request);
            break;
        case AAA_REQ_CFG_SVRGRP:
        case AAA_REQ_CFG_SVR_IN_SG:
        case AAA_REQ_CFG_AUTHENLIST:
        case AAA_REQ_CFG_AUTHORLIST:
            configure(server, &request);
            break;
        default:
            answer_plain(&request);
            break;
    }
    aaa_avpair_free_list(request.list);
}

/* ---- the loop ------------------------------------------------------------ */

/* Handles one message of a client, so that a client with many messages does not delay the others. */
static void serve_client(server_t *server, clients_t *clients, nfds_t slot) {
    static aaa_transport_msg_t msg;
    aaa_transport_t *client = clients->connected[slot];
    cerrno rc = aaa_transport_receive(client, &msg, AAA_TRANSPORT_NOW);
    if (rc == AAA_OK) {
        clients_heard(clients, slot);
        handle_message(server, client, &msg);
    } else if (rc == AAA_ERR_INVALID_MSG_SIZE) {
        request_t request = {.client = client};
        reply_error(&request, rc);
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
