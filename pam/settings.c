/* SPDX-License-Identifier: Apache-2.0 */
#include "settings.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#define MOST_SECONDS 3600u

client_settings_t settings_default(void) {
    return (client_settings_t){.socket = CLIENT_SOCKET, .list = "default", .seconds = CLIENT_SECONDS};
}

const char *settings_value(const char *option, const char *name) {
    const size_t length = strlen(name);
    return strncmp(option, name, length) == 0 && option[length] == '=' ? option + length + 1 : NULL;
}

int settings_number(uint32_t *number, const char *value, uint32_t most) {
    char *end = NULL;
    errno = 0;
    const unsigned long read = strtoul(value, &end, 10);
    if (value[0] < '0' || value[0] > '9' || *end != '\0' || errno != 0 || read < 1 || read > most) {
        return 0;
    }
    *number = (uint32_t)read;
    return 1;
}

int settings_text(const char **text, const char *value) {
    if (value[0] != '\0') {
        *text = value;
    }
    return value[0] != '\0';
}

int settings_read(client_settings_t *settings, const char *option) {
    const char *value = NULL;
    if ((value = settings_value(option, "timeout")) != NULL) {
        return settings_number(&settings->seconds, value, MOST_SECONDS);
    }
    if ((value = settings_value(option, "socket")) != NULL) {
        return value[0] == '/' && settings_text(&settings->socket, value);
    }
    if ((value = settings_value(option, "list")) != NULL) {
        return settings_text(&settings->list, value);
    }
    return -1;
}
