/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_ACCESSORS_H
#define AAA_ACCESSORS_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#include "aaa/avpair.h"
#include "aaa/dictionary.h"
#include "aaa/export.h"
#include "aaa/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @file
 * @brief Typed accessors: one well-known attribute of a list each.
 *
 * An accessor knows the attribute's number, its flags and the form of its
 * value, so that callers never write them down. What holds for all of them:
 *
 * - **Appending and replacing.** Functions that *append* make one more pair
 *   with each call. Functions that *replace* change the first pair of the type,
 *   or append one where there is none. A replaced pair keeps its place only
 *   when its length stays the same; otherwise it moves to the end of the list
 *   and keeps the low 8 bits of its flags (aaa_avpair_update()). The name
 *   does not tell which: many functions called "add" replace.
 * - **Flags and tag** of the pair are 0 unless said otherwise.
 * - **Values are copied in.** Nothing keeps a reference to the caller's memory.
 * - **Codes of functions that store.** AAA_OK; AAA_ERR_INVALID_ARG for a null
 *   pointer or a length out of range, the list being untouched; AAA_ERR_NOMEM
 *   when memory is exhausted, which in a replacement by a value of another
 *   length may cost the old pair. Only other codes are listed below.
 * - **Pointers handed out** are *Borrowed*: they point into the list and are
 *   valid until a pair of the list is deleted or changes its length. A null
 *   list reads as one without the attribute.
 * - **Texts** handed out end in a NUL only if the pair was stored with one. A
 *   text from another process may not be, and then the address alone does not
 *   tell where it ends: ask aaa_avpair_find_type() for the length.
 * - **Integers** are read from at most the bytes that are stored; bytes that a
 *   short value lacks count as zero.
 * - Getters read the first pair of the type unless they take an instance.
 * - **Traces** go to debug flag 8. Argument errors that an accessor finds
 *   itself are not traced.
 */

/**
 * One CHAP or MS-CHAP exchange. Stored as id, response, data without padding
 * (inbound) or id, data (outbound).
 */
typedef struct aaa_chap_data {
    uint8_t id;            /**< CHAP identifier */
    uint8_t *data;         /**< inbound: the challenge; outbound: everything after the id */
    uint32_t data_len;     /**< bytes */
    uint8_t *response;     /**< inbound only */
    uint32_t response_len; /**< bytes; 16 for CHAP, 49 for MS-CHAP */
} aaa_chap_data_t;
static_assert(sizeof(aaa_chap_data_t) == 40, "layout of aaa_chap_data_t");
static_assert(offsetof(aaa_chap_data_t, id) == 0, "layout of aaa_chap_data_t");
static_assert(offsetof(aaa_chap_data_t, data) == 8, "layout of aaa_chap_data_t");
static_assert(offsetof(aaa_chap_data_t, data_len) == 16, "layout of aaa_chap_data_t");
static_assert(offsetof(aaa_chap_data_t, response) == 24, "layout of aaa_chap_data_t");
static_assert(offsetof(aaa_chap_data_t, response_len) == 32, "layout of aaa_chap_data_t");

#define AAA_RSA_NAME_LEN      128
#define AAA_RSA_TRUSTPOINTS   10
#define AAA_RSA_OPENSSH_TPS   256
#define AAA_RSA_HIBA_ROLE_LEN 450

/**
 * The parameters of a public-key login, with the attribute that each field
 * goes to. Names are stored at their full 128 bytes. The record is large
 * (34 KB): mind small stacks.
 */
