/* SPDX-License-Identifier: Apache-2.0 */
#include "visible.h"

#include <stdint.h>
#include <string.h>

static const struct {
    uint32_t first;
    uint32_t last;
} hidden[] = {
#define HIDDEN_CHARACTERS(first, last) {first, last},
#include "cli/hidden_characters.def"
};

static int is_hidden(uint32_t code) {
    for (size_t i = 0; i < sizeof hidden / sizeof hidden[0]; i++) {
        if (code >= hidden[i].first && code <= hidden[i].last) {
            return 1;
        }
    }
    return (code & 0xfffe) == 0xfffe;
}

/* Bytes of the UTF-8 sequence that begins with this byte; 0 when none does. */
static size_t sequence_length(unsigned char lead) {
    return lead < 0x80 ? 1 : lead < 0xc2 ? 0 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : lead < 0xf5 ? 4 : 0;
}

/* Bytes of the well-formed character beyond ASCII at the start of the text; 0 when there is none. */
static size_t read_character(const unsigned char *text, size_t length, uint32_t *code) {
    const size_t bytes = sequence_length(text[0]);
    if (bytes < 2 || bytes > length) {
        return 0;
    }
    *code = text[0] & (0xffu >> (bytes + 1));
    for (size_t i = 1; i < bytes; i++) {
        if ((text[i] & 0xc0) != 0x80) {
            return 0;
        }
        *code = *code << 6 | (text[i] & 0x3fu);
    }
    const int overlong = (bytes == 3 && *code < 0x800) || (bytes == 4 && *code < 0x10000);
    const int surrogate = *code >= 0xd800 && *code <= 0xdfff;
    return overlong || surrogate || *code > 0x10ffff ? 0 : bytes;
}

void visible_copy(char *out, size_t room, const char *text, size_t length, int lines) {
    const unsigned char *in = (const unsigned char *)text;
    const size_t end = strnlen(text, length);
    size_t at = 0;
    size_t made = 0;
    while (at < end) {
        uint32_t code = 0;
        const size_t bytes = read_character(in + at, end - at, &code);
        const size_t taken = bytes == 0 ? 1 : bytes;
        const int shown = bytes != 0 && !is_hidden(code);
        const size_t needed = shown ? bytes : 1;
        if (made + needed >= room) {
            break;
        }
        if (shown) {
            memcpy(out + made, in + at, bytes);
        } else if (in[at] == '\n' || in[at] == '\t') {
            out[made] = lines ? (char)in[at] : ' ';
        } else {
            out[made] = in[at] >= ' ' && in[at] <= '~' ? (char)in[at] : '?';
        }
        made += needed;
        at += taken;
    }
    out[made] = '\0';
}
