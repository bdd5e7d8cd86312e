/* SPDX-License-Identifier: Apache-2.0 */
#define _GNU_SOURCE
#include "plugin.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>
#include <unistd.h>

#include "command_text.h"
#include "settings.h"
#include "visible.h"

#define USER_MAX 253u /* longest user name that fits into a request */

/* The number of this run of sudo in log lines: both plugins have the same one. */
static uint32_t run_number(void) {
    static uint32_t number;
    static pid_t process; /* a program that uses the plugins may fork */
    if (process != getpid()) {
        process = getpid();
        number = client_new_number();
    }
    return number;
}

/* The value of `name` in a list of name=value; null when there is none. */
static const char *find(char *const list[], const char *name) {
    for (size_t i = 0; list != NULL && list[i] != NULL; i++) {
        const char *value = settings_value(list[i], name);
        if (value != NULL) {
            return value;
        }
    }
    return NULL;
}

static int set_allow(plugin_t *plugin, const char *value) {
    const int allow = strcmp(value, "allow") == 0;
    if (!allow && strcmp(value, "deny") != 0) {
        return 0;
    }
    plugin->allow = allow;
    return 1;
}

/* 1: set; 0: the value is not possible; -1: another option. */
static int set_option(plugin_t *plugin, const char *option) {
    const char *value = NULL;
    if ((value = settings_value(option, "unavailable")) != NULL) {
        return set_allow(plugin, value);
    }
    if ((value = settings_value(option, "except")) != NULL) {
        plugin->except = value;
        return 1;
    }
    return settings_read(&plugin->settings, option);
}

/* An option that is not understood must not lock the administrator out, so it is ignored. What holds
 * instead is the default, which is strict. */
static void read_option(plugin_t *plugin, const char *option) {
    char shown[128];
    const int set = set_option(plugin, option);
    if (set == 1) {
        return;
    }
    visible_copy(shown, sizeof shown, option, strlen(option), 0);
    const char *reason = set == 0 ? "the value is not possible" : "it is unknown";
    syslog(LOG_AUTHPRIV | LOG_ERR, "%s: option %s in sudo.conf is ignored: %s; see aaa_sudo(8)", plugin->name,
           shown, reason);
    plugin->print(SUDO_CONV_ERROR_MSG, "%s: option %s in sudo.conf is ignored: %s; see aaa_sudo(8)\n",
                  plugin->name, shown, reason);
}

static int take_user(plugin_t *plugin, char *const user_info[]) {
    const char *user = find(user_info, "user");
    const char *terminal = find(user_info, "tty");
    if (terminal == NULL) {
        terminal = "";
    } else if (strncmp(terminal, "/dev/", 5) == 0) {
        terminal += 5;
    }
    if (user == NULL || user[0] == '\0' || strlen(user) > USER_MAX) {
        snprintf(plugin->error, sizeof plugin->error, "%s: sudo gives no user name that fits into a request",
                 plugin->name);
        return -1;
    }
    plugin->user = strdup(user);
    plugin->terminal = strdup(terminal);
    plugin->client = client_create(&plugin->settings);
    if (plugin->user == NULL || plugin->terminal == NULL || plugin->client == NULL) {
        snprintf(plugin->error, sizeof plugin->error, "%s: no memory", plugin->name);
        return -1;
    }
    client_set_login(plugin->client, run_number());
    /* The address that the user came from is not known here: sudo has it only from the user's environment. */
    plugin->cred = (aaa_usercred_t){.username = plugin->user,
                                    .ttyname = plugin->terminal,
                                    .tty_mnemonic = plugin->terminal,
                                    .remote_addr = (char *)(uintptr_t) ""};
    return 1;
}

int plugin_open(plugin_t *plugin, unsigned version, sudo_printf_t print, char *const user_info[],
                char *const options[], int allow) {
    plugin_close(plugin);
    plugin->print = print;
    plugin->allow = allow;
    plugin->except = "root";
    plugin->settings = settings_default();
    if (SUDO_API_VERSION_GET_MAJOR(version) != SUDO_API_VERSION_MAJOR) {
        snprintf(plugin->error, sizeof plugin->error, "%s: this sudo has plugin interface %u, not %d",
                 plugin->name, SUDO_API_VERSION_GET_MAJOR(version), SUDO_API_VERSION_MAJOR);
        return -1;
    }
    for (size_t i = 0; options != NULL && options[i] != NULL; i++) {
        read_option(plugin, options[i]);
    }
    return take_user(plugin, user_info);
}

