/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>
#include <stdlib.h>

#include "aaa/aaautil.h"
#include "platform/cerr.h"
#include "platform/sysdb.h"

/* Stores a list as configuration programs do: up to four methods,
   and the names of those that are groups. */
static cerrno store(const char *path) {
    sysdb_conn_t conn = 0;
    void *tuple = NULL;
    uint32_t length = 0;
    cerrno rc =
        _sysdb_bind(&conn, "/cfg/gl/aaa/", SYSDB_BIND_PRIVATE);
    if (rc == 0) {
        rc =
            sysdb_tuple_pack(&tuple, &length, "%d%d%d%d%s%s%s%s",
                             AAA_METHOD_TACACSPLUS, AAA_METHOD_LOCAL,
                             0, 0, "", "", "", "");
    }
    if (rc == 0) {
        rc = sysdb_item_set(conn, path, SYSDB_TYPE_TUPLE, tuple,
                            length, 0);
    }
    free(tuple);
    _sysdb_unbind(conn);
    return rc;
}

int main(void) {
    char path[] = "authentication/login/default";
    uint32_t *methods = NULL;
    cerrno rc = store(path);
    if (rc == AAA_OK) {
        rc = lookup_methods(path, &methods);
    }
    if (rc != AAA_OK) {
        fprintf(stderr, "%s: %s\n", path, cerr_strerror(rc));
        return 1;
    }
    for (int i = 0; i < 4 && methods[i] != 0; i++) {
        printf("%d. %s\n", i + 1, aaa_method_name(methods[i]));
    }
    free(methods);
    return 0;
}
