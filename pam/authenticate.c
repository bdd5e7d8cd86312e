/* SPDX-License-Identifier: Apache-2.0 */

/*
 * Authentication: the password, and what the service asks for besides.
 *
 * The name of the user is settled before the first request and does not change: programs
 * like sshd go on with the name that they gave. A service that asks for the name gets the
 * same one once; asking again means that it does not know it.
 */

#define _GNU_SOURCE
#include <errno.h>
#include <pwd.h>
#include <security/pam_ext.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>

#include "module.h"
#include "visible.h"

#define DELAY_US 2000000u /* before the program reports a failure, as pam_unix(8) has */

typedef struct login {
    module_t *module;
    char *password;   /* what the next request carries; null for none */
    int first_is_old; /* the password came from another module */
    uint32_t names;   /* how often the service asked for the name */
} login_t;

static int ask_password(login_t *login, const char *prompt) {
    module_t *module = login->module;
    module_forget(&login->password);
    login->first_is_old = 0;
    const int rc = module_ask(module, 0, prompt, &login->password);
    if (rc == PAM_SUCCESS) {
        pam_set_item(module->pamh, PAM_AUTHTOK, login->password);
    }
    return rc;
}

/* The password of the first request. */
static int first_password(login_t *login) {
    module_t *module = login->module;
    const options_t *options = &module->options;
    const char *old = options->try_first || options->use_first || options->ask_later
                          ? module_item(module, PAM_AUTHTOK)
                          : NULL;
    if (old != NULL) {
        login->password = strdup(old);
        login->first_is_old = 1;
        return login->password != NULL ? PAM_SUCCESS : PAM_BUF_ERR;
    }
    if (options->use_first) {
        module_log(module, LOG_NOTICE, "use_first_pass: no module before this one has asked for a password");
        return PAM_AUTHTOK_RECOVERY_ERR;
    }
    return options->ask_later ? PAM_SUCCESS : ask_password(login, options->prompt);
}

static const char *question(const client_answer_t *answer, const char *otherwise) {
    return answer->prompt[0] != '\0'    ? answer->prompt
           : answer->message[0] != '\0' ? answer->message
                                        : otherwise;
}

/* Gets what the service asks for. PAM_SUCCESS: send the next request. */
static int next_round(login_t *login, const client_answer_t *answer) {
    module_t *module = login->module;
    if (answer->prompt[0] != '\0') {
        module_show(module, PAM_TEXT_INFO, answer->message);
    }
    switch (answer->status) {
        case AAA_STAT_GETUSER:
            return ++login->names > 1 ? PAM_USER_UNKNOWN : PAM_SUCCESS;
        case AAA_STAT_GETPASS:
            if (module->options.use_first) {
                return PAM_AUTH_ERR; /* the one password has been tried */
            }
            return ask_password(login, question(answer, module->options.prompt));
        default:
            module_forget(&login->password);
            return module_ask(module, answer->echo, question(answer, "Answer: "), &login->password);
    }
}

static int is_question(uint32_t status) {
    return status == AAA_STAT_GETUSER || status == AAA_STAT_GETPASS || status == AAA_STAT_GETDATA;
}

static int result_of(login_t *login, const client_answer_t *answer) {
    module_t *module = login->module;
    switch (answer->status) {
        case AAA_STAT_PASS:
        case AAA_STAT_BYPASS:
            if (answer->type == AAA_MT_ASCII_CHPASS) {
                module_note_expired(module);
            }
            module_show(module, PAM_TEXT_INFO, answer->message);
            return PAM_SUCCESS;
        case AAA_STAT_FAIL:
            module_show(module, PAM_ERROR_MSG, answer->message);
            return answer->expired ? PAM_ACCT_EXPIRED : PAM_AUTH_ERR;
        case AAA_STAT_ABORT:
            module_show(module, PAM_ERROR_MSG, answer->message);
            return PAM_MAXTRIES;
        case AAA_STAT_NOT_REQUIRED: /* answers an authorization only */
        default:
            return module_unavailable(module);
    }
}

/* One login: a request, and others as long as the service asks. */
static int converse(login_t *login) {
    module_t *module = login->module;
    client_answer_t answer = {0};
    avlist *state = NULL;
    int rc = PAM_MAXTRIES; /* when the service does not stop asking */
    login->names = 0;
    for (uint32_t round = 0; round <= module->options.rounds; round++) {
        module->cred.password = login->password;
        module->cred.state_args = state;
        client_authenticate(module->client, module->options.authen_option, &module->cred, &answer);
        aaa_avpair_free_list(state);
        state = answer.state;
        answer.state = NULL;
        rc = is_question(answer.status) ? next_round(login, &answer) : result_of(login, &answer);
        const int again = is_question(answer.status) && rc == PAM_SUCCESS;
        client_answer_clear(&answer);
        if (!again) {
            break;
        }
        rc = PAM_MAXTRIES;
    }
    aaa_avpair_free_list(state);
    module->cred.password = NULL;
    module->cred.state_args = NULL;
    return rc;
}

static int log_in(login_t *login) {
    module_t *module = login->module;
    int rc = first_password(login);
    if (rc != PAM_SUCCESS) {
        return rc;
    }
    rc = converse(login);
    if (rc == PAM_AUTH_ERR && login->first_is_old && !module->options.use_first) {
        rc = ask_password(login, module->options.prompt);
        rc = rc == PAM_SUCCESS ? converse(login) : rc;
    }
    return rc;
}

/* People type their password where the name is asked for. */
static int may_be_named(const module_t *module) {
    struct passwd entry;
    struct passwd *found = NULL;
    char room[4096];
    const int error = getpwnam_r(module->cred.username, &entry, room, sizeof room, &found);
    return module->options.unknown_names || found != NULL || error == ERANGE; /* an account with many words */
}

static void log_failure(module_t *module, int rc) {
    char user[MODULE_USER_MAX + 1];
    char address[256];
    if (rc == PAM_SUCCESS || rc == PAM_AUTHINFO_UNAVAIL) {
        return;
    }
    const char *name = may_be_named(module) ? module->cred.username : "(unknown name)";
    visible_copy(user, sizeof user, name, strlen(name), 0);
    visible_copy(address, sizeof address, module->cred.remote_addr, strlen(module->cred.remote_addr), 0);
    module_log(module, LOG_NOTICE, "authentication failure: user=%s tty=%s rhost=%s: %s", user,
               module->terminal, address, pam_strerror(module->pamh, rc));
}

int pam_sm_authenticate(pam_handle_t *pamh, int flags, int argc, const char **argv) {
    module_t module;
    int rc = module_begin(&module, pamh, flags, argc, argv);
    if (rc != PAM_SUCCESS) {
        return rc;
    }
    module_begin_login(&module);
    if (!module.options.no_delay) {
        pam_fail_delay(pamh, DELAY_US);
    }
    rc = module_connect(&module);
    if (rc != PAM_SUCCESS) {
        return module_end(&module, rc); /* before the user types a password for no one */
    }
    const int named = module_take_user(&module, 0);
    login_t login = {.module = &module};
    if (named == PAM_SUCCESS) {
        rc = log_in(&login);
        log_failure(&module, rc);
    } else {
        rc = named;
    }
    module_forget(&login.password);
    return module_end(&module, rc);
}

/* There is nothing to establish: the service decides again when it is asked. */
int pam_sm_setcred(pam_handle_t *pamh, int flags, int argc, const char **argv) {
    (void)pamh;
    (void)flags;
    (void)argc;
    (void)argv;
    return PAM_SUCCESS;
}
