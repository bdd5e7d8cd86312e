/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_RESULT_CODES_H
#define AAA_RESULT_CODES_H

#include <assert.h>
#include <stddef.h>

#include "aaa/export.h"
#include "aaa/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @file
 * @brief Result codes, and the records of the message catalog.
 *
 * A result code of this library is built from
 *
 * | bits     | meaning                                              |
 * |----------|------------------------------------------------------|
 * | 31 to 30 | severity class: binary 10 an error, 00 a status      |
 * | 29       | 1                                                    |
 * | 28 to 15 | facility, AAA_FACILITY                               |
 * | 14 to 9  | index into the table of texts                        |
 * | 8 to 0   | 0                                                    |
 *
 * The text of any code, of this library or of a platform service, comes from
 * the platform's cerr_strerror(). The platform finds this library's texts
 * through cerr_data, which is registered when the library is loaded. The table
 * is also available, with names, in aaa/result_codes.def.
 *
 * Texts, numbers and severities are what operators see and filter by. They stay
 * as they are, odd wording included.
 */

/* ---- Result codes ---- */

/** Result of every operation that succeeds. The code of table row 0, 0xa2460000, is never returned. */
#define AAA_OK 0u
/** The error code of an index. */
#define AAA_ERR_CODE(index)           (0xa2460000u | (UINT32_C(1) * (index) << 9))
#define AAA_ERR_NOMEM                 0xa2460200u /**<  1 "Not enough memory" */
#define AAA_ERR_INVALID_ARG           0xa2460400u /**<  2 "Invalid argument passed to the function" */
#define AAA_ERR_INVALID_TYPE          0xa2460600u /**<  3 "Invalid type encountered" */
#define AAA_ERR_INVALID_PRIV          0xa2460800u /**<  4 "Invalid privilege number encountered" */
#define AAA_ERR_AVPAIR_PROCESSING     0xa2460a00u /**<  5 "Error in processing A/V pair" */
#define AAA_ERR_NO_METHODS_SPECIFIED  0xa2460c00u /**<  6 "No methods specified" */
#define AAA_ERR_NO_METHODS_AVAILABLE  0xa2460e00u /**<  7 "No methods available" */
#define AAA_ERR_SERVER_CONNECT_FAILED 0xa2461000u /**<  8 "Connection to the server failed" */
#define AAA_ERR_NO_DESTINATION        0xa2461200u /**<  9 "No destination is specified" */
#define AAA_ERR_CANNOT_REDIRECT       0xa2461400u /**< 10 "Cannot redirect" */
#define AAA_ERR_AUTHOR_FAILED         0xa2461600u /**< 11 "Authorization failed" */
#define AAA_ERR_NO_CHANNELS           0xa2461800u /**< 12 "No channels available" */
#define AAA_ERR_INVALID_LINE_TYPE     0xa2461a00u /**< 13 "Line type is invalid" */
#define AAA_ERR_NOT_FOUND             0xa2461c00u /**< 14 "Requested entity was not found" */
#define AAA_ERR_ACCT_SERVICE          0xa2461e00u /**< 15 "Accounting service error" */
#define AAA_ERR_ACCT_NOT_DEFINED      0xa2462000u /**< 16 "Accounting not defined" */
#define AAA_ERR_INIT_FAILED           0xa2462200u /**< 17 "Failure to initialize" */
#define AAA_ERR_INTERRUPTED           0xa2462400u /**< 18 "The operation was interrupted" */
#define AAA_ERR_RECEIVE_RESPONSE      0xa2462600u /**< 19 "Error encountered while receiving response" */
#define AAA_ERR_INVALID_MSG_TYPE      0xa2462800u /**< 20 "Type of the message encountered is invalid" */
#define AAA_ERR_INTERNAL              0xa2462a00u /**< 21 "Internal ERROR to be REMOVED !!!" */
#define AAA_ERR_NO_ACCT_STATE \
    0xa2462c00u /**< 22 "No accounting state information present for this operation" */
#define AAA_ERR_INVALID_MSG_SIZE 0xa2462e00u /**< 23 "Size of the message received is invalid" */
#define AAA_ERR_NOT_SUPPORTED    0xa2463000u /**< 24 "Requested operation is not supported" */
#define AAA_ERR_BUFFER_TOO_SMALL 0xa2463200u /**< 25 "The buffer supplied was too small" */
#define AAA_ERR_NOT_CONNECTED    0xa2463400u /**< 26 "Connection to the AAA server is not yet made" */
#define AAA_ERR_UNEXPECTED_REPLY \
    0xa2463600u                  /**< 27 "Client library received unexpected reply code from server" */
