/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>
#include <stdlib.h>

#include "aaa/aaautil.h"

int main(void) {
    avlist *list = NULL;
    if (aaa_avpair_create_list("request", &list) != AAA_OK) {
        return 1;
    }
    uint32_t port = 22;
    aaa_avpair_add(AAA_USERNAME_ATTR, 0, "alice", 0, sizeof "alice",
                   list);
    aaa_avpair_add(AAA_LPORT_ATTR, AAA_AVF_PRINT_EQUALS, &port, 0,
                   sizeof port, list);

    /* the sender packs the list; below, the receiver unpacks it */
    char message[512];
    uint32_t size = sizeof message;
    cerrno rc = aaa_avpair_pack_msg_to_buf(list, message, &size);
    /* a packed list may only be freed or cleared */
    aaa_avpair_free_list(list);
    if (rc != AAA_OK ||
        aaa_avpair_create_list("received", &list) != AAA_OK) {
        return 1;
    }
    rc = aaa_avpair_unpack_msg_checked(list, message, size);

    aaa_avpair_iterator_t it = {0};
    avpair_t *pair = NULL;
    for (rc = aaa_avpair_iterator_init(&it, list, &pair);
         rc == AAA_OK;
         rc = aaa_avpair_iterator_get_next(&it, &pair)) {
        char text[128];
        fputs(aaa_util_print_attr(pair->av_type, pair->av_len,
                                  pair->av_flags, pair + 1, text,
                                  sizeof text),
              stdout);
    }
    aaa_avpair_free_list(list);
    return rc == AAA_STATUS_END_OF_LIST ? 0 : 1;
}
