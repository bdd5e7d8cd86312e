/* SPDX-License-Identifier: Apache-2.0 */
#ifndef EXAMPLES_ATTRIBUTES_H
#define EXAMPLES_ATTRIBUTES_H

#include <stdint.h>

#include "aaa/aaautil.h"

/* The number in the first attribute of the type; 0 when it is absent or of another size. */
uint32_t attribute_number(const avlist *list, uint32_t type);

/* Prints a list, one pair per line, with unprintable bytes escaped. */
void attributes_print(const char *heading, const avlist *list);

#endif /* EXAMPLES_ATTRIBUTES_H */
