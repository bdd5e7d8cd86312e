/* SPDX-License-Identifier: Apache-2.0 */

/*
 * The list of an answer, read into a record of fixed size.
 */

#define _GNU_SOURCE
#include <string.h>

#include "client.h"
#include "visible.h"

#define STATE_MAX 4096u /* longest state that is sent back, bytes */

static int get_number(const avlist *list, uint32_t type, uint32_t *number) {
    uint32_t len = 0;
    return aaa_util_avlist_value_copy(list, type, 0, number, sizeof *number, &len) == AAA_OK &&
           len == sizeof *number;
}

/* A text that is absent or does not fit becomes empty. */
static void get_text(const avlist *list, uint32_t type, char *out) {
    char text[4 * CLIENT_TEXT];
    uint32_t len = 0;
    out[0] = '\0';
    if (aaa_util_avlist_value_copy(list, type, 0, text, sizeof text, &len) == AAA_OK) {
        visible_copy(out, CLIENT_TEXT, text, len, 1);
    }
    explicit_bzero(text, sizeof text);
}

/* The service knows a login of several rounds by its state, which may be binary. */
static avlist *get_state(const avlist *list) {
    char state[STATE_MAX];
    uint32_t len = 0;
    avlist *kept = NULL;
    if (aaa_util_avlist_value_copy(list, AAA_RADIUS_STATE_ATTR, 0, state, sizeof state, &len) == AAA_OK &&
        aaa_avpair_create_list("state", &kept) == AAA_OK &&
        aaa_util_avpair_add_attr(kept, AAA_RADIUS_STATE_ATTR, state, len, 0) != AAA_OK) {
        aaa_avpair_free_list(kept);
        kept = NULL;
    }
    explicit_bzero(state, sizeof state);
    return kept;
}

static uint32_t known_status(uint32_t status) {
    switch (status) {
        case AAA_STAT_PASS:
        case AAA_STAT_FAIL:
        case AAA_STAT_BYPASS:
        case AAA_STAT_NOT_REQUIRED:
        case AAA_STAT_GETUSER:
        case AAA_STAT_GETPASS:
        case AAA_STAT_GETDATA:
        case AAA_STAT_ABORT:
            return status;
        default:
            return AAA_STAT_ERROR;
    }
}

void client_answer_read(client_answer_t *answer, const avlist *list) {
    uint32_t number = 0;
    answer->status = get_number(list, AAA_STATUS_ATTR, &number) ? known_status(number) : AAA_STAT_ERROR;
    answer->type = get_number(list, AAA_TYPE_ATTR, &number) ? number : AAA_MT_NONE;
    answer->has_level = get_number(list, AAA_PRIV_LVL_ATTR, &answer->level);
    answer->echo = get_number(list, AAA_PROMPT_ECHO_ATTR, &number) && number == 1;
    answer->expired = get_number(list, AAA_TIMEOUT_ATTR, &number) && number == 0;
    get_text(list, AAA_REPLYMSG_ATTR, answer->message);
    get_text(list, AAA_PROMPT_ATTR, answer->prompt);
    answer->state = get_state(list);
}

void client_answer_clear(client_answer_t *answer) {
    aaa_avpair_free_list(answer->state);
    explicit_bzero(answer, sizeof *answer);
    answer->status = AAA_STAT_ERROR;
}
