/* SPDX-License-Identifier: Apache-2.0 */
/* Sends a ping to a server in the same process, which answers it, and prints the result. */
#define _GNU_SOURCE
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <aaa/aaautil.h>
#include <aaa/transport.h>

static aaa_transport_msg_t msg;

/* Sends a composed io-vector. */
static cerrno send_composed(aaa_transport_t *transport, cerrno composed, iov_t *iov, uint32_t count) {
    cerrno rc = composed == AAA_OK ? aaa_transport_send(transport, iov, count, AAA_TRANSPORT_NOW) : composed;
    free(iov);
    return rc;
}

static cerrno answer(aaa_transport_t *server) {
    aaa_transport_head_t head;
    aaa_reply_hdr_t reply = {.status = AAA_OK};
    iov_t *iov = NULL;
    uint32_t count = 0;
    cerrno rc = aaa_transport_receive(server, &msg, AAA_TRANSPORT_NOW);
    if (rc == AAA_OK) {
        rc = aaa_transport_read_request(&msg, &head);
    }
    if (rc != AAA_OK || head.type != AAA_REQ_PING) {
        return AAA_ERR_INVALID_MSG_TYPE;
    }
    rc = aaa_util_reply_ping_compose(&reply, &iov, &count, 0, NULL);
    return send_composed(server, rc, iov, count);
}

static cerrno ask(aaa_transport_t *client, aaa_transport_t *server) {
    aaa_transport_head_t head = {.result = AAA_ERR_RECEIVE_RESPONSE};
    aaa_req_hdr_t request = {0};
    iov_t *iov = NULL;
    uint32_t count = 0;
    cerrno rc = aaa_util_msg_ping_compose(&request, &iov, &count, 0);
    rc = send_composed(client, rc, iov, count);
    if (rc == AAA_OK) {
        rc = answer(server);
    }
    if (rc == AAA_OK) {
        rc = aaa_transport_receive(client, &msg, AAA_TRANSPORT_NOW);
    }
    if (rc == AAA_OK) {
        rc = aaa_transport_read_reply(&msg, AAA_REQ_PING, &head);
    }
    return rc == AAA_OK ? head.result : rc;
}

int main(void) {
    char directory[] = "/tmp/aaa-consumer.XXXXXX", path[64], lock[64];
    aaa_transport_t *listener = NULL, *client = NULL, *server = NULL;
    if (mkdtemp(directory) == NULL) {
        return 1;
    }
    snprintf(path, sizeof path, "%s/socket", directory);
    snprintf(lock, sizeof lock, "%s.lock", path);
    cerrno rc = AAA_ERR_NOMEM;
    if (aaa_transport_create(&listener) == AAA_OK && aaa_transport_create(&client) == AAA_OK &&
        aaa_transport_create(&server) == AAA_OK) {
        rc = aaa_transport_listen(listener, path);
    }
    if (rc == AAA_OK) {
        rc = aaa_transport_connect(client, path, getuid(), aaa_transport_deadline(10000));
    }
    if (rc == AAA_OK) {
        rc = aaa_transport_accept(listener, server, AAA_TRANSPORT_NOW);
    }
    if (rc == AAA_OK) {
        rc = ask(client, server);
    }
    if (rc == AAA_OK) {
        puts("PING answered");
    } else {
        printf("PING failed with %#x\n", (unsigned)rc);
    }
    aaa_transport_free(client);
    aaa_transport_free(server);
    aaa_transport_free(listener);
    unlink(path);
    unlink(lock);
    rmdir(directory);
    return rc == AAA_OK ? 0 : 1;
}
