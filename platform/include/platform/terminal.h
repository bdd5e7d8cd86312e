/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_TERMINAL_H
#define PLATFORM_TERMINAL_H

#include "aaa/types.h"
#include "aaa/credentials.h"
#include "platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Details of a line: only the first 32-bit field is read (0 console, 1 and 2 tty, 3 aux, 4 vty). */
typedef struct tty_details {
    uint32_t kind;
    uint8_t  rest[1020];
} tty_details_t;

/* Called as (0, device, &details); 0 = success. */
PLATFORM_API int32_t tty_details_from_device_file(uint32_t zero, const char *device, tty_details_t *details);

/* Method list configured for the caller's line; kind 0 authentication, 1 authorization, 2 accounting. On
 * success the name is a heap string that the library frees after adding it. 0x22570e00 = no controlling
 * terminal (ignored for services 16 and 24, and in authorization for option 69); any other failure ends the
 * compose with that code. */
PLATFORM_API cerrno find_method_for_line(uint32_t kind, char **list_name);

/* Fills line_category, line_detail and line_detail2 of the credential record from its tty_mnemonic. The
 * result is not used. */
PLATFORM_API cerrno aaa_util_check_linetype(aaa_usercred_t *cred);

/* Writes the remote address of the caller's line as text into a 46-byte buffer (malloc'ed by the library;
 * on success it becomes cred->remote_addr, on failure the library frees it). Non-zero = failure. */
PLATFORM_API cerrno aaa_util_find_line_remote_addr(char *buffer, uint32_t size);

/* Line editor. getline_init: null = failure (AAA_ERR_OS). getline_configure: (handle, option, 4, &zero) for the
 * options 4, 2, 3, 5, 6, 7 in that order; the first non-zero result is the result of the read. */
PLATFORM_API void  *getline_init(void);
PLATFORM_API cerrno getline_configure(void *handle, uint32_t option, uint32_t size, const void *value);
PLATFORM_API void   gl_ret_on_eintr_enable(void *handle);
/* Reads one line: (handle, "", "", &ok), ok preset to 1 and cleared by the editor on a cancelled line. Null
 * or an empty line = AAA_ERR_INVALID_CLIENT_DATA; errno EINTR = the alarm fired. The line is the handle's. */
PLATFORM_API char  *qm_getline(void *handle, const char *prompt, const char *text, int *ok);
PLATFORM_API void   getline_free(void *handle);
#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_TERMINAL_H */
