/* SPDX-License-Identifier: Apache-2.0 */

#include "freeradius_pairs.h"

#include <string.h>

#include <freeradius/build.h> /* libradius.h uses its macros before it includes it */
#include <freeradius/libradius.h>

#define ACCESS_REQUEST 1

int freeradius_start(const char *directory) {
    return dict_init(directory, "dictionary") < 0 ? -1 : 0;
}

struct radius_packet *freeradius_request(void) {
    RADIUS_PACKET *request = rad_alloc(NULL, false);
    if (request != NULL) {
        request->code = ACCESS_REQUEST;
    }
    return request;
}

/* fr_pair_add() walks the whole list for its end, so pairs are linked here, as the library's cursors do. */
static VALUE_PAIR *append(RADIUS_PACKET *request, VALUE_PAIR **tail, uint8_t type) {
    VALUE_PAIR *pair = fr_pair_afrom_num(request, type, 0);
    if (pair != NULL) {
        *(*tail == NULL ? &request->vps : &(*tail)->next) = pair;
        *tail = pair;
    }
    return pair;
}

int freeradius_add_number(struct radius_packet *request, struct value_pair **tail, uint8_t type,
                          uint32_t number) {
    VALUE_PAIR *pair = append(request, tail, type);
    if (pair == NULL) {
        return -1;
    }
    pair->vp_integer = number;
    pair->vp_length = sizeof number;
    return 0;
}

int freeradius_add_text(struct radius_packet *request, struct value_pair **tail, uint8_t type,
                        const char *text, uint32_t len) {
    VALUE_PAIR *pair = append(request, tail, type);
    if (pair == NULL) {
        return -1;
    }
    fr_pair_value_bstrncpy(pair, text, len);
    return 0;
}

/* No attribute of the dictionary is encrypted and nothing is signed, so no secret is used. */
int freeradius_encode(struct radius_packet *request, char *out, uint32_t size) {
    if (rad_encode(request, NULL, NULL) < 0 || request->data_len > size) {
        return -1;
    }
    memcpy(out, request->data, request->data_len);
    return (int)request->data_len;
}

struct radius_packet *freeradius_decode(char *message, uint32_t len) {
    RADIUS_PACKET *packet = rad_alloc(NULL, false);
    if (packet == NULL) {
        return NULL;
    }
    packet->data = (uint8_t *)message;
    packet->data_len = len;
    if (!rad_packet_ok(packet, 0, NULL) || rad_decode(packet, NULL, NULL) < 0) {
        freeradius_release(packet);
        return NULL;
    }
    return packet;
}

struct freeradius_value freeradius_find(const struct radius_packet *packet, uint8_t type) {
    struct freeradius_value value = {NULL, 0, 0};
    const VALUE_PAIR *pair = fr_pair_find_by_num(packet->vps, type, 0, TAG_ANY);
    if (pair != NULL) {
        value.len = (uint32_t)pair->vp_length;
        if (pair->da->type == PW_TYPE_STRING) {
            value.text = pair->vp_strvalue;
        } else {
            value.number = pair->vp_integer;
        }
    }
    return value;
}

void freeradius_release(struct radius_packet *packet) {
    rad_free(&packet);
}