void plugin_close(plugin_t *plugin) {
    client_free(plugin->client);
    free(plugin->user);
    free(plugin->terminal);
    free(plugin->command);
    plugin->client = NULL;
    plugin->user = plugin->terminal = plugin->command = NULL;
}

/* For sudoedit, sudo gives the editor, which the user may choose by his environment, its options, "--" and the
 * files. The editor runs as the user, so it is the files that are to be authorized. The result begins with
 * the argument before them, which counts as the name of the program; null when they cannot be told. */
static char *const *files_to_edit(char *const command_info[], char *const argv[]) {
    const char *text = find(command_info, "sudoedit_nfiles");
    uint32_t files = 0;
    uint32_t count = 0;
    while (argv != NULL && argv[count] != NULL) {
        count++;
    }
    return text != NULL && settings_number(&files, text, UINT32_MAX - 1) && files < count
               ? argv + (count - files - 1)
               : NULL;
}

static int is_edit(char *const command_info[]) {
    const char *edit = find(command_info, "sudoedit");
    return edit != NULL && strcmp(edit, "true") == 0;
}

int plugin_take_command(plugin_t *plugin, char *const command_info[], char *const argv[]) {
    const char *program = find(command_info, "command");
    size_t length = 0;
    if (is_edit(command_info)) {
        program = "sudoedit";
        argv = files_to_edit(command_info, argv);
        if (argv == NULL) {
            snprintf(plugin->error, sizeof plugin->error, "%s: sudo does not tell which files are edited",
                     plugin->name);
            return -1;
        }
    } else if (program == NULL) {
        program = argv != NULL && argv[0] != NULL ? argv[0] : "";
    }
    free(plugin->command);
    plugin->command = command_text(program, argv, &length);
    if (plugin->command == NULL) {
        snprintf(plugin->error, sizeof plugin->error,
                 length > COMMAND_TEXT_MAX
                     ? "%s: the command has %zu characters, and the AAA service decides about at most %u"
                     : "%s: no memory for a command of %zu characters (at most %u)",
                 plugin->name, length, COMMAND_TEXT_MAX);
        return -1;
    }
    return 1;
}

/* Whether a name is in a list separated by commas. */
static int is_listed(const char *list, const char *name) {
    const size_t length = strlen(name);
    for (const char *at = list; *at != '\0'; at += strcspn(at, ",") + (at[strcspn(at, ",")] == ',')) {
        if (strcspn(at, ",") == length && strncmp(at, name, length) == 0) {
            return 1;
        }
    }
    return 0;
}

int plugin_without_service(plugin_t *plugin, const char *what, int refusal) {
    char problem[CLIENT_TEXT];
    const char *reason = client_problem(plugin->client);
    const int allow = plugin->allow || is_listed(plugin->except, plugin->user);
    visible_copy(problem, sizeof problem, reason, strlen(reason), 0);
    syslog(LOG_AUTHPRIV | LOG_ERR, "%s: [%s] the AAA service is not available: %s; the command of %s %s",
           plugin->name, client_login(plugin->client), problem, plugin->user,
           allow ? "runs without it" : "does not run");
    snprintf(plugin->error, sizeof plugin->error, "%s: %s: the AAA service is not available", plugin->name,
             what);
    return allow ? 1 : refusal;
}

void plugin_tell(plugin_t *plugin, const char **errstr) {
    plugin->print(SUDO_CONV_ERROR_MSG, "%s\n", plugin->error);
    if (errstr != NULL) {
        *errstr = plugin->error;
    }
}

int plugin_show_version(const char *name, sudo_printf_t print) {
    print(SUDO_CONV_INFO_MSG, "%s of libaaautil version " AAA_VERSION "\n", name);
    return 1;
}
