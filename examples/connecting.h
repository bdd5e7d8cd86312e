/* SPDX-License-Identifier: Apache-2.0 */
#ifndef EXAMPLES_CONNECTING_H
#define EXAMPLES_CONNECTING_H

#include <stdint.h>

#include "aaa/transport.h"

/* A connection to the server at the path, which the caller frees; null, with the reason printed, when there is
 * none within that many milliseconds. */
aaa_transport_t *connect_to_server(const char *path, uint32_t milliseconds);

#endif /* EXAMPLES_CONNECTING_H */
