/* SPDX-License-Identifier: Apache-2.0 */

/*
 * Change of a password through the service.
 *
 * The first request carries message type AAA_MT_ASCII_CHPASS and no password. The service
 * asks for the old password (GETPASS) and for the new one (GETDATA without echo), maybe
 * twice. Its last answer carries the same message type. A service that knows no such change
 * takes the requests for a login: it may accept the old password, but without that type
 * nothing was changed, and the user is told so.
 */

#define _GNU_SOURCE
#include <security/pam_ext.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>

#include "module.h"

typedef struct change {
    module_t *module;
    char *fresh;  /* the new password, once it has been asked for */
    char *answer; /* what the next request carries */
} change_t;

static int answer_with(change_t *change, const char *text) {
    module_forget(&change->answer);
    change->answer = strdup(text);
    return change->answer != NULL ? PAM_SUCCESS : PAM_BUF_ERR;
}

static int old_password(change_t *change, const char *prompt) {
    module_t *module = change->module;
    const char *old = module_item(module, PAM_OLDAUTHTOK);
    if (old != NULL) {
        return answer_with(change, old);
    }
    module_forget(&change->answer);
    const int rc = module_ask(module, 0, prompt, &change->answer);
    if (rc == PAM_SUCCESS) {
        pam_set_item(module->pamh, PAM_OLDAUTHTOK, change->answer);
    }
    return rc;
}

/* The user types the new password twice, unless another module has asked for it. */
static int ask_new_password(change_t *change) {
    module_t *module = change->module;
    char *again = NULL;
    int rc = module_ask(module, 0, "New password: ", &change->fresh);
    if (rc == PAM_SUCCESS) {
        rc = module_ask(module, 0, "Retype new password: ", &again);
    }
    if (rc == PAM_SUCCESS && strcmp(change->fresh, again) != 0) {
        module_show(module, PAM_ERROR_MSG, "The two passwords differ. The password is unchanged.");
        rc = PAM_TRY_AGAIN;
    } else if (rc == PAM_SUCCESS && change->fresh[0] == '\0') {
        module_show(module, PAM_ERROR_MSG, "The new password is empty. The password is unchanged.");
        rc = PAM_AUTHTOK_ERR;
    }
    module_forget(&again);
    if (rc == PAM_SUCCESS) {
        pam_set_item(module->pamh, PAM_AUTHTOK, change->fresh);
    }
    return rc;
}

static int new_password(change_t *change) {
    module_t *module = change->module;
    int rc = PAM_SUCCESS;
    if (change->fresh == NULL && module->options.use_authtok) {
        const char *given = module_item(module, PAM_AUTHTOK);
        change->fresh = given != NULL ? strdup(given) : NULL;
        rc = change->fresh != NULL ? PAM_SUCCESS : PAM_AUTHTOK_ERR;
    } else if (change->fresh == NULL) {
        rc = ask_new_password(change);
    }
    return rc == PAM_SUCCESS ? answer_with(change, change->fresh) : rc;
}

/* 0: the exchange has ended with *rc. */
static int next_round(change_t *change, const client_answer_t *answer, int *rc) {
    module_t *module = change->module;
    const char *prompt = answer->prompt[0] != '\0' ? answer->prompt : answer->message;
    *rc = PAM_AUTHTOK_ERR;
    switch (answer->status) {
        case AAA_STAT_GETPASS:
            *rc = old_password(change, prompt[0] != '\0' ? prompt : "Current password: ");
            return *rc == PAM_SUCCESS;
        case AAA_STAT_GETDATA:
            if (!answer->echo) {
                *rc = new_password(change);
            } else {
                module_forget(&change->answer);
                *rc = module_ask(module, 1, prompt[0] != '\0' ? prompt : "Answer: ", &change->answer);
            }
            return *rc == PAM_SUCCESS;
        case AAA_STAT_PASS:
            if (answer->type == AAA_MT_ASCII_CHPASS && change->fresh != NULL) {
                module_show(module, PAM_TEXT_INFO, answer->message);
                *rc = PAM_SUCCESS;
            } else {
                pam_syslog(module->pamh, LOG_ERR, "the AAA service does not change passwords");
                module_show(module, PAM_ERROR_MSG,
                            "The AAA service does not change passwords. The password is unchanged.");
            }
            return 0;
        case AAA_STAT_ERROR:
            *rc = module_unavailable(module);
            return 0;
        default:
            module_show(module, PAM_ERROR_MSG,
                        answer->message[0] != '\0' ? answer->message
                                                   : "The AAA service refuses. The password is unchanged.");
            return 0;
    }
}

static int converse(change_t *change) {
    module_t *module = change->module;
    client_answer_t answer = {0};
    avlist *state = NULL;
    int rc = PAM_AUTHTOK_ERR;
    int more = 1;
    for (uint32_t round = 0; more && round <= module->options.rounds; round++) {
        module->cred.password = change->answer;
        module->cred.state_args = state;
        client_change_password(module->client, &module->cred, &answer);
        aaa_avpair_free_list(state);
        state = answer.state;
        answer.state = NULL;
        more = next_round(change, &answer, &rc);
        client_answer_clear(&answer);
    }
    aaa_avpair_free_list(state);
    module->cred.password = NULL;
    module->cred.state_args = NULL;
    return more ? PAM_AUTHTOK_ERR : rc;
}

int pam_sm_chauthtok(pam_handle_t *pamh, int flags, int argc, const char **argv) {
    module_t module;
    int rc = module_begin(&module, pamh, flags, argc, argv);
    if (rc == PAM_SUCCESS) {
        rc = module_connect(&module);
    }
    if (rc == PAM_SUCCESS && ((unsigned)flags & PAM_UPDATE_AUTHTOK) != 0) {
        change_t change = {.module = &module};
        rc = module_take_user(&module, 0);
        rc = rc == PAM_SUCCESS ? converse(&change) : rc;
        module_forget(&change.fresh);
        module_forget(&change.answer);
    }
    return module_end(&module, rc);
}