typedef struct aaa_rsa_params {
    char *username;                                               /**< 257, filled by the getter only */
    uint8_t *signature;                                           /**< 56 */
    uint32_t signature_len;                                       /**< bytes */
    uint8_t *indata;                                              /**< 57 */
    uint32_t indata_len;                                          /**< bytes */
    uint8_t *session_id;                                          /**< 59 */
    uint32_t session_id_len;                                      /**< bytes */
    uint32_t pubkey_type;                                         /**< 65 */
    char trustpoint_names[AAA_RSA_TRUSTPOINTS][AAA_RSA_NAME_LEN]; /**< 66 */
    uint32_t trustpoint_count;                                    /**< names used */
    uint32_t username_fields;                                     /**< 67 */
    char openssh_trustpoint_names[AAA_RSA_OPENSSH_TPS][AAA_RSA_NAME_LEN]; /**< 80 */
    uint32_t openssh_trustpoint_count;                                    /**< names used */
    char openssh_host_trustpoint_name[AAA_RSA_NAME_LEN];                  /**< 85 */
    char hiba_authorization_role[AAA_RSA_HIBA_ROLE_LEN];                  /**< 86 */
    char sign_algname[AAA_RSA_NAME_LEN];                                  /**< 88 */
    uint8_t hiba_authorization_enable;                                    /**< 89 */
} aaa_rsa_params_t;
static_assert(sizeof(aaa_rsa_params_t) == 34824, "layout of aaa_rsa_params_t");
static_assert(offsetof(aaa_rsa_params_t, username) == 0, "layout of aaa_rsa_params_t");
static_assert(offsetof(aaa_rsa_params_t, signature) == 8, "layout of aaa_rsa_params_t");
static_assert(offsetof(aaa_rsa_params_t, signature_len) == 16, "layout of aaa_rsa_params_t");
static_assert(offsetof(aaa_rsa_params_t, indata) == 24, "layout of aaa_rsa_params_t");
static_assert(offsetof(aaa_rsa_params_t, indata_len) == 32, "layout of aaa_rsa_params_t");
static_assert(offsetof(aaa_rsa_params_t, session_id) == 40, "layout of aaa_rsa_params_t");
static_assert(offsetof(aaa_rsa_params_t, session_id_len) == 48, "layout of aaa_rsa_params_t");
static_assert(offsetof(aaa_rsa_params_t, pubkey_type) == 52, "layout of aaa_rsa_params_t");
static_assert(offsetof(aaa_rsa_params_t, trustpoint_names) == 56, "layout of aaa_rsa_params_t");
static_assert(offsetof(aaa_rsa_params_t, trustpoint_count) == 1336, "layout of aaa_rsa_params_t");
static_assert(offsetof(aaa_rsa_params_t, username_fields) == 1340, "layout of aaa_rsa_params_t");
static_assert(offsetof(aaa_rsa_params_t, openssh_trustpoint_names) == 1344, "layout of aaa_rsa_params_t");
static_assert(offsetof(aaa_rsa_params_t, openssh_trustpoint_count) == 34112, "layout of aaa_rsa_params_t");
static_assert(offsetof(aaa_rsa_params_t, openssh_host_trustpoint_name) == 34116,
              "layout of aaa_rsa_params_t");
static_assert(offsetof(aaa_rsa_params_t, hiba_authorization_role) == 34244, "layout of aaa_rsa_params_t");
static_assert(offsetof(aaa_rsa_params_t, sign_algname) == 34694, "layout of aaa_rsa_params_t");
static_assert(offsetof(aaa_rsa_params_t, hiba_authorization_enable) == 34822, "layout of aaa_rsa_params_t");

/* ---- Any attribute ---- */

/**
 * Appends a pair of any type with flags 0.
 * @param[in,out] list   list to append to
 * @param[in]     type   attribute type; AAA_ATTR_MAX stops the process
 * @param[in]     value  value bytes, integers in host order; not null even when length is 0
 * @param[in]     length number of value bytes
 * @param[in]     tag    tag of the pair
 *
 * Ownership: *Copied in*: the value.
 * @return
 * - AAA_OK: appended
 * - AAA_ERR_INVALID_ARG: list or value is null
 * - AAA_ERR_NOMEM: no memory
 */
AAA_API cerrno aaa_util_avpair_add_attr(avlist *list, uint32_t type, const void *value, uint32_t length,
                                        uint32_t tag);

/**
 * Appends a pair as aaa_util_avpair_add_attr() does, with flags of the caller's.
 * @param[in,out] list   list to append to
 * @param[in]     type   attribute type; AAA_ATTR_MAX stops the process
 * @param[in]     value  value bytes; not null even when length is 0
 * @param[in]     length number of value bytes
 * @param[in]     tag    tag of the pair
 * @param[in]     flags  flag bits of the pair
 *
 * Ownership: *Copied in*: the value.
 * @return as aaa_util_avpair_add_attr()
 */
AAA_API cerrno aaa_util_avpair_add_attr_onep(avlist *list, uint32_t type, const void *value, uint32_t length,
                                             uint32_t tag, avpair_flags_t flags);

