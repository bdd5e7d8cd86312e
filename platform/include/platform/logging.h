/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_LOGGING_H
#define PLATFORM_LOGGING_H

#include "aaa/types.h"
#include "platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Logs one catalog message: the record (as handed out by its _getfn accessor), the severity (always equal to
 * the record's own: 3, 4 or 7) and the arguments of the record's format. */
PLATFORM_API void kel_errmsg(const void *record, uint32_t severity, ...);

/* Writes one trace line under a debug flag; the platform decides whether the flag is on. Texts carry no line
 * feed of their own except in a few session and notification lines. */
PLATFORM_API void aaa_debug(uint32_t flag, const char *format, ...);

/* Non-zero when the flag is on. Asked only by add, update, unpack and dump_buffer; every other trace is unconditional. */
PLATFORM_API int aaa_debugging(uint32_t flag);

/* Starts tracing; non-zero = failure (a cerrno), logged, loading goes on. */
PLATFORM_API cerrno aaa_debug_init(void);

/* Ends tracing; last step of unload, also when the connection mutex could not be taken. */
PLATFORM_API void aaa_debug_cleanup(void);
#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_LOGGING_H */
