/* SPDX-License-Identifier: Apache-2.0 */

/*
 * Stores server groups and method lists from a text file in the system database,
 * where the AAA server and its clients find them:
 *
 *     db_load FILE...          "-" reads standard input
 */

#define _GNU_SOURCE
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "aaa/aaautil.h"
#include "methods.h"
#include "platform/cerr.h"
#include "platform/sysdb.h"

#define MAX_WORDS 16

static int fail(const char *what, cerrno rc) {
    fprintf(stderr, "db_load: %s: %s\n", what, cerr_strerror(rc));
    return 0;
}

/* group PROTOCOL NAME SERVER...: each server gets the group's next index. */
static int load_group(sysdb_conn_t conn, char **word, int words) {
    uint32_t protocol = strcmp(word[1], "radius") == 0 ? 1 : strcmp(word[1], "tacacs") == 0 ? 2 : 17;
    for (int i = 3; i < words; i++) {
        char host[64];
        unsigned auth_port = 0;
        unsigned acct_port = 0;
        uint32_t index = 0;
        char path[256];
        if (sscanf(word[i], "%63[^,],%u,%u", host, &auth_port, &acct_port) != 3) {
            fprintf(stderr, "db_load: expected SERVER,AUTH_PORT,ACCT_PORT, not \"%s\"\n", word[i]);
            return 0;
        }
        cerrno rc = protocol == 1 ? aaa_util_get_next_ord_index(word[2], protocol, AAA_INDEX_ANY, &index,
                                                                host, auth_port, acct_port, 0, 0)
                                  : aaa_util_get_next_tacacs_ord_index(word[2], protocol, AAA_INDEX_ANY,
                                                                       &index, host, auth_port, 0, 0, 0);
        if (rc == AAA_ERR_INDEX_IN_USE) {
            continue; /* the group already has the server */
        }
        if (rc != AAA_OK) {
            return fail(word[i], rc);
        }
        int cut = protocol == 1 ? snprintf(path, sizeof path, "group-server/%s/%s/server/0x%x/%s,%u,%u",
                                           word[1], word[2], index, host, auth_port, acct_port)
                                : snprintf(path, sizeof path, "group-server/%s/%s/server/0x%x/%s", word[1],
                                           word[2], index, host);
        uint32_t one = 1;
        rc = cut < (int)sizeof path ? sysdb_item_set(conn, path, SYSDB_TYPE_U32, &one, sizeof one, 1)
                                    : AAA_ERR_BUFFER_TOO_SMALL;
        if (rc != AAA_OK) {
            return fail(path, rc);
        }
    }
    return 1;
}

/* list FUNCTION SERVICE NAME METHOD...: a tuple of four methods and four group names. */
static int load_list(sysdb_conn_t conn, char **word, int words) {
    uint32_t method[4] = {0};
    const char *group[4] = {"", "", "", ""};
    char path[256];
    void *tuple = NULL;
    uint32_t length = 0;
    for (int i = 4; i < words && i < 8; i++) {
        if (strncmp(word[i], "group:", 6) == 0) {
            method[i - 4] = AAA_METHOD_SERVER_GROUP;
            group[i - 4] = word[i] + 6;
        } else {
            method[i - 4] = methods_number(word[i]);
            if (method[i - 4] == AAA_METHOD_NOTSET) {
                fprintf(stderr, "db_load: \"%s\" is not a method; write group:NAME or a word such as local\n",
                        word[i]);
                return 0;
            }
        }
    }
    snprintf(path, sizeof path, "%s/%s/%s", word[1], word[2], word[3]);
    cerrno rc =
        strcmp(word[1], "accounting") == 0
            ? sysdb_tuple_pack(&tuple, &length, "%d%d%d%d%d%d%d%s%s%s%s", 0, 0, 0, method[0], method[1],
                               method[2], method[3], group[0], group[1], group[2], group[3])
            : sysdb_tuple_pack(&tuple, &length, "%d%d%d%d%s%s%s%s", method[0], method[1], method[2],
                               method[3], group[0], group[1], group[2], group[3]);
    if (rc == AAA_OK) {
        rc = sysdb_item_set(conn, path, SYSDB_TYPE_TUPLE, tuple, length, 1);
    }
    free(tuple);
    return rc == AAA_OK ? 1 : fail(path, rc);
}

static int load_line(sysdb_conn_t conn, char *line) {
    char *word[MAX_WORDS];
    int words = 0;
    char *rest = NULL;
    line[strcspn(line, "#")] = '\0';
    for (char *w = strtok_r(line, " \t\r\n", &rest); w != NULL && words < MAX_WORDS;
         w = strtok_r(NULL, " \t\r\n", &rest)) {
        word[words++] = w;
    }
    if (words == 0) {
        return 1;
    }
    if (words >= 3 && strcmp(word[0], "group") == 0) {
        return load_group(conn, word, words);
    }
    if (words >= 5 && strcmp(word[0], "list") == 0) {
        return load_list(conn, word, words);
    }
    fprintf(
        stderr,
        "db_load: expected \"group PROTOCOL NAME SERVER...\" or \"list FUNCTION SERVICE NAME METHOD...\", "
        "not \"%s ...\"\n",
        word[0]);
    return 0;
}

static int load_file(sysdb_conn_t conn, const char *name) {
    FILE *file = strcmp(name, "-") == 0 ? stdin : fopen(name, "re");
    if (file == NULL) {
        perror(name);
        return 0;
    }
    char *line = NULL;
    size_t room = 0;
    int ok = 1;
    for (unsigned number = 1; getline(&line, &room, file) >= 0; number++) {
        if (!load_line(conn, line)) {
            fprintf(stderr, "db_load: %s: line %u was not loaded\n", name, number);
            ok = 0;
        }
    }
    free(line);
    if (file != stdin) {
        fclose(file);
    }
    return ok;
}

int main(int argc, char **argv) {
    sysdb_conn_t conn = 0;
    if (argc < 2) {
        fprintf(stderr, "usage: %s FILE...   (\"-\" for standard input)\n", argv[0]);
        return 2;
    }
    cerrno rc = _sysdb_bind(&conn, "/cfg/gl/aaa/", SYSDB_BIND_PRIVATE);
    if (rc != AAA_OK) {
        fail("/cfg/gl/aaa/", rc);
        return 1;
    }
    int ok = 1;
    for (int i = 1; i < argc; i++) {
        ok = load_file(conn, argv[i]) && ok;
    }
    _sysdb_unbind(conn);
    return ok ? 0 : 1;
}
