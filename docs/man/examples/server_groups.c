/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>
#include <stdlib.h>

#include "aaa/aaautil.h"
#include "platform/cerr.h"

int main(void) {
    uint32_t number = 0;
    cerrno rc = aaa_util_lookup_sg_index("corp", &number);
    if (rc == SYSDB_ERR_NOT_FOUND) {
        puts("no such group");
        return 0;
    }
    if (rc != AAA_OK) {
        fprintf(stderr, "%s\n", cerr_strerror(rc));
        return 1;
    }
    char *name = aaa_util_lookup_sg_name(number);
    printf("group %u is %s\n", number, name != NULL ? name : "gone");
    free(name);
    return 0;
}
