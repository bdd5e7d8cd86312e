/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>
#include <string.h>

#include "platform/terminal.h"

int main(void) {
    static const char *const devices[] = {"console", "/dev/ttyS0",
                                          "/dev/null"};
    for (size_t i = 0; i < sizeof devices / sizeof devices[0]; i++) {
        static tty_details_t details;
        memset(&details, 0, sizeof details);
        if (tty_details_from_device_file(0, devices[i], &details) !=
            0) {
            printf("%s is not a line\n", devices[i]);
        } else {
            printf("%s is of kind %u\n", devices[i], details.kind);
        }
    }
    return 0;
}
