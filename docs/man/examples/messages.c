/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "aaa/aaautil.h"
#include "aaa/transport.h"
#include "platform/cerr.h"

static aaa_transport_msg_t message;
static char packed[8192];

/* ---- the server ---- */

/* Copies a text of the request's list; "" when it has none. */
static void get_text(const avlist *list, uint32_t type,
                     char text[64]) {
    uint32_t length = 0;
    memset(text, 0, 64);
    aaa_util_avlist_value_copy(list, type, 0, text, 63, &length);
}

/* The verdict: a server that has decided says so in the list. */
static uint32_t decide(const avlist *request) {
    char user[64];
    char password[64];
    get_text(request, AAA_USERNAME_ATTR, user);
    get_text(request, AAA_PASSWORD_ATTR, password);
    int known = strcmp(user, "alice") == 0 &&
                strcmp(password, "wonderland") == 0;
    explicit_bzero(password, sizeof password);
    return known ? AAA_STAT_PASS : AAA_STAT_FAIL;
}

/* Answers a login. The header's status says that it was processed,
   also when the login is refused. */
static cerrno answer(aaa_transport_t *client,
                     const avlist *request) {
    aaa_reply_hdr_t reply = {.status = AAA_OK};
    avlist *list = NULL;
    iov_t *iov = NULL;
    uint32_t count = 0;
    cerrno rc = aaa_avpair_create_list("reply", &list);
    if (rc == AAA_OK) {
        rc = aaa_util_avlist_status_add(decide(request), 4, list);
    }
    if (rc == AAA_OK) {
        rc = aaa_util_reply_authen_compose(&reply, &iov, &count,
                                           packed, sizeof packed,
                                           list, 0, NULL);
    }
    if (rc == AAA_OK) {
        rc = aaa_transport_send(client, iov, count,
                                aaa_transport_deadline(10000));
    }
    free(iov);
    aaa_avpair_free_list(list);
    return rc;
}

/* Answers what cannot be processed: a result code, and no list. */
static cerrno refuse(aaa_transport_t *client, cerrno code) {
    aaa_reply_hdr_t reply = {.status = code};
    iov_t *iov = NULL;
    uint32_t count = 0;
    cerrno rc = aaa_util_reply_compose(&reply, &iov, &count, NULL, 0,
                                       NULL, 0, NULL);
    if (rc == AAA_OK) {
        rc = aaa_transport_send(client, iov, count,
                                aaa_transport_deadline(10000));
    }
    free(iov);
    return rc;
}

/* Serves one client until it closes the connection. */
static void serve(aaa_transport_t *listener) {
    aaa_transport_t *client = NULL;
    aaa_transport_head_t head;
    int64_t deadline = aaa_transport_deadline(10000);
    if (aaa_transport_create(&client) != AAA_OK ||
        aaa_transport_accept(listener, client, deadline) != AAA_OK) {
        return;
    }
    while (aaa_transport_receive(client, &message, deadline) ==
               AAA_OK &&
           aaa_transport_read_request(&message, &head) == AAA_OK) {
        avlist *request = NULL;
        cerrno rc = AAA_ERR_INVALID_MSG_TYPE;
        if (head.type == AAA_REQ_AUTHEN) {
            rc = aaa_transport_unpack(&message, head.list_at,
                                      &request);
        }
        rc = rc == AAA_OK ? answer(client, request)
                          : refuse(client, rc);
        aaa_avpair_free_list(request);
        explicit_bzero(&message, sizeof message);
        if (rc != AAA_OK) {
            break;
        }
    }
    aaa_transport_free(client);
}

/* ---- the client ---- */

/* Sends a request and reads both answers that a reply holds. */
static cerrno ask(aaa_transport_t *server, uint32_t type, iov_t *iov,
                  uint32_t count, uint32_t *verdict) {
    aaa_transport_head_t head;
    avlist *list = NULL;
    *verdict = AAA_STAT_NONE;
    cerrno rc = aaa_transport_ask(server, iov, count, &message,
                                  aaa_transport_deadline(10000));
    if (rc == AAA_OK) {
        rc = aaa_transport_read_reply(&message, type, &head);
    }
    if (rc == AAA_OK) {
        rc = head.result; /* was the request processed? */
    }
    if (rc == AAA_OK && head.list_at != 0) {
        rc = aaa_transport_unpack(&message, head.list_at, &list);
    }
    if (rc == AAA_OK && list != NULL) { /* and with what outcome? */
        uint32_t length = 0;
        rc = aaa_util_avlist_value_copy(list, AAA_STATUS_ATTR, 0,
                                        verdict, sizeof *verdict,
                                        &length);
    }
    aaa_avpair_free_list(list);
    return rc;
}

static void show(const char *what, cerrno rc, uint32_t verdict) {
    int let_in = rc == AAA_OK && verdict == AAA_STAT_PASS;
    printf("%s: %s\n", what, let_in ? "let in" : "not let in");
    printf("  result: %s\n", cerr_strerror(rc));
    printf("  verdict: %s\n", aaa_print_status(verdict));
}

static void log_in(aaa_transport_t *server, const char *what,
                   char *password) {
    aaa_req_hdr_t header = {0};
    aaa_usercred_t user = {.username = "alice",
                           .password = password};
    iov_t *iov = NULL;
    uint32_t count = 0;
    uint32_t verdict = AAA_STAT_NONE;
    cerrno rc = aaa_util_msg_authen_compose(
        &header, AAA_AO_ASCII_LOGIN, AAA_SVC_LOGIN, "default", 0,
        &user, NULL, NULL, &iov, &count, packed, sizeof packed, NULL,
        0);
    if (rc == AAA_OK) {
        rc = ask(server, AAA_REQ_AUTHEN, iov, count, &verdict);
    }
    free(iov);
    explicit_bzero(packed,
                   sizeof packed); /* the password is in it */
    show(what, rc, verdict);
}

static void ping(aaa_transport_t *server) {
    aaa_req_hdr_t header = {0};
    iov_t *iov = NULL;
    uint32_t count = 0;
    uint32_t verdict = AAA_STAT_NONE;
    cerrno rc = aaa_util_msg_ping_compose(&header, &iov, &count, 0);
    if (rc == AAA_OK) {
        rc = ask(server, AAA_REQ_PING, iov, count, &verdict);
    }
    free(iov);
    show("ping", rc, verdict);
}

int main(void) {
    aaa_transport_t *listener = NULL;
    aaa_transport_t *server = NULL;
    char good[] = "wonderland";
    char wrong[] = "looking-glass";
    if (aaa_transport_create(&listener) != AAA_OK ||
        aaa_transport_create(&server) != AAA_OK ||
        aaa_transport_listen(listener, "socket") != AAA_OK) {
        return 1;
    }
    pid_t pid = fork();
    if (pid == 0) {
        serve(listener);
        _exit(0);
    }
    if (aaa_transport_connect(server, "socket", getuid(),
                              aaa_transport_deadline(10000)) ==
        AAA_OK) {
        log_in(server, "the right password", good);
        log_in(server, "a wrong password", wrong);
        ping(server); /* which this server does not process */
    }
    aaa_transport_free(server);
    int status = -1;
    waitpid(pid, &status, 0);
    aaa_transport_free(listener);
    return status;
}
