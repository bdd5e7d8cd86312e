/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_LINES_H
#define AAA_LINES_H

#include "aaa/export.h"
#include "aaa/types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define AAA_READ_HIDDEN   0x1u /* no echo; selects the terminal path */
#define AAA_READ_LINEFEED 0x2u /* line feed to standard output before the prompt */
enum aaa_line_kind { AAA_LINE_CONSOLE = 0, AAA_LINE_TTY1 = 1, AAA_LINE_TTY2 = 2, AAA_LINE_AUX = 3, AAA_LINE_VTY = 4 };

AAA_API char *aaa_util_convert_tty_name(char *device); /* heap, the caller frees */
AAA_API int aaa_is_console(const char *device); /* 1 or 0 */
AAA_API int aaa_is_aux(const char *device);     /* 1 or 0 */
AAA_API int aaa_is_vty(const char *device);     /* 1 or 0 */
AAA_API int aaa_is_tty(const char *device);     /* 1 or 0 */
AAA_API cerrno aaa_util_read_input(const char *prompt, char *buf, uint32_t len, uint32_t timeout_s, uint32_t flags);

#ifdef __cplusplus
}
#endif

#endif /* AAA_LINES_H */
