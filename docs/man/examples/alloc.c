/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>

#include "aaa/alloc.h"

int main(void) {
    char *kept =
        aaa_util_strdup(__func__, __LINE__, "still allocated");
    char *freed = aaa_util_malloc(__func__, __LINE__, 100);
    aaa_util_free(__func__, __LINE__, freed);

    for (const aaa_malloc_rec_t *rec = get_malloc_data()->head;
         rec != NULL; rec = rec->link) {
        printf("%u bytes of %s\n", rec->size, rec->name);
    }
    aaa_util_free(__func__, __LINE__, kept);
    return 0;
}