/**
 * Replaces a pair of any type: aaa_avpair_update() with length before tag in the argument list.
 * @param[in]     type     attribute type
 * @param[in]     flags    flag bits of the pair
 * @param[in]     value    value bytes; a null with a length other than 0 stops the process
 * @param[in]     length   number of value bytes
 * @param[in]     tag      tag of the pair
 * @param[in]     instance how many live pairs of the type to pass over. Where there are not that many, a
 *                         pair is appended.
 * @param[in,out] list     the list
 *
 * Ownership: *Copied in*: the value.
 * @return as aaa_avpair_update()
 */
AAA_API cerrno aaa_util_avpair_update(uint32_t type, avpair_flags_t flags, void *value, uint32_t length,
                                      uint32_t tag, uint32_t instance, avlist *list);

/* ---- Storing ---- */

/**
 * Appends a user name (257).
 *
 * A name of more than 253 characters and its NUL does not fit and is refused;
 * the functions that compose a request from a credential record then leave the
 * name out without a report. A server must take a request without a user name as one that
 * fails.
 * @param[in]     value  the name
 * @param[in]     length bytes to store, 1 to 254; count the NUL in, so that readers find it
 * @param[in,out] list   list to append to
 *
 * Ownership: *Copied in*: the name.
 * @return
 * - AAA_ERR_INVALID_ARG: value or list is null, or length is below 1 or above 254
 */
AAA_API cerrno aaa_util_avlist_username_add(const char *value, int32_t length, avlist *list);

/**
 * Replaces the password (258); the pair gets the flag 0x400.
 *
 * The list holds it in clear text until it is freed.
 * @param[in]     value  the password
 * @param[in]     length bytes to store; count the NUL in, so that readers find it
 * @param[in,out] list   the list
 *
 * Ownership: *Copied in*: the password.
 * @return
 * - AAA_ERR_INVALID_ARG: value or list is null
 */
AAA_API cerrno aaa_util_avlist_password_add(const char *value, uint32_t length, avlist *list);

/**
 * Replaces the status (2) by a value of a length of the caller's.
 *
 * The length is deliberately the caller's: bytes that follow the four of the status
 * are zero, and a shorter length stores that many of the four.
 * @param[in]     status AAA_STAT_... of aaa/names.h
 * @param[in]     length bytes to store, usually 4
 * @param[in,out] list   the list
 * @return
 * - AAA_ERR_INVALID_ARG: list is null
 */
AAA_API cerrno aaa_util_avlist_status_add(uint32_t status, uint32_t length, avlist *list);

/**
 * Replaces the prompt (21) by a text with its NUL.
 * @param[in]     flags  flag bits of the pair, of which the low 8 count
 * @param[in]     prompt the text
 * @param[in,out] list   the list
 *
 * Ownership: *Copied in*: the text.
 * @return
 * - AAA_ERR_INVALID_ARG: prompt or list is null
 */
AAA_API cerrno aaa_util_avlist_prompt_add(uint32_t flags, const char *prompt, avlist *list);

/**
 * Replaces the CHAP response (16).
 * @param[in]     value  the response
 * @param[in]     length bytes to store, of which the low 16 bits count: 65536 stores nothing
 * @param[in,out] list   the list
 *
 * Ownership: *Copied in*: the response.
 * @return
 * - AAA_ERR_INVALID_ARG: value or list is null
 */
AAA_API cerrno aaa_util_avlist_chap_response_add(const void *value, uint32_t length, avlist *list);

/**
 * Appends inbound CHAP data (256): id, response, challenge.
 *
 * The lengths of the record are taken as they are; readers want a response of
 * 16 bytes.
 * @param[in]     chap the data; a pointer may be null when its length is 0
 * @param[in,out] list list to append to
 *
 * Ownership: *Copied in*: the data.
 * @return
 * - AAA_ERR_INVALID_ARG: chap or list is null, or a pointer is null and its length is not 0
 * - AAA_ERR_NOMEM: no memory, or 4 GiB and more in all
 */
AAA_API cerrno aaa_util_avlist_inbound_chap_data_add(const aaa_chap_data_t *chap, avlist *list);

/**
 * Appends inbound MS-CHAP data (1815): id, response, challenge.
 *
 * As aaa_util_avlist_inbound_chap_data_add(); readers want a response of 49
 * bytes and a challenge of at least 2.
 * @param[in]     chap the data; a pointer may be null when its length is 0
 * @param[in,out] list list to append to
 * @return as aaa_util_avlist_inbound_chap_data_add()
 */
