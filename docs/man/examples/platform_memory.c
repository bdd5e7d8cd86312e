/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "platform/memory.h"

int main(void) {
    /* the name tells a debugger what the block is for */
    char *text = malloc_named(6, "greeting");
    if (text == NULL) {
        return 1;
    }
    memcpy(text, "hello", 6);
    char *longer = realloc_named(text, 12, "greeting");
    if (longer == NULL) {
        free(text);
        return 1;
    }
    strcat(longer, " world");
    puts(longer);
    free(longer);
    return 0;
}
