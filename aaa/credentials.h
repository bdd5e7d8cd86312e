/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_CREDENTIALS_H
#define AAA_CREDENTIALS_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#include "aaa/accessors.h"
#include "aaa/avpair.h"
#include "aaa/export.h"
#include "aaa/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @file
 * @brief A user's credentials: into a request's list, copied, freed.
 *
 * A client fills a credential record and, for a command or a management
 * operation, a record of service attributes. Both are turned into pairs here.
 * A field that is absent makes no pair and no failure. The same goes for a user
 * name of 254 or more characters, for CHAP data that do not fit the option and
 * for state arguments that cannot be copied: a server must not rely on an
 * attribute to be present.
 *
 * Texts are stored with their NUL.
 */

/**
 * A user's credentials, with the attribute that each field goes to. "Owned"
 * fields come from malloc and are released by aaa_util_free_usercred(), when
 * the record itself came from malloc and is freed that way.
 */
typedef struct aaa_usercred {
    char *username;             /**< owned; 257 */
    char *password;             /**< owned; 258 */
    char *text3;                /**< owned; copied, goes to no attribute */
    char *ttyname;              /**< owned; 20, at most 31 characters */
    char *remote_addr;          /**< owned; 37, at most 255 characters; may be filled by the library */
    uint32_t ifh;               /**< 22 when not 0 */
    uint32_t ipaddr;            /**< 264 when not 0 */
    aaa_chap_data_t *chap_data; /**< owned, with its data and response; 256, 1815, 14 or 15 */
    void *task_table;           /**< owned by a source, borrowed by a copy; aaa_destroy_task_table() */
    uint32_t line_category;     /**< filled by the platform's aaa_util_check_linetype() */
    char line_detail[32];       /**< likewise; traced only */
    char line_detail2[32];      /**< likewise; traced only */
    uint32_t authen_method;     /**< 39 */
    avlist *state_args;         /**< pairs for requests other than accounting; not copied, not freed */
    avlist *attr_list;          /**< owned; further pairs, not added to requests */
    uint32_t is_copy;           /**< 1 in a record made by aaa_util_copy_usercred() */
    avlist *in_attr_list;       /**< pairs for service 26; shared by copies, not freed */
    uint32_t unique_id;         /**< 1072 for service 26 */
    char *tty_mnemonic;         /**< 61, at most 31 characters; shared by copies, not freed */
    uint32_t user_db_flag;      /**< 62 */
} aaa_usercred_t;
static_assert(sizeof(aaa_usercred_t) == 192, "layout of aaa_usercred_t");
static_assert(offsetof(aaa_usercred_t, username) == 0, "layout of aaa_usercred_t");
static_assert(offsetof(aaa_usercred_t, password) == 8, "layout of aaa_usercred_t");
static_assert(offsetof(aaa_usercred_t, text3) == 16, "layout of aaa_usercred_t");
static_assert(offsetof(aaa_usercred_t, ttyname) == 24, "layout of aaa_usercred_t");
static_assert(offsetof(aaa_usercred_t, remote_addr) == 32, "layout of aaa_usercred_t");
static_assert(offsetof(aaa_usercred_t, ifh) == 40, "layout of aaa_usercred_t");
static_assert(offsetof(aaa_usercred_t, ipaddr) == 44, "layout of aaa_usercred_t");
static_assert(offsetof(aaa_usercred_t, chap_data) == 48, "layout of aaa_usercred_t");
static_assert(offsetof(aaa_usercred_t, task_table) == 56, "layout of aaa_usercred_t");
static_assert(offsetof(aaa_usercred_t, line_category) == 64, "layout of aaa_usercred_t");
static_assert(offsetof(aaa_usercred_t, line_detail) == 68, "layout of aaa_usercred_t");
static_assert(offsetof(aaa_usercred_t, line_detail2) == 100, "layout of aaa_usercred_t");
static_assert(offsetof(aaa_usercred_t, authen_method) == 132, "layout of aaa_usercred_t");
static_assert(offsetof(aaa_usercred_t, state_args) == 136, "layout of aaa_usercred_t");
static_assert(offsetof(aaa_usercred_t, attr_list) == 144, "layout of aaa_usercred_t");
static_assert(offsetof(aaa_usercred_t, is_copy) == 152, "layout of aaa_usercred_t");
static_assert(offsetof(aaa_usercred_t, in_attr_list) == 160, "layout of aaa_usercred_t");
static_assert(offsetof(aaa_usercred_t, unique_id) == 168, "layout of aaa_usercred_t");
static_assert(offsetof(aaa_usercred_t, tty_mnemonic) == 176, "layout of aaa_usercred_t");
static_assert(offsetof(aaa_usercred_t, user_db_flag) == 184, "layout of aaa_usercred_t");

