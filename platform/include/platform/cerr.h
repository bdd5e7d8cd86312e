/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_CERR_H
#define PLATFORM_CERR_H

#include "aaa/types.h"
#include "platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Called once at load as (1164, "cerrno/libaaa_error.dll"); the service reads the exported cerr_data. A
 * non-zero result is logged and loading goes on. */
PLATFORM_API cerrno cerr_register_dll(uint32_t facility, const char *dll_name);

/* Text of any code: never null, never to be freed. For this facility the text is that of the index, whatever
 * the severity class (0x22466000 and 0xa2466000 give the same text); 0 and codes without a row (0xa2466800)
 * still give some printable text. */
PLATFORM_API const char *cerr_strerror(cerrno code);
#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_CERR_H */
