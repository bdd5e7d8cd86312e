/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_CIPHER_H
#define PLATFORM_CIPHER_H

/**
 * @file
 * @brief Password cipher: the reversible form of keys shared with AAA servers.
 *
 * Keys are stored in the configuration in this form. The library knows only its
 * shape: at least four characters, an even number of them, the first two decimal
 * digits, all others hexadecimal digits of either case. Their meaning is the
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
 * This host seals with authenticated encryption under the newest master key;
 * the same text never gives the same result twice.
 *
 * @param[in] text clear text, may be empty; this host takes up to 4096 characters
 * @param[in] type 7, the only reversible form
 *
 * Ownership: *Caller frees* the result. The input is not changed.
 *
 * @return
 * - a sealed text of the shape above
 * - null: the text is null or too long, the type is not 7, there is no usable master key, or no memory; a log
 *   line says which
 */
PLATFORM_API char *pw_encrypt(const char *text, int type);

/**
 * Opens a sealed text.
 *
 * The text comes from a configuration and may be anything.
 *
 * @param[in] text sealed text, may be null
 * @param[in] type 7
 *
 * Ownership: *Caller frees* the result, and wipes it: it is a secret. The input is not changed.
 *
 * @return
 * - the clear text, which may be empty
 * - null: the text is not a sealed text, was changed after it was sealed, or was sealed under a master key
 *   that is missing; the type is not 7; or there is no memory. A log line says which, without the text
 */
PLATFORM_API char *pw_decrypt(const char *text, int type);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_CIPHER_H */