#define AAA_ERR_LOCK 0xa2463800u /**< 28 "Error obtaining or releasing a lock" */
#define AAA_ERR_NOT_EMPTY \
    0xa2463a00u /**< 29 "An attempt was made to shut down a structure that was not empty" */
#define AAA_ERR_UNSUPPORTED_VERSION \
    0xa2463c00u /**< 30 "AAA server returned an unsupported version of protocol" */
#define AAA_ERR_OS                  0xa2463e00u /**< 31 "An OS or utility function returned an error" */
#define AAA_ERR_LWM_SEND            0xa2464000u /**< 32 "Unable to send a LWM message" */
#define AAA_ERR_UNKNOWN_TASKID      0xa2464200u /**< 33 "Task ID specified was not recognized" */
#define AAA_ERR_TIMEOUT             0xa2464400u /**< 34 "Requested operation timed out" */
#define AAA_ERR_INVALID_AVPAIR      0xa2464600u /**< 35 "An invalid AV pair was encountered" */
#define AAA_ERR_AVPAIR_NOT_FOUND    0xa2464800u /**< 36 "Requested AV pair was not found" */
#define AAA_ERR_AUTHEN_FAILED       0xa2464a00u /**< 37 "Authentication failed" */
#define AAA_ERR_INVALID_CLIENT_DATA 0xa2464c00u /**< 38 "Invalid data supplied by client" */
#define AAA_ERR_NOT_CONFIGURED      0xa2464e00u /**< 39 "Requested function is not configured" */
#define AAA_ERR_RESERVED_TASKID \
    0xa2465000u /**< 40 "TaskID specified is a reserved one and cannot be used as requested" */
#define AAA_ERR_LOCALD_TIMEOUT 0xa2465200u /**< 41 "Sending message to locald timedout" */
#define AAA_ERR_INVALID_METHOD 0xa2465400u /**< 42 "Invalid method is specified" */
#define AAA_ERR_SG_IN_USE      0xa2465600u /**< 43 "Server group is in use and cannot be deleted" */
#define AAA_ERR_SG_MAPPING \
    0xa2465800u /**< 44 "An error occurred while mapping between server groupnames and number" */
#define AAA_ERR_INDEX_IN_USE 0xa2465a00u /**< 45 "Host or server group index is in use already" */
#define AAA_ERR_SG_NAME_OTHER_PROTOCOL \
    0xa2465c00u /**< 46 "Server group name is already used for a different protocol" */
#define AAA_ERR_FAILOVER    0xa2465e00u /**< 47 "A AAA server failover has been indicated" */
#define AAA_ERR_END_OF_LIST 0xa2466000u /**< 48 "Reached end of AVPair list" */

/** Rows of the table of texts. */
#define AAA_ERR_TABLE_ROWS 49
/** Facility of the result codes, 1164. The message catalog uses the next one, 0x48d. */
#define AAA_FACILITY 0x48cu

/** Result of the list iterators at the end of a list: index 48 with severity class 00, a normal status. */
#define AAA_STATUS_END_OF_LIST 0x22466000u
/**
 * Result of validate_encrypted_password() for every malformed key: index 52, for which no text is
 * registered.
 */
#define AAA_ERR_BAD_ENCRYPTED_KEY 0xa2466800u

/* Codes of other facilities that the library produces, tests or passes on */
#define SYSDB_ERR_NOT_FOUND     0x40818600u /**< no such item; handed to callers unchanged */
#define SYSDB_ERR_LIB_ABSENT    0x8081c200u /**< the system database's library is not installed */
#define SYSDB_ERR_NOTIFY_ABSENT 0x40818800u /**< the same, found while registering a notification */
#define EVENT_CONN_RETRY        0x21200e00u /**< not connected now, the event manager goes on trying */
#define LINE_NO_CONTROLLING_TTY 0x22570e00u /**< find_method_for_line() without a terminal */

/* ---- Records that the platform's services read ---- */

