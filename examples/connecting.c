/* SPDX-License-Identifier: Apache-2.0 */
#include "connecting.h"

#include <stdio.h>
#include <string.h>

#include "aaa/result_codes.h"
#include "platform/cerr.h"

aaa_transport_t *connect_to_server(const char *path, uint32_t milliseconds) {
    aaa_transport_t *transport = NULL;
    cerrno rc = aaa_transport_create(&transport);
    if (rc == AAA_OK) {
        rc = aaa_transport_connect(transport, path, AAA_TRANSPORT_ANY_USER,
                                   aaa_transport_deadline(milliseconds));
    }
    if (rc == AAA_OK) {
        return transport;
    }
    int error = aaa_transport_errno(transport);
    fprintf(stderr, "%s: %s%s%s\n", path, cerr_strerror(rc), error != 0 ? ": " : "",
            error != 0 ? strerror(error) : "");
    aaa_transport_free(transport);
    return NULL;
}
