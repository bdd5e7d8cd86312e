/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The binary interface as a C compiler sees it: nothing here runs, everything
 * must compile.
 */
#include "aaa/aaautil.h"

#include <stddef.h>

#define RECORD(type, size) _Static_assert(sizeof(type) == (size), #type);
#define FIELD(type, field, offset, size)                                 \
    _Static_assert(offsetof(type, field) == (offset), #type "." #field); \
    _Static_assert(sizeof(((type *)0)->field) == (size), #type "." #field);
#define CONSTANT(name, value) _Static_assert((uint32_t)(name) == (uint32_t)(value), #name);
#include "layouts.def"

#include "prototypes.inc"
