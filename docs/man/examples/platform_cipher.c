/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "platform/cipher.h"
#include "platform/control.h"

int main(void) {
    /* usually /etc/aaa/master.keys, of aaactl key new-master */
    if (setenv("AAA_MASTER_KEYS", "master.keys", 1) != 0 ||
        aaa_platform_master_keys_create(NULL) != 0) {
        return 1;
    }
    char *sealed = pw_encrypt("testing123", 7);
    char *clear = sealed != NULL ? pw_decrypt(sealed, 7) : NULL;
    if (clear == NULL) {
        return 1; /* a log line says why */
    }
    printf("sealed with generation %.2s, opened: %s\n", sealed,
           clear);
    explicit_bzero(clear, strlen(clear));
    free(clear);
    free(sealed);
    return 0;
}
