/* SPDX-License-Identifier: Apache-2.0 */
#include "command_text.h"

#include <stdlib.h>

/* Counts the bytes and, with room, stores them. */
typedef struct writer {
    char *out;
    size_t length;
} writer_t;

static void put(writer_t *writer, unsigned byte) {
    if (writer->out != NULL) {
        writer->out[writer->length] = (char)byte;
    }
    writer->length++;
}

static void put_argument(writer_t *writer, const char *text) {
    if (*text == '\0') {
        put(writer, '\\');
        put(writer, 'e');
    }
    for (const unsigned char *p = (const unsigned char *)text; *p != '\0'; p++) {
        const unsigned byte = *p;
        if (byte < ' ' || byte == 127) {
            put(writer, '\\');
            put(writer, '0' + (byte >> 6));
            put(writer, '0' + (byte >> 3 & 7u));
            put(writer, '0' + (byte & 7u));
            continue;
        }
        if (byte == ' ' || byte == '\\') {
            put(writer, '\\');
        }
        put(writer, byte);
    }
}

static void put_command(writer_t *writer, const char *program, char *const argv[]) {
    put_argument(writer, program);
    for (size_t i = 1; argv != NULL && argv[0] != NULL && argv[i] != NULL; i++) {
        put(writer, ' ');
        put_argument(writer, argv[i]);
    }
}

char *command_text(const char *program, char *const argv[], size_t *length) {
    writer_t counter = {0};
    put_command(&counter, program, argv);
    *length = counter.length;
    if (counter.length > COMMAND_TEXT_MAX) {
        return NULL;
    }
    writer_t writer = {.out = malloc(counter.length + 1)};
    if (writer.out != NULL) {
        put_command(&writer, program, argv);
        writer.out[writer.length] = '\0';
    }
    return writer.out;
}
