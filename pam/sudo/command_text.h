/* SPDX-License-Identifier: Apache-2.0 */

/*
 * A command as one line of text, for requests and records.
 *
 * The program comes first, as a path, then the arguments, with a blank before each.
 * Different commands have different texts: in an argument, a blank or a backslash has a
 * backslash before it, a byte below 32 and 127 is a backslash and three octal digits, and
 * an empty argument is \e.
 */

#ifndef AAA_PAM_COMMAND_TEXT_H
#define AAA_PAM_COMMAND_TEXT_H

#include <stddef.h>

/* Longest text of a command: what fits into one message to the service, with the other attributes. */
#define COMMAND_TEXT_MAX 60000u

/* Makes the text of a program and its arguments; argv[0] is not looked at, and argv may be null. The
 * length is given even when the text is too long. Null then, or without memory; the caller frees. */
char *command_text(const char *program, char *const argv[], size_t *length);

#endif /* AAA_PAM_COMMAND_TEXT_H */
