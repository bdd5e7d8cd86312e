/* SPDX-License-Identifier: Apache-2.0 */

#include "lockout.h"

#include <stdlib.h>
#include <string.h>

#include "aaa/aaautil.h"
#include "platform/sysdb.h"

#define DEFAULT_LIMIT 3

/* Reads a number. A missing one gives the default; every other failure is an error. */
static cerrno read_number(const char *directory, const char *name, uint32_t missing, uint32_t *number) {
    sysdb_conn_t conn = 0;
    uint32_t type = SYSDB_TYPE_U32;
    uint32_t length = 0;
    void *value = NULL;
    cerrno rc = _sysdb_bind(&conn, directory, SYSDB_BIND_PRIVATE);
    if (rc != AAA_OK) {
        return rc;
    }
    rc = sysdb_item_get(conn, name, &type, &value, &length, 0);
    if (rc == AAA_OK) {
        memcpy(number, value, sizeof *number);
    } else if (rc == SYSDB_ERR_NOT_FOUND) {
        *number = missing;
        rc = AAA_OK;
    }
    free(value);
    _sysdb_unbind(conn);
    return rc;
}

cerrno lockout_note_refusal(const char *user) {
    uint32_t count = 0;
    sysdb_conn_t conn = 0;
    cerrno rc = read_number("/oper/lockout/", user, 0, &count);
    if (rc == AAA_OK) {
        rc = _sysdb_bind(&conn, "/oper/lockout/", SYSDB_BIND_PRIVATE);
    }
    if (rc == AAA_OK) {
        count++;
        rc = sysdb_item_set(conn, user, SYSDB_TYPE_U32, &count, sizeof count, 0);
        _sysdb_unbind(conn);
    }
    return rc;
}

int lockout_is_locked(const char *user) {
    uint32_t limit = 0;
    uint32_t count = 0;
    return read_number("/cfg/lockout/", "limit", DEFAULT_LIMIT, &limit) != AAA_OK ||
           read_number("/oper/lockout/", user, 0, &count) != AAA_OK || count >= limit;
}

cerrno lockout_clear(const char *user) {
    char answer[8] = "";
    sysdb_conn_t conn = 0;
    cerrno rc = aaa_util_read_input("Let the user in again? ", answer, sizeof answer - 1, 30, 0);
    if (rc == AAA_OK && strcmp(answer, "yes") != 0) {
        rc = AAA_ERR_INVALID_CLIENT_DATA;
    }
    if (rc == AAA_OK) {
        rc = _sysdb_bind(&conn, "/oper/lockout/", SYSDB_BIND_PRIVATE);
    }
    if (rc == AAA_OK) {
        rc = sysdb_item_delete(conn, user, 0);
        _sysdb_unbind(conn);
    }
    return rc;
}
