/* SPDX-License-Identifier: Apache-2.0 */

/*
 * Text from outside for a terminal or a log: from the service, or a user's name.
 * Bytes that would move the cursor, change colours or hide or reorder text become
 * question marks.
 */

#ifndef AAA_PAM_VISIBLE_H
#define AAA_PAM_VISIBLE_H

#include <stddef.h>

/* Copies at most `length` bytes of text up to a NUL, cut at a whole character to what fits, and
 * terminates the copy. Line feeds and tabs stay with `lines`, otherwise they become blanks. */
void visible_copy(char *out, size_t room, const char *text, size_t length, int lines);

#endif /* AAA_PAM_VISIBLE_H */
