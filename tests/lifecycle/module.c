/* SPDX-License-Identifier: Apache-2.0 */
/*
 * A module as authentication stacks load them: linked with the library, which
 * is loaded and unloaded with it.
 */
#include "aaa/aaautil.h"

__attribute__((visibility("default"))) int module_session(void);

/* Makes a list, packs it, and looks up a group that the database does not have. */
int module_session(void) {
    avlist *list = NULL;
    char message[1024];
    uint32_t length = sizeof message, number = 0;
    if (aaa_avpair_create_list("session", &list) != AAA_OK) {
        return 1;
    }
    int failed = aaa_avpair_add(257, 0, "user", 0, 5, list) != AAA_OK ||
                 aaa_avpair_pack_msg_to_buf(list, message, &length) != AAA_OK;
    aaa_avpair_free_list(list);
    if (aaa_util_lookup_sg_index("no such group", &number) == AAA_OK) {
        failed = 1;
    }
    return failed;
}
