/* SPDX-License-Identifier: Apache-2.0 */

/*
 * Change of a password through the service.
 *
 * The first request carries message type AAA_MT_ASCII_CHPASS and no password. The service
 * asks for the old password (GETPASS) and for the new one (GETDATA without echo), maybe
 * twice. Its last answer carries the same message type. A service that knows no such change
 * takes the requests for a login: it may accept the old password, but without that type
 * nothing was changed, and the user is told so. NOT_REQUIRED means that the password is not
 * the service's, so another module has to change it.
 *
 * The preliminary check sends the first request only: a user whose password cannot be
 * changed is told so before any module has asked for one.
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
    if (module->options.use_first) {
        module_log(module, LOG_NOTICE,
                   "use_first_pass: no module before this one has asked for the old password");
        return PAM_AUTHTOK_RECOVERY_ERR;
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

/* The one that another module has asked for; null when there is none or it does not count. */
static const char *given_password(const module_t *module) {
    const options_t *options = &module->options;
    return options->use_authtok || options->use_first || options->try_first ? module_item(module, PAM_AUTHTOK)
                                                                            : NULL;
}

static int take_new_password(change_t *change) {
    module_t *module = change->module;
    const char *given = given_password(module);
    if (given != NULL && given[0] != '\0') {
        change->fresh = strdup(given);
        return change->fresh != NULL ? PAM_SUCCESS : PAM_BUF_ERR;
    }
    if (module->options.use_authtok || module->options.use_first) {
        module_log(module, LOG_NOTICE, "no module before this one has asked for a new password");
        return PAM_AUTHTOK_ERR;
    }
    return ask_new_password(change);
}

static int new_password(change_t *change) {
    const int rc = change->fresh == NULL ? take_new_password(change) : PAM_SUCCESS;
    return rc == PAM_SUCCESS ? answer_with(change, change->fresh) : rc;
}

/* The exchange has ended: the result. */
static int result_of(change_t *change, const client_answer_t *answer) {
    module_t *module = change->module;
    switch (answer->status) {
        case AAA_STAT_PASS:
            if (answer->type == AAA_MT_ASCII_CHPASS && change->fresh != NULL) {
                module_show(module, PAM_TEXT_INFO, answer->message);
                return PAM_SUCCESS;
            }
            module_log(module, LOG_ERR, "the AAA service does not change passwords");
            module_show(module, PAM_ERROR_MSG,
                        "The AAA service does not change passwords. The password is unchanged.");
            return PAM_AUTHTOK_ERR;
        case AAA_STAT_NOT_REQUIRED:
            module_debug(module, "the password is not the service's");
            return PAM_IGNORE;
        case AAA_STAT_ERROR:
            if (change->fresh != NULL) {
                module_show(module, PAM_ERROR_MSG,
                            "The AAA service does not answer. Your password may be the old or the new one.");
            }
            return module_unavailable(module);
        default:
            module_show(module, PAM_ERROR_MSG,
                        answer->message[0] != '\0' ? answer->message
                                                   : "The AAA service refuses. The password is unchanged.");
            return PAM_AUTHTOK_ERR;
    }
}

static int is_question(const client_answer_t *answer) {
    return answer->status == AAA_STAT_GETPASS || answer->status == AAA_STAT_GETDATA;
}

/* 0: the exchange has ended with *rc. */
static int next_round(change_t *change, const client_answer_t *answer, int *rc) {
    module_t *module = change->module;
    const char *prompt = answer->prompt[0] != '\0' ? answer->prompt : answer->message;
    if (!is_question(answer)) {
        *rc = result_of(change, answer);
        return 0;
    }
    if (answer->status == AAA_STAT_GETPASS) {
        *rc = old_password(change, prompt[0] != '\0' ? prompt : "Current password: ");
    } else if (!answer->echo) {
        *rc = new_password(change);
    } else {
        module_forget(&change->answer);
        *rc = module_ask(module, 1, prompt[0] != '\0' ? prompt : "Answer: ", &change->answer);
    }
    return *rc == PAM_SUCCESS;
}

/* Whether the password can be changed: the service asks for one. */
static int check(change_t *change) {
    client_answer_t answer = {0};
    client_change_password(change->module->client, &change->module->cred, &answer);
    const int rc = is_question(&answer) ? PAM_SUCCESS : result_of(change, &answer);
    client_answer_clear(&answer);
    return rc;
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
    if (rc == PAM_SUCCESS) {
        rc = module_take_user(&module, 0);
    }
    if (rc == PAM_SUCCESS) {
        change_t change = {.module = &module};
        rc = ((unsigned)flags & PAM_UPDATE_AUTHTOK) != 0 ? converse(&change) : check(&change);
        module_forget(&change.fresh);
        module_forget(&change.answer);
    }
    return module_end(&module, rc);
}
