/* SPDX-License-Identifier: Apache-2.0 */

/*
 * Approval plugin: after the policy (sudoers) has accepted a command, the service is
 * asked whether the user who called sudo may run it.
 */

#define _GNU_SOURCE
#include <stdio.h>
#include <string.h>
#include <syslog.h>

#include "plugin.h"

#define DENIED 0 /* to sudo: the plugin refuses */

static plugin_t approval = {.name = "aaa_approval"};

static int approval_open(unsigned version, sudo_conv_t conversation, sudo_printf_t print,
                         char *const settings[], char *const user_info[], int submit_optind,
                         char *const submit_argv[], char *const submit_envp[], char *const plugin_options[],
                         const char **errstr) {
    (void)conversation;
    (void)settings;
    (void)submit_optind;
    (void)submit_argv;
    (void)submit_envp;
    const int rc = plugin_open(&approval, version, print, user_info, plugin_options, 0);
    if (rc != 1) {
        plugin_tell(&approval, errstr);
    }
    return rc;
}

static void approval_close(void) {
    plugin_close(&approval);
}

/* The service said no, or asks what no one can answer here. */
static int refuse(const client_answer_t *answer) {
    snprintf(
        approval.error, sizeof approval.error, "%s: %.300s", approval.name,
        answer->message[0] != '\0' ? answer->message : "the AAA service does not authorize this command");
    syslog(LOG_AUTHPRIV | LOG_NOTICE, "%s: [%s] a command of %s is not authorized", approval.name,
           client_login(approval.client), approval.user);
    return DENIED;
}

static int result_of(const client_answer_t *answer) {
    switch (answer->status) {
        case AAA_STAT_PASS:
        case AAA_STAT_NOT_REQUIRED:
        case AAA_STAT_BYPASS:
            return 1;
        case AAA_STAT_ERROR:
            return plugin_without_service(&approval, "the command is not authorized", DENIED);
        default:
            return refuse(answer);
    }
}

static int approval_check(char *const command_info[], char *const run_argv[], char *const run_envp[],
                          const char **errstr) {
    client_answer_t answer = {0};
    (void)run_envp;
    int rc = plugin_take_command(&approval, command_info, run_argv);
    if (rc == 1) {
        client_authorize(approval.client, AAA_SVC_CMD, &approval.cred, approval.command, &answer);
        rc = result_of(&answer);
    } else {
        rc = DENIED; /* never authorized in part */
    }
    client_answer_clear(&answer);
    if (rc != 1) {
        plugin_tell(&approval, errstr);
    }
    return rc;
}

static int approval_show_version(int verbose) {
    (void)verbose;
    return plugin_show_version(approval.name, approval.print);
}

extern struct approval_plugin aaa_approval;
struct approval_plugin aaa_approval = {
    .type = SUDO_APPROVAL_PLUGIN,
    .version = SUDO_API_VERSION,
    .open = approval_open,
    .close = approval_close,
    .check = approval_check,
    .show_version = approval_show_version,
};
