/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "aaa/aaautil.h"

int main(void) {
    aaa_sess_request_t request; /* has room for every type */
    memset(&request, 0, sizeof request);
    cerrno rc = aaa_session_fill_request(&request, NULL, 11, 0, 0);
    if (rc == AAA_OK) {
        rc = aaa_sess_fill_msg_req_type_data(&request.u, "operator",
                                             8, 11);
    }
    if (rc != AAA_OK) {
        return 1;
    }
    /* At the receiver: the length in the packet is not trusted. */
    char task_map[256] = "";
    uint32_t length = 0;
    if (aaa_sess_get_type_data_checked(&request, sizeof request,
                                       task_map, sizeof task_map - 1,
                                       &length) != AAA_OK) {
        return 1;
    }
    printf("type %u, version %u, task map %s\n", request.hdr.type,
           request.hdr.version, task_map);
    return 0;
}
