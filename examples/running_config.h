/* SPDX-License-Identifier: Apache-2.0 */
#ifndef EXAMPLES_RUNNING_CONFIG_H
#define EXAMPLES_RUNNING_CONFIG_H

#include <stdio.h>

#include "aaa/aaautil.h"

/*
 * The running configuration of the example server: server groups with their
 * servers, and method lists, as configuration messages change them.
 */

/* The action of a configuration message; this server and its clients define the numbers. */
enum config_action { CONFIG_ADD = 0, CONFIG_DELETE = 1 };

#define CONFIG_NAME    64 /* longest name, terminator included */
#define CONFIG_SERVERS 8
#define CONFIG_GROUPS  32
#define CONFIG_LISTS   32

typedef struct config_server {
    aaa_ip_addr_t address;
    uint32_t auth_port;
    uint32_t acct_port;
} config_server_t;

typedef struct config_group {
    char name[CONFIG_NAME];
    uint32_t server_count;
    config_server_t server[CONFIG_SERVERS];
} config_group_t;

typedef struct config_list {
    char name[CONFIG_NAME];
    uint8_t authorization; /* 0: an authentication list */
    uint8_t method[4];
    char group[4][CONFIG_NAME];
} config_list_t;

typedef struct running_config {
    uint32_t group_count;
    config_group_t group[CONFIG_GROUPS];
    uint32_t list_count;
    config_list_t list[CONFIG_LISTS];
} running_config_t;

/* Applies a configuration message of type 18, 19, 22 or 23. AAA_OK, or
 * AAA_ERR_INVALID_CLIENT_DATA (malformed), AAA_ERR_NOT_FOUND (no such group or
 * list), AAA_ERR_NOT_SUPPORTED (another type), AAA_ERR_NOMEM (full). */
cerrno config_apply(running_config_t *config, uint32_t type, const avlist *list);

/* Writes the configuration in the form of an operator's commands. */
void config_print(const running_config_t *config, FILE *out);

#endif /* EXAMPLES_RUNNING_CONFIG_H */
