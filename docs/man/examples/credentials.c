/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>

#include "aaa/aaautil.h"

int main(void) {
    aaa_usercred_t user = {.username = "alice",
                           .password = "wonderland",
                           .ttyname = "vty0"};
    avlist *list = NULL;
    char text[1024];
    if (aaa_avpair_create_list("credentials", &list) != AAA_OK) {
        return 1;
    }
    cerrno rc = aaa_util_add_usercred_in_avlist(
        &user, list, AAA_SVC_LOGIN, 0, AAA_AO_ASCII_LOGIN);
    if (rc != AAA_OK) {
        return 1;
    }
    puts(aaa_util_print_avlist(text, sizeof text, "sent", list));
    aaa_avpair_free_list(list);
    return 0;
}
