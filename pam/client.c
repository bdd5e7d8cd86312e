/* SPDX-License-Identifier: Apache-2.0 */

/*
 * Composes a request, sends it and waits for the answer. Classic messages: a session
 * packet names its list by an address, which means nothing to another process.
 */

#define _GNU_SOURCE
#include "client.h"

#include <errno.h>
#include <inttypes.h>
#include <poll.h>
#include <pwd.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/random.h>
#include <time.h>
#include <unistd.h>

#define SERVICE_USER "aaad" /* the service may run as this user instead of root */
#define ANSWER_MAX   16384u /* longest password or other answer of the user, bytes */

struct client {
    const client_settings_t *settings;
    aaa_transport_t *transport;
    char login[20]; /* id of the login, as text */
    char problem[CLIENT_TEXT + 256];
    int silent; /* the latest failure was a time-out */
    int unfit;  /* the latest failure was that what the user gave does not fit into a request */
    /* One request: the header record, the packed list, and the elements that name them. */
    aaa_req_hdr_t header;
    iov_t *iov;
    uint32_t count;
    char buffer[AAA_TRANSPORT_MAX - sizeof(aaa_req_hdr_t)];
    aaa_transport_msg_t reply;
};

/* The text of a code. The host that names codes for programs is not here. */
static const char *code_text(cerrno code) {
    switch (code) {
#define AAA_RESULT_CODE(number, name, text) \
    case name:                              \
        return text;
#include "aaa/result_codes.def"
        default:
            return "Unknown error";
    }
}

client_t *client_create(const client_settings_t *settings) {
    client_t *client = calloc(1, sizeof *client);
    if (client != NULL) {
        client->settings = settings;
        if (aaa_transport_create(&client->transport) != AAA_OK) {
            free(client);
            client = NULL;
        }
    }
    return client;
}

void client_set_login(client_t *client, uint32_t login) {
    const uint64_t id = (uint64_t)geteuid() << 32 | login; /* the service sees the user of the connection */
    snprintf(client->login, sizeof client->login, "%08" PRIx64, id);
    aaa_transport_set_login(client->transport, login);
}

const char *client_login(const client_t *client) {
    return client->login;
}

static void forget_messages(client_t *client) {
    free(client->iov);
    client->iov = NULL;
    client->count = 0;
    explicit_bzero(client->buffer, sizeof client->buffer);
    explicit_bzero(client->reply.u.bytes, client->reply.len);
    client->reply.len = 0;
}

void client_free(client_t *client) {
    if (client != NULL) {
        aaa_transport_free(client->transport);
        forget_messages(client);
        free(client);
    }
}

const char *client_problem(const client_t *client) {
    return client->problem;
}

int client_was_silent(const client_t *client) {
    return client->silent;
}

/* Keeps the reason of a failure of the transport. */
static void note_failure(client_t *client, const char *what, cerrno rc) {
    const int error = aaa_transport_errno(client->transport);
    char text[128] = "";
    client->silent = rc == AAA_ERR_TIMEOUT;
    const char *reason = error != 0 ? strerror_r(error, text, sizeof text) : code_text(rc);
    snprintf(client->problem, sizeof client->problem, "%s: %s: %s", client->settings->socket, what, reason);
}

static int64_t deadline_of(const client_t *client) {
    return aaa_transport_deadline(client->settings->seconds * 1000);
}

/* The number of the user that the service may run as; root when there is no such user. */
static uint32_t service_user(void) {
    struct passwd entry;
    struct passwd *found = NULL;
    char names[4096];
    return getpwnam_r(SERVICE_USER, &entry, names, sizeof names, &found) == 0 && found != NULL ? entry.pw_uid
                                                                                               : 0;
}

/* A password is not sent to whoever managed to listen at the path. */
static int is_service(client_t *client) {
    aaa_transport_peer_t peer;
    const cerrno rc = aaa_transport_peer_of(client->transport, &peer);
    if (rc != AAA_OK) {
        note_failure(client, "the user of the service is not known", rc);
        return 0;
    }
    if (peer.uid != 0 && peer.uid != service_user()) {
        snprintf(client->problem, sizeof client->problem,
                 "%s: process %d, which listens there, runs as user %u, not as root or " SERVICE_USER,
                 client->settings->socket, (int)peer.pid, peer.uid);
        return 0;
    }
    return 1;
}

