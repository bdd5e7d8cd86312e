/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>

#include "aaa/aaautil.h"

int main(void) {
    avlist *list = NULL;
    if (aaa_avpair_create_list("reply", &list) != AAA_OK) {
        return 1;
    }
    aaa_util_avlist_status_add(AAA_STAT_PASS, sizeof(uint32_t),
                               list);
    aaa_util_avlist_priv_add(list, 1);
    /* replaces: there is one privilege level */
    aaa_util_avlist_priv_add(list, 15);

    printf("%s, privilege %u\n",
           aaa_print_status(aaa_util_avlist_status_get(list)),
           aaa_util_avlist_priv_get(list));
    aaa_avpair_free_list(list);
    return 0;
}
