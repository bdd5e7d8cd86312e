/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>

#include "platform/node.h"
#include "platform/task_table.h"

int main(void) {
    aaa_task_table_t *table = aaa_task_table_create(8);
    if (table == NULL ||
        aaa_task_table_grant(table, "bgp", AAA_TASK_READ) != 0 ||
        aaa_task_table_grant(table, "bgp", AAA_TASK_WRITE) != 0) {
        return 1;
    }
    printf("bgp: %s\n",
           aaa_task_table_permissions(table, "bgp") & AAA_TASK_WRITE
               ? "may write"
               : "may not write");
    printf("ospf: %u\n", aaa_task_table_permissions(table, "ospf"));
    aaa_destroy_task_table(table);
    return 0;
}
