/* SPDX-License-Identifier: Apache-2.0 */
/* Stores an item in the system database, reads it and prints its value. */
#include <stdio.h>
#include <stdlib.h>

#include <aaa/aaautil.h>
#include <platform/cerr.h>
#include <platform/sysdb.h>

int main(void) {
    sysdb_conn_t conn = 0;
    cerrno rc = _sysdb_bind(&conn, "/cfg/", SYSDB_BIND_PRIVATE);
    if (rc == AAA_OK) {
        rc = sysdb_item_set(conn, "hostname", SYSDB_TYPE_STRING, "router", 7, 0);
    }
    void *value = NULL;
    if (rc == AAA_OK) {
        rc = sysdb_item_get(conn, "hostname", NULL, &value, NULL, 0);
    }
    puts(rc == AAA_OK ? (const char *)value : cerr_strerror(rc));
    free(value);
    _sysdb_unbind(conn);
    return rc == AAA_OK ? 0 : 1;
}
