/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>
#include <stdlib.h>

#include "platform/cerr.h"
#include "platform/sysdb.h"

static cerrno store_limit(sysdb_conn_t conn, uint32_t limit) {
    return sysdb_item_set(conn, "site/limit", SYSDB_TYPE_U32, &limit,
                          sizeof limit, 0);
}

static cerrno show_limit(sysdb_conn_t conn) {
    uint32_t type = SYSDB_TYPE_U32;
    uint32_t length = 0;
    void *value = NULL;
    cerrno rc = sysdb_item_get(conn, "site/limit", &type, &value,
                               &length, 0);
    if (rc == 0) {
        printf("limit %u\n", *(uint32_t *)value);
    }
    free(value);
    return rc;
}

static cerrno show_names(sysdb_conn_t conn) {
    sysdb_list_t list = NULL;
    char *name = NULL;
    uint32_t count = 0;
    uint32_t type = 0;
    cerrno rc = sysdb_list(conn, "site/", NULL, &count, &list, 0);
    while (rc == 0 &&
           (rc = sysdb_list_next(list, &name, &type, 0)) == 0) {
        printf("%s, type %u\n", name, type);
    }
    sysdb_list_free(list);
    return rc == SYSDB_ERR_END_OF_LIST ? 0 : rc;
}

int main(void) {
    sysdb_conn_t conn = 0;
    cerrno rc = _sysdb_bind(&conn, "/cfg/", SYSDB_BIND_PRIVATE);
    if (rc == 0) {
        rc = store_limit(conn, 15);
    }
    if (rc == 0) {
        rc = show_limit(conn);
    }
    if (rc == 0) {
        rc = show_names(conn);
    }
    if (rc == 0) {
        rc = sysdb_item_delete(conn, "site/", SYSDB_DELETE_TREE);
    }
    if (rc != 0) {
        fprintf(stderr, "%s\n", cerr_strerror(rc));
    }
    _sysdb_unbind(conn);
    return rc == 0 ? 0 : 1;
}