AAA_API cerrno aaa_util_avlist_inbound_mschap_data_add(const aaa_chap_data_t *chap, avlist *list);

/**
 * Appends outbound CHAP data (14): id, data. The response of the record is not looked at.
 * @param[in]     chap the data; its pointer may be null when its length is 0
 * @param[in,out] list list to append to
 * @return as aaa_util_avlist_inbound_chap_data_add()
 */
AAA_API cerrno aaa_util_avlist_outbound_chap_data_add(const aaa_chap_data_t *chap, avlist *list);

/**
 * Appends outbound MS-CHAP data (15): id, data; readers want at least 2 bytes of data.
 * The response of the record is not looked at.
 * @param[in]     chap the data; its pointer may be null when its length is 0
 * @param[in,out] list list to append to
 * @return as aaa_util_avlist_inbound_chap_data_add()
 */
AAA_API cerrno aaa_util_avlist_outbound_mschap_data_add(const aaa_chap_data_t *chap, avlist *list);

/**
 * Appends the address that a request is directed to (42) as 4 bytes.
 * @param[in]     address IPv4 address, most significant byte = first dotted part
 * @param[in,out] list    list to append to
 * @return
 * - AAA_ERR_INVALID_ARG: list is null
 */
AAA_API cerrno aaa_util_avlist_directed_addr_add(uint32_t address, avlist *list);

/**
 * Replaces the sequence number (27); the pair gets the flag 0x400.
 * @param[in,out] list   the list
 * @param[in]     number the number
 * @return
 * - AAA_ERR_INVALID_ARG: list is null
 */
AAA_API cerrno aaa_util_avlist_seqnum_add(avlist *list, uint32_t number);

/**
 * Appends a command text (36). No password in it is masked here; aaa_util_add_svc_attrs_in_avlist()
 * does that.
 * @param[in]     text   the command
 * @param[in]     length bytes to store; count the NUL in, so that readers find it
 * @param[in,out] list   list to append to
 *
 * Ownership: *Copied in*: the command.
 * @return
 * - AAA_ERR_INVALID_ARG: text or list is null
 */
AAA_API cerrno aaa_util_avlist_cmd_add(const char *text, uint32_t length, avlist *list);

/**
 * Replaces the privilege level (10).
 * @param[in,out] list  the list
 * @param[in]     level the level
 * @return
 * - AAA_ERR_INVALID_ARG: list is null
 */
AAA_API cerrno aaa_util_avlist_priv_add(avlist *list, uint32_t level);

/**
 * Replaces the error message (7) by a text with its NUL.
 * @param[in,out] list the list
 * @param[in]     text the text
 *
 * Ownership: *Copied in*: the text.
 * @return
 * - AAA_ERR_INVALID_ARG: text or list is null
 */
AAA_API cerrno aaa_util_avlist_errmsg_add(avlist *list, const char *text);

/**
 * Replaces the authentication method (39) without setting the flag 0x400 that
 * other updates of this attribute set. A failure is traced, that of a null list
 * included.
 * @param[in]     method AAA_METHOD_... of aaa/names.h or a server-group number
 * @param[in,out] list   the list
 * @return
 * - AAA_ERR_INVALID_ARG: list is null
 */
AAA_API cerrno aaa_util_avlist_authen_method_set(uint32_t method, avlist *list);

/**
 * Replaces the authentication option (43). A failure is traced, that of a null list included.
 * @param[in]     option AAA_AO_... of aaa/names.h
 * @param[in,out] list   the list
 * @return
 * - AAA_ERR_INVALID_ARG: list is null
 */
AAA_API cerrno aaa_util_avlist_authen_option_add(uint32_t option, avlist *list);

/**
 * Replaces the message type (3); the pair gets the flag 0x400. A failure is
 * traced, that of a null list included.
 * @param[in]     msgtype AAA_MT_... of aaa/names.h
 * @param[in,out] list    the list
 * @return
 * - AAA_ERR_INVALID_ARG: list is null
 */
AAA_API cerrno aaa_util_avlist_msgtype_add(uint32_t msgtype, avlist *list);

