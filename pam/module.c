/* SPDX-License-Identifier: Apache-2.0 */
#define _GNU_SOURCE
#include "module.h"

#include <security/pam_ext.h>
#include <string.h>
#include <syslog.h>

#include "visible.h"

#define SILENT_DATA    "pam_aaa_silent"
#define SILENT_SECONDS 1u
#define EXPIRED_DATA   "pam_aaa_expired"

/* The program calls several functions for one login. When the service was silent in one of them, the
 * others do not wait for as long again: someone sits at the terminal to repair the machine. */
static int was_silent(pam_handle_t *pamh) {
    const void *data = NULL;
    return pam_get_data(pamh, SILENT_DATA, &data) == PAM_SUCCESS && data != NULL;
}

static void note_silence(pam_handle_t *pamh) {
    static const char silent[] = "silent";
    pam_set_data(pamh, SILENT_DATA, (void *)(uintptr_t)silent, NULL);
}

void module_note_expired(const module_t *module) {
    static const char expired[] = "expired";
    pam_set_data(module->pamh, EXPIRED_DATA, (void *)(uintptr_t)expired, NULL);
}

int module_is_expired(const module_t *module) {
    const void *data = NULL;
    return pam_get_data(module->pamh, EXPIRED_DATA, &data) == PAM_SUCCESS && data != NULL;
}

int module_begin(module_t *module, pam_handle_t *pamh, int flags, int argc, const char **argv) {
    memset(module, 0, sizeof *module);
    module->pamh = pamh;
    module->flags = flags;
    options_read(&module->options, pamh, argc, argv);
    if (was_silent(pamh)) {
        module->options.settings.seconds = SILENT_SECONDS;
    }
    module->client = client_create(&module->options.settings);
    if (module->client == NULL) {
        pam_syslog(pamh, LOG_CRIT, "no memory");
        return PAM_BUF_ERR;
    }
    return PAM_SUCCESS;
}

int module_end(module_t *module, int result) {
    client_free(module->client);
    module->client = NULL;
    if (module->pamh != NULL) {
        MODULE_DEBUG(module, "result: %s", pam_strerror(module->pamh, result));
    }
    return result;
}

int module_unavailable(module_t *module) {
    char shown[512];
    const char *problem = client_problem(module->client);
    visible_copy(shown, sizeof shown, problem, strlen(problem), 0);
    pam_syslog(module->pamh, LOG_ERR, "the AAA service is not available: %s", shown);
    if (client_was_silent(module->client)) {
        note_silence(module->pamh);
    }
    return PAM_AUTHINFO_UNAVAIL;
}

int module_connect(module_t *module) {
    return client_connect(module->client) ? PAM_SUCCESS : module_unavailable(module);
}

/* A terminal as lines are named: without the directory of devices. */
static void take_terminal(module_t *module) {
    const char *name = module_item(module, PAM_TTY);
    if (name == NULL) {
        name = "";
    } else if (strncmp(name, "/dev/", 5) == 0) {
        name += 5;
    }
    visible_copy(module->terminal, sizeof module->terminal, name, strlen(name), 0);
    module->cred.ttyname = module->terminal;
    module->cred.tty_mnemonic = module->terminal;
}

static char *find_user(module_t *module, int caller) {
    const char *name = caller ? module_item(module, PAM_RUSER) : NULL;
    if ((name == NULL || name[0] == '\0') && pam_get_user(module->pamh, &name, NULL) != PAM_SUCCESS) {
        return NULL;
    }
    /* The record has no const; it is only read. */
    return (char *)(uintptr_t)name;
}

int module_take_user(module_t *module, int caller) {
    const char *address = module_item(module, PAM_RHOST);
    take_terminal(module);
    module->cred.remote_addr = (char *)(uintptr_t)(address != NULL ? address : "");
    module->cred.username = find_user(module, caller);
    if (module->cred.username == NULL) {
        pam_syslog(module->pamh, LOG_NOTICE, "the program gives no user name");
        return PAM_USER_UNKNOWN;
    }
    const size_t length = strlen(module->cred.username);
    if (length == 0 || length > MODULE_USER_MAX) {
        pam_syslog(module->pamh, LOG_NOTICE, "a user name of %zu characters is refused", length);
        return PAM_USER_UNKNOWN;
    }
    return PAM_SUCCESS;
}
