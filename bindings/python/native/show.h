/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAAPY_SHOW_H
#define AAAPY_SHOW_H

/*
 * Messages as aaactl shows and reads them, advice about result codes, and what the library
 * needs before its first use.
 */

#include <stddef.h>
#include <stdint.h>

#include "aaa/types.h"

/* A text or the bytes of a message, released with aaapy_text_free(). */
typedef struct aaapy_text {
    char *bytes;     /* null when there was no memory */
    size_t length;   /* without a terminating NUL */
    uint32_t failed; /* 1: the input cannot be used, and the bytes say why */
} aaapy_text_t;

void aaapy_text_free(aaapy_text_t *text);

/* A message as the document of `aaactl --json decode`, or in the form of `aaactl decode --text`. */
aaapy_text_t aaapy_show(const char *message, size_t length, const char *kind, uint32_t show_secrets,
                        uint32_t as_text);

/* The bytes of a message from either form; text that begins with '{' or '[' is JSON. */
aaapy_text_t aaapy_read(const char *text, size_t length);

/* Hexadecimal text, as plain digits or a dump with offsets, to bytes. */
aaapy_text_t aaapy_unhex(const char *text, size_t length);

/* Whether bytes are text rather than a message: the test of `aaactl decode` for hexadecimal input. */
uint32_t aaapy_looks_like_text(const char *bytes, size_t length);

/* The n-th kind of message that can be named, null after the last. */
const char *aaapy_kind(uint32_t n);

/* The n-th attribute whose values are secrets, 0 after the last. */
uint32_t aaapy_secret(uint32_t n);

/* The type of an attribute by name, with or without "AAA_" and "_ATTR", in any case, or by number. 1 when
 * there is one. */
uint32_t aaapy_attribute_type(const char *name, uint32_t *type);

/* "; did you mean ...?" for a name that no attribute has, or nothing. */
aaapy_text_t aaapy_meant_attribute(const char *name);

/* Advice about a result code. */
typedef struct aaapy_advice {
    uint32_t code;
    uint32_t by_library; /* 1: the library itself returns it */
    const char *name;
    const char *cause;
    const char *remedy;
} aaapy_advice_t;

/* The n-th row, null after the last. */
const aaapy_advice_t *aaapy_advice_row(uint32_t n);

/* Registers the texts of the library's codes, which its load hook does where it runs. */
cerrno aaapy_register_codes(void);

#endif /* AAAPY_SHOW_H */
