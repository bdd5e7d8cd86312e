/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "aaa/aaautil.h"
#include "platform/cerr.h"

int main(void) {
    aaa_req_hdr_t header;
    aaa_usercred_t user = {.username = "alice",
                           .password = "wonderland"};
    iov_t *iov = NULL;
    uint32_t count = 0;
    char packed[4096];

    memset(&header, 0, sizeof header);
    cerrno rc = aaa_util_msg_authen_compose(
        &header, AAA_AO_ASCII_LOGIN, AAA_SVC_LOGIN, "default", 0,
        &user, NULL, NULL, &iov, &count, packed, sizeof packed, NULL,
        0);
    if (rc != AAA_OK) {
        fprintf(stderr, "not composed: %s\n", cerr_strerror(rc));
        return 1;
    }
    printf("%s: header of %u bytes, then %u element(s)\n",
           aaa_util_msg_type_desc(header.type), (unsigned)iov[0].len,
           count - 1);
    /* writev(fd, (struct iovec *)iov, (int)count) sends it */
    free(iov);
    memset(packed, 0, sizeof packed); /* the password is in it */
    return 0;
}
