/* SPDX-License-Identifier: Apache-2.0 */
#define _GNU_SOURCE
#include "running_config.h"

#include <arpa/inet.h>
#include <string.h>

#include "platform/node.h"

/* ---- reading a message ----------------------------------------------------- */

/* Copies a name and terminates it; 0 when it is absent, too long or not printable. */
static int get_name(const avlist *list, uint32_t type, uint32_t instance, char name[CONFIG_NAME]) {
    uint32_t len = 0;
    memset(name, 0, CONFIG_NAME);
    return aaa_util_avlist_value_copy(list, type, instance, name, CONFIG_NAME - 1, &len) == AAA_OK &&
           aaa_is_name_valid(name);
}

static int get_action(const avlist *list, enum config_action *action) {
    uint8_t value = 0;
    uint32_t len = 0;
    int ok =
        aaa_util_avlist_value_copy(list, AAA_VS_RAD_CFG_ACTION, 0, &value, sizeof value, &len) == AAA_OK &&
        len == 1 && value <= CONFIG_DELETE;
    *action = value == CONFIG_DELETE ? CONFIG_DELETE : CONFIG_ADD;
    return ok;
}

static int get_word(const avlist *list, uint32_t type, uint32_t *word) {
    uint32_t len = 0;
    return aaa_util_avlist_value_copy(list, type, 0, word, sizeof *word, &len) == AAA_OK &&
           len == sizeof *word;
}

/* ---- server groups ------------------------------------------------------------ */

static config_group_t *find_group(running_config_t *config, const char *name) {
    for (uint32_t i = 0; i < config->group_count; i++) {
        if (strcmp(config->group[i].name, name) == 0) {
            return &config->group[i];
        }
    }
    return NULL;
}

static cerrno apply_group(running_config_t *config, const avlist *list) {
    char name[CONFIG_NAME];
    enum config_action action;
    if (!get_name(list, AAA_VS_RAD_SG_NAME, 0, name) || *name == '\0' || !get_action(list, &action)) {
        return AAA_ERR_INVALID_CLIENT_DATA;
    }
    config_group_t *group = find_group(config, name);
    if (action == CONFIG_DELETE) {
        if (group == NULL) {
            return AAA_ERR_NOT_FOUND;
        }
        *group = config->group[--config->group_count];
        return AAA_OK;
    }
    if (group == NULL) {
        if (config->group_count == CONFIG_GROUPS) {
            return AAA_ERR_NOMEM;
        }
        group = &config->group[config->group_count++];
        memset(group, 0, sizeof *group);
        memcpy(group->name, name, sizeof name);
    }
    return AAA_OK;
}

static int same_server(const config_server_t *a, const config_server_t *b) {
    return memcmp(&a->address, &b->address, sizeof a->address) == 0 && a->auth_port == b->auth_port &&
           a->acct_port == b->acct_port;
}

static cerrno apply_server(running_config_t *config, const avlist *list) {
    char name[CONFIG_NAME];
    enum config_action action;
    config_server_t server = {0};
    uint32_t len = 0;
    if (!get_name(list, AAA_VS_RAD_SG_NAME, 0, name) || !get_action(list, &action) ||
        aaa_util_avlist_value_copy(list, AAA_VS_RAD_SVR_IPADDR, 0, &server.address, sizeof server.address,
                                   &len) != AAA_OK ||
        len != sizeof server.address || !get_word(list, AAA_VS_RAD_SVR_AUTH_PORT, &server.auth_port) ||
        !get_word(list, AAA_VS_RAD_SVR_ACCT_PORT, &server.acct_port)) {
        return AAA_ERR_INVALID_CLIENT_DATA;
    }
    config_group_t *group = find_group(config, name);
    if (group == NULL) {
        return AAA_ERR_NOT_FOUND;
    }
    uint32_t i = 0;
    while (i < group->server_count && !same_server(&group->server[i], &server)) {
        i++;
    }
    if (action == CONFIG_DELETE) {
        if (i == group->server_count) {
            return AAA_ERR_NOT_FOUND;
        }
        group->server_count--;
        memmove(&group->server[i], &group->server[i + 1], (group->server_count - i) * sizeof server);
    } else if (i == group->server_count) {
        if (i == CONFIG_SERVERS) {
            return AAA_ERR_NOMEM;
        }
        group->server[group->server_count++] = server;
    }
    return AAA_OK;
}

