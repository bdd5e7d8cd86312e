/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>

#include "aaa/aaautil.h"
#include "platform/cerr.h"

int main(void) {
    cerrno rc = aaa_avpair_create_list(
        "a name that is much too long for a list", NULL);
    printf("0x%08x: %s\n", rc, cerr_strerror(rc));
    return rc == AAA_ERR_INVALID_ARG ? 0 : 1;
}
