/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_CIPHER_H
#define PLATFORM_CIPHER_H

#include "aaa/types.h"
#include "platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Both return a heap string that the library free()s, or null on failure. The input is not changed. */
PLATFORM_API char *pw_encrypt(const char *text, int type);
PLATFORM_API char *pw_decrypt(const char *text, int type);
#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_CIPHER_H */
