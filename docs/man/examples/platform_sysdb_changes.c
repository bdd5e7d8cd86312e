/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>

#include "platform/cerr.h"
#include "platform/sysdb_changes.h"

int main(void) {
    uint32_t low = 10;
    uint32_t high = 20;
    uint32_t failed = 0;
    sysdb_conn_t conn = 0;
    const sysdb_change_t first[] = {
        {SYSDB_CHANGE_SET, SYSDB_TYPE_U32, "site/low", &low, 4},
        {SYSDB_CHANGE_SET, SYSDB_TYPE_U32, "site/high", &high, 4}};
    /* only while low is still 11, which it is not */
    uint32_t eleven = 11;
    const sysdb_change_t second[] = {
        {SYSDB_CHANGE_EXPECT, SYSDB_TYPE_U32, "site/low", &eleven,
         4},
        {SYSDB_CHANGE_DELETE, 0, "site/high", NULL, 0}};

    cerrno rc = _sysdb_bind(&conn, "/cfg/", SYSDB_BIND_PRIVATE);
    if (rc == 0) {
        rc = sysdb_apply(conn, first, 2, &failed);
        printf("first: %s\n", rc == 0 ? "both" : cerr_strerror(rc));
    }
    if (rc == 0) {
        rc = sysdb_apply(conn, second, 2, &failed);
        printf("second: %s\n", rc == SYSDB_ERR_CONFLICT
                                   ? "refused, nothing is changed"
                                   : cerr_strerror(rc));
    }
    _sysdb_unbind(conn);
    return rc == SYSDB_ERR_CONFLICT ? 0 : 1;
}
