/* SPDX-License-Identifier: Apache-2.0 */

/*
 * What the two plugins for sudo share: the options of their lines in sudo.conf, the user
 * who called sudo, and the texts for him. sudo gives its plugins no place for state, so
 * each has one record.
 */

#ifndef AAA_PAM_SUDO_PLUGIN_H
#define AAA_PAM_SUDO_PLUGIN_H

#include <sudo_plugin.h>

#include "client.h"

typedef struct plugin {
    const char *name; /* in texts */
    sudo_printf_t print;
    client_settings_t settings;
    int allow;          /* commands may run when the service is away */
    const char *except; /* users, separated by commas, for whom the opposite of a refusal holds then */
    client_t *client;
    aaa_usercred_t cred;
    char *user;
    char *terminal;
    char *command; /* text of the command */
    char error[512];
} plugin_t;

/* Reads the options and the user. 1, or -1: see plugin->error. `allow` holds without an option. */
int plugin_open(plugin_t *plugin, unsigned version, sudo_printf_t print, char *const user_info[],
                char *const options[], int allow);

/* Releases what the plugin has. */
void plugin_close(plugin_t *plugin);

/* Makes the text of the command: 1, or -1 with a reason in plugin->error. */
int plugin_take_command(plugin_t *plugin, char *const command_info[], char *const argv[]);

/* What holds while the service is away: 1 allow, or `refusal` with a reason in plugin->error. */
int plugin_without_service(plugin_t *plugin, const char *what, int refusal);

/* Shows the text to the user and keeps it for sudo: *errstr. */
void plugin_tell(plugin_t *plugin, const char **errstr);

/* Shows name and version. */
int plugin_show_version(const char *name, sudo_printf_t print);

#endif /* AAA_PAM_SUDO_PLUGIN_H */
