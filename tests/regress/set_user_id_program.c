/* SPDX-License-Identifier: Apache-2.0 */
/*
 * A program that its test runs with set-user-ID and as it is. It writes its report to
 * descriptor 3.
 *
 *     set_user_id_program worker   whether the library started its worker
 *     set_user_id_program input    a hidden line
 *     set_user_id_program log      logs a line
 */
#include <dirent.h>
#include <stdio.h>
#include <string.h>
#include <sys/auxv.h>

#include "aaa/aaautil.h"
#include "platform/logging.h"

#define REPORT 3

static int threads(void) {
    int count = -2; /* the two links */
    DIR *const tasks = opendir("/proc/self/task");
    while (tasks != NULL && readdir(tasks) != NULL) {
        ++count;
    }
    closedir(tasks);
    return count;
}

int main(int argc, char **argv) {
    const char *const action = argc > 1 ? argv[1] : "";
    dprintf(REPORT, "%s: ", getauxval(AT_SECURE) != 0 ? "privileged" : "ordinary");
    if (strcmp(action, "worker") == 0) {
        dprintf(REPORT, threads() > 1 ? "a worker" : "no worker");
    } else if (strcmp(action, "input") == 0) {
        char line[32] = "";
        const cerrno rc = aaa_util_read_input("password: ", line, sizeof line, 0, AAA_READ_HIDDEN);
        dprintf(REPORT, "%u \"%s\"", rc, line);
    } else if (strcmp(action, "log") == 0) {
        kel_errmsg(kel_msg_rec_aaa_debug_error_getfn(), 3, "a", "line");
        dprintf(REPORT, "logged");
    }
    return 0;
}