/* A service may close a connection while the user types. Bytes no one asked for spoil it too. */
static int is_idle(const client_t *client) {
    struct pollfd polled = {.fd = aaa_transport_descriptor(client->transport), .events = POLLIN};
    return polled.fd >= 0 && poll(&polled, 1, 0) == 0;
}

int client_connect(client_t *client) {
    if (is_idle(client)) {
        return 1;
    }
    const cerrno rc = aaa_transport_connect(client->transport, client->settings->socket,
                                            AAA_TRANSPORT_ANY_USER, deadline_of(client));
    if (rc != AAA_OK) {
        note_failure(client, "cannot connect", rc);
        return 0;
    }
    if (!is_service(client)) {
        aaa_transport_close(client->transport);
        return 0;
    }
    return 1;
}

/* Sends what was composed and receives the answer. The service may close an idle connection at
 * the moment at which the request is sent. Reported as an unavailable service, this would let
 * the next module decide, so the request is sent once more on a new connection. The service
 * refuses a login whose state it has dropped. */
static int send_and_receive(client_t *client) {
    const int64_t deadline = deadline_of(client);
    cerrno rc = AAA_ERR_NOT_CONNECTED;
    for (int attempt = 0; rc == AAA_ERR_NOT_CONNECTED && attempt < 2; attempt++) {
        if (!client_connect(client)) {
            return 0;
        }
        rc = aaa_transport_ask(client->transport, client->iov, client->count, &client->reply, deadline);
    }
    if (rc != AAA_OK) {
        note_failure(client, "no answer", rc);
    }
    return rc == AAA_OK;
}

/* The answer to what was composed: 1, and its list, or null when it has none. */
static int exchange(client_t *client, uint32_t type, cerrno composed, avlist **list) {
    aaa_transport_head_t head = {.kind = AAA_TRANSPORT_GARBAGE};
    *list = NULL;
    client->silent = 0;
    client->unfit = composed != AAA_OK && composed != AAA_ERR_NOMEM;
    if (composed != AAA_OK) {
        snprintf(client->problem, sizeof client->problem, "the request cannot be composed: %s",
                 code_text(composed));
        return 0;
    }
    if (!send_and_receive(client)) {
        return 0;
    }
    cerrno rc = aaa_transport_read_reply(&client->reply, type, &head);
    if (rc == AAA_OK && head.kind != AAA_TRANSPORT_CLASSIC) {
        rc = AAA_ERR_UNEXPECTED_REPLY;
    }
    if (rc == AAA_OK) {
        rc = head.result;
    }
    if (rc == AAA_OK && head.list_at != 0) {
        rc = aaa_transport_unpack(&client->reply, head.list_at, list);
    }
    if (rc != AAA_OK) {
        client->unfit = head.result == AAA_ERR_INVALID_CLIENT_DATA;
        snprintf(client->problem, sizeof client->problem, "%s: %s: %s", client->settings->socket,
                 head.result != AAA_OK ? "the service cannot process the request" : "the answer is malformed",
                 code_text(rc));
        aaa_transport_close(client->transport);
    }
    return rc == AAA_OK;
}

/* Exchanges, and reads the answer's list. */
static void ask(client_t *client, uint32_t type, cerrno composed, client_answer_t *answer) {
    avlist *list = NULL;
    memset(answer, 0, sizeof *answer);
    answer->status = AAA_STAT_ERROR;
    if (exchange(client, type, composed, &list)) {
        client_answer_read(answer, list);
        if (answer->status == AAA_STAT_ERROR) {
            snprintf(client->problem, sizeof client->problem, "%s: the service could not decide%s%s",
                     client->settings->socket, answer->message[0] != '\0' ? ": " : "", answer->message);
        }
    } else if (client->unfit) {
        /* A refusal, not an unavailable service: a user who types 40,000 characters must not reach
         * the next module. */
        answer->status = AAA_STAT_FAIL;
        snprintf(answer->message, sizeof answer->message,
                 "Too long, or with characters that are not possible");
    }
    aaa_avpair_free_list(list);
    forget_messages(client);
}

