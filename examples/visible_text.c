/* SPDX-License-Identifier: Apache-2.0 */
#include "visible_text.h"

#include <stddef.h>
#include <stdint.h>

static const struct {
    uint32_t first;
    uint32_t last;
} hidden[] = {
#define HIDDEN_CHARACTERS(first, last) {first, last},
#include "hidden_characters.def"
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
static unsigned sequence_length(unsigned char lead) {
    return lead < 0x80 ? 1 : lead < 0xc2 ? 0 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : lead < 0xf5 ? 4 : 0;
}

/* Bytes of the character beyond ASCII at the start of the text if it is well-formed and seen, else 0. */
static unsigned visible_length(const unsigned char *text) {
    const unsigned length = sequence_length(text[0]);
    if (length < 2) {
        return 0;
    }
    uint32_t code = text[0] & (0xffu >> (length + 1));
    for (unsigned i = 1; i < length; i++) { /* the end of the text ends the loop too */
        if ((text[i] & 0xc0) != 0x80) {
            return 0;
        }
        code = code << 6 | (text[i] & 0x3fu);
    }
    const int overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
    const int surrogate = code >= 0xd800 && code <= 0xdfff;
    return overlong || surrogate || code > 0x10ffff || is_hidden(code) ? 0 : length;
}

static void print_escaped(FILE *out, unsigned char byte) {
    switch (byte) {
        case '\n':
            fputs("\\n", out);
            break;
        case '\t':
            fputs("\\t", out);
            break;
        case '\r':
            fputs("\\r", out);
            break;
        case '\\':
            fputs("\\\\", out);
            break;
        default:
            fprintf(out, "\\x%02x", byte);
            break;
    }
}

void visible_print(FILE *out, const char *text) {
    const unsigned char *p = (const unsigned char *)text;
    while (*p != '\0') {
        const int plain = *p >= ' ' && *p <= '~' && *p != '\\';
        const unsigned length = plain ? 1 : visible_length(p);
        if (length == 0) {
            print_escaped(out, *p++);
        } else {
            fwrite(p, 1, length, out);
            p += length;
        }
    }
}