/** Row of the table of texts. */
typedef struct aaa_err_row {
    uint32_t index;   /**< 0 to 48, the row's own */
    uint32_t zero;    /**< rest of the 8-byte slot */
    const char *text; /**< the message */
} aaa_err_row_t;
static_assert(sizeof(aaa_err_row_t) == 16, "layout of aaa_err_row_t");
static_assert(offsetof(aaa_err_row_t, index) == 0, "layout of aaa_err_row_t");
static_assert(offsetof(aaa_err_row_t, zero) == 4, "layout of aaa_err_row_t");
static_assert(offsetof(aaa_err_row_t, text) == 8, "layout of aaa_err_row_t");

/** Registration record of the result codes. */
typedef struct aaa_cerr_data {
    uint32_t version;           /**< of the layout, 2 */
    uint32_t zero4;             /**< 0 */
    const char *name;           /**< display name, "AAA API" */
    uint32_t facility;          /**< AAA_FACILITY */
    uint32_t rows;              /**< AAA_ERR_TABLE_ROWS */
    const aaa_err_row_t *table; /**< the rows */
    uint64_t zero32[2];         /**< the service's, zero here */
} aaa_cerr_data_t;
static_assert(sizeof(aaa_cerr_data_t) == 48, "layout of aaa_cerr_data_t");
static_assert(offsetof(aaa_cerr_data_t, version) == 0, "layout of aaa_cerr_data_t");
static_assert(offsetof(aaa_cerr_data_t, zero4) == 4, "layout of aaa_cerr_data_t");
static_assert(offsetof(aaa_cerr_data_t, name) == 8, "layout of aaa_cerr_data_t");
static_assert(offsetof(aaa_cerr_data_t, facility) == 16, "layout of aaa_cerr_data_t");
static_assert(offsetof(aaa_cerr_data_t, rows) == 20, "layout of aaa_cerr_data_t");
static_assert(offsetof(aaa_cerr_data_t, table) == 24, "layout of aaa_cerr_data_t");
static_assert(offsetof(aaa_cerr_data_t, zero32) == 32, "layout of aaa_cerr_data_t");

/** Rate limit of a catalog message; the logging facility keeps its state in it. */
typedef struct kel_msg_limit {
    uint32_t period;   /**< 60, in the facility's unit */
    uint8_t state[28]; /**< zero at first, then the logging facility's */
} kel_msg_limit_t;
static_assert(sizeof(kel_msg_limit_t) == 32, "layout of kel_msg_limit_t");
static_assert(offsetof(kel_msg_limit_t, period) == 0, "layout of kel_msg_limit_t");
static_assert(offsetof(kel_msg_limit_t, state) == 4, "layout of kel_msg_limit_t");

/** Record of a catalog message. */
typedef struct kel_msg_rec {
    uint64_t zero0;         /**< 0 */
    const char *format;     /**< of kel_errmsg()'s arguments */
    kel_msg_limit_t *limit; /**< or null */
    const char *facility;   /**< "AAA" */
    const char *category;   /**< "SECURITY" */
    const char *mnemonic;   /**< short name of the message */
    uint32_t severity;      /**< in bits 16 to 23: 3 error, 4 warning, 7 debug */
    uint8_t zero52[12];     /**< 0 */
    uint32_t msg_id;        /**< 0x048d0000 | message number */
    uint32_t zero68;        /**< 0 */
} kel_msg_rec_t;
static_assert(sizeof(kel_msg_rec_t) == 72, "layout of kel_msg_rec_t");
static_assert(offsetof(kel_msg_rec_t, zero0) == 0, "layout of kel_msg_rec_t");
static_assert(offsetof(kel_msg_rec_t, format) == 8, "layout of kel_msg_rec_t");
static_assert(offsetof(kel_msg_rec_t, limit) == 16, "layout of kel_msg_rec_t");
static_assert(offsetof(kel_msg_rec_t, facility) == 24, "layout of kel_msg_rec_t");
static_assert(offsetof(kel_msg_rec_t, category) == 32, "layout of kel_msg_rec_t");
static_assert(offsetof(kel_msg_rec_t, mnemonic) == 40, "layout of kel_msg_rec_t");
static_assert(offsetof(kel_msg_rec_t, severity) == 48, "layout of kel_msg_rec_t");
static_assert(offsetof(kel_msg_rec_t, zero52) == 52, "layout of kel_msg_rec_t");
static_assert(offsetof(kel_msg_rec_t, msg_id) == 64, "layout of kel_msg_rec_t");
static_assert(offsetof(kel_msg_rec_t, zero68) == 68, "layout of kel_msg_rec_t");

/** Registration record of the result codes; read-only. */
AAA_API extern const aaa_cerr_data_t cerr_data;

