/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>
#include <stdlib.h>

#include "aaa/lines.h"

int main(void) {
    char device[] = "/dev/vty1";
    char *name = aaa_util_convert_tty_name(device);
    printf("%s: %s, %s\n", device, name,
           aaa_is_vty(device) ? "a virtual terminal"
                              : "something else");
    free(name);
    return 0;
}
