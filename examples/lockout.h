/* SPDX-License-Identifier: Apache-2.0 */
#ifndef EXAMPLES_LOCKOUT_H
#define EXAMPLES_LOCKOUT_H

#include "aaa/types.h"

/*
 * Users who were refused too often are locked out until an operator lets them
 * in again. The counts are shared by all login processes, in the system
 * database under /oper/lockout/; /cfg/lockout/limit says how many refusals are
 * allowed, 3 without it.
 */

/* Counts a refusal. AAA_OK, or the database's code: it is then not counted. */
cerrno lockout_note_refusal(const char *user);

/* 1 when the user is locked out, or when that cannot be found out. */
int lockout_is_locked(const char *user);

/* Asks the operator at the terminal and forgets the user's refusals if he types
 * "yes". AAA_OK: done; AAA_ERR_INVALID_CLIENT_DATA: he did not; else a code of
 * the terminal or the database. */
cerrno lockout_clear(const char *user);

#endif /* EXAMPLES_LOCKOUT_H */
