/* SPDX-License-Identifier: Apache-2.0 */

/* The requests of the example server: a message is read, and gets an answer. */

#ifndef EXAMPLES_REQUESTS_H
#define EXAMPLES_REQUESTS_H

#include "aaa/transport.h"
#include "running_config.h"
#include "users.h"

typedef struct server {
    user_t *users;
    const char *accounting_path;
    running_config_t config; /* changed by configuration messages */
} server_t;

/* Answers a message of the client. Every message gets an answer. */
void requests_answer(server_t *server, aaa_transport_t *client, const aaa_transport_msg_t *msg);

/* Answers a message that could not be received with a code. */
void requests_refuse(aaa_transport_t *client, cerrno error);

#endif /* EXAMPLES_REQUESTS_H */
