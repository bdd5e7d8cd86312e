/* SPDX-License-Identifier: Apache-2.0 */
#define _GNU_SOURCE
#include "attributes.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "visible_text.h"

uint32_t attribute_number(const avlist *list, uint32_t type) {
    uint32_t number = 0;
    uint32_t len = 0;
    cerrno rc = aaa_util_avlist_value_copy(list, type, 0, &number, sizeof number, &len);
    return rc == AAA_OK && len == sizeof number ? number : 0;
}

static int print_line(uint32_t flag, const char *line) {
    (void)flag;
    const size_t length = strlen(line);
    const int ended = length > 0 && line[length - 1] == '\n'; /* as a pair's line */
    char *text = strndup(line, length - (size_t)ended);
    fputs("    ", stdout);
    visible_print(stdout, text != NULL ? text : "?");
    free(text);
    putchar('\n');
    return 0;
}

void attributes_print(const char *heading, const avlist *list) {
    printf("  %s\n", heading);
    aaa_avpair_print_list(list, 0, print_line);
}