/**
 * The service attributes of a request, with the attribute that each goes to.
 * Which fields are read depends on the service: see
 * aaa_util_add_svc_attrs_in_avlist().
 */
typedef struct aaa_svc_attrs {
    char *cmd;               /**< 36; for service 23 an avlist * instead of a text */
    char *app_sessid;        /**< 73; for services 14 to 16 its own 8 bytes are the task map (44) */
    char *rpc_msgid;         /**< 74; for service 30: 73 */
    char *rpc_name;          /**< 75 */
    char *commit_start_time; /**< 70 */
    char *commit_end_time;   /**< 71 */
    char *xpath1;            /**< 76 */
    char *xpath2;            /**< 77 */
    char *xpath3;            /**< 78 */
    char *xpath4;            /**< 79 */
    char *commit_id;         /**< 72 */
} aaa_svc_attrs_t;
static_assert(sizeof(aaa_svc_attrs_t) == 88, "layout of aaa_svc_attrs_t");
static_assert(offsetof(aaa_svc_attrs_t, cmd) == 0, "layout of aaa_svc_attrs_t");
static_assert(offsetof(aaa_svc_attrs_t, app_sessid) == 8, "layout of aaa_svc_attrs_t");
static_assert(offsetof(aaa_svc_attrs_t, rpc_msgid) == 16, "layout of aaa_svc_attrs_t");
static_assert(offsetof(aaa_svc_attrs_t, rpc_name) == 24, "layout of aaa_svc_attrs_t");
static_assert(offsetof(aaa_svc_attrs_t, commit_start_time) == 32, "layout of aaa_svc_attrs_t");
static_assert(offsetof(aaa_svc_attrs_t, commit_end_time) == 40, "layout of aaa_svc_attrs_t");
static_assert(offsetof(aaa_svc_attrs_t, xpath1) == 48, "layout of aaa_svc_attrs_t");
static_assert(offsetof(aaa_svc_attrs_t, xpath2) == 56, "layout of aaa_svc_attrs_t");
static_assert(offsetof(aaa_svc_attrs_t, xpath3) == 64, "layout of aaa_svc_attrs_t");
static_assert(offsetof(aaa_svc_attrs_t, xpath4) == 72, "layout of aaa_svc_attrs_t");
static_assert(offsetof(aaa_svc_attrs_t, commit_id) == 80, "layout of aaa_svc_attrs_t");

/** An authentication request that the library keeps. */
typedef struct aaa_authen_req {
    avlist *attrs; /**< owned, may be null */
} aaa_authen_req_t;
static_assert(sizeof(aaa_authen_req_t) == 8, "layout of aaa_authen_req_t");
static_assert(offsetof(aaa_authen_req_t, attrs) == 0, "layout of aaa_authen_req_t");

/** An authorization request that the library keeps. */
typedef struct aaa_author_req {
    void *field[11]; /**< the maker's own; zero in a copy */
    avlist *attrs;   /**< owned, may be null */
} aaa_author_req_t;
static_assert(sizeof(aaa_author_req_t) == 96, "layout of aaa_author_req_t");
static_assert(offsetof(aaa_author_req_t, field) == 0, "layout of aaa_author_req_t");
static_assert(offsetof(aaa_author_req_t, attrs) == 88, "layout of aaa_author_req_t");

/* ---- Into a list ---- */

