/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>

#include "aaa/names.h"

int main(void) {
    for (int32_t service = AAA_SVC_LOGIN; service <= AAA_SVC_EXEC;
         service++) {
        printf("%d %s\n", service, aaa_print_service(service));
    }
    return 0;
}
