/* SPDX-License-Identifier: Apache-2.0 */
#ifndef EXAMPLES_CONNECTING_H
#define EXAMPLES_CONNECTING_H

#include <stdint.h>

#include "aaa/transport.h"

/* Connects to the server at the path. Returns a connection that the caller frees, or prints the reason and
 * returns null when it cannot connect within the given milliseconds. */
aaa_transport_t *connect_to_server(const char *path, uint32_t milliseconds);

#endif /* EXAMPLES_CONNECTING_H */