/* Unpacks the composed list, lets `change` add to it, and packs it again. */
static cerrno extend(client_t *client, cerrno (*change)(avlist *, const void *), const void *value) {
    iov_t *packed = &client->iov[client->count - 1];
    avlist *list = NULL;
    uint32_t length = sizeof client->buffer;
    cerrno rc = aaa_avpair_create_list(NULL, &list);
    if (rc == AAA_OK) {
        rc = aaa_avpair_unpack_msg_checked(list, packed->base, packed->len);
    }
    if (rc == AAA_OK) {
        rc = change(list, value);
    }
    if (rc == AAA_OK) {
        explicit_bzero(client->buffer, sizeof client->buffer);
        rc = aaa_avpair_pack_msg_to_buf(list, client->buffer, &length);
        packed->len = length;
    }
    aaa_avpair_free_list(list);
    return rc;
}

static cerrno set_type(avlist *list, const void *type) {
    return aaa_util_avlist_msgtype_add(*(const uint32_t *)type, list);
}

static cerrno add_outcome(avlist *list, const void *outcome) {
    return aaa_util_avpair_add_attr(list, AAA_DATA_ATTR, outcome, (uint32_t)strlen(outcome) + 1, 0);
}

static cerrno compose_authentication(client_t *client, uint32_t option, aaa_usercred_t *cred) {
    if (cred->password != NULL && strlen(cred->password) > ANSWER_MAX) {
        return AAA_ERR_INVALID_ARG; /* above the size of an attribute it would be a lack of memory */
    }
    return aaa_util_msg_authen_compose(&client->header, option, AAA_SVC_LOGIN, client->settings->list, 0,
                                       cred, NULL, NULL, &client->iov, &client->count, client->buffer,
                                       sizeof client->buffer, NULL, 0);
}

void client_authenticate(client_t *client, uint32_t option, aaa_usercred_t *cred, client_answer_t *answer) {
    ask(client, AAA_REQ_AUTHEN, compose_authentication(client, option, cred), answer);
}

void client_change_password(client_t *client, aaa_usercred_t *cred, client_answer_t *answer) {
    const uint32_t type = AAA_MT_ASCII_CHPASS;
    cerrno rc = compose_authentication(client, AAA_AO_ASCII_LOGIN, cred);
    if (rc == AAA_OK) {
        rc = extend(client, set_type, &type);
    }
    ask(client, AAA_REQ_AUTHEN, rc, answer);
}

void client_authorize(client_t *client, int32_t service, aaa_usercred_t *cred, char *command,
                      client_answer_t *answer) {
    aaa_svc_attrs_t attrs = {.cmd = command};
    const cerrno rc = aaa_util_msg_author_compose(
        &client->header, AAA_AO_ASCII_LOGIN, service, client->settings->list, 0, cred, &attrs, &client->iov,
        &client->count, client->buffer, sizeof client->buffer, NULL, 0);
    ask(client, AAA_REQ_AUTHOR, rc, answer);
}

int client_account(client_t *client, uint32_t option, int32_t service, aaa_usercred_t *cred, char *command,
                   uint32_t session, const char *outcome) {
    aaa_svc_attrs_t attrs = {.cmd = command};
    avlist *list = NULL;
    cerrno rc = aaa_util_msg_acct_compose(&client->header, option, service, client->settings->list, 0, cred,
                                          &attrs, session, &client->iov, &client->count, client->buffer,
                                          sizeof client->buffer, NULL, 0);
    if (rc == AAA_OK && outcome != NULL) {
        rc = extend(client, add_outcome, outcome);
    }
    const int recorded = exchange(client, AAA_REQ_ACCT, rc, &list);
    aaa_avpair_free_list(list);
    forget_messages(client);
    return recorded;
}

uint32_t client_new_number(void) {
    uint32_t number = 0;
    while (number == 0) {
        if (getrandom(&number, sizeof number, 0) != (ssize_t)sizeof number) {
            number = (uint32_t)getpid() ^ (uint32_t)time(NULL); /* a kernel without random numbers */
        }
    }
    return number;
}
