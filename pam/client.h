/* SPDX-License-Identifier: Apache-2.0 */

/*
 * Requests to the AAA service, for modules in programs of others. A client keeps no
 * state outside its handle; what it sent and received is wiped.
 */

#ifndef AAA_PAM_CLIENT_H
#define AAA_PAM_CLIENT_H

#include <stddef.h>
#include <stdint.h>

#include "aaa/aaautil.h"
#include "aaa/transport.h"

#define CLIENT_SOCKET  "/run/aaa/aaad.sock" /* where the service listens unless an option says otherwise */
#define CLIENT_SECONDS 30u                  /* time for one answer, likewise */
#define CLIENT_TEXT    512u                 /* room for a text from the service, as PAM_MAX_MSG_SIZE */

typedef struct client_settings {
    const char *socket;
    const char *list; /* name of the method list */
    uint32_t seconds;
} client_settings_t;

/* What the service said. */
typedef struct client_answer {
    uint32_t status;           /* AAA_STAT_...; AAA_STAT_ERROR when there is no usable answer */
    uint32_t type;             /* AAA_MT_..., AAA_MT_NONE when the answer has none */
    uint32_t level;            /* privilege level, when has_level */
    int has_level;             /* not 0: the answer has a privilege level */
    int echo;                  /* not 0: what the user types may be shown */
    int expired;               /* not 0: the session may last 0 seconds */
    char message[CLIENT_TEXT]; /* for the user, fit to be shown; may be empty */
    char prompt[CLIENT_TEXT];  /* likewise */
    avlist *state;             /* to be sent back in the next round; null when there is none */
} client_answer_t;

typedef struct client client_t;

/* Makes a client; the settings must outlive it. Null without memory. */
client_t *client_create(const client_settings_t *settings);

/* Numbers the login that the requests of the client are for. The service's log lines have the number too. */
void client_set_login(client_t *client, uint32_t login);

/* The id of the login, as the service writes it: the number, and before it the user of this process
 * unless it is root. Eight or more hexadecimal digits. */
const char *client_login(const client_t *client);

/* Closes the connection, wipes and releases. May be null. */
void client_free(client_t *client);

/* Connects, unless there is a connection that the service has not closed. The service must
 * run as root or as the user aaad. 1, or 0: see client_problem(). */
int client_connect(client_t *client);

/* Why the latest call failed: a text that can be logged. */
const char *client_problem(const client_t *client);

/* Not 0: the latest failure was that the service said nothing until the deadline. */
int client_was_silent(const client_t *client);

/* One round of a login. The password and the state may be null. */
void client_authenticate(client_t *client, uint32_t option, aaa_usercred_t *cred, client_answer_t *answer);

/* One round of a change of password: the same request with message type AAA_MT_ASCII_CHPASS. */
void client_change_password(client_t *client, aaa_usercred_t *cred, client_answer_t *answer);

/* Asks whether the user may use the service, or for AAA_SVC_CMD run the command, which may be
 * changed in place. */
void client_authorize(client_t *client, int32_t service, aaa_usercred_t *cred, char *command,
                      client_answer_t *answer);

/* An accounting record of the session. The outcome of what it records is added to it as data, unless it is
 * null. 1: recorded. */
int client_account(client_t *client, uint32_t option, int32_t service, aaa_usercred_t *cred, char *command,
                   uint32_t session, const char *outcome);

/* Wipes an answer and releases its state. */
void client_answer_clear(client_answer_t *answer);

/* Reads the list of an answer; the status is AAA_STAT_ERROR when it has none that is known. */
void client_answer_read(client_answer_t *answer, const avlist *list);

/* A number for a session or a login, which others cannot guess; never 0. */
uint32_t client_new_number(void);

#endif /* AAA_PAM_CLIENT_H */
