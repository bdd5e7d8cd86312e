/* SPDX-License-Identifier: Apache-2.0 */

/*
 * The requests of the example server: authentication, authorization and accounting,
 * as io-vector messages or as session packets. Bytes from clients are read with the
 * checked functions.
 */

#define _GNU_SOURCE
#include "requests.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "aaa/aaautil.h"
#include "attributes.h"
#include "platform/cerr.h"

#define TEXT_MAX 1024 /* longest text attribute that the server works with, bytes */

/* One request being answered. */
typedef struct request {
    aaa_transport_t *client;
    int session; /* arrived as a session packet */
    uint32_t type;
    aaa_sess_ctx_t context;
    avlist *list; /* its attributes, null when its type carries none */
} request_t;

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

void requests_answer(server_t *server, aaa_transport_t *client, const aaa_transport_msg_t *msg) {
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

void requests_refuse(aaa_transport_t *client, cerrno error) {
    request_t request = {.client = client};
    reply_error(&request, error);
}
