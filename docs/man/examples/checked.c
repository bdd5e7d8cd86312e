/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>
#include <string.h>

#include "aaa/aaautil.h"
#include "platform/cerr.h"

/* Reads a message from a socket; every length in it is checked. */
static cerrno show_user(const char *message, size_t received) {
    avlist *list = NULL;
    cerrno rc = aaa_avpair_create_list(NULL, &list);
    if (rc == AAA_OK) {
        rc = aaa_avpair_unpack_msg_checked(list, message, received);
    }
    char name[254] = "";
    uint32_t length = 0;
    if (rc == AAA_OK) {
        rc = aaa_util_avlist_value_copy(list, AAA_USERNAME_ATTR, 0,
                                        name, sizeof name - 1,
                                        &length);
    }
    if (rc == AAA_OK) {
        printf("user \"%.*s\"\n", (int)strnlen(name, length), name);
    } else {
        printf("refused: %s\n", cerr_strerror(rc));
    }
    aaa_avpair_free_list(list);
    return rc;
}

int main(void) {
    avlist *list = NULL;
    char message[256];
    uint32_t size = sizeof message;
    if (aaa_avpair_create_list("login", &list) != AAA_OK ||
        aaa_util_avlist_username_add("alice", 6, list) != AAA_OK ||
        aaa_avpair_pack_msg_to_buf(list, message, &size) != AAA_OK) {
        return 1;
    }
    aaa_avpair_free_list(list);

    cerrno whole = show_user(message, size);
    cerrno cut = show_user(message, size - 4);
    message[56 + 11] = 100; /* the length of the value */
    cerrno wrong = show_user(message, size);
    if (whole != AAA_OK || cut != AAA_ERR_INVALID_MSG_SIZE) {
        return 1;
    }
    return wrong == AAA_ERR_AVPAIR_PROCESSING ? 0 : 1;
}
