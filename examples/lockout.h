/* SPDX-License-Identifier: Apache-2.0 */
#ifndef EXAMPLES_LOCKOUT_H
#define EXAMPLES_LOCKOUT_H

#include "aaa/types.h"

/*
 * Users who were refused too often are locked out until an operator lets them
 * in again. All login processes share the counts, which are in the system database
 * under /oper/lockout/. /cfg/lockout/limit is the number of refusals that lock a
 * user out, by default 3.
 */

/* Counts a refusal. AAA_OK, or the database's code; the refusal is then not counted. */
cerrno lockout_note_refusal(const char *user);

/* 1 when the user is locked out, or when the database cannot be read. */
int lockout_is_locked(const char *user);

/* Asks the operator at the terminal, and deletes the user's count if the answer is
 * "yes". AAA_OK: deleted; AAA_ERR_INVALID_CLIENT_DATA: another answer; else a code
 * of the terminal or the database. */
cerrno lockout_clear(const char *user);

#endif /* EXAMPLES_LOCKOUT_H */
