/* SPDX-License-Identifier: Apache-2.0 */

/*
 * The conversation with the user, through the program.
 */

#define _GNU_SOURCE
#include <security/pam_ext.h>
#include <stdlib.h>
#include <string.h>

#include "module.h"

void module_show(module_t *module, int style, const char *text) {
    if (text[0] != '\0' && ((unsigned)module->flags & PAM_SILENT) == 0) {
        pam_prompt(module->pamh, style, NULL, "%s", text);
    }
}

int module_ask(module_t *module, int echo, const char *prompt, char **answer) {
    *answer = NULL;
    const int rc =
        pam_prompt(module->pamh, echo ? PAM_PROMPT_ECHO_ON : PAM_PROMPT_ECHO_OFF, answer, "%s", prompt);
    if (rc == PAM_SUCCESS && *answer == NULL) {
        *answer = strdup(""); /* programs give null for an empty answer */
    }
    return rc != PAM_SUCCESS ? PAM_CONV_ERR : *answer == NULL ? PAM_BUF_ERR : PAM_SUCCESS;
}

void module_forget(char **answer) {
    if (*answer != NULL) {
        explicit_bzero(*answer, strlen(*answer));
        free(*answer);
        *answer = NULL;
    }
}

const char *module_item(const module_t *module, int item) {
    const void *value = NULL;
    return pam_get_item(module->pamh, item, &value) == PAM_SUCCESS ? value : NULL;
}
