// SPDX-License-Identifier: Apache-2.0
//
// The result-code table and its registration record, and the records of the
// message catalog. Constant data: the platform's services may read it before
// any static constructor has run.

#include "aaa/result_codes.h"

#include <iterator>

namespace {

constexpr aaa_err_row_t kTexts[] = {
#define AAA_RESULT_CODE(index, name, text) {index, 0, text},
#include "aaa/result_codes.def"
};
static_assert(std::size(kTexts) == AAA_ERR_TABLE_ROWS);

// Each row is at its index, and each name of the header is the code of its row,
// except success: it is 0, not the code of row 0.
#define AAA_RESULT_CODE(row, name, text) \
    static_assert(kTexts[row].index == (row) && (name) == ((row) == 0 ? 0 : AAA_ERR_CODE(row)));
#include "aaa/result_codes.def"

constexpr uint32_t kMessageFacility = 0x48d;  // one above the result codes' facility

constexpr kel_msg_rec_t make_record(const char *mnemonic, uint32_t severity, uint32_t number,
                                    const char *format, kel_msg_limit_t *limit = nullptr) {
    return {
        .zero0 = 0,
        .format = format,
        .limit = limit,
        .facility = "AAA",
        .category = "SECURITY",
        .mnemonic = mnemonic,
        .severity = severity << 16,
        .zero52 = {},
        .msg_id = kMessageFacility << 16 | number,
        .zero68 = 0,
    };
}

constexpr uint32_t kLimitPeriod = 60;

}  // namespace

constinit const aaa_cerr_data_t cerr_data = {
    .version = 2,
    .zero4 = 0,
    .name = "AAA API",
    .facility = AAA_FACILITY,
    .rows = AAA_ERR_TABLE_ROWS,
    .table = kTexts,
    .zero32 = {},
};

constinit kel_msg_limit_t kel_msg_limit_aaa_err_server_group = {kLimitPeriod, {}};
constinit kel_msg_limit_t kel_msg_limit_aaa_err_sysdb = {kLimitPeriod, {}};

// The numbers 2 to 6 are not used, and two of the ERR_ messages have the
// severity of debugging: both are kept, filters of operators depend on it.
constinit const kel_msg_rec_t kel_msg_rec_aaa_debug_error = make_record("DEBUG_ERROR", 3, 1, "%s: %s");
constinit const kel_msg_rec_t kel_msg_rec_aaa_dllmain_error =
    make_record("DLLMAIN_ERROR", 3, 7, "Error encountered while initializing DLL for %s: %s");
constinit const kel_msg_rec_t kel_msg_rec_aaa_err_ecm =
    make_record("ERR_ECM", 7, 8, "Failed to open event connection for a %s: %s, retrying");
constinit const kel_msg_rec_t kel_msg_rec_aaa_err_server_group =
    make_record("ERR_SERVER_GROUP", 3, 9, "%s", &kel_msg_limit_aaa_err_server_group);
constinit const kel_msg_rec_t kel_msg_rec_aaa_err_sysdb =
    make_record("ERR_SYSDB", 7, 10, "%s path %s: %s", &kel_msg_limit_aaa_err_sysdb);
constinit const kel_msg_rec_t kel_msg_rec_aaa_invalid_debug_flag =
    make_record("INVALID_DEBUG_FLAG", 3, 11, "The AAA debug flag %d does not exist");
constinit const kel_msg_rec_t kel_msg_rec_aaa_lib_util_error_no_mem =
    make_record("LIB_UTIL_ERROR_NO_MEM", 3, 12, "Not enough memory available while %s");
constinit const kel_msg_rec_t kel_msg_rec_aaa_whitespace_truncated_in_server_key =
    make_record("WHITESPACE_TRUNCATED_IN_SERVER_KEY", 4, 13,
                "WARNING: The server key contained trailing whitespace and was truncated");

extern "C" {

const kel_msg_rec_t *kel_msg_rec_aaa_debug_error_getfn(void) {
    return &kel_msg_rec_aaa_debug_error;
}

const kel_msg_rec_t *kel_msg_rec_aaa_dllmain_error_getfn(void) {
    return &kel_msg_rec_aaa_dllmain_error;
}

const kel_msg_rec_t *kel_msg_rec_aaa_err_ecm_getfn(void) {
    return &kel_msg_rec_aaa_err_ecm;
}

kel_msg_limit_t *kel_msg_limit_aaa_err_server_group_getfn(void) {
    return &kel_msg_limit_aaa_err_server_group;
}

const kel_msg_rec_t *kel_msg_rec_aaa_err_server_group_getfn(void) {
    return &kel_msg_rec_aaa_err_server_group;
}

kel_msg_limit_t *kel_msg_limit_aaa_err_sysdb_getfn(void) {
    return &kel_msg_limit_aaa_err_sysdb;
}

const kel_msg_rec_t *kel_msg_rec_aaa_err_sysdb_getfn(void) {
    return &kel_msg_rec_aaa_err_sysdb;
}

const kel_msg_rec_t *kel_msg_rec_aaa_invalid_debug_flag_getfn(void) {
    return &kel_msg_rec_aaa_invalid_debug_flag;
}

const kel_msg_rec_t *kel_msg_rec_aaa_lib_util_error_no_mem_getfn(void) {
    return &kel_msg_rec_aaa_lib_util_error_no_mem;
}

const kel_msg_rec_t *kel_msg_rec_aaa_whitespace_truncated_in_server_key_getfn(void) {
    return &kel_msg_rec_aaa_whitespace_truncated_in_server_key;
}

}  // extern "C"
