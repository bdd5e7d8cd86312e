/* SPDX-License-Identifier: Apache-2.0 */

/*
 * Account: whether the service authorizes the session. It is asked for every user,
 * also for one that another module authenticated, such as the owner of a key of sshd.
 */

#define _GNU_SOURCE
#include <security/pam_ext.h>
#include <stdio.h>
#include <string.h>
#include <syslog.h>

#include "module.h"
#include "visible.h"

/* For display: it gives no right, because the service is asked for each command. */
static void publish_level(module_t *module, const client_answer_t *answer) {
    char entry[32];
    if (module->options.level && answer->has_level) {
        snprintf(entry, sizeof entry, "AAA_PRIVILEGE=%u", answer->level);
        pam_putenv(module->pamh, entry);
    }
}

static int refuse(module_t *module, const client_answer_t *answer) {
    char user[MODULE_USER_MAX + 1];
    visible_copy(user, sizeof user, module->cred.username, strlen(module->cred.username), 0);
    module_log(module, LOG_NOTICE, "session is not authorized: user=%s tty=%s", user, module->terminal);
    module_show(module, PAM_ERROR_MSG, answer->message);
    return answer->expired ? PAM_ACCT_EXPIRED : PAM_PERM_DENIED;
}

static int result_of(module_t *module, const client_answer_t *answer) {
    switch (answer->status) {
        case AAA_STAT_PASS:
        case AAA_STAT_NOT_REQUIRED:
        case AAA_STAT_BYPASS:
            module_show(module, PAM_TEXT_INFO, answer->message);
            publish_level(module, answer);
            return answer->type == AAA_MT_ASCII_CHPASS || module_is_expired(module) ? PAM_NEW_AUTHTOK_REQD
                                                                                    : PAM_SUCCESS;
        case AAA_STAT_ERROR:
            return module_unavailable(module);
        default: /* also a question, which no one can answer here */
            return refuse(module, answer);
    }
}

int pam_sm_acct_mgmt(pam_handle_t *pamh, int flags, int argc, const char **argv) {
    module_t module;
    client_answer_t answer = {0};
    int rc = module_begin(&module, pamh, flags, argc, argv);
    if (rc == PAM_SUCCESS) {
        rc = module_take_user(&module, 0);
    }
    if (rc == PAM_SUCCESS) {
        client_authorize(module.client, module.options.service, &module.cred, NULL, &answer);
        rc = result_of(&module, &answer);
    }
    client_answer_clear(&answer);
    return module_end(&module, rc);
}
