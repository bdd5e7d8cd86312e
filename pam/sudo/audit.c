/* SPDX-License-Identifier: Apache-2.0 */

/*
 * Audit plugin: an accounting record when a command starts, and one with its exit status
 * when it has ended.
 */

#define _GNU_SOURCE
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
#include <syslog.h>

#include "plugin.h"

static plugin_t audit = {.name = "aaa_audit"};
static uint32_t session; /* number of the command that runs; 0 when there is none */

static int audit_open(unsigned version, sudo_conv_t conversation, sudo_printf_t print, char *const settings[],
                      char *const user_info[], int submit_optind, char *const submit_argv[],
                      char *const submit_envp[], char *const plugin_options[], const char **errstr) {
    (void)conversation;
    (void)settings;
    (void)submit_optind;
    (void)submit_argv;
    (void)submit_envp;
    session = 0;
    const int rc = plugin_open(&audit, version, print, user_info, plugin_options, 1);
    if (rc != 1) {
        plugin_tell(&audit, errstr);
    }
    return rc;
}

static int send_record(uint32_t option, const char *outcome) {
    /* The library masks passwords in the text that it gets, so the second record has the same text. */
    return client_account(audit.client, option, AAA_SVC_CMD, &audit.cred, audit.command, session, outcome);
}

/* Called for the policy, for each approval plugin, and at last for sudo itself, when the command is run. */
static int audit_accept(const char *plugin_name, unsigned plugin_type, char *const command_info[],
                        char *const run_argv[], char *const run_envp[], const char **errstr) {
    (void)plugin_name;
    (void)run_envp;
    if (plugin_type != SUDO_FRONT_END || command_info == NULL) {
        return 1;
    }
    int rc = plugin_take_command(&audit, command_info, run_argv);
    if (rc == 1) {
        session = client_new_number();
        if (!send_record(AAA_ACCT_START_OPT, NULL)) {
            rc = plugin_without_service(&audit, "the command is not recorded", -1);
        }
    }
    if (rc != 1) {
        session = 0; /* it does not run, so it does not end */
        plugin_tell(&audit, errstr);
    }
    return rc;
}

static void describe(char *text, size_t size, int status_type, int status) {
    if (status_type == SUDO_PLUGIN_WAIT_STATUS && WIFEXITED(status)) {
        snprintf(text, size, "exit status %d", WEXITSTATUS(status));
    } else if (status_type == SUDO_PLUGIN_WAIT_STATUS && WIFSIGNALED(status)) {
        snprintf(text, size, "signal %d", WTERMSIG(status));
    } else if (status_type == SUDO_PLUGIN_EXEC_ERROR || status_type == SUDO_PLUGIN_SUDO_ERROR) {
        snprintf(text, size, "not run: error %d", status);
    } else {
        snprintf(text, size, "unknown");
    }
}

static void audit_close(int status_type, int status) {
    char outcome[64];
    if (session != 0) {
        describe(outcome, sizeof outcome, status_type, status);
        if (!send_record(AAA_ACCT_STOP_OPT, outcome)) {
            plugin_without_service(&audit, "the end of the command is not recorded", 1);
        }
    }
    session = 0;
    plugin_close(&audit);
}

static int audit_show_version(int verbose) {
    (void)verbose;
    return plugin_show_version(audit.name, audit.print);
}

extern struct audit_plugin aaa_audit;
struct audit_plugin aaa_audit = {
    .type = SUDO_AUDIT_PLUGIN,
    .version = SUDO_API_VERSION,
    .open = audit_open,
    .close = audit_close,
    .accept = audit_accept,
    .show_version = audit_show_version,
};
