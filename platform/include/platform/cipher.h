/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_CIPHER_H
#define PLATFORM_CIPHER_H

/**
 * @file
 * Password cipher: the reversible form in which keys that are shared with AAA
 * servers stand in the configuration. The library knows only the form's shape:
 * at least four characters, an even number of them, the first two decimal
 * digits, all others hexadecimal digits of either case. What they mean is the
 * host's. Called by threads of the program.
 */

#include "aaa/types.h"
#include "platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Seals a clear text.
 *
 * This host seals with authenticated encryption under the newest master key; the
 * same text never gives the same result twice.
 *
 * Ownership: *Caller frees* the result. The input is not changed.
 * @param text clear text, may be empty; this host takes up to 4096 characters
 * @param type 7 = the reversible form, the only one there is
 * @return sealed text of the shape above; null: null or too long a text, another
 *         type, no usable master key, no memory. One log line says which.
 */
PLATFORM_API char *pw_encrypt(const char *text, int type);

/**
 * Opens a sealed text.
 *
 * Called for whatever stands in a configuration, so the text may be anything.
 *
 * Ownership: *Caller frees* the result, and wipes it: it is a secret. The input
 * is not changed.
 * @param text sealed text, may be null
 * @param type 7
 * @return the clear text, perhaps empty; null: not a sealed text, changed since
 *         it was sealed, sealed under a master key that is not there (any more),
 *         another type, no memory. One log line says which, without showing the
 *         text.
 */
PLATFORM_API char *pw_decrypt(const char *text, int type);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_CIPHER_H */
