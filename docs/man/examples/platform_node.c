/* SPDX-License-Identifier: Apache-2.0 */
#include <netinet/in.h>
#include <stdio.h>
#include <sys/socket.h>

#include "platform/node.h"

int main(void) {
    char zone[64];
    char address[INET6_ADDRSTRLEN];
    struct in_addr server = {htonl(0xc0000214)};

    if (conf_get_timezone_string(zone, sizeof zone) != 0 ||
        qm_inet_ntop(AF_INET, &server, address, sizeof address) ==
            NULL) {
        return 1;
    }
    printf("time zone %s, %s, server %s\n", zone,
           platform_am_i_lc() ? "line card" : "not a line card",
           address);
    return 0;
}
