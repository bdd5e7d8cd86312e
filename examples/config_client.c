/* SPDX-License-Identifier: Apache-2.0 */

/*
 * An example configuration client: sends the AAA server a server group, a
 * server in it and an authentication method list, as configuration messages.
 */

#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "aaa/aaautil.h"
#include "platform/cerr.h"
#include "running_config.h"
#include "transport.h"

typedef struct client {
    int fd;
    uint32_t session;
    aaa_sess_request_t record; /* large enough for the header record of the classic form too */
    iov_t *iov;
    uint32_t count;
    char buffer[8192];
} client_t;

/* Reads the answer to a message: the server's code, or a code that says why there is no answer. */
static cerrno receive_code(client_t *c) {
    static transport_msg_t msg;
    uint32_t code = 0;
    if (transport_receive(c->fd, &msg) <= 0) {
        return AAA_ERR_RECEIVE_RESPONSE;
    }
    enum transport_kind kind = transport_kind(&msg);
    if (kind == TRANSPORT_SESSION && msg.len >= AAA_SESS_RSP_SIZE_OTHER) {
        memcpy(&code, msg.u.bytes + sizeof(aaa_sess_hdr_t), sizeof code);
        return code;
    }
    if (kind == TRANSPORT_CLASSIC && msg.len >= 24) {
        memcpy(&code, msg.u.bytes + 20, sizeof code);
        return ntohl(code); /* the server's status, in network order */
    }
    return AAA_ERR_UNEXPECTED_REPLY;
}

static int finish(client_t *c, const char *what, cerrno composed) {
    cerrno code = composed;
    if (code == AAA_OK) {
        int failed = c->session ? transport_send_packet(c->fd, &c->record, sizeof c->record)
                                : transport_send(c->fd, c->iov, c->count);
        code = failed ? AAA_ERR_LWM_SEND : receive_code(c);
    }
    free(c->iov);
    c->iov = NULL;
    printf("%s, %s form: %s\n", what, c->session ? "session" : "classic",
           code == AAA_OK ? "applied" : cerr_strerror(code));
    return code == AAA_OK;
}

int main(int argc, char **argv) {
    static client_t c;
    if (argc != 4 && argc != 5) {
        fprintf(stderr, "usage: %s SOCKET GROUP SERVER_ADDRESS [--session]\n", argv[0]);
        return 2;
    }
    c.session = argc == 5 && strcmp(argv[4], "--session") == 0;
    c.fd = transport_connect(argv[1]);
    if (c.fd < 0) {
        perror(argv[1]);
        return 2;
    }
    const char *group = argv[2];
    aaa_rad_server_t server = {.address = {.family = AF_INET}, .auth_port = 1812, .acct_port = 1813};
    if (inet_pton(AF_INET, argv[3], server.address.addr.bytes) != 1) {
        fprintf(stderr, "%s: not an IPv4 address\n", argv[3]);
        return 2;
    }
    aaa_method_list_t list = {.name = "default", .method = {AAA_METHOD_SERVER_GROUP, AAA_METHOD_LOCAL}};
    snprintf(list.sg_name[0], sizeof list.sg_name[0], "%s", group);

    int ok = finish(&c, "server group",
                    aaa_util_msg_cfg_rad_svrgrp_compose(&c.record, group, CONFIG_ADD, &c.iov, &c.count,
                                                        c.buffer, sizeof c.buffer, c.session));
    ok = finish(&c, "server in the group",
                aaa_util_msg_cfg_svr_in_sg_compose(&c.record, group, &server, CONFIG_ADD, &c.iov, &c.count,
                                                   c.buffer, sizeof c.buffer, c.session)) &&
         ok;
    ok = finish(&c, "authentication method list",
                aaa_util_msg_cfg_authenlist_compose(&c.record, &list, CONFIG_ADD, &c.iov, &c.count, c.buffer,
                                                    sizeof c.buffer, c.session)) &&
         ok;
    close(c.fd);
    return ok ? 0 : 1;
}
