/* SPDX-License-Identifier: Apache-2.0 */
/*
 * sysdb_caller PATH
 *
 * Binds to a directory of the system database, sets an item in it and prints the code of
 * the first failure, or 0. A test gives copies of this program more rights than the user
 * who runs them.
 */
#include <stdint.h>
#include <stdio.h>

#include "platform/sysdb.h"

int main(int argc, char **argv) {
    const uint32_t value = 1;
    sysdb_conn_t conn = 0;
    cerrno rc = _sysdb_bind(&conn, argc > 1 ? argv[1] : "/cfg/", SYSDB_BIND_PRIVATE);
    if (rc == 0) {
        rc = sysdb_item_set(conn, "called", SYSDB_TYPE_U32, &value, sizeof value, 1);
    }
    printf("%08x\n", (unsigned)rc);
    return 0;
}
