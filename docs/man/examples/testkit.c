/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>
#include <stdlib.h>

#include "aaa/aaautil.h"
#include "aaa/testkit.h"
#include "platform/sysdb.h"

/* The function to test: the largest number of sessions, or 10. */
static uint32_t session_limit(void) {
    sysdb_conn_t conn = 0;
    uint32_t type = SYSDB_TYPE_U32;
    uint32_t length = 0;
    uint32_t limit = 10;
    void *value = NULL;
    if (_sysdb_bind(&conn, "/cfg/limits/", SYSDB_BIND_PRIVATE) ==
        0) {
        if (sysdb_item_get(conn, "sessions", &type, &value, &length,
                           0) == 0) {
            limit = *(uint32_t *)value;
        }
        free(value);
        _sysdb_unbind(conn);
    }
    return limit;
}

static void expect(const char *what, int holds) {
    printf("%s: %s\n", what, holds ? "ok" : "FAILED");
    if (!holds) {
        exit(1);
    }
}

/* Run it with NO_DLLMAIN=1 in the environment. */
int main(void) {
    testkit_reset();
    expect("default", session_limit() == 10);

    testkit_sysdb_put_u32("/cfg/limits/sessions", 2);
    expect("configured", session_limit() == 2);

    testkit_fail_call("sysdb_item_get", 1, SYSDB_ERR_CORRUPT, -1);
    expect("unreadable", session_limit() == 10);
    expect("asked each time", testkit_count("sysdb_item_get") == 3);

    testkit_fail_call("_sysdb_bind", 1, SYSDB_ERR_LIB_ABSENT, -1);
    expect("no database", session_limit() == 10);
    expect("closed", testkit_sysdb_open_connections(NULL) == 0);
    return 0;
}