/**
 * Adds a user's credentials to a request's list.
 *
 * The pairs, in this order; those whose field is absent are left out:
 *
 * | attribute | field | when |
 * |---|---|---|
 * | 257 | username, up to 253 characters | always |
 * | 39, replaced, flag 0x400 | authen_method | always |
 * | 20 | ttyname, else the terminal on standard input | services 1, 6, 7, 8, 14, 17, 26, 30, 31 |
 * | 61, 62 | as aaa_lib_update_mnemonic_and_flags() adds them | the same services |
 * | 37 | remote_addr, else the platform's answer unless this node is a line card | the same services and 11 |
 * | 22, 264 | ifh, ipaddr | not 0 |
 * | 258, replaced, flag 0x400 | password | not accounting |
 * | 256, 14, 1815, 15 | chap_data | not accounting, service 11, type 5, 7, 9, 10 |
 * | any | pairs of state_args, with their tags, without their flags | not accounting |
 * | any | pairs of in_attr_list, likewise | service 26 |
 * | 1072 | unique_id | service 26 |
 *
 * A remote address that the platform finds is kept in the record. Traces go to
 * the debug flags 8, 1 and 0.
 * @param[in,out] cred     the credentials. remote_addr may be filled, and so may line_category and the line
 *                         details.
 * @param[in,out] list     the request's list; on failure it keeps the pairs added so far
 * @param[in]     service  AAA_SVC_... of aaa/names.h
 * @param[in]     reserved not looked at
 * @param[in]     type     AAA_ACCT_..._OPT (128 to 131) makes it an accounting request; otherwise
 *                         AAA_AO_... with all its bits: an option with anything above its low byte carries
 *                         no CHAP data.
 *
 * Ownership: *Copied in*: everything the record points to. *Handed over*: a remote address found here, to
 * the record.
 * @return
 * - AAA_OK: added
 * - AAA_ERR_INVALID_ARG: cred or list is null
 * - AAA_ERR_NOMEM: no memory. State arguments and pairs of in_attr_list that cannot be copied are traced
 *   only.
 */
AAA_API cerrno aaa_util_add_usercred_in_avlist(aaa_usercred_t *cred, avlist *list, int32_t service,
                                               uint32_t reserved, uint32_t type);

/**
 * Adds the service attributes of a command authorization or of a management request to its list.
 *
 * - Services 14, 15, 16: the command as 36, then the 8 bytes of the second
 *   field itself, the task map, as 44.
 * - Service 23: every pair of the list in the first field replaces the first of
 *   its type.
 * - Service 30: rpc_msgid as 73.
 * - Service 31: the command as 36 and the texts as 73, 74, 75, 76, 77, 78, 79,
 *   72, 70, 71, in this order.
 * - Other services: nothing.
 *
 * Null and empty texts are left out, but services 14 to 16 need a command,
 * which may be empty.
 *
 * **The command is changed in place** when it holds an FTP address with a user
 * and a password: the password becomes one asterisk. So pass writable
 * memory, never a literal. The password ends at the first '@' that follows.
 * @param[in]     service   AAA_SVC_... of aaa/names.h
 * @param[in,out] list      the request's list; on failure it keeps the pairs added so far
 * @param[in,out] svc_attrs the attributes
 *
 * Ownership: *Copied in*: texts and pairs.
 * @return
 * - AAA_OK: added, or nothing to add
 * - AAA_ERR_INVALID_ARG: list or svc_attrs is null; services 14 to 16: so is cmd
 * - AAA_ERR_NOMEM: no memory
 */
AAA_API cerrno aaa_util_add_svc_attrs_in_avlist(int32_t service, avlist *list, aaa_svc_attrs_t *svc_attrs);

/**
 * Adds the terminal mnemonic (61) and the user-database flag (62) to a request's list.
 *
 * Failures to add are not reported. After one to add the mnemonic, other than
 * for a null list, the flag is not added either. Traces go to the debug flags
 * 1 and 8.
 * @param[in,out] cred           the credentials. With not_accounting and a mnemonic, the platform fills in
 *                               line_category and the line details.
 * @param[in,out] list           the request's list; may be null (nothing is added)
 * @param[in]     not_accounting not 0 unless the request is for accounting
 *
 * Ownership: *Copied in*: the mnemonic, up to 31 characters.
 * @return
 * - AAA_OK: done
 * - AAA_ERR_INVALID_ARG: cred is null
 */
