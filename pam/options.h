/* SPDX-License-Identifier: Apache-2.0 */

/*
 * The options of a line in /etc/pam.d that names the module.
 */

#ifndef AAA_PAM_OPTIONS_H
#define AAA_PAM_OPTIONS_H

#include <security/pam_modules.h>
#include <stdint.h>

#include "client.h"

typedef struct options {
    client_settings_t settings;
    const char *prompt;     /* for the password */
    int32_t service;        /* AAA_SVC_... of account and session */
    uint32_t authen_option; /* AAA_AO_... */
    uint32_t rounds;        /* most questions in one login */
    int debug;
    int try_first; /* the password that another module asked for is tried */
    int use_first; /* and no other one is asked for */
    int use_authtok;
    int ask_later; /* the first request goes without a password; the service asks */
    int caller;    /* sessions belong to the user who called the program (PAM_RUSER) */
    int level;     /* the privilege level goes into the PAM environment */
    int no_delay;
    int unknown_names; /* failures name users without an account, too */
} options_t;

/* Reads the options. What is unknown, malformed or has no equivalent is logged and ignored. */
void options_read(options_t *options, pam_handle_t *pamh, int argc, const char **argv);

#endif /* AAA_PAM_OPTIONS_H */