/**
 * Appends the parameters of a public-key login: 56, 57, 59, 65, 66, 67, 80,
 * 85, 86, 88, 89 in this order.
 *
 * Stops at the first failure; pairs appended before it stay in the list. The
 * user name of the record is not stored.
 * @param[in,out] list   list to append to
 * @param[in]     params the parameters. Signature, indata and session id must not be null even with length
 *                       0.
 *
 * Ownership: *Copied in*: everything the record points to.
 * @return
 * - AAA_ERR_INVALID_ARG: list, params, signature, indata or session_id is null, or a count is above the
 *   number of names in the record
 */
AAA_API cerrno aaa_util_avlist_rsa_params_add(avlist *list, const aaa_rsa_params_t *params);

/* ---- Reading ---- */

/**
 * Finds the data block (4).
 * @param[out] value  address of the block in the list; untouched on failure; may be null
 * @param[out] length its length in bytes; untouched on failure; may be null
 * @param[in]  list   list to search
 *
 * Ownership: *Borrowed*.
 * @return
 * - AAA_OK: found
 * - AAA_ERR_AVPAIR_NOT_FOUND: not in the list
 * - AAA_ERR_INVALID_ARG: list is null
 */
AAA_API cerrno aaa_util_avlist_data_get(void **value, uint32_t *length, const avlist *list);

/**
 * Copies the address that a request is directed to (42) into a record.
 *
 * Up to 20 stored bytes are copied unchanged, the rest is zero. The record is
 * only meaningful when the writer stored a whole one:
 * aaa_util_avlist_directed_addr_add() stores a bare address, which occupies its
 * first four bytes.
 * @param[out] out  the record; all zero when the attribute is absent
 * @param[in]  list list to search
 * @return out
 */
AAA_API aaa_ip_addr_t *aaa_util_avlist_directed_addr_get(aaa_ip_addr_t *out, const avlist *list);

/**
 * Reads inbound CHAP data (256).
 * @param[out] out  id, a response of 16 bytes and the challenge, which may be empty; untouched on failure
 * @param[in]  list list to search
 *
 * Ownership: *Borrowed*: what the record points to.
 * @return
 * - AAA_OK: read
 * - AAA_ERR_INVALID_CLIENT_DATA: the attribute is absent or shorter than 17 bytes, or an argument is null
 */
AAA_API cerrno aaa_util_avlist_inbound_chap_data_get(aaa_chap_data_t *out, const avlist *list);

/**
 * Reads inbound MS-CHAP data (1815).
 * @param[out] out  id, a response of 49 bytes and the challenge of at least 2; untouched on failure
 * @param[in]  list list to search
 *
 * Ownership: *Borrowed*: what the record points to.
 * @return
 * - AAA_OK: read
 * - AAA_ERR_INVALID_CLIENT_DATA: the attribute is absent or shorter than 52 bytes, or an argument is null
 */
AAA_API cerrno aaa_util_avlist_inbound_mschap_data_get(aaa_chap_data_t *out, const avlist *list);

/**
 * Reads outbound CHAP data (14).
 * @param[out] out  id and data, which may be empty; the response fields are left alone. Untouched on
 *                  failure.
 * @param[in]  list list to search
 *
 * Ownership: *Borrowed*: what the record points to.
 * @return
 * - AAA_OK: read
 * - AAA_ERR_AVPAIR_NOT_FOUND: not in the list
 * - AAA_ERR_INVALID_CLIENT_DATA: the value is empty
 * - AAA_ERR_INVALID_ARG: out or list is null
 */
AAA_API cerrno aaa_util_avlist_outbound_chap_data_get(aaa_chap_data_t *out, const avlist *list);

/**
 * Reads outbound MS-CHAP data (15).
 * @param[out] out  id and at least 2 bytes of data; the response fields are left alone. Untouched on
 *                  failure.
 * @param[in]  list list to search
 *
 * Ownership: *Borrowed*: what the record points to.
 * @return
 * - AAA_OK: read
 * - AAA_ERR_AVPAIR_NOT_FOUND: not in the list
 * - AAA_ERR_INVALID_CLIENT_DATA: the value is shorter than 3 bytes
 * - AAA_ERR_INVALID_ARG: out or list is null
 */
AAA_API cerrno aaa_util_avlist_outbound_mschap_data_get(aaa_chap_data_t *out, const avlist *list);

/**
 * Reads the index of the method in use (18).
 * @param[in] list list to search, may be null
 * @return the value; 0 when absent
 */
