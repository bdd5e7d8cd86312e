/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>

#include "aaa/aaautil.h"
#include "platform/cerr.h"
#include "platform/sysdb.h"

int main(void) {
    const cerrno codes[] = {AAA_OK,
                            aaa_avpair_create_list("a", NULL),
                            SYSDB_ERR_NOT_FOUND, 0x12345678};
    for (size_t i = 0; i < sizeof codes / sizeof codes[0]; i++) {
        printf("0x%08x %s\n", codes[i], cerr_strerror(codes[i]));
    }
    return 0;
}
