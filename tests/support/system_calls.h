/* SPDX-License-Identifier: Apache-2.0 */
#ifndef TESTS_SUPPORT_SYSTEM_CALLS_H
#define TESTS_SUPPORT_SYSTEM_CALLS_H

#ifdef __cplusplus
extern "C" {
#endif

/* Called before each call of a function that changes files, when it is not null: with the
 * function's name, and "unnamed" for openat() of a file without a name. A result other than 0
 * is the errno with which the call fails instead of being made. */
extern int (*before_system_call)(const char *function);

#ifdef __cplusplus
}
#endif

#endif /* TESTS_SUPPORT_SYSTEM_CALLS_H */
