/* SPDX-License-Identifier: Apache-2.0 */
#ifndef EXAMPLES_USERS_H
#define EXAMPLES_USERS_H

#include <stdint.h>

/*
 * Users of the example server, one per line of a text file:
 *
 *     name : crypt(3) password hash : privilege level : command pattern, command pattern, ...
 *
 * Blanks around the fields and lines that start with '#' are skipped. A
 * command pattern is a shell pattern ("show *") that is matched against a
 * whole command line.
 */

typedef struct user {
    char *name;
    char *hash;
    uint32_t level;
    char *commands;
    struct user *next;
} user_t;

/* Reads a users file. Null when it cannot be read or holds no user; every
 * invalid line is reported on standard error and skipped. */
user_t *users_load(const char *path);
void users_free(user_t *users);

const user_t *users_find(const user_t *users, const char *name);

/* 1 when the password is the user's. A null user takes the same time and is
 * always wrong, so that the time of an answer does not show which users exist. */
int users_check_password(const user_t *user, const char *password);

/* 1 when one of the user's patterns matches the command. */
int users_may_run(const user_t *user, const char *command);

#endif /* EXAMPLES_USERS_H */
