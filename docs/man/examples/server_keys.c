/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>
#include <stdlib.h>

#include "aaa/result_codes.h"
#include "aaa/server_keys.h"

int main(void) {
    char typed[] = "radius-secret  "; /* as an operator pasted it */
    char *key = aaa_util_truncate_whitespace_in_server_key(typed, 0);
    char clear[] = "radius-secret";
    int sealed = validate_encrypted_password(clear) == AAA_OK;
    printf("\"%s\" is %s\n", key, sealed ? "sealed" : "not sealed");
    free(key);
    return 0;
}
