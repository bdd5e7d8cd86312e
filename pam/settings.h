/* SPDX-License-Identifier: Apache-2.0 */

/*
 * The options that the login module and sudo's plugins have in common, and the reading
 * of options of the form name=value.
 */

#ifndef AAA_PAM_SETTINGS_H
#define AAA_PAM_SETTINGS_H

#include "client.h"

/* socket, method list and time limit that hold without options. */
client_settings_t settings_default(void);

/* Reads socket=, list= or timeout=. 1: set; 0: the value is not possible; -1: another option.
 * The texts of the option must outlive the settings. */
int settings_read(client_settings_t *settings, const char *option);

/* The value of an option name=value; null when it is another one. */
const char *settings_value(const char *option, const char *name);

/* Reads a decimal number from 1 to `most`. */
int settings_number(uint32_t *number, const char *value, uint32_t most);

/* Takes a text that is not empty. */
int settings_text(const char **text, const char *value);

#endif /* AAA_PAM_SETTINGS_H */