AAA_API cerrno aaa_lib_update_mnemonic_and_flags(aaa_usercred_t *cred, avlist *list, uint32_t not_accounting);

/* ---- Copies ---- */

/**
 * Copies a user's credentials.
 *
 * The copy has its own texts, attr_list and, for service 11, CHAP data. It has
 * no state_args. Everything else is the source's value, pointers included: the
 * task table, in_attr_list and the mnemonic are shared, and the source must
 * outlive their use. is_copy is 1.
 * @param[in]  source   the record to copy
 * @param[out] out      the copy. Set as soon as the record is allocated: after a failure it holds a partly
 *                      filled copy, to be freed like a whole one; untouched only if there was not even
 *                      memory for the record.
 * @param[in]  service  AAA_SVC_... of aaa/names.h; CHAP data are copied for 11 only
 * @param[in]  suppress not 0 to leave the CHAP data out
 * @param[in]  type     AAA_AO_...: 5 and 9 copy data and response, 7 and 10 the data; for any other option
 *                      a copy of a source with CHAP data has a zeroed CHAP record
 *
 * Ownership: *Caller frees* the copy with aaa_util_free_usercred(), same service and type, also after
 * a failure.
 * @return
 * - AAA_OK: copied
 * - AAA_ERR_INVALID_ARG: source or out is null, or CHAP data have a length and no bytes
 * - AAA_ERR_NOMEM: no memory
 */
AAA_API cerrno aaa_util_copy_usercred(const aaa_usercred_t *source, aaa_usercred_t **out, int32_t service,
                                      uint32_t suppress, uint32_t type);

/**
 * Frees a user's credentials and what they own.
 *
 * The password is overwritten first, and so are the CHAP data of a copy. CHAP
 * data of a record that the caller made are freed without being overwritten:
 * their lengths may be wrong.
 *
 * The task table goes with its source: it is destroyed unless is_copy is 1. So
 * free the copies of a record first, or no longer use their task table.
 * @param[in] record  a copy, or a record whose owned fields and which itself came from malloc
 * @param[in] service as given to the copy: CHAP data are freed for 11 only
 * @param[in] type    as given to the copy: 5 and 9 free data and response, 7 and 10 the data
 *
 * Ownership: *Handed over* to the library, which frees the record.
 * @return
 * - AAA_OK: freed
 * - AAA_ERR_INVALID_ARG: record is null
 */
AAA_API cerrno aaa_util_free_usercred(aaa_usercred_t *record, int32_t service, uint32_t type);

/**
 * Copies an authentication request with its list.
 * @param[in]  source the request; its list may be null
 * @param[out] out    the copy; untouched on failure
 *
 * Ownership: *Caller frees* the copy with aaa_util_free_authen_req().
 * @return
 * - AAA_OK: copied
 * - AAA_ERR_INVALID_ARG: source or out is null
 * - AAA_ERR_NOMEM: no memory
 */
AAA_API cerrno aaa_util_copy_authen_req(const aaa_authen_req_t *source, aaa_authen_req_t **out);

/**
 * Frees an authentication request and its list.
 * @param[in] record may be null (nothing happens)
 *
 * Ownership: *Handed over* to the library, which frees the record.
 */
AAA_API void aaa_util_free_authen_req(aaa_authen_req_t *record);

/**
 * Copies the list of an authorization request; the eleven other fields of the copy are zero.
 * @param[in]  source the request; its list may be null
 * @param[out] out    the copy; untouched on failure
 *
 * Ownership: *Caller frees* the copy with aaa_util_free_author_req().
 * @return
 * - AAA_OK: copied
 * - AAA_ERR_NOMEM: no memory; and, unlike everywhere else, source or out is null
 */
AAA_API cerrno aaa_util_copy_author_req(const aaa_author_req_t *source, aaa_author_req_t **out);

/**
 * Frees an authorization request and its list; the eleven other fields are the maker's.
 * @param[in] record may be null (nothing happens)
 *
 * Ownership: *Handed over* to the library, which frees the record.
 */
AAA_API void aaa_util_free_author_req(aaa_author_req_t *record);

#ifdef __cplusplus
}
#endif

#endif /* AAA_CREDENTIALS_H */
