/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>

#include "aaa/dictionary.h"

int main(void) {
    unsigned addresses = 0;
    for (uint32_t type = 0; type < AAA_TABLE_ROWS; type++) {
        addresses += aaa_table[type].no_entry == 0 &&
                     aaa_table[type].format == AAA_FORMAT_IPADDR;
    }
    char text[64];
    uint32_t address = 0xc0000207; /* 192.0.2.7 */
    fputs(aaa_util_print_attr(AAA_IPADDR_ATTR, sizeof address, 0,
                              &address, text, sizeof text),
          stdout);
    printf("%s is number %d; %u attributes hold an address\n",
           aaa_attribute_pname(AAA_USERNAME_ATTR), AAA_USERNAME_ATTR,
           addresses);
    return 0;
}
