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

#include "aaa/aaautil.h"
#include "aaa/transport.h"
#include "connecting.h"
#include "platform/cerr.h"
#include "running_config.h"

#define TIME_LIMIT_MS 30000 /* for one message and its answer */

typedef struct client {
    aaa_transport_t *transport;
    uint32_t session;
    union { /* output of a compose routine: a header record or a session packet */
        aaa_req_hdr_t header;
        aaa_sess_request_t packet;
    } record;
    iov_t *iov;
    uint32_t count;
    char buffer[8192];
} client_t;

/* Sends the composed message. Returns the server's code, or a code that says why there is no answer. */
static cerrno ask(client_t *c) {
    static aaa_transport_msg_t reply;
    const uint32_t type = c->session ? c->record.packet.hdr.type : c->record.header.type;
    const int64_t deadline = aaa_transport_deadline(TIME_LIMIT_MS);
    aaa_transport_head_t head;
    cerrno rc = c->session ? aaa_transport_ask_packet(c->transport, &c->record.packet,
                                                      sizeof c->record.packet, &reply, deadline)
                           : aaa_transport_ask(c->transport, c->iov, c->count, &reply, deadline);
    if (rc == AAA_OK) {
        rc = aaa_transport_read_reply(&reply, type, &head);
    }
    return rc == AAA_OK ? head.result : rc;
}

static int finish(client_t *c, const char *what, cerrno composed) {
    cerrno code = composed == AAA_OK ? ask(c) : composed;
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
    const char *group = argv[2];
    aaa_rad_server_t server = {.address = {.family = AF_INET}, .auth_port = 1812, .acct_port = 1813};
    if (inet_pton(AF_INET, argv[3], server.address.addr.bytes) != 1) {
        fprintf(stderr, "%s: not an IPv4 address\n", argv[3]);
        return 2;
    }
    c.transport = connect_to_server(argv[1], TIME_LIMIT_MS);
    if (c.transport == NULL) {
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
    aaa_transport_free(c.transport);
    return ok ? 0 : 1;
}
