/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>

#include "platform/bounded.h"

int main(void) {
    char name[8] = "";
    int differs = 1;

    /* cut to 7 characters and a NUL */
    sstrncpy(name, "wonderland", sizeof name);
    if (strcmp_s(name, sizeof name, "wonderl", &differs) != 0) {
        return 1;
    }
    printf("%s, %s\n", name,
           differs == 0 ? "as expected" : "different");

    /* refused: the source is longer than the destination */
    char room[4];
    printf("too long: %s\n",
           memcpy_s(room, sizeof room, "wonder", 6) != 0 ? "refused"
                                                         : "copied");
    return 0;
}
