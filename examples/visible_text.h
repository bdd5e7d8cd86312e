/* SPDX-License-Identifier: Apache-2.0 */
#ifndef EXAMPLES_VISIBLE_TEXT_H
#define EXAMPLES_VISIBLE_TEXT_H

#include <stdio.h>

/* Prints a text of another process or of the database, so that it cannot act on the terminal or
 * look like other text: control characters, malformed UTF-8 and characters that a reader would
 * not see are shown as \n, \t, \r or \xNN, and a backslash as two. */
void visible_print(FILE *out, const char *text);

#endif /* EXAMPLES_VISIBLE_TEXT_H */
