/* SPDX-License-Identifier: Apache-2.0 */
/* Tests its function session_limit() and the library on the scripted platform of the test kit. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <aaa/aaautil.h>
#include <aaa/testkit.h>
#include <platform/sysdb.h>

/* The function under test: how many sessions are allowed, 1 unless configured. */
static uint32_t session_limit(void) {
    sysdb_conn_t conn = 0;
    uint32_t limit = 1, type = SYSDB_TYPE_U32;
    void *value = NULL;
    if (_sysdb_bind(&conn, "/cfg/limits/", SYSDB_BIND_PRIVATE) == AAA_OK &&
        sysdb_item_get(conn, "sessions", &type, &value, NULL, 0) == AAA_OK) {
        memcpy(&limit, value, sizeof limit);
    }
    free(value);
    _sysdb_unbind(conn);
    return limit;
}

#define EXPECT(condition)                                       \
    if (!(condition)) {                                         \
        printf("line %d: expected %s\n", __LINE__, #condition); \
        return 1;                                               \
    } else                                                      \
        (void)0

int main(void) {
    testkit_reset();
    EXPECT(session_limit() == 1);
    testkit_sysdb_put_u32("/cfg/limits/sessions", 7);
    EXPECT(session_limit() == 7);
    testkit_fail_call("sysdb_item_get", 1, SYSDB_ERR_CORRUPT, -1);
    EXPECT(session_limit() == 1);
    EXPECT(testkit_count("_sysdb_bind") == 3);
    EXPECT(strcmp(testkit_call("sysdb_item_get", 0), "sysdb_item_get(/cfg/limits/, \"sessions\", 1, 0)") ==
           0);
    EXPECT(testkit_sysdb_open_connections(NULL) == 0);

    /* The library's calls reach the kit too, even to functions that this program does not name. */
    const uint32_t methods[4] = {AAA_METHOD_LOCAL, 0, 0, 0};
    const char *const groups[4] = {NULL, NULL, NULL, NULL};
    EXPECT(aaa_util_lookup_methodlist("authentication", "login", "default") != AAA_OK);
    testkit_sysdb_put_method_list("/cfg/gl/aaa/authentication/login/default", methods, groups);
    EXPECT(aaa_util_lookup_methodlist("authentication", "login", "default") == AAA_OK);
    EXPECT(testkit_count("tuple_unpack_mask") + testkit_count("sysdb_item_get") > 4);

    avlist *list = NULL;
    EXPECT(testkit_alloc_available());
    testkit_alloc_fail(1, 0);
    const cerrno rc = aaa_avpair_create_list("x", &list);
    EXPECT(testkit_alloc_end() == 1);
    EXPECT(rc == AAA_ERR_NOMEM);
    puts("all as expected");
    return 0;
}
