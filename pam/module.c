/* SPDX-License-Identifier: Apache-2.0 */
#define _GNU_SOURCE
#include "module.h"

#include <security/pam_ext.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>

#include "visible.h"

#define SILENT_DATA    "pam_aaa_silent"
#define SILENT_SECONDS 1u
#define EXPIRED_DATA   "pam_aaa_expired"
#define LOGIN_DATA     "pam_aaa_login"
#define LOGIN_VARIABLE "AAA_LOGIN_ID"

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

/* The number of a login is kept with the PAM handle, which a forked process has too, and in the PAM
 * environment, for programs that authenticate in a process of their own and carry that back: the data of the
 * handle is lost there. What a program puts there decides about nothing. */
static uint32_t kept_login(pam_handle_t *pamh) {
    const void *data = NULL;
    if (pam_get_data(pamh, LOGIN_DATA, &data) == PAM_SUCCESS && data != NULL) {
        return (uint32_t)(uintptr_t)data;
    }
    const char *text = pam_getenv(pamh, LOGIN_VARIABLE);
    const size_t length = text != NULL ? strlen(text) : 0;
    return length >= 8 && length <= 16 && strspn(text, "0123456789abcdef") == length
               ? (uint32_t)strtoull(text, NULL, 16)
               : 0;
}

static void use_login(module_t *module, uint32_t login) {
    char entry[48];
    client_set_login(module->client, login);
    pam_set_data(module->pamh, LOGIN_DATA, (void *)(uintptr_t)login, NULL);
    snprintf(entry, sizeof entry, LOGIN_VARIABLE "=%s", client_login(module->client));
    pam_putenv(module->pamh, entry);
}

void module_begin_login(module_t *module) {
    use_login(module, client_new_number());
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
    const uint32_t login = kept_login(pamh);
    use_login(module, login != 0 ? login : client_new_number());
    return PAM_SUCCESS;
}

int module_end(module_t *module, int result) {
    if (module->client != NULL) {
        module_debug(module, "result: %s", pam_strerror(module->pamh, result));
    }
    client_free(module->client);
    module->client = NULL;
    return result;
}

int module_unavailable(module_t *module) {
    char shown[512];
    const char *problem = client_problem(module->client);
    visible_copy(shown, sizeof shown, problem, strlen(problem), 0);
    module_log(module, LOG_ERR, "the AAA service is not available: %s", shown);
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
        module_log(module, LOG_NOTICE, "the program gives no user name");
        return PAM_USER_UNKNOWN;
    }
    const size_t length = strlen(module->cred.username);
    if (length == 0 || length > MODULE_USER_MAX) {
        module_log(module, LOG_NOTICE, "a user name of %zu characters is refused", length);
        return PAM_USER_UNKNOWN;
    }
    return PAM_SUCCESS;
}

void module_log(const module_t *module, int level, const char *format, ...) {
    char text[2001];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    pam_syslog(module->pamh, level, "[%s] %s", client_login(module->client), text);
}
