/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_SERVER_KEYS_H
#define AAA_SERVER_KEYS_H

#include "aaa/export.h"
#include "aaa/types.h"

#ifdef __cplusplus
extern "C" {
#endif

AAA_API cerrno validate_encrypted_password(char *text);
AAA_API char *aaa_util_truncate_whitespace_in_server_key(char *key, int encrypted); /* heap, the caller frees */
AAA_API cerrno aaa_util_trim_server_key(char *key, char **out);

#ifdef __cplusplus
}
#endif

#endif /* AAA_SERVER_KEYS_H */
