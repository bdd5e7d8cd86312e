/* SPDX-License-Identifier: Apache-2.0 */

/*
 * Tests lockout.c, a part of a daemon, with the test kit: the database is in memory,
 * the operator's input is scripted, and the test injects failures. It uses no daemon,
 * no real database and no terminal.
 */

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "aaa/aaautil.h"
#include "aaa/testkit.h"
#include "lockout.h"
#include "platform/sysdb.h"

static int failed;

static void expect(int condition, const char *what, int line) {
    if (!condition) {
        printf("line %d: expected %s\n", line, what);
        failed = 1;
    }
}
#define EXPECT(condition) expect(condition, #condition, __LINE__)

static void locks_out_at_the_third_refusal(void) {
    EXPECT(!lockout_is_locked("alice"));
    for (int i = 0; i < 3; i++) {
        EXPECT(!lockout_is_locked("alice"));
        EXPECT(lockout_note_refusal("alice") == AAA_OK);
    }
    EXPECT(lockout_is_locked("alice"));
    EXPECT(!lockout_is_locked("bob"));
}

static void takes_the_limit_from_the_configuration(void) {
    testkit_sysdb_put_u32("/cfg/lockout/limit", 1);
    EXPECT(lockout_note_refusal("alice") == AAA_OK);
    EXPECT(lockout_is_locked("alice"));
    testkit_sysdb_put_u32("/cfg/lockout/limit", 2);
    EXPECT(!lockout_is_locked("alice"));
}

static void refuses_when_the_database_cannot_be_read(void) {
    testkit_fail_call("sysdb_item_get", 1, SYSDB_ERR_CORRUPT, -1); /* the limit */
    EXPECT(lockout_is_locked("alice"));
    testkit_fail_call("sysdb_item_get", 2, SYSDB_ERR_CORRUPT, -1); /* the count */
    EXPECT(lockout_is_locked("alice"));
    testkit_answer("_sysdb_bind", SYSDB_ERR_ACCESS, TESTKIT_FOREVER, -1);
    EXPECT(lockout_is_locked("alice"));
    EXPECT(lockout_note_refusal("alice") == SYSDB_ERR_ACCESS);
}

static void reports_a_count_that_was_not_stored(void) {
    uint32_t count = 0;
    testkit_fail_call("sysdb_item_set", 1, SYSDB_ERR_FULL, -1);
    EXPECT(lockout_note_refusal("alice") == SYSDB_ERR_FULL);
    EXPECT(!testkit_sysdb_get_u32("/oper/lockout/alice", &count));
    EXPECT(lockout_note_refusal("alice") == AAA_OK);
    EXPECT(testkit_sysdb_get_u32("/oper/lockout/alice", &count) && count == 1);
}

static void asks_the_operator_first(void) {
    testkit_sysdb_put_u32("/oper/lockout/alice", 3);
    testkit_type_line("no", 1, 0);
    EXPECT(lockout_clear("alice") == AAA_ERR_INVALID_CLIENT_DATA);
    testkit_type_line(NULL, 1, EINTR); /* types nothing until the time limit */
    EXPECT(lockout_clear("alice") == AAA_ERR_TIMEOUT);
    EXPECT(testkit_count("sysdb_item_delete") == 0);
    EXPECT(lockout_is_locked("alice"));
    testkit_type_line("yes", 1, 0);
    EXPECT(lockout_clear("alice") == AAA_OK);
    EXPECT(!lockout_is_locked("alice"));
    EXPECT(strcmp(testkit_call("sysdb_item_delete", 0), "sysdb_item_delete(/oper/lockout/, \"alice\", 0)") ==
           0);
}

int main(void) {
    static void (*const tests[])(void) = {
        locks_out_at_the_third_refusal,
        takes_the_limit_from_the_configuration,
        refuses_when_the_database_cannot_be_read,
        reports_a_count_that_was_not_stored,
        asks_the_operator_first,
    };
    for (size_t i = 0; i < sizeof tests / sizeof *tests; i++) {
        testkit_reset();
        tests[i]();
        EXPECT(testkit_sysdb_open_connections(NULL) == 0);
    }
    puts(failed ? "failed" : "passed");
    return failed;
}
