/* SPDX-License-Identifier: Apache-2.0 */

/*
 * What the functions of the login module share: one call of libpam, with its options, the
 * user and a client of the service.
 */

#ifndef AAA_PAM_MODULE_H
#define AAA_PAM_MODULE_H

#include <security/pam_modules.h>

#include "client.h"
#include "options.h"

#define MODULE_USER_MAX 253u /* longest user name that fits into a request */

typedef struct module {
    pam_handle_t *pamh;
    int flags; /* of the call */
    options_t options;
    client_t *client;
    aaa_usercred_t cred;
    char terminal[32];
} module_t;

/* ---- module.c ---------------------------------------------------------------------- */

/* Reads the options and makes the client. 0, or the PAM code to return. */
int module_begin(module_t *module, pam_handle_t *pamh, int flags, int argc, const char **argv);

/* A new login begins: its log lines, those of the functions that are called after it, and those of the
 * service have an id of their own. */
void module_begin_login(module_t *module);

/* Closes the connection and wipes. Returns the given result. */
int module_end(module_t *module, int result);

/* Connects to the service: PAM_SUCCESS, or PAM_AUTHINFO_UNAVAIL, logged. */
int module_connect(module_t *module);

/* Takes the user's name and, from the program, terminal and address. With `caller`, the user is the one who
 * called the program, where the program says so. A name that no request can carry is refused. */
int module_take_user(module_t *module, int caller);

/* Logs why there is no answer. Returns PAM_AUTHINFO_UNAVAIL. */
int module_unavailable(module_t *module);

/* The service has passed a login whose password has expired: the session needs a new one, whatever
 * the authorization of the session says. Kept for the login. */
void module_note_expired(const module_t *module);
int module_is_expired(const module_t *module);

/* ---- module_talk.c ----------------------------------------------------------------- */

/* Shows a text of the service, unless it is empty or the program wants silence. */
void module_show(module_t *module, int style, const char *text);

/* Asks the user. The answer is the caller's: module_forget(). PAM_SUCCESS or a PAM code. */
int module_ask(module_t *module, int echo, const char *prompt, char **answer);

/* Wipes and releases an answer; it may be null. */
void module_forget(char **answer);

/* The password that another module has asked for; null when there is none. */
const char *module_item(const module_t *module, int item);

/* A line for the log, with the id of the login before the text. More than 2,000 bytes are cut. */
__attribute__((format(printf, 3, 4))) void module_log(const module_t *module, int level, const char *format,
                                                      ...);

/* The same if the option debug is set. */
#define module_debug(module, ...)                         \
    do {                                                  \
        if ((module)->options.debug) {                    \
            module_log((module), LOG_DEBUG, __VA_ARGS__); \
        }                                                 \
    } while (0)

#endif /* AAA_PAM_MODULE_H */
