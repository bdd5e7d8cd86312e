/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>
#include <stdlib.h>

#include "aaa/debug_flags.h"
#include "platform/control.h"
#include "platform/logging.h"

/* Prints one row of the file that gives lines their method lists. */
static int32_t show(const aaa_platform_line_rule_t *rule,
                    void *line) {
    if (rule->defect != NULL) {
        printf("%u: %s\n", rule->number, rule->defect);
    } else {
        printf("%u: %s%s\n", rule->number, rule->list_name,
               aaa_platform_line_rule_applies(rule, 0, line)
                   ? ", also for this login"
                   : "");
    }
    return 0; /* go on */
}

int main(void) {
    if (aaa_platform_debug_set_areas("avlist") != 0) {
        return 1;
    }
    printf("traces of lists: %s\n",
           aaa_debugging(AAA_DBG_AVLIST) ? "on" : "off");
    aaa_platform_debug_set(AAA_DBG_AVLIST, 0);
    printf("traces of lists: %s\n",
           aaa_debugging(AAA_DBG_AVLIST) ? "on" : "off");

    FILE *file = fopen("lines.conf", "w");
    if (file == NULL) {
        return 1;
    }
    fputs(
        "ttyS*  authentication  consoles\n"
        "pts/*  authentication  users\n",
        file);
    if (fclose(file) != 0 ||
        setenv("AAA_LINES_CONF", "lines.conf", 1)) {
        return 1;
    }
    char line[] = "pts/3";
    return aaa_platform_line_rules(show, line) == 0 ? 0 : 1;
}
