/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>

#include "aaa/debug_flags.h"
#include "platform/control.h"
#include "platform/logging.h"

/* An argument that takes long to make. */
static int costly(void) {
    puts("asked for");
    return 3;
}

int main(void) {
    /* no trace: the flag is off, and the test of it is cheap */
    aaa_debug(AAA_DBG_AVLIST, "attempt %d", 1);
    if (aaa_debugging(AAA_DBG_AVLIST)) {
        aaa_debug(AAA_DBG_AVLIST, "%d attempts", costly());
    }
    /* a trace, to where AAA_LOG says */
    aaa_platform_debug_set(AAA_DBG_AVLIST, 1);
    if (aaa_debugging(AAA_DBG_AVLIST)) {
        aaa_debug(AAA_DBG_AVLIST, "%d attempts", costly());
    }
    return 0;
}