/** Message 1, error: "%s: %s", an action and the text of a code. */
AAA_API extern const kel_msg_rec_t kel_msg_rec_aaa_debug_error;
/** Message 7, error: a step of loading the library failed. */
AAA_API extern const kel_msg_rec_t kel_msg_rec_aaa_dllmain_error;
/** Message 8, debug in spite of its mnemonic: an event connection could not be opened and is tried again. */
AAA_API extern const kel_msg_rec_t kel_msg_rec_aaa_err_ecm;
/** Message 9, error, rate-limited: a fault in the mapping of server groups. */
AAA_API extern const kel_msg_rec_t kel_msg_rec_aaa_err_server_group;
/**
 * Message 10, debug in spite of its mnemonic, rate-limited: the system database failed; action, path, text
 * of the code.
 */
AAA_API extern const kel_msg_rec_t kel_msg_rec_aaa_err_sysdb;
/** Message 11, error: for the debug tracing component; the library does not raise it. */
AAA_API extern const kel_msg_rec_t kel_msg_rec_aaa_invalid_debug_flag;
/** Message 12, error: memory ran out while a server key was handled. */
AAA_API extern const kel_msg_rec_t kel_msg_rec_aaa_lib_util_error_no_mem;
/** Message 13, warning: a server key was cut at its trailing white space. */
AAA_API extern const kel_msg_rec_t kel_msg_rec_aaa_whitespace_truncated_in_server_key;
/** Rate limit of message 9; written by the logging facility. */
AAA_API extern kel_msg_limit_t kel_msg_limit_aaa_err_server_group;
/** Rate limit of message 10; written by the logging facility. */
AAA_API extern kel_msg_limit_t kel_msg_limit_aaa_err_sysdb;

/**
 * @name Accessors of the catalog records
 *
 * Each gives the address of the record that it is named after. This is how a
 * record is reached from another shared object without a copy of it.
 *
 * Ownership: *Borrowed* until the library is unloaded.
 * @{
 */
/**
 * Gives the address of kel_msg_rec_aaa_debug_error.
 * @return the address, never null
 */
AAA_API const kel_msg_rec_t *kel_msg_rec_aaa_debug_error_getfn(void);
/**
 * Gives the address of kel_msg_rec_aaa_dllmain_error.
 * @return the address, never null
 */
AAA_API const kel_msg_rec_t *kel_msg_rec_aaa_dllmain_error_getfn(void);
/**
 * Gives the address of kel_msg_rec_aaa_err_ecm.
 * @return the address, never null
 */
AAA_API const kel_msg_rec_t *kel_msg_rec_aaa_err_ecm_getfn(void);
/**
 * Gives the address of kel_msg_limit_aaa_err_server_group.
 * @return the address, never null
 */
AAA_API kel_msg_limit_t *kel_msg_limit_aaa_err_server_group_getfn(void);
/**
 * Gives the address of kel_msg_rec_aaa_err_server_group.
 * @return the address, never null
 */
AAA_API const kel_msg_rec_t *kel_msg_rec_aaa_err_server_group_getfn(void);
/**
 * Gives the address of kel_msg_limit_aaa_err_sysdb.
 * @return the address, never null
 */
AAA_API kel_msg_limit_t *kel_msg_limit_aaa_err_sysdb_getfn(void);
/**
 * Gives the address of kel_msg_rec_aaa_err_sysdb.
 * @return the address, never null
 */
AAA_API const kel_msg_rec_t *kel_msg_rec_aaa_err_sysdb_getfn(void);
/**
 * Gives the address of kel_msg_rec_aaa_invalid_debug_flag.
 * @return the address, never null
 */
AAA_API const kel_msg_rec_t *kel_msg_rec_aaa_invalid_debug_flag_getfn(void);
/**
 * Gives the address of kel_msg_rec_aaa_lib_util_error_no_mem.
 * @return the address, never null
 */
AAA_API const kel_msg_rec_t *kel_msg_rec_aaa_lib_util_error_no_mem_getfn(void);
/**
 * Gives the address of kel_msg_rec_aaa_whitespace_truncated_in_server_key.
 * @return the address, never null
 */
AAA_API const kel_msg_rec_t *kel_msg_rec_aaa_whitespace_truncated_in_server_key_getfn(void);
/** @} */

#ifdef __cplusplus
}
#endif

#endif /* AAA_RESULT_CODES_H */
