/* SPDX-License-Identifier: Apache-2.0 */
#include "attributes.h"

#include <stdio.h>

uint32_t attribute_number(const avlist *list, uint32_t type) {
    uint32_t number = 0;
    uint32_t len = 0;
    cerrno rc = aaa_util_avlist_value_copy(list, type, 0, &number, sizeof number, &len);
    return rc == AAA_OK && len == sizeof number ? number : 0;
}

static int print_line(uint32_t flag, const char *line) {
    (void)flag;
    fputs("    ", stdout);
    for (const char *p = line; *p != '\0'; p++) {
        if (*p == '\n') {
            continue; /* a pair's line ends with one; putchar() below prints it */
        }
        if ((unsigned char)*p < ' ' || *p == 0x7f) {
            printf("\\x%02x", (unsigned)(unsigned char)*p);
        } else {
            putchar(*p);
        }
    }
    putchar('\n');
    return 0;
}

void attributes_print(const char *heading, const avlist *list) {
    printf("  %s\n", heading);
    aaa_avpair_print_list(list, 0, print_line);
}
