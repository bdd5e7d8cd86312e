/* SPDX-License-Identifier: Apache-2.0 */
#define _GNU_SOURCE
#include "prompt.h"

#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "aaa/aaautil.h"
#include "platform/cerr.h"

#define TIME_LIMIT_S 60

int prompt_password(char *password, uint32_t size) {
    if (isatty(STDIN_FILENO)) {
        cerrno rc = aaa_util_read_input("Password: ", password, size, TIME_LIMIT_S, AAA_READ_HIDDEN);
        putchar('\n');
        if (rc != AAA_OK) {
            fprintf(stderr, "no password: %s\n", cerr_strerror(rc));
        }
        return rc == AAA_OK;
    }
    if (fgets(password, (int)size, stdin) == NULL) {
        return 0;
    }
    password[strcspn(password, "\n")] = '\0';
    return 1;
}
