/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include "aaa/aaautil.h"
#include "aaa/transport.h"
#include "platform/cerr.h"

static aaa_transport_msg_t message;

/* Accepts one client and answers its ping. */
static int serve(aaa_transport_t *listener) {
    aaa_transport_t *client = NULL;
    aaa_transport_head_t head;
    aaa_reply_hdr_t reply = {0};
    iov_t *iov = NULL;
    uint32_t count = 0;
    int64_t deadline = aaa_transport_deadline(10000);

    cerrno rc = aaa_transport_create(&client);
    if (rc == AAA_OK) {
        rc = aaa_transport_accept(listener, client, deadline);
    }
    if (rc == AAA_OK) {
        rc = aaa_transport_receive(client, &message, deadline);
    }
    if (rc == AAA_OK) {
        rc = aaa_transport_read_request(&message, &head);
    }
    if (rc == AAA_OK && head.type == AAA_REQ_PING &&
        aaa_util_reply_ping_compose(&reply, &iov, &count, 0, NULL) ==
            AAA_OK) {
        rc = aaa_transport_send(client, iov, count, deadline);
    }
    free(iov);
    aaa_transport_free(client);
    return rc == AAA_OK ? 0 : 1;
}

/* Sends a ping to a server that runs as the same user. */
static cerrno ping(aaa_transport_t *transport) {
    aaa_transport_head_t head;
    aaa_req_hdr_t request = {0};
    iov_t *iov = NULL;
    uint32_t count = 0;
    int64_t deadline = aaa_transport_deadline(10000);

    cerrno rc = aaa_transport_connect(transport, "server", getuid(),
                                      deadline);
    if (rc == AAA_OK) {
        rc = aaa_util_msg_ping_compose(&request, &iov, &count, 0);
    }
    if (rc == AAA_OK) {
        rc = aaa_transport_ask(transport, iov, count, &message,
                               deadline);
    }
    free(iov);
    if (rc == AAA_OK) {
        rc = aaa_transport_read_reply(&message, AAA_REQ_PING, &head);
    }
    return rc == AAA_OK ? head.result : rc;
}

int main(void) {
    aaa_transport_t *listener = NULL;
    aaa_transport_t *client = NULL;
    if (aaa_transport_create(&listener) != AAA_OK ||
        aaa_transport_create(&client) != AAA_OK) {
        return 1;
    }
    printf("without a server: %s\n", cerr_strerror(ping(client)));
    if (aaa_transport_listen(listener, "server") != AAA_OK) {
        return 1;
    }
    pid_t pid = fork();
    if (pid == 0) {
        _exit(serve(listener));
    }
    printf("with a server: %s\n", cerr_strerror(ping(client)));
    int status = -1;
    waitpid(pid, &status, 0);
    aaa_transport_free(client);
    aaa_transport_free(listener);
    return status;
}