/* ---- method lists ---------------------------------------------------------------- */

static config_list_t *find_list(running_config_t *config, const char *name, int authorization) {
    for (uint32_t i = 0; i < config->list_count; i++) {
        if (config->list[i].authorization == authorization && strcmp(config->list[i].name, name) == 0) {
            return &config->list[i];
        }
    }
    return NULL;
}

/* Four methods and four group names are always sent; unused slots are 0 and empty. */
static int read_list(const avlist *list, config_list_t *value) {
    if (!get_name(list, AAA_VS_MLIST_NAME, 0, value->name) || value->name[0] == '\0') {
        return 0;
    }
    for (uint32_t i = 0; i < 4; i++) {
        uint32_t len = 0;
        if (aaa_util_avlist_value_copy(list, AAA_VS_METHODS, i, &value->method[i], 1, &len) != AAA_OK ||
            len != 1 || !get_name(list, AAA_VS_RAD_SG_NAME, i, value->group[i])) {
            return 0;
        }
    }
    return 1;
}

static cerrno apply_list(running_config_t *config, const avlist *list, int authorization) {
    config_list_t value = {.authorization = (uint8_t)authorization};
    enum config_action action;
    if (!read_list(list, &value) || !get_action(list, &action)) {
        return AAA_ERR_INVALID_CLIENT_DATA;
    }
    config_list_t *known = find_list(config, value.name, authorization);
    if (action == CONFIG_DELETE) {
        if (known == NULL) {
            return AAA_ERR_NOT_FOUND;
        }
        *known = config->list[--config->list_count];
        return AAA_OK;
    }
    if (known == NULL) {
        if (config->list_count == CONFIG_LISTS) {
            return AAA_ERR_NOMEM;
        }
        known = &config->list[config->list_count++];
    }
    *known = value;
    return AAA_OK;
}

cerrno config_apply(running_config_t *config, uint32_t type, const avlist *list) {
    switch (type) {
        case AAA_REQ_CFG_SVRGRP:
            return apply_group(config, list);
        case AAA_REQ_CFG_SVR_IN_SG:
            return apply_server(config, list);
        case AAA_REQ_CFG_AUTHENLIST:
            return apply_list(config, list, 0);
        case AAA_REQ_CFG_AUTHORLIST:
            return apply_list(config, list, 1);
        default:
            return AAA_ERR_NOT_SUPPORTED;
    }
}

static void print_list(const config_list_t *list, FILE *out) {
    fprintf(out, "aaa %s login %s", list->authorization ? "authorization" : "authentication", list->name);
    for (int i = 0; i < 4 && list->method[i] != AAA_METHOD_NOTSET; i++) {
        if (list->method[i] == AAA_METHOD_SERVER_GROUP) {
            fprintf(out, " group %s", list->group[i]);
        } else {
            fprintf(out, " %s", aaa_util_print_method(list->method[i]));
        }
    }
    fputc('\n', out);
}

void config_print(const running_config_t *config, FILE *out) {
    for (uint32_t i = 0; i < config->group_count; i++) {
        const config_group_t *group = &config->group[i];
        fprintf(out, "aaa group server radius %s\n", group->name);
        for (uint32_t j = 0; j < group->server_count; j++) {
            char text[46];
            const config_server_t *server = &group->server[j];
            const char *address = aaa_util_format_v4v6_ipaddr(text, server->address);
            fprintf(out, "  server %s auth-port %u acct-port %u\n", address != NULL ? address : "?",
                    server->auth_port, server->acct_port);
        }
    }
    for (uint32_t i = 0; i < config->list_count; i++) {
        print_list(&config->list[i], out);
    }
}
