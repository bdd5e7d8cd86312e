/* SPDX-License-Identifier: Apache-2.0 */
/* Makes a list, walks it and prints it. */
#include <stdio.h>

#include <aaa/aaautil.h>

int main(void) {
    avlist *list = NULL;
    aaa_avpair_create_list("request", &list);
    aaa_util_avlist_username_add("alice", 6, list);
    aaa_util_avlist_priv_add(list, 15);

    char text[1024];
    aaa_avpair_iterator_t it = {0};
    avpair_t *pair = NULL;
    for (cerrno rc = aaa_avpair_iterator_init(&it, list, &pair); rc == AAA_OK;
         rc = aaa_avpair_iterator_get_next(&it, &pair)) {
        fputs(aaa_util_print_attr(pair->av_type, pair->av_len, pair->av_flags, pair + 1, text, sizeof text),
              stdout);
    }
    aaa_avpair_free_list(list);
    return 0;
}
