/* SPDX-License-Identifier: Apache-2.0 */
#ifndef EXAMPLES_METHODS_H
#define EXAMPLES_METHODS_H

/* Prints the methods of the list at a path below "/cfg/gl/aaa/" in one line,
 * server groups with number and name: "group 1001 (corp), local". 1, or 0 with
 * the reason printed instead. */
int methods_print(const char *path);

/* Number of a method word ("local", "none", "line", ...), 0 for another word. */
unsigned methods_number(const char *word);

#endif /* EXAMPLES_METHODS_H */
