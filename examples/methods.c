/* SPDX-License-Identifier: Apache-2.0 */
#define _GNU_SOURCE
#include "methods.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "aaa/aaautil.h"
#include "platform/cerr.h"
#include "visible_text.h"

int methods_print(const char *path) {
    char location[256];
    uint32_t *methods = NULL;
    snprintf(location, sizeof location, "%s", path);
    cerrno rc = lookup_methods(location, &methods);
    if (rc != AAA_OK) {
        printf("  %s: %s\n", path, cerr_strerror(rc));
        return 0;
    }
    printf("  %s:", path);
    for (int i = 0; i < 4 && methods[i] != AAA_METHOD_NOTSET; i++) {
        char *name = aaa_print_method((int32_t)methods[i]);
        if (methods[i] >= 1000) {
            printf("%s group %u (", i > 0 ? "," : "", methods[i]);
            visible_print(stdout, name != NULL ? name : "unknown");
            printf(")");
        } else {
            printf("%s %s", i > 0 ? "," : "", name != NULL ? name : "?");
        }
        free(name);
    }
    printf("\n");
    fflush(stdout);
    free(methods);
    return 1;
}

unsigned methods_number(const char *word) {
    for (unsigned i = AAA_METHOD_NONE; i <= AAA_METHOD_SYSLOG; i++) {
        if (strcmp(aaa_util_print_method(i), word) == 0) {
            return i;
        }
    }
    return 0;
}
