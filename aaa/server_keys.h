/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_SERVER_KEYS_H
#define AAA_SERVER_KEYS_H

/**
 * @file
 * @brief Keys shared with AAA servers: checking and trimming.
 *
 * A key is configured in clear text or in the platform's reversible encrypted
 * form (type 7). An encrypted key text has at least 4 characters, an even
 * number of them; the first two are decimal digits, all others hexadecimal
 * digits of either case. White space is space, tab, line feed and carriage
 * return, nothing else.
 *
 * The cipher is the platform's; clear texts that these functions obtain from
 * it are wiped before their memory is released.
 */

#include "aaa/export.h"
#include "aaa/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Tells whether a text is a well-formed encrypted key whose clear text is printable.
 *
 * An empty clear text is accepted.
 *
 * @param[in] text NUL-terminated key text, not changed
 * @return
 * - AAA_OK: a valid encrypted key
 * - AAA_ERR_INVALID_ARG: @p text is null
 * - AAA_ERR_BAD_ENCRYPTED_KEY: wrong shape, not decryptable here, or its clear
 *   text holds a byte that is not printable; a byte above 0x7f is not, in any locale
 */
AAA_API cerrno validate_encrypted_password(char *text);

/**
 * Returns a key without trailing white space.
 *
 * A clear key is trimmed in place and copied. An encrypted key is decrypted;
 * when its clear text ends in white space the trimmed text is encrypted
 * again, otherwise the given text is copied unchanged. Whenever something is cut
 * off, the operator is warned through the message catalog; failures of memory
 * or cipher are reported there too.
 *
 * @param[in,out] key       NUL-terminated key; a clear key is trimmed in place
 * @param[in]     encrypted non-zero when @p key is an encrypted key text
 *
 * Ownership: *Caller frees* the result.
 *
 * @return the key; null when @p key is null, when its clear text is empty or only white space, when
 *         it cannot be decrypted or encrypted, or without memory
 */
AAA_API char *aaa_util_truncate_whitespace_in_server_key(char *key, int encrypted);

/**
 * Trims a clear-text key in place by the configuration parser's rule and hands out a copy.
 *
 * The rule differs from aaa_util_truncate_whitespace_in_server_key() and is
 * kept as it is, because stored keys were made with it: a key that ends in
 * white space loses three characters more than its trailing blanks ("abcdefgh"
 * and one blank becomes "abcde"). A tab, carriage return or line feed is only
 * recognised two, three or four bytes before the position reached, not at the
 * end. A key that does not end in white space is left alone.
 *
 * @param[in,out] key NUL-terminated clear-text key, trimmed in place
 * @param[out]    out receives the copy, or null when the key has become empty
 *
 * Ownership: *Caller frees* @p out.
 *
 * @return
 * - AAA_OK: @p out is the copy or null
 * - AAA_ERR_INVALID_ARG: a pointer is null; nothing is changed
 * - AAA_ERR_NOMEM: the copy could not be made; @p out is null, the key is trimmed
 */
AAA_API cerrno aaa_util_trim_server_key(char *key, char **out);

#ifdef __cplusplus
}
#endif

#endif /* AAA_SERVER_KEYS_H */