AAA_API uint32_t aaa_util_avlist_current_method_get(const avlist *list);

/**
 * Finds a reply message (274). A missing one is traced.
 * @param[in] list     list to search, may be null
 * @param[in] instance how many reply messages to pass over; 0 finds the first
 *
 * Ownership: *Borrowed*.
 * @return address of the text in the list; null when there are not that many
 */
AAA_API char *aaa_util_avlist_reply_msg_get(const avlist *list, uint32_t instance);

/**
 * Finds the command text (36). A missing one is traced.
 * @param[in] list list to search, may be null
 *
 * Ownership: *Borrowed*.
 * @return address of the text in the list; null when absent
 */
AAA_API char *aaa_util_avlist_cmd_get(const avlist *list);

/**
 * Reads the privilege level (10) through the platform's bounded copy, which decides what a value of more
 * than 4 bytes yields.
 * @param[in] list list to search, may be null
 * @return the level; 0 when absent
 */
AAA_API uint32_t aaa_util_avlist_priv_get(const avlist *list);

/**
 * Finds the context of a request (13).
 * @param[in] list list to search, may be null
 *
 * Ownership: *Borrowed*.
 * @return address of the value in the list; null when absent
 */
AAA_API void *aaa_util_avlist_ctx_get(const avlist *list);

/**
 * Reads the address of the server that was asked last (1071). When it is found, it stays in the list.
 * @param[in,out] list list to search, may be null; its pairs are the same afterwards
 * @return the IPv4 address, most significant byte = first dotted part; 0 when absent
 */
AAA_API uint32_t aaa_util_avlist_last_used_server_ip_get(avlist *list);

/**
 * Reads the status (2). Values are AAA_STAT_... of aaa/names.h.
 * @param[in] list list to search, may be null
 * @return the value; 0 when absent
 */
AAA_API uint32_t aaa_util_avlist_status_get(const avlist *list);

/**
 * Reads the status (2); the same as aaa_util_avlist_status_get().
 * @param[in] list list to search, may be null
 * @return the value; 0 when absent
 */
AAA_API uint32_t aaa_get_status(const avlist *list);

/**
 * Takes the error message (7) out of a list. When no memory is left for the copy the pair stays.
 * @param[in,out] list the list, may be null; the first error message is gone when a text is returned
 *
 * Ownership: *Caller frees* the text with free().
 * @return the text up to its NUL or its stored length; null when absent or on exhausted memory
 */
AAA_API char *aaa_util_avlist_errmsg_get(avlist *list);

/**
 * Takes the prompt (21) out of a list. Unlike the error message it is gone even when no memory is left for
 * the copy.
 * @param[in,out] list  the list, may be null; the first prompt is gone afterwards
 * @param[out]    flags flag bits of the pair; untouched when absent; may be null
 *
 * Ownership: *Caller frees* the text with free().
 * @return the text up to its NUL or its stored length; null when absent or on exhausted memory
 */
AAA_API char *aaa_util_avlist_prompt_get(avlist *list, avpair_flags_t *flags);

/**
 * Reads the authentication method (39).
 * @param[in] list list to search, may be null
 * @return the value; 0 when absent
 */
AAA_API uint32_t aaa_util_avlist_authen_method_get(const avlist *list);

/**
 * Reads the value of the method in use (69). A found one is traced.
 * @param[in] list list to search, may be null
 * @return the value; 0 when absent
 */
AAA_API uint32_t aaa_util_avlist_curr_method_val_get(const avlist *list);

/**
 * Reads the authentication option (43).
 * @param[in] list list to search, may be null
 * @return the option; AAA_AO_NOTSET (0x8000) when absent
 */
AAA_API uint32_t aaa_util_avlist_authen_option_get(const avlist *list);

/**
 * Finds the CHAP response (16).
 * @param[out] length length in bytes, all 32 bits of it; untouched when absent; may be null
 * @param[in]  list   list to search, may be null
 *
 * Ownership: *Borrowed*.
 * @return address of the response in the list; null when absent
 */
AAA_API void *aaa_util_avlist_chap_response_get(uint32_t *length, const avlist *list);

/**
 * Reads the service (262). Values are AAA_SVC_... of aaa/names.h
 * @param[in] list list to search, may be null
 * @return the value; 0 when absent
 */
