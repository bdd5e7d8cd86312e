/* SPDX-License-Identifier: Apache-2.0 */
#ifndef EXAMPLES_PROMPT_H
#define EXAMPLES_PROMPT_H

#include <stdint.h>

/* Reads a password: at a terminal with a prompt and without echo, otherwise the
 * first line of standard input. 1, or 0 when none was read. */
int prompt_password(char *password, uint32_t size);

#endif /* EXAMPLES_PROMPT_H */
