/* SPDX-License-Identifier: Apache-2.0 */

/*
 * Sessions: one accounting record at the start, one at the end, with the same number.
 *
 * The number is kept with the PAM handle, which a forked process has too, and in the PAM
 * environment, for programs that carry that to another process and make a handle there.
 */

#define _GNU_SOURCE
#include <errno.h>
#include <security/pam_ext.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>

#include "module.h"

#define SESSION_DATA     "pam_aaa_session"
#define SESSION_VARIABLE "AAA_SESSION_ID"

static void release(pam_handle_t *pamh, void *data, int status) {
    (void)pamh;
    (void)status;
    free(data);
}

static int keep_number(pam_handle_t *pamh, uint32_t number) {
    char entry[64];
    uint32_t *kept = malloc(sizeof *kept);
    if (kept == NULL) {
        return PAM_BUF_ERR;
    }
    *kept = number;
    if (pam_set_data(pamh, SESSION_DATA, kept, release) != PAM_SUCCESS) {
        free(kept);
        return PAM_BUF_ERR;
    }
    snprintf(entry, sizeof entry, SESSION_VARIABLE "=%u", number);
    pam_putenv(pamh, entry);
    return PAM_SUCCESS;
}

static uint32_t kept_number(pam_handle_t *pamh) {
    const void *data = NULL;
    if (pam_get_data(pamh, SESSION_DATA, &data) == PAM_SUCCESS && data != NULL) {
        return *(const uint32_t *)data;
    }
    const char *text = pam_getenv(pamh, SESSION_VARIABLE);
    char *end = NULL;
    errno = 0;
    const unsigned long number = text != NULL ? strtoul(text, &end, 10) : 0;
    return text != NULL && text[0] >= '0' && text[0] <= '9' && *end == '\0' && errno == 0 &&
                   number <= UINT32_MAX
               ? (uint32_t)number
               : 0;
}

/* sudo opens its session in the name of the user that the command runs as, and says who called it. */
static int belongs_to_caller(const module_t *module) {
    const char *service = module_item(module, PAM_SERVICE);
    return module->options.caller ||
           (service != NULL && (strcmp(service, "sudo") == 0 || strcmp(service, "sudo-i") == 0));
}

static int send_record(module_t *module, uint32_t option, uint32_t number) {
    const int rc = module_take_user(module, belongs_to_caller(module));
    if (rc != PAM_SUCCESS) {
        return rc;
    }
    if (!client_account(module->client, option, module->options.service, &module->cred, NULL, number, NULL)) {
        module_unavailable(module);
        return PAM_SESSION_ERR;
    }
    module_debug(module, "session %u: %s recorded", number, option == AAA_ACCT_START_OPT ? "start" : "stop");
    return PAM_SUCCESS;
}

int pam_sm_open_session(pam_handle_t *pamh, int flags, int argc, const char **argv) {
    module_t module;
    const uint32_t number = client_new_number();
    int rc = module_begin(&module, pamh, flags, argc, argv);
    if (rc == PAM_SUCCESS) {
        rc = keep_number(pamh, number); /* also without an answer: the service may have the record */
    }
    if (rc == PAM_SUCCESS) {
        rc = send_record(&module, AAA_ACCT_START_OPT, number);
    }
    return module_end(&module, rc);
}

int pam_sm_close_session(pam_handle_t *pamh, int flags, int argc, const char **argv) {
    module_t module;
    int rc = module_begin(&module, pamh, flags, argc, argv);
    if (rc != PAM_SUCCESS) {
        return rc;
    }
    const uint32_t number = kept_number(pamh);
    if (number == 0) {
        module_log(&module, LOG_WARNING, "the end of a session is not recorded: its start is not known here");
        return module_end(&module, PAM_SESSION_ERR);
    }
    return module_end(&module, send_record(&module, AAA_ACCT_STOP_OPT, number));
}