AAA_API uint32_t aaa_util_avlist_svc_get(const avlist *list);

/**
 * Finds the source of a request (25).
 * @param[in] list list to search, may be null
 *
 * Ownership: *Borrowed*.
 * @return address of the value in the list; null when absent
 */
AAA_API void *aaa_util_avlist_src_get(const avlist *list);

/**
 * Finds the user name (257).
 * @param[in] list list to search, may be null
 *
 * Ownership: *Borrowed*.
 * @return address of the text in the list; null when absent
 */
AAA_API char *aaa_util_avlist_username_get(const avlist *list);

/**
 * Finds the terminal name (20).
 * @param[in] list list to search, may be null
 *
 * Ownership: *Borrowed*.
 * @return address of the text in the list; null when absent
 */
AAA_API char *aaa_util_avlist_tty_get(const avlist *list);

/**
 * Finds the terminal mnemonic (61).
 * @param[in] list list to search, may be null
 *
 * Ownership: *Borrowed*.
 * @return address of the text in the list; null when absent
 */
AAA_API char *aaa_util_avlist_tty_name_get(const avlist *list);

/**
 * Reads the user-database flag (62).
 * @param[in] list list to search, may be null
 * @return the value; 0 when absent
 */
AAA_API uint32_t aaa_util_avlist_user_flag_get(const avlist *list);

/**
 * Reads the interface handle (22) through the platform's bounded copy, which decides what a value of more
 * than 4 bytes yields.
 * @param[in] list list to search, may be null
 * @return the handle; 0 when absent or empty
 */
AAA_API uint32_t aaa_util_avlist_ifh_get(const avlist *list);

/**
 * Copies the method list (17), all stored bytes of it.
 * @param[out] destination room for the whole stored list, which only the caller can know; untouched unless
 *                         1 is returned
 * @param[out] count       stored bytes / 4, one method value each; untouched when absent
 * @param[in]  list        list to search, may be null
 * @return
 * - 1: copied
 * - 0: absent, or destination or count is null
 */
AAA_API int aaa_util_avlist_methodlist_get_all(uint32_t *destination, uint32_t *count, const avlist *list);

/**
 * Finds the method list (17).
 * @param[in] list list to search, may be null
 *
 * Ownership: *Borrowed*.
 * @return address of the first 32-bit method value in the list; null when absent
 */
AAA_API void *aaa_util_avlist_methodlist_get(const avlist *list);

/**
 * Finds the password (258).
 * @param[in]  list   list to search, may be null
 * @param[out] length length in bytes, 0 when absent
 *
 * Ownership: *Borrowed*.
 * @return address of the password in the list; null when absent or length is null
 */
AAA_API char *aaa_util_avlist_password_get(const avlist *list, uint32_t *length);

/**
 * Finds the remote address text (37).
 * @param[in]  list   list to search, may be null
 * @param[out] length length in bytes, 0 when absent
 *
 * Ownership: *Borrowed*.
 * @return address of the text in the list; null when absent or length is null
 */
AAA_API char *aaa_util_avlist_remaddr_get(const avlist *list, uint32_t *length);

/**
 * Reads the sequence number (27).
 * @param[in]  list   list to search
 * @param[out] number the number; untouched on failure
 * @return
 * - AAA_OK: read
 * - AAA_ERR_AVPAIR_NOT_FOUND: not in the list
 * - AAA_ERR_INVALID_ARG: list or number is null
 */
AAA_API cerrno aaa_util_avlist_seqnum_get(const avlist *list, uint32_t *number);

/**
 * Reads the session id (26).
 * @param[in]  list   list to search
 * @param[out] number the number; 0 on failure
 * @return
 * - AAA_OK: read
 * - AAA_ERR_AVPAIR_NOT_FOUND: not in the list
 * - AAA_ERR_INVALID_ARG: list or number is null
 */
AAA_API cerrno aaa_util_avlist_sessionid_get(const avlist *list, uint32_t *number);

/**
 * Reads the accounting session id (46).
 * @param[in]  list   list to search
 * @param[out] number the number; 0 on failure
 * @return
 * - AAA_OK: read
 * - AAA_ERR_AVPAIR_NOT_FOUND: not in the list
 * - AAA_ERR_INVALID_ARG: list or number is null
 */
AAA_API cerrno aaa_util_avlist_acct_sessid_get(const avlist *list, uint32_t *number);

