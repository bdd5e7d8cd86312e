/* SPDX-License-Identifier: Apache-2.0
 *
 * A library that exports a result-code table, for the registry's tests. Built
 * with different texts under different names.
 */
#include "aaa/result_codes.h"

static const aaa_err_row_t rows[] = {
    {0, 0, "Module success"},
    {1, 0, MODULE_TEXT},
    {63, 0, "Last index"},
};

__attribute__((visibility("default")))
const aaa_cerr_data_t cerr_data = {2, 0, "Module", MODULE_FACILITY, 3, rows, {0, 0}};

/* Registers from inside this object, as a library's load hook does. */
cerrno cerr_register_dll(uint32_t facility, const char *dll_name);

__attribute__((visibility("default"))) cerrno module_register(void);

__attribute__((visibility("default"))) cerrno module_register(void) {
    cerrno rc = cerr_register_dll(MODULE_FACILITY, "cerrno/libmodule_error.dll");
    __asm__ volatile("" : "+r"(rc)); /* no tail call: the return address must be here */
    return rc;
}
