/* SPDX-License-Identifier: Apache-2.0 */
#ifndef PLATFORM_CERR_H
#define PLATFORM_CERR_H

/**
 * @file
 * @brief Registry of result codes and their texts.
 *
 * A code carries its facility in bits
 * 28..15 and its index within the facility in bits 14..9; aaa/result_codes.h has
 * the record that describes a facility's texts.
 */

#include "aaa/types.h"
#include "platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Registers the texts of one facility.
 *
 * Called once per load as (1164, "cerrno/libaaa_error.dll"), by the loading
 * thread. The service finds the table as the object "cerr_data" that the
 * calling library exports (layout version 2); the name is the
 * table library's and need not be a file. The library may be unloaded
 * later, while its codes are still being printed: the texts are *Copied in*,
 * and no reference that would keep the library loaded may remain. Registering a
 * facility again replaces its texts; texts handed out before stay valid.
 *
 * @param[in] facility facility number, 1 to 0x3fff
 * @param[in] dll_name name of the table's library
 *
 * @return
 * - 0: registered
 * - any other code: not registered. The library logs the code and goes on loading; its codes then have no
 *   texts of their own.
 *
 * The codes of this host are 0xa2580200 (bad argument), 0xa2580400 (no memory), 0xa2580600 (no loaded object
 * exports the table), 0xa2580800 (the table is malformed) and 0xa2580a00 (too many facilities).
 */
PLATFORM_API cerrno cerr_register_dll(uint32_t facility, const char *dll_name);

/**
 * Gives the text of any code.
 *
 * The severity class (bits 31..30) does not matter: 0x22466000 and 0xa2466000
 * of the library's facility give the same text. Small codes are errno values.
 * Never enters the loader and takes no lock: the worker and signal handlers
 * call it.
 *
 * @param[in] code any code, 0 included
 *
 * Ownership: *Borrowed*: a registered text for the life of the process, the text of an unknown code until the
 * same thread asks for another unknown code.
 *
 * @return the text, never null: "Success" for 0, the number in printable form for a code without a text (such
 * as 0xa2466800)
 */
PLATFORM_API const char *cerr_strerror(cerrno code);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_CERR_H */