/**
 * Reads the idle time (284).
 * @param[in]  list   list to search
 * @param[out] number the number; untouched on failure
 * @return
 * - AAA_OK: read
 * - AAA_ERR_AVPAIR_NOT_FOUND: not in the list
 * - AAA_ERR_INVALID_ARG: list or number is null
 */
AAA_API cerrno aaa_util_avlist_idletime_get(const avlist *list, uint32_t *number);

/**
 * Reads the message type (3). Values are AAA_MT_... of aaa/names.h.
 * @param[in] list list to search, may be null
 * @return the value; 0 when absent
 */
AAA_API uint32_t aaa_util_msgtype_get(const avlist *list);

/**
 * Reads the parameters of a public-key login. What is missing is null or zero.
 *
 * Arrays of names are copied as they were stored; names beyond the count are
 * left as they were unless the attribute is absent, which zeroes the array. A
 * stored value that is larger than its field is not accepted: it counts as
 * absent.
 * @param[in]  list list to search
 * @param[out] out  the parameters; untouched on failure
 *
 * Ownership: *Borrowed*: username, signature, indata and session id point into the list.
 * @return
 * - AAA_OK: read; missing attributes do not count as a failure
 * - AAA_ERR_INVALID_ARG: list or out is null
 */
AAA_API cerrno aaa_util_avlist_rsa_params_get(const avlist *list, aaa_rsa_params_t *out);

/* ---- Management requests: a missing text is traced with its attribute number ---- */

/**
 * Finds the id of a configuration commit (72).
 * @param[in] list list to search, may be null
 *
 * Ownership: *Borrowed*.
 * @return address of the text in the list; null when absent
 */
AAA_API char *aaa_util_avlist_cfg_commitid_get(const avlist *list);

/**
 * Finds the session id of the application (73).
 * @param[in] list list to search, may be null
 *
 * Ownership: *Borrowed*.
 * @return address of the text in the list; null when absent
 */
AAA_API char *aaa_util_avlist_apl_sessid_get(const avlist *list);

/**
 * Finds the message id of the application (74).
 * @param[in] list list to search, may be null
 *
 * Ownership: *Borrowed*.
 * @return address of the text in the list; null when absent
 */
AAA_API char *aaa_util_avlist_apl_msgid_get(const avlist *list);

/**
 * Finds the name of the procedure called (75).
 * @param[in] list list to search, may be null
 *
 * Ownership: *Borrowed*.
 * @return address of the text in the list; null when absent
 */
AAA_API char *aaa_util_avlist_rpc_name_get(const avlist *list);

/**
 * Finds the first path of the call (76).
 * @param[in] list list to search, may be null
 *
 * Ownership: *Borrowed*.
 * @return address of the text in the list; null when absent
 */
AAA_API char *aaa_util_avlist_rpc_xpath1_get(const avlist *list);

/**
 * Finds the second path of the call (77).
 * @param[in] list list to search, may be null
 *
 * Ownership: *Borrowed*.
 * @return address of the text in the list; null when absent
 */
AAA_API char *aaa_util_avlist_rpc_xpath2_get(const avlist *list);

/**
 * Finds the third path of the call (78).
 * @param[in] list list to search, may be null
 *
 * Ownership: *Borrowed*.
 * @return address of the text in the list; null when absent
 */
AAA_API char *aaa_util_avlist_rpc_xpath3_get(const avlist *list);

/**
 * Finds the fourth path of the call (79).
 * @param[in] list list to search, may be null
 *
 * Ownership: *Borrowed*.
 * @return address of the text in the list; null when absent
 */
AAA_API char *aaa_util_avlist_rpc_xpath4_get(const avlist *list);

/**
 * Finds the time at which a commit began (70).
 * @param[in] list list to search, may be null
 *
 * Ownership: *Borrowed*.
 * @return address of the text in the list; null when absent
 */
AAA_API char *aaa_util_avlist_commit_start_time_get(const avlist *list);

/**
 * Finds the time at which a commit ended (71).
 * @param[in] list list to search, may be null
 *
 * Ownership: *Borrowed*.
 * @return address of the text in the list; null when absent
 */
AAA_API char *aaa_util_avlist_commit_stop_time_get(const avlist *list);

#ifdef __cplusplus
}
#endif

#endif /* AAA_ACCESSORS_H */
