/* SPDX-License-Identifier: Apache-2.0 */
#ifndef EXAMPLES_PROMPT_H
#define EXAMPLES_PROMPT_H

#include <stdint.h>

/* Reads a password: prompted for without echo at a terminal, else the first
 * line of standard input. 1, or 0 when there is none. */
int prompt_password(char *password, uint32_t size);

#endif /* EXAMPLES_PROMPT_H */
