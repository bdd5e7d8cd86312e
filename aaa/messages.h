/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_MESSAGES_H
#define AAA_MESSAGES_H

#include <assert.h>
#include <stddef.h>

#include "aaa/avpair.h"
#include "aaa/credentials.h"
#include "aaa/dictionary.h"
#include "aaa/export.h"
#include "aaa/session_packets.h"
#include "aaa/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @file
 * @brief Messages between AAA clients and the AAA server.
 *
 * The library sends nothing. A compose routine fills the caller's record and
 * names the pieces that make up the message; the caller's transport sends them.
 * The following holds for every routine below, unless its own block differs.
 *
 * **Classic mode** (session is 0). The record is a header record. The routine
 * writes the message type and the fields of its kind, brings numbers that travel
 * in the header into network order (the type itself stays in host order) and
 * returns a newly allocated io-vector array and the number of its elements.
 * The header element comes first; attribute lists travel packed, in the caller's
 * buffer. The size argument is the capacity of that buffer in bytes; the packed
 * length is the length of the element. Bytes of the record that no field below
 * names belong to the transport and are never written.
 *
 * **Session mode** (session is not 0). A request's record is a session packet
 * instead, which is filled with the message type and, where there is one, the
 * address of the attribute list; nothing is packed, and nothing is stored through
 * iov_out and count_out. Some routines still choose the type by whether these and the
 * buffer are given: without them the packet is sent as type 0, a connect, and
 * the call succeeds. A reply's record stays the reply header, the
 * response packet is newly made, and its address is stored through iov_out
 * (cast it); count_out is not written.
 *
 * **Result and verdict.** A reply says two things, in numbers that overlap. The
 * status of its header is a result code of aaa/result_codes.h: AAA_OK when the
 * server has processed the request, otherwise why it could not. The attribute
 * AAA_STATUS_ATTR (2) of its list is the verdict: AAA_STAT_PASS, AAA_STAT_FAIL or
 * another AAA_STAT_ value of aaa/names.h. A server that refuses a password sends
 * AAA_OK and AAA_STAT_FAIL. A client lets a user in only when the status is
 * AAA_OK *and* the verdict is AAA_STAT_PASS: a reply without a list, or without
 * the attribute, has no verdict. Replies to pings, accounting and configuration have
 * none. aaa_transport_read_reply() gives the status as `result`, and
 * aaa_util_avlist_value_copy() reads the verdict.
 *
 * **Bytes of a record.** Classic requests: the length of the header element, 72
 * for connect, 36 for callback, 40 or 32 as said below. Classic replies: 20 to
 * 32, as said below. Session requests: 108, and 335 for task map and user group;
 * an aaa_sess_request_t has room for all. Alignment is not required.
 *
 * **Failures.** A classic call that fails stores nothing through iov_out and
 * count_out. A missing record, output or buffer is found before the record is
 * touched. After a later failure (a credential or text that is missing included)
 * the type and fields may be in the record. Their numbers are still in host order
 * unless the io-vector was the only thing missing: they are converted just before
 * it is allocated. The connect request and the generic reply convert after that,
 * so their numbers are in host order after every failure. A converted field that
 * is the caller's own is converted again by the next call: set it before each call.
 *
 * **Ownership.** *Caller frees* the io-vector array with free() once the message
 * is sent, and the response packet with free(). The record, buffer, blocks and
 * strings that elements point at are *Borrowed* until then. An attribute list
 * that a routine builds is its own and gone on return; in session mode it is
 * *Handed over* to the packet's consumer once the packet is filled, and freed by
 * the routine when the packet is not.
 *
 * **Result codes of all requests.** In the lists below, "the usual codes" are
 * - AAA_ERR_INVALID_ARG: in classic mode record, iov_out, count_out or a buffer
 *   that the message needs is null, or its size is 0;
 * - AAA_ERR_NOMEM: no memory, or the packed list does not fit the buffer;
 * - AAA_ERR_INVALID_MSG_TYPE: in session mode the record is null.
 */

/** Request header record, caller-owned. */
typedef struct aaa_req_hdr {
    uint8_t transport0[20]; /**< never written */
    uint32_t type;          /**< offset 20, host order */
    uint8_t transport24[8]; /**< never written */
    uint32_t param; /**< offset 32, network order once composed (host order in the server-side disconnect) */
    uint32_t fixed36; /**< fourth word of the 40-byte element, not written */
} aaa_req_hdr_t;
static_assert(sizeof(aaa_req_hdr_t) == 40, "layout of aaa_req_hdr_t");
static_assert(offsetof(aaa_req_hdr_t, transport0) == 0, "layout of aaa_req_hdr_t");
static_assert(offsetof(aaa_req_hdr_t, type) == 20, "layout of aaa_req_hdr_t");
static_assert(offsetof(aaa_req_hdr_t, transport24) == 24, "layout of aaa_req_hdr_t");
static_assert(offsetof(aaa_req_hdr_t, param) == 32, "layout of aaa_req_hdr_t");
static_assert(offsetof(aaa_req_hdr_t, fixed36) == 36, "layout of aaa_req_hdr_t");

/** Connect message, one 72-byte element. */
typedef struct aaa_conn_msg {
    uint8_t transport0[20]; /**< never written */
    uint32_t type;          /**< 0 */
    uint8_t transport24[8]; /**< never written */
    uint32_t version;       /**< 2, network order */
    uint32_t zero36;        /**< 0, network order */
    uint32_t value[6];      /**< network order */
    uint32_t str1_len;      /**< network order, without terminator */
    uint32_t unwritten;     /**< not written */
} aaa_conn_msg_t;
static_assert(sizeof(aaa_conn_msg_t) == 72, "layout of aaa_conn_msg_t");
static_assert(offsetof(aaa_conn_msg_t, transport0) == 0, "layout of aaa_conn_msg_t");
static_assert(offsetof(aaa_conn_msg_t, type) == 20, "layout of aaa_conn_msg_t");
static_assert(offsetof(aaa_conn_msg_t, transport24) == 24, "layout of aaa_conn_msg_t");
static_assert(offsetof(aaa_conn_msg_t, version) == 32, "layout of aaa_conn_msg_t");
static_assert(offsetof(aaa_conn_msg_t, zero36) == 36, "layout of aaa_conn_msg_t");
static_assert(offsetof(aaa_conn_msg_t, value) == 40, "layout of aaa_conn_msg_t");
static_assert(offsetof(aaa_conn_msg_t, str1_len) == 64, "layout of aaa_conn_msg_t");
static_assert(offsetof(aaa_conn_msg_t, unwritten) == 68, "layout of aaa_conn_msg_t");

/** Reply header record, caller-owned. */
typedef struct aaa_reply_hdr {
    uint8_t transport0[20]; /**< never written */
    uint32_t status;        /**< offset 20: a result code, AAA_OK = processed; not the verdict */
    uint32_t second;        /**< offset 24 */
    uint32_t tail28;        /**< only in the connect reply's 32-byte element, not written */
} aaa_reply_hdr_t;
static_assert(sizeof(aaa_reply_hdr_t) == 32, "layout of aaa_reply_hdr_t");
static_assert(offsetof(aaa_reply_hdr_t, transport0) == 0, "layout of aaa_reply_hdr_t");
static_assert(offsetof(aaa_reply_hdr_t, status) == 20, "layout of aaa_reply_hdr_t");
static_assert(offsetof(aaa_reply_hdr_t, second) == 24, "layout of aaa_reply_hdr_t");
static_assert(offsetof(aaa_reply_hdr_t, tail28) == 28, "layout of aaa_reply_hdr_t");

/** RADIUS server of a configuration message. */
typedef struct aaa_rad_server {
    aaa_ip_addr_t address; /**< 20 bytes; their encoding is the caller's */
    uint32_t auth_port;
    uint32_t acct_port;
    char *secret;
    uint32_t timeout;
    uint32_t retransmit;
    uint8_t action;
} aaa_rad_server_t;
static_assert(sizeof(aaa_rad_server_t) == 56, "layout of aaa_rad_server_t");
static_assert(offsetof(aaa_rad_server_t, address) == 0, "layout of aaa_rad_server_t");
static_assert(offsetof(aaa_rad_server_t, auth_port) == 20, "layout of aaa_rad_server_t");
static_assert(offsetof(aaa_rad_server_t, acct_port) == 24, "layout of aaa_rad_server_t");
static_assert(offsetof(aaa_rad_server_t, secret) == 32, "layout of aaa_rad_server_t");
static_assert(offsetof(aaa_rad_server_t, timeout) == 40, "layout of aaa_rad_server_t");
static_assert(offsetof(aaa_rad_server_t, retransmit) == 44, "layout of aaa_rad_server_t");
static_assert(offsetof(aaa_rad_server_t, action) == 48, "layout of aaa_rad_server_t");

/** Method list of a configuration message; a name that fills its field needs no terminator. */
typedef struct aaa_method_list {
    char name[252];
    uint32_t method[4];
    char sg_name[4][255];
} aaa_method_list_t;
static_assert(sizeof(aaa_method_list_t) == 1288, "layout of aaa_method_list_t");
static_assert(offsetof(aaa_method_list_t, name) == 0, "layout of aaa_method_list_t");
static_assert(offsetof(aaa_method_list_t, method) == 252, "layout of aaa_method_list_t");
static_assert(offsetof(aaa_method_list_t, sg_name) == 268, "layout of aaa_method_list_t");

/* ---- Envelope ---- */

/**
 * Composes "connect" (type 0).
 *
 * Elements: the record, 72; first string; second string, both without terminator. An absent string is a
 * null element of length 0.
 * @param[in,out] msg       the 72-byte record (aaa_conn_msg_t), or the session packet
 * @param[in]     value1    the six connect values, whose meaning is the caller's
 * @param[in]     value2    another of the six
 * @param[in]     value3    another of the six
 * @param[in]     value4    another of the six
 * @param[in]     value5    another of the six
 * @param[in]     value6    another of the six
 * @param[in]     str1      first connect string, under 4 GiB; may be null
 * @param[in]     str2      second connect string; may be null
 * @param[out]    iov_out   the io-vector array; not used in session mode
 * @param[out]    count_out its number of elements; not used in session mode
 * @param[in]     session   0 for a classic message, else a session packet. A packet has no values and no
 *                          strings.
 *
 * Ownership: *Borrowed* until the message is sent, and *Caller frees* the array; see above.
 * @return
 * - AAA_OK: composed
 * - the usual codes
 */
AAA_API cerrno aaa_util_msg_conn_compose(void *msg, uint32_t value1, uint32_t value2, uint32_t value3,
                                         uint32_t value4, uint32_t value5, uint32_t value6, const char *str1,
                                         const char *str2, iov_t **iov_out, uint32_t *count_out,
                                         uint32_t session);

/**
 * Composes "disconnect" (type 1).
 *
 * Elements: header, 32. A session packet carries type 0, not 1; that is kept, callers rely on it.
 * @param[in,out] msg       the 32-byte header record, or the session packet
 * @param[out]    iov_out   the io-vector array; not used in session mode
 * @param[out]    count_out its number of elements; not used in session mode
 * @param[in]     session   0 for a classic message, else a session packet
 *
 * Ownership: *Borrowed* until the message is sent, and *Caller frees* the array; see above.
 * @return
 * - AAA_OK: composed
 * - the usual codes
 */
AAA_API cerrno aaa_util_msg_disconn_compose(void *msg, iov_t **iov_out, uint32_t *count_out,
                                            uint32_t session);

/**
 * Composes "get callback" (type 8).
 *
 * Elements: header, 36. The caller's number at offset 32 goes to network order, every time: composing
 * twice on one record turns it back. A session packet carries type 8, or type 0 when iov_out or count_out
 * is null.
 * @param[in,out] msg       the 36-byte header record, or the session packet
 * @param[out]    iov_out   the io-vector array; not used in session mode
 * @param[out]    count_out its number of elements; not used in session mode
 * @param[in]     session   0 for a classic message, else a session packet
 *
 * Ownership: *Borrowed* until the message is sent, and *Caller frees* the array; see above.
 * @return
 * - AAA_OK: composed
 * - the usual codes
 */
AAA_API cerrno aaa_util_msg_cb_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t session);

/**
 * Composes "ping" (type 9).
 *
 * Elements: header, 32. A session packet carries type 9, or type 0 when iov_out or count_out is null.
 * @param[in,out] msg       the 32-byte header record, or the session packet
 * @param[out]    iov_out   the io-vector array; not used in session mode
 * @param[out]    count_out its number of elements; not used in session mode
 * @param[in]     session   0 for a classic message, else a session packet
 *
 * Ownership: *Borrowed* until the message is sent, and *Caller frees* the array; see above.
 * @return
 * - AAA_OK: composed
 * - the usual codes
 */
AAA_API cerrno aaa_util_msg_ping_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t session);

/**
 * Composes the server's side of "connect" (type 0).
 *
 * Elements: header, 40; block, 64. The parameter is at offset 32 in network order.
 * @param[in,out] msg       the 40-byte header record, or the session packet
 * @param[in]     param     the parameter
 * @param[out]    iov_out   the io-vector array; not used in session mode
 * @param[out]    count_out its number of elements; not used in session mode
 * @param[in]     block     64 bytes of the caller's; not looked at
 * @param[in]     session   0 for a classic message, else a session packet. Type 0.
 *
 * Ownership: *Borrowed* until the message is sent, and *Caller frees* the array; see above.
 * @return
 * - AAA_OK: composed
 * - the usual codes
 */
AAA_API cerrno aaa_util_svrmsg_conn_compose(void *msg, uint32_t param, iov_t **iov_out, uint32_t *count_out,
                                            void *block, uint32_t session);

/**
 * Composes the server's side of "disconnect" (type 1).
 *
 * Elements: header, 40; data, 4. The word at offset 32 is 3 and stays in host order, alone among all
 * messages.
 * @param[in,out] msg       the 40-byte header record, or the session packet
 * @param[out]    iov_out   the io-vector array; not used in session mode
 * @param[out]    count_out its number of elements; not used in session mode
 * @param[in]     data      4 bytes of the caller's; not looked at
 * @param[in]     session   0 for a classic message, else a session packet. Type 1.
 *
 * Ownership: *Borrowed* until the message is sent, and *Caller frees* the array; see above.
 * @return
 * - AAA_OK: composed
 * - the usual codes
 */
AAA_API cerrno aaa_util_svrmsg_disconn_compose(void *msg, iov_t **iov_out, uint32_t *count_out, void *data,
                                               uint32_t session);

/* ---- Requests ---- */

/**
 * Composes "authentication" (type 3, or 4 with an async block).
 *
 * Elements: header, 40; async block, 64, when given; packed list. Offset 32 holds option & 0xFF00.
 * Attributes in order: service (262), option & 0xFF (43), method list (17) when method is 0, the
 * credentials, the pairs of in_attrs, message type (3), and for option 13 the RSA parameters. The line is
 * not asked for services 16, 17 and 23 nor on a line card; services 16 and 24 need no terminal. Message
 * type by option: 0 to 10 give 1 to 11, 11 gives 13, 12 and 13 give 14, others 0.
 *
 * A session packet is filled before attributes are added and owns the list from then on: after any code
 * but AAA_ERR_INVALID_MSG_TYPE the list is in the packet, after AAA_ERR_NOMEM too unless the packet is
 * untouched. Zero the packet's list field beforehand and free what it holds.
 * @param[in,out] msg         the 40-byte header record, or the session packet
 * @param[in]     option      authentication option in the low byte, variant bits in the next
 * @param[in]     service     AAA service
 * @param[in]     methodlist  name of the method list; may be null: that of the caller's line is taken
 *                            then, or "default"
 * @param[in]     method      0, or a method that makes a method list unnecessary
 * @param[in]     usercred    the credential; its remote_addr may be filled in, as
 *                            aaa_util_add_usercred_in_avlist() says. A user name of 254 or more characters
 *                            is left out without a report.
 * @param[in]     in_attrs    pairs to send along; may be null
 * @param[in]     rsa_params  needed for option 13, else not looked at
 * @param[out]    iov_out     the io-vector array; not used in session mode
 * @param[out]    count_out   its number of elements; not used in session mode
 * @param[out]    buffer      room for the packed list; not used in session mode
 * @param[in]     size        bytes of buffer. In session mode buffer and size still decide the type.
 * @param[in]     async_block 64 bytes of the caller's. A packet then carries type 4, if buffer is not null
 *                            and size not 0. May be null.
 * @param[in]     session     0 for a classic message, else a session packet. The packet's value is option &
 *                            0xFF00.
 *
 * Ownership: *Borrowed* until the message is sent, and *Caller frees* the array; the list is the routine's
 * own, or *Handed over* to the packet's consumer; see above.
 * @return
 * - AAA_OK: composed
 * - the usual codes
 * - AAA_ERR_INVALID_ARG: usercred is null, or rsa_params is with option 13
 * - a code of find_method_for_line() or of an accessor
 */
AAA_API cerrno aaa_util_msg_authen_compose(void *msg, uint32_t option, int32_t service,
                                           const char *methodlist, uint32_t method, aaa_usercred_t *usercred,
                                           const avlist *in_attrs, const aaa_rsa_params_t *rsa_params,
                                           iov_t **iov_out, uint32_t *count_out, char *buffer, uint32_t size,
                                           void *async_block, uint32_t session);

/**
 * Composes "authorization" (type 5, or 6 with an async block).
 *
 * Elements: header, 40; async block, 64, when given; packed list. Offset 32 holds authen_option.
 * Attributes in order: for service 23 the pairs of the list in svc_attrs' first field; service (262);
 * message type (3) for services 7, 8 (18), 11 (21), 23 (31), 26 (32) and 29 (33) only; authen_option (43);
 * method list (17) when method is 0; the credentials; the service attributes, but not for service 23. The
 * line is not asked for services 16, 17 and 23 nor on a line card; option 69 needs no terminal.
 * @param[in,out] msg           the 40-byte header record, or the session packet
 * @param[in]     authen_option authentication option, all 32 bits of it
 * @param[in]     service       AAA service
 * @param[in]     methodlist    name of the method list; may be null: that of the caller's line is taken
 *                              then, or "default"
 * @param[in]     method        0, or a method that makes a method list unnecessary
 * @param[in]     usercred      the credential; as for authentication
 * @param[in]     svc_attrs     service attributes; may be null for service 23 only. A password inside an
 *                              FTP address in cmd is masked in place.
 * @param[out]    iov_out       the io-vector array; not used in session mode
 * @param[out]    count_out     its number of elements; not used in session mode
 * @param[out]    buffer        room for the packed list; not used in session mode
 * @param[in]     size          bytes of buffer. In session mode buffer and size still decide the type.
 * @param[in]     async_block   64 bytes of the caller's. A packet then carries type 6, if buffer is not
 *                              null and size not 0. May be null.
 * @param[in]     session       0 for a classic message, else a session packet. The packet's value is
 *                              authen_option.
 *
 * Ownership: *Borrowed* until the message is sent, and *Caller frees* the array; the list is the routine's
 * own, or *Handed over* to the packet's consumer; see above.
 * @return
 * - AAA_OK: composed
 * - the usual codes
 * - AAA_ERR_INVALID_ARG: usercred or svc_attrs is null
 * - a code of find_method_for_line() or of an accessor
 */
AAA_API cerrno aaa_util_msg_author_compose(void *msg, uint32_t authen_option, int32_t service,
                                           const char *methodlist, uint32_t method, aaa_usercred_t *usercred,
                                           aaa_svc_attrs_t *svc_attrs, iov_t **iov_out, uint32_t *count_out,
                                           char *buffer, uint32_t size, void *async_block, uint32_t session);

/**
 * Composes "accounting" (type 7, or 14 with an async block).
 *
 * Elements: header, 40; async block, 64, when given; packed list. Offset 32 holds the option. Attributes
 * in order: service (262), method list (17) when method is 0, the credentials, time (23, 8 bytes), session
 * id (46), time zone (40, "UTC" when the node knows none), message type (3: option 128 gives 15, 129 gives
 * 16, 131 gives 17, others 0), the service attributes. Service 13 goes without credentials and service
 * attributes. The line is not asked for services 13, 16 and 17 nor on a line card; services 16 and 24 need
 * no terminal.
 * @param[in,out] msg         the 40-byte header record, or the session packet
 * @param[in]     option      accounting option
 * @param[in]     service     AAA service
 * @param[in]     methodlist  name of the method list; may be null: that of the caller's line is taken
 *                            then, or "default"
 * @param[in]     method      0, or a method that makes a method list unnecessary
 * @param[in]     usercred    the credential; may be null for service 13 only
 * @param[in]     svc_attrs   service attributes; may be null for service 13 only. A password inside an FTP
 *                            address in cmd is masked in place.
 * @param[in]     sid         accounting session id
 * @param[out]    iov_out     the io-vector array; not used in session mode
 * @param[out]    count_out   its number of elements; not used in session mode
 * @param[out]    buffer      room for the packed list; must be there in session mode too
 * @param[in]     size        bytes of buffer; not 0 in session mode either
 * @param[in]     async_block 64 bytes of the caller's. A packet carries type 7 with and without. May be
 *                            null.
 * @param[in]     session     0 for a classic message, else a session packet. The packet's value is the
 *                            option.
 *
 * Ownership: *Borrowed* until the message is sent, and *Caller frees* the array; the list is the routine's
 * own, or *Handed over* to the packet's consumer; see above.
 * @return
 * - AAA_OK: composed
 * - AAA_ERR_INVALID_ARG: msg or buffer is null or size is 0, in both modes; usercred or svc_attrs is null
 *   and the service is not 13; in classic mode iov_out or count_out is null
 * - AAA_ERR_NOMEM: no memory, or the packed list does not fit the buffer
 * - a code of find_method_for_line() or of an accessor
 */
AAA_API cerrno aaa_util_msg_acct_compose(void *msg, uint32_t option, int32_t service, const char *methodlist,
                                         uint32_t method, aaa_usercred_t *usercred,
                                         aaa_svc_attrs_t *svc_attrs, uint32_t sid, iov_t **iov_out,
                                         uint32_t *count_out, char *buffer, uint32_t size, void *async_block,
                                         uint32_t session);

/**
 * Composes an accounting update (type 15) on the caller's list.
 *
 * Elements: header, 40; block, 64; session id, 4, in host order; packed list. Offset 32 holds 129. Added
 * to the list, in order: time (23, 8 bytes), session id (46), time zone (40), message type 16 (3). They
 * stay in it after a failure.
 * @param[in,out] msg       the 40-byte header record, or the session packet
 * @param[in]     sid       accounting session id; its address goes into the message
 * @param[in]     block     64 bytes of the caller's
 * @param[in,out] list      the list of the record to update
 * @param[out]    iov_out   the io-vector array; not used in session mode
 * @param[out]    count_out its number of elements; not used in session mode
 * @param[out]    buffer    room for the packed list; must be there in session mode too
 * @param[in]     size      bytes of buffer; not 0 in session mode either
 * @param[in]     session   0 for a classic message, else a session packet. The packet's value is 129.
 *
 * Ownership: the list stays the caller's in classic mode, but packing leaves it in network order: free it,
 * never use it again. In session mode it is *Handed over* to the packet's consumer on success. All else is
 * *Borrowed* until the message is sent; *Caller frees* the array.
 * @return
 * - AAA_OK: composed
 * - AAA_ERR_INVALID_ARG: msg, sid, block, list or buffer is null or size is 0, in both modes; in classic
 *   mode iov_out or count_out is null
 * - AAA_ERR_NOMEM: no memory, or the packed list does not fit the buffer
 */
AAA_API cerrno aaa_util_msg_acct_update_compose(void *msg, uint32_t *sid, void *block, avlist *list,
                                                iov_t **iov_out, uint32_t *count_out, char *buffer,
                                                uint32_t size, uint32_t session);

/**
 * Composes a change of an authenticated user's reference count (type 24 up, 25 down).
 *
 * Elements: header, 32; packed list with the user name (257). aaa_util_msg_type_desc() describes 24 as
 * unknown and 25 as an increment: the two number these messages differently.
 * @param[in,out] msg          the 32-byte header record, or the session packet
 * @param[in]     username_ref address of the name pointer, for instance of a credential's username. The
 *                             name may be null; a null or over-long name (254 characters or more) is left
 *                             out.
 * @param[out]    iov_out      the io-vector array; not used in session mode
 * @param[out]    count_out    its number of elements; not used in session mode
 * @param[in]     action       1 increments, 2 decrements. Any other action leaves the record's type as it
 *                             is, and a packet's type 0.
 * @param[in]     session      0 for a classic message, else a session packet
 *
 * Ownership: *Caller frees* the array with free(), and with it the packed list, which is in the same
 * block (16384 bytes). The list of a packet is *Handed over* to its consumer.
 * @return
 * - AAA_OK: composed
 * - AAA_ERR_INVALID_ARG: username_ref is null; in classic mode msg, iov_out or count_out is null
 * - AAA_ERR_NOMEM: no memory
 * - AAA_ERR_INVALID_MSG_TYPE: in session mode msg is null
 */
AAA_API cerrno aaa_util_msg_curr_auth_usr_compose(void *msg, const char *const *username_ref, iov_t **iov_out,
                                                  uint32_t *count_out, uint32_t action, uint32_t session);

/**
 * Composes "ikepost" (type 10).
 *
 * Elements: header, 32; packed copy of the caller's list, under the list's own name.
 * @param[in,out] msg       the 32-byte header record, or the session packet
 * @param[in]     list      the list to send; not changed. In session mode it may be null: the packet then
 *                          has type 0 and no list.
 * @param[out]    iov_out   the io-vector array; not used in session mode
 * @param[out]    count_out its number of elements; not used in session mode
 * @param[out]    buffer    room for the packed list; not used in session mode
 * @param[in]     size      bytes of buffer. A packet carries type 10 if buffer is not null and size not 0,
 *                          else type 0.
 * @param[in]     session   0 for a classic message, else a session packet
 *
 * Ownership: *Borrowed* until the message is sent, and *Caller frees* the array; the list is the routine's
 * own, or *Handed over* to the packet's consumer; see above.
 * @return
 * - AAA_OK: composed
 * - the usual codes
 * - AAA_ERR_INVALID_ARG: in classic mode list is null
 */
AAA_API cerrno aaa_util_msg_ikepost_compose(void *msg, const avlist *list, iov_t **iov_out,
                                            uint32_t *count_out, char *buffer, uint32_t size,
                                            uint32_t session);

/**
 * Composes "get taskmap" (type 11).
 *
 * Elements: header, 32; name with its terminator. A packet carries type 11 and the name without its
 * terminator as type data (at most 255 bytes, see aaa_sess_fill_msg_req_type_data()), or type 0 and no
 * name when name, iov_out or count_out is null.
 * @param[in,out] msg       the 32-byte header record, or the session packet
 * @param[in]     name      the task map's name
 * @param[out]    iov_out   the io-vector array; not used in session mode
 * @param[out]    count_out its number of elements; not used in session mode
 * @param[in]     session   0 for a classic message, else a session packet. The packet has 335 bytes.
 *
 * Ownership: *Borrowed* until the message is sent, and *Caller frees* the array; see above.
 * @return
 * - AAA_OK: composed
 * - the usual codes
 * - AAA_ERR_INVALID_ARG: in classic mode name is null
 */
AAA_API cerrno aaa_util_msg_taskmap_compose(void *msg, const char *name, iov_t **iov_out, uint32_t *count_out,
                                            uint32_t session);

/**
 * Composes "free user data" (type 12).
 *
 * Elements: header, 40; packed list. The caller's number at offset 32 goes to network order. Attributes in
 * order: message type 23 (3), user name (257) if there is one, terminal name (20) from the credential or
 * of standard input, terminal mnemonic (61) and user flags (62), interface handle (22), authentication
 * method (39). The type is written once the list is packed.
 * @param[in,out] msg       the 40-byte header record, or the session packet
 * @param[in]     usercred  the credential. An over-long user name is an error here.
 * @param[out]    iov_out   the io-vector array; not used in session mode
 * @param[out]    count_out its number of elements; not used in session mode
 * @param[out]    buffer    room for the packed list; not used in session mode
 * @param[in]     size      bytes of buffer
 * @param[in]     session   0 for a classic message, else a session packet
 *
 * Ownership: *Borrowed* until the message is sent, and *Caller frees* the array; the list is the routine's
 * own, or *Handed over* to the packet's consumer; see above.
 * @return
 * - AAA_OK: composed
 * - the usual codes
 * - AAA_ERR_INVALID_ARG: usercred is null, or its user name has 254 or more characters
 */
AAA_API cerrno aaa_util_msg_free_userdata_compose(void *msg, aaa_usercred_t *usercred, iov_t **iov_out,
                                                  uint32_t *count_out, char *buffer, uint32_t size,
                                                  uint32_t session);

/**
 * Composes a user-group request (type 16).
 *
 * Elements: header, 32; request with its terminator. A packet carries type 16 and the request without its
 * terminator as type data (at most 255 bytes), or type 0 and no request when request, iov_out or count_out
 * is null.
 * @param[in,out] msg       the 32-byte header record, or the session packet
 * @param[in]     request   the request text
 * @param[out]    iov_out   the io-vector array; not used in session mode
 * @param[out]    count_out its number of elements; not used in session mode
 * @param[in]     session   0 for a classic message, else a session packet. The packet has 335 bytes.
 *
 * Ownership: *Borrowed* until the message is sent, and *Caller frees* the array; see above.
 * @return
 * - AAA_OK: composed
 * - AAA_ERR_INVALID_ARG: a pointer is null, in both modes, although a packet that is there has been filled
 *   with type 0
 * - AAA_ERR_NOMEM: no memory
 */
AAA_API cerrno aaa_util_msg_usergroup_compose(void *msg, const char *request, iov_t **iov_out,
                                              uint32_t *count_out, uint32_t session);

/* ---- Replies ---- */

/**
 * Composes the generic reply.
 *
 * Elements: header, 24; packed list, when a list is given. The caller's status at offset 20 goes to
 * network order. The buffer is dumped under debug flag 7. A packet carries the list and its status (2).
 * @param[in,out] msg       the 24-byte reply header record
 * @param[out]    iov_out   the io-vector array; in session mode the response packet, or null when there is
 *                          none
 * @param[out]    count_out number of elements; not written in session mode
 * @param[out]    buffer    room for the packed list; may be null without a list
 * @param[in]     size      bytes of buffer
 * @param[in,out] list      the attributes; may be null
 * @param[in]     session   0 for a classic message, else a response packet
 * @param[in]     context   the request that is answered; not used in classic mode
 *
 * Ownership: *Caller frees* array or packet with free(). Record and buffer are *Borrowed* until the
 * message is sent. The list stays the caller's in classic mode, in network order and fit only for
 * freeing; in session mode it is *Handed over* to the packet's consumer if a packet is given out.
 * @return
 * - AAA_OK: composed; in session mode also when no packet could be made
 * - AAA_ERR_INVALID_ARG: msg, iov_out or count_out is null, in session mode context
 * - AAA_ERR_NOMEM: in classic mode no memory, or the list does not fit the buffer
 * - the codes of aaa_avpair_pack_msg_to_buf()
 */
AAA_API cerrno aaa_util_reply_compose(void *msg, iov_t **iov_out, uint32_t *count_out, char *buffer,
                                      uint32_t size, avlist *list, uint32_t session, aaa_sess_ctx_t *context);

/**
 * Composes the reply to an authentication.
 *
 * Elements: header, 24; packed list. The caller's status at offset 20 goes to network order. A packet
 * carries the list and nothing else.
 * @param[in,out] msg       the 24-byte reply header record
 * @param[out]    iov_out   the io-vector array; in session mode the response packet, or null when there is
 *                          none
 * @param[out]    count_out number of elements; not written in session mode
 * @param[out]    buffer    room for the packed list; not used in session mode
 * @param[in]     size      bytes of buffer
 * @param[in,out] list      the attributes; may be null in session mode
 * @param[in]     session   0 for a classic message, else a response packet
 * @param[in]     context   the request that is answered; not used in classic mode
 *
 * Ownership: *Caller frees* array or packet with free(). Record and buffer are *Borrowed* until the
 * message is sent. The list stays the caller's in classic mode, in network order and fit only for
 * freeing; in session mode it is *Handed over* to the packet's consumer if a packet is given out.
 * @return
 * - AAA_OK: composed; in session mode also when no packet could be made
 * - AAA_ERR_INVALID_ARG: msg, iov_out or count_out is null, in classic mode list or buffer, in session mode
 *   context
 * - AAA_ERR_NOMEM: in classic mode no memory, or the list does not fit the buffer
 */
AAA_API cerrno aaa_util_reply_authen_compose(void *msg, iov_t **iov_out, uint32_t *count_out, char *buffer,
                                             uint32_t size, avlist *list, uint32_t session,
                                             aaa_sess_ctx_t *context);

/**
 * Composes the reply to an authorization.
 *
 * Elements: header, 24; packed list. The caller's status at offset 20 goes to network order. A packet
 * carries the list, and as error the value of the list's configuration action (1079).
 * @param[in,out] msg       the 24-byte reply header record
 * @param[out]    iov_out   the io-vector array; in session mode the response packet, or null when there is
 *                          none
 * @param[out]    count_out number of elements; not written in session mode
 * @param[out]    buffer    room for the packed list; not used in session mode
 * @param[in]     size      bytes of buffer
 * @param[in,out] list      the attributes; may be null in session mode
 * @param[in]     session   0 for a classic message, else a response packet
 * @param[in]     context   the request that is answered; not used in classic mode
 *
 * Ownership: *Caller frees* array or packet with free(). Record and buffer are *Borrowed* until the
 * message is sent. The list stays the caller's in classic mode, in network order and fit only for
 * freeing; in session mode it is *Handed over* to the packet's consumer if a packet is given out.
 * @return
 * - AAA_OK: composed; in session mode also when no packet could be made
 * - AAA_ERR_INVALID_ARG: msg, iov_out or count_out is null, in classic mode list or buffer, in session mode
 *   context
 * - AAA_ERR_NOMEM: in classic mode no memory, or the list does not fit the buffer
 */
AAA_API cerrno aaa_util_reply_author_compose(void *msg, iov_t **iov_out, uint32_t *count_out, char *buffer,
                                             uint32_t size, avlist *list, uint32_t session,
                                             aaa_sess_ctx_t *context);

/**
 * Composes the reply to an asynchronous authentication.
 *
 * Elements: header, 24. The status is written at offset 20 and goes to network order. A packet carries it
 * as nfnhdl.
 * @param[in,out] msg       the 24-byte reply header record
 * @param[out]    iov_out   the io-vector array; in session mode the response packet, or null when there is
 *                          none (null releases the packet)
 * @param[out]    count_out number of elements; not written in session mode
 * @param[in]     status    the status
 * @param[in]     session   0 for a classic message, else a response packet
 * @param[in]     context   the request that is answered; not used in classic mode
 *
 * Ownership: *Caller frees* array or packet with free(); the record is *Borrowed* until the message is
 * sent.
 * @return
 * - AAA_OK: composed; in session mode also when no packet could be made
 * - AAA_ERR_INVALID_ARG: msg is null, in classic mode iov_out or count_out, in session mode context
 * - AAA_ERR_NOMEM: in classic mode no memory
 */
AAA_API cerrno aaa_util_reply_authen_async_compose(void *msg, iov_t **iov_out, uint32_t *count_out,
                                                   uint32_t status, uint32_t session,
                                                   aaa_sess_ctx_t *context);

/**
 * Composes the reply to an asynchronous authorization.
 *
 * Elements: header, 24. The status is written at offset 20 and stays in host order, unlike in the
 * authentication twin. A packet carries it as nfnhdl.
 * @param[in,out] msg       the 24-byte reply header record
 * @param[out]    iov_out   the io-vector array; in session mode the response packet, or null when there is
 *                          none (null releases the packet)
 * @param[out]    count_out number of elements; not written in session mode
 * @param[in]     status    the status
 * @param[in]     session   0 for a classic message, else a response packet
 * @param[in]     context   the request that is answered; not used in classic mode
 *
 * Ownership: *Caller frees* array or packet with free(); the record is *Borrowed* until the message is
 * sent.
 * @return
 * - AAA_OK: composed; in session mode also when no packet could be made
 * - AAA_ERR_INVALID_ARG: msg is null, in classic mode iov_out or count_out, in session mode context
 * - AAA_ERR_NOMEM: in classic mode no memory
 */
AAA_API cerrno aaa_util_reply_author_async_compose(void *msg, iov_t **iov_out, uint32_t *count_out,
                                                   uint32_t status, uint32_t session,
                                                   aaa_sess_ctx_t *context);

/**
 * Composes the reply to an accounting request.
 *
 * Elements: header, 20. Nothing is written in the record; a packet carries no values.
 * @param[in]  msg       the 20-byte reply header record
 * @param[out] iov_out   the io-vector array; in session mode the response packet, or null when there is
 *                       none (null releases the packet)
 * @param[out] count_out number of elements; not written in session mode
 * @param[in]  session   0 for a classic message, else a response packet
 * @param[in]  context   the request that is answered; not used in classic mode
 *
 * Ownership: *Caller frees* array or packet with free(); the record is *Borrowed* until the message is
 * sent.
 * @return
 * - AAA_OK: composed; in session mode also when no packet could be made
 * - AAA_ERR_INVALID_ARG: msg is null, in classic mode iov_out or count_out, in session mode context
 * - AAA_ERR_NOMEM: in classic mode no memory
 */
AAA_API cerrno aaa_util_reply_acct_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t session,
                                           aaa_sess_ctx_t *context);

/**
 * Composes the reply to a ping.
 *
 * Elements: header, 20. Nothing is written in the record; a packet carries no values.
 * @param[in]  msg       the 20-byte reply header record
 * @param[out] iov_out   the io-vector array; in session mode the response packet, or null when there is
 *                       none (null releases the packet)
 * @param[out] count_out number of elements; not written in session mode
 * @param[in]  session   0 for a classic message, else a response packet
 * @param[in]  context   the request that is answered; not used in classic mode
 *
 * Ownership: *Caller frees* array or packet with free(); the record is *Borrowed* until the message is
 * sent.
 * @return
 * - AAA_OK: composed; in session mode also when no packet could be made
 * - AAA_ERR_INVALID_ARG: msg is null, in classic mode iov_out or count_out, in session mode context
 * - AAA_ERR_NOMEM: in classic mode no memory
 */
AAA_API cerrno aaa_util_reply_ping_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t session,
                                           aaa_sess_ctx_t *context);

/**
 * Composes the reply to an ikepost.
 *
 * Elements: header, 20. Nothing is written in the record; a packet carries no values.
 * @param[in]  msg       the 20-byte reply header record
 * @param[out] iov_out   the io-vector array; in session mode the response packet, or null when there is
 *                       none (null releases the packet)
 * @param[out] count_out number of elements; not written in session mode
 * @param[in]  session   0 for a classic message, else a response packet
 * @param[in]  context   the request that is answered; not used in classic mode
 *
 * Ownership: *Caller frees* array or packet with free(); the record is *Borrowed* until the message is
 * sent.
 * @return
 * - AAA_OK: composed; in session mode also when no packet could be made
 * - AAA_ERR_INVALID_ARG: msg is null, in classic mode iov_out or count_out, in session mode context
 * - AAA_ERR_NOMEM: in classic mode no memory
 */
AAA_API cerrno aaa_util_reply_ikepost_compose(void *msg, iov_t **iov_out, uint32_t *count_out,
                                              uint32_t session, aaa_sess_ctx_t *context);

/**
 * Composes the reply to a disconnect.
 *
 * Elements: header, 20. Nothing is written in the record; a packet carries no values.
 * @param[in]  msg       the 20-byte reply header record
 * @param[out] iov_out   the io-vector array; in session mode the response packet, or null when there is
 *                       none (null releases the packet)
 * @param[out] count_out number of elements; not written in session mode
 * @param[in]  session   0 for a classic message, else a response packet
 * @param[in]  context   the request that is answered; not used in classic mode
 *
 * Ownership: *Caller frees* array or packet with free(); the record is *Borrowed* until the message is
 * sent.
 * @return
 * - AAA_OK: composed; in session mode also when no packet could be made
 * - AAA_ERR_INVALID_ARG: msg is null, in classic mode iov_out or count_out, in session mode context
 * - AAA_ERR_NOMEM: in classic mode no memory
 */
AAA_API cerrno aaa_util_reply_disconn_compose(void *msg, iov_t **iov_out, uint32_t *count_out,
                                              uint32_t session, aaa_sess_ctx_t *context);

/**
 * Composes the reply to "get callback".
 *
 * Elements: header, 28; packed list. The caller's numbers at offsets 20 and 24 go to network order. A
 * packet carries the list, and as nfnhdl the number at offset 24.
 * @param[in,out] msg       the 28-byte reply header record
 * @param[out]    iov_out   the io-vector array; in session mode the response packet, or null when there is
 *                          none (null releases the packet)
 * @param[out]    count_out number of elements; not written in session mode
 * @param[out]    buffer    room for the packed list; not used in session mode
 * @param[in]     size      bytes of buffer
 * @param[in,out] list      the attributes; may be null in session mode
 * @param[in]     session   0 for a classic message, else a response packet
 * @param[in]     context   the request that is answered; not used in classic mode
 *
 * Ownership: *Caller frees* array or packet with free(). Record and buffer are *Borrowed* until the
 * message is sent. The list stays the caller's in classic mode, in network order and fit only for
 * freeing; in session mode it is *Handed over* to the packet's consumer if a packet is given out.
 * @return
 * - AAA_OK: composed; in session mode also when no packet could be made
 * - AAA_ERR_INVALID_ARG: msg is null, in classic mode iov_out or count_out, in classic mode list or buffer,
 *   in session mode context
 * - AAA_ERR_NOMEM: in classic mode no memory, or the list does not fit the buffer
 */
AAA_API cerrno aaa_util_reply_cb_compose(void *msg, iov_t **iov_out, uint32_t *count_out, char *buffer,
                                         uint32_t size, avlist *list, uint32_t session,
                                         aaa_sess_ctx_t *context);

/**
 * Composes the reply to a configuration message.
 *
 * Elements: header, 28. The caller's number at offset 20 and the status, written at offset 24, go to
 * network order. A packet carries the status as error.
 * @param[in,out] msg       the 28-byte reply header record
 * @param[out]    iov_out   the io-vector array; in session mode the response packet, or null when there is
 *                          none
 * @param[out]    count_out number of elements; not written in session mode
 * @param[in]     status    the status
 * @param[in]     session   0 for a classic message, else a response packet
 * @param[in]     context   the request that is answered; not used in classic mode
 *
 * Ownership: *Caller frees* array or packet with free(); the record is *Borrowed* until the message is
 * sent.
 * @return
 * - AAA_OK: composed; in session mode also when no packet could be made
 * - AAA_ERR_INVALID_ARG: msg, iov_out or count_out is null, in session mode context
 * - AAA_ERR_NOMEM: in classic mode no memory
 */
AAA_API cerrno aaa_util_reply_cfg_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t status,
                                          uint32_t session, aaa_sess_ctx_t *context);

/**
 * Composes the reply to a reference-count change.
 *
 * Elements: header, 24. The status is written at offset 20 in network order. A packet carries it as error.
 * @param[in,out] msg       the 24-byte reply header record
 * @param[out]    iov_out   the io-vector array; in session mode the response packet, or null when there is
 *                          none
 * @param[out]    count_out number of elements; not written in session mode
 * @param[in]     status    the status
 * @param[in]     session   0 for a classic message, else a response packet
 * @param[in]     context   the request that is answered; not used in classic mode
 *
 * Ownership: *Caller frees* array or packet with free(); the record is *Borrowed* until the message is
 * sent.
 * @return
 * - AAA_OK: composed; in session mode also when no packet could be made
 * - AAA_ERR_INVALID_ARG: msg, iov_out or count_out is null, in session mode context
 * - AAA_ERR_NOMEM: in classic mode no memory
 */
AAA_API cerrno aaa_util_reply_curr_auth_usr_compose(void *msg, iov_t **iov_out, uint32_t *count_out,
                                                    uint32_t status, uint32_t session,
                                                    aaa_sess_ctx_t *context);

/**
 * Composes the reply to a connect.
 *
 * Elements: header, 32. The status at offset 20 and the protocol version 2 at offset 24 are written in
 * network order. A packet carries the status as conid.
 * @param[in,out] msg       the 32-byte reply header record
 * @param[in]     status    the status
 * @param[out]    iov_out   the io-vector array; in session mode the response packet, or null when there is
 *                          none (null releases the packet)
 * @param[out]    count_out number of elements; not written in session mode
 * @param[in]     session   0 for a classic message, else a response packet
 * @param[in]     context   the request that is answered; not used in classic mode
 *
 * Ownership: *Caller frees* array or packet with free(); the record is *Borrowed* until the message is
 * sent.
 * @return
 * - AAA_OK: composed; in session mode also when no packet could be made
 * - AAA_ERR_INVALID_ARG: msg is null, in classic mode iov_out or count_out, in session mode context
 * - AAA_ERR_NOMEM: in classic mode no memory
 */
AAA_API cerrno aaa_util_reply_conn_compose(void *msg, uint32_t status, iov_t **iov_out, uint32_t *count_out,
                                           uint32_t session, aaa_sess_ctx_t *context);

/**
 * Composes the reply to "get taskmap".
 *
 * Elements: header, 20; data. A packet whose request is of type 11 or 16 carries the data as type data (at
 * most 255 bytes, longer is cut to 254); packets of other types have no room for it and carry none.
 * @param[in]  msg       the 20-byte reply header record
 * @param[in]  data      the task map; may be null, and a packet then carries none
 * @param[in]  length    bytes of data
 * @param[out] iov_out   the io-vector array; in session mode the response packet, or null when there is
 *                       none (null releases the packet)
 * @param[out] count_out number of elements; not written in session mode
 * @param[in]  session   0 for a classic message, else a response packet
 * @param[in]  context   the request that is answered; not used in classic mode
 *
 * Ownership: *Caller frees* array or packet with free(); record and data are *Borrowed* until the message
 * is sent, and data is *Copied in* to a packet.
 * @return
 * - AAA_OK: composed; in session mode also when no packet could be made
 * - AAA_ERR_INVALID_ARG: msg is null, in classic mode iov_out or count_out, in session mode context
 * - AAA_ERR_NOMEM: in classic mode no memory
 */
AAA_API cerrno aaa_util_reply_taskmap_compose(void *msg, void *data, uint32_t length, iov_t **iov_out,
                                              uint32_t *count_out, uint32_t session, aaa_sess_ctx_t *context);

/**
 * Composes the reply to a user-group request.
 *
 * Elements: header, 20; text without its terminator, which the request does include. A packet carries the
 * text as for the task-map reply.
 * @param[in]  msg       the 20-byte reply header record
 * @param[in]  text      the user groups
 * @param[out] iov_out   the io-vector array; in session mode the response packet, or null when there is
 *                       none
 * @param[out] count_out number of elements; not written in session mode
 * @param[in]  session   0 for a classic message, else a response packet
 * @param[in]  context   the request that is answered; not used in classic mode
 *
 * Ownership: *Caller frees* array or packet with free(); record and text are *Borrowed* until the message
 * is sent, and text is *Copied in* to a packet.
 * @return
 * - AAA_OK: composed; in session mode also when no packet could be made
 * - AAA_ERR_INVALID_ARG: msg, iov_out or count_out is null, or text, in session mode context
 * - AAA_ERR_NOMEM: in classic mode no memory
 */
AAA_API cerrno aaa_util_reply_usergroup_compose(void *msg, char *text, iov_t **iov_out, uint32_t *count_out,
                                                uint32_t session, aaa_sess_ctx_t *context);

/* ---- Configuration ---- */

/**
 * Composes the configuration of a global RADIUS server (type 17).
 *
 * Elements: header, 40; packed list. The caller's number at offset 32 goes to network order. Attributes in
 * order: address (1073), authentication port (1074), accounting port (1075), secret (1078), timeout
 * (1077), retransmit count (1076), action (1079).
 *
 * The address attribute holds the first 46 bytes of the record, not the 20 of the address: the ports, four
 * zero bytes, the numeric value of the secret pointer, the timeout and half of the retransmit count follow
 * it. Readers expect that length. Send this message only to the server process of the same machine.
 * @param[in,out] msg       the 40-byte header record, or the session packet
 * @param[in]     server    the server
 * @param[out]    iov_out   the io-vector array; not used in session mode
 * @param[out]    count_out its number of elements; not used in session mode
 * @param[out]    buffer    room for the packed list; not used in session mode
 * @param[in]     size      bytes of buffer. A packet carries type 17 if buffer is not null and size not 0,
 *                          else type 0; the list goes with it either way.
 * @param[in]     session   0 for a classic message, else a session packet
 *
 * Ownership: *Borrowed* until the message is sent, and *Caller frees* the array; the list is the routine's
 * own, or *Handed over* to the packet's consumer; see above.
 * @return
 * - AAA_OK: composed
 * - the usual codes
 * - AAA_ERR_INVALID_ARG: server or its secret is null
 */
AAA_API cerrno aaa_util_msg_cfg_radsvr_compose(void *msg, const aaa_rad_server_t *server, iov_t **iov_out,
                                               uint32_t *count_out, char *buffer, uint32_t size,
                                               uint32_t session);

/**
 * Composes the configuration of a server group (type 18).
 *
 * Elements: header, 40; packed list. The caller's number at offset 32 goes to network order. Attributes in
 * order: group name (1080), action (1079).
 * @param[in,out] msg       the 40-byte header record, or the session packet
 * @param[in]     group     the group's name
 * @param[in]     action    its low byte is sent; the meaning is the caller's and the server's
 * @param[out]    iov_out   the io-vector array; not used in session mode
 * @param[out]    count_out its number of elements; not used in session mode
 * @param[out]    buffer    room for the packed list; not used in session mode
 * @param[in]     size      bytes of buffer. A packet carries type 18 if buffer is not null and size not 0,
 *                          else type 0; the list goes with it either way.
 * @param[in]     session   0 for a classic message, else a session packet
 *
 * Ownership: *Borrowed* until the message is sent, and *Caller frees* the array; the list is the routine's
 * own, or *Handed over* to the packet's consumer; see above.
 * @return
 * - AAA_OK: composed
 * - the usual codes
 * - AAA_ERR_INVALID_ARG: group is null
 */
AAA_API cerrno aaa_util_msg_cfg_rad_svrgrp_compose(void *msg, const char *group, uint32_t action,
                                                   iov_t **iov_out, uint32_t *count_out, char *buffer,
                                                   uint32_t size, uint32_t session);

/**
 * Composes the configuration of a server in a server group (type 19).
 *
 * Elements: header, 40; packed list. The caller's number at offset 32 goes to network order. Attributes in
 * order: group name (1080), action (1079), address (1073, 20 bytes), authentication port (1074),
 * accounting port (1075).
 * @param[in,out] msg       the 40-byte header record, or the session packet
 * @param[in]     group     the group's name
 * @param[in]     server    the server; its action, secret and timers are not sent
 * @param[in]     action    its low byte is sent; the meaning is the caller's and the server's
 * @param[out]    iov_out   the io-vector array; not used in session mode
 * @param[out]    count_out its number of elements; not used in session mode
 * @param[out]    buffer    room for the packed list; not used in session mode
 * @param[in]     size      bytes of buffer. A packet carries type 19 if buffer is not null and size not 0,
 *                          else type 0; the list goes with it either way.
 * @param[in]     session   0 for a classic message, else a session packet
 *
 * Ownership: *Borrowed* until the message is sent, and *Caller frees* the array; the list is the routine's
 * own, or *Handed over* to the packet's consumer; see above.
 * @return
 * - AAA_OK: composed
 * - the usual codes
 * - AAA_ERR_INVALID_ARG: group or server is null
 */
AAA_API cerrno aaa_util_msg_cfg_svr_in_sg_compose(void *msg, const char *group,
                                                  const aaa_rad_server_t *server, uint32_t action,
                                                  iov_t **iov_out, uint32_t *count_out, char *buffer,
                                                  uint32_t size, uint32_t session);

/**
 * Composes the configuration of a VRF in a server group (type 20).
 *
 * Elements: header, 40; packed list. The caller's number at offset 32 goes to network order. Attributes in
 * order: group name (1080), action (1079), VRF name (1081).
 * @param[in,out] msg       the 40-byte header record, or the session packet
 * @param[in]     group     the group's name
 * @param[in]     vrf       the VRF's name
 * @param[in]     action    its low byte is sent; the meaning is the caller's and the server's
 * @param[out]    iov_out   the io-vector array; not used in session mode
 * @param[out]    count_out its number of elements; not used in session mode
 * @param[out]    buffer    room for the packed list; not used in session mode
 * @param[in]     size      bytes of buffer. A packet carries type 20 if buffer is not null and size not 0,
 *                          else type 0; the list goes with it either way.
 * @param[in]     session   0 for a classic message, else a session packet
 *
 * Ownership: *Borrowed* until the message is sent, and *Caller frees* the array; the list is the routine's
 * own, or *Handed over* to the packet's consumer; see above.
 * @return
 * - AAA_OK: composed
 * - the usual codes
 * - AAA_ERR_INVALID_ARG: group or vrf is null
 */
AAA_API cerrno aaa_util_msg_cfg_vrf_in_sg_compose(void *msg, const char *group, const char *vrf,
                                                  uint32_t action, iov_t **iov_out, uint32_t *count_out,
                                                  char *buffer, uint32_t size, uint32_t session);

/**
 * Composes the configuration of a source interface in a server group (type 21).
 *
 * Elements: header, 40; packed list. The caller's number at offset 32 goes to network order. Attributes in
 * order: interface name (1082), action (1079), VRF name (1081), group name (1080).
 * @param[in,out] msg            the 40-byte header record, or the session packet
 * @param[in]     interface_name the interface's name
 * @param[in]     vrf            the VRF's name
 * @param[in]     action         its low byte is sent; the meaning is the caller's and the server's
 * @param[in]     group          the group's name
 * @param[out]    iov_out        the io-vector array; not used in session mode
 * @param[out]    count_out      its number of elements; not used in session mode
 * @param[out]    buffer         room for the packed list; not used in session mode
 * @param[in]     size           bytes of buffer. A packet carries type 21 if buffer is not null and size
 *                               not 0, else type 0; the list goes with it either way.
 * @param[in]     session        0 for a classic message, else a session packet
 *
 * Ownership: *Borrowed* until the message is sent, and *Caller frees* the array; the list is the routine's
 * own, or *Handed over* to the packet's consumer; see above.
 * @return
 * - AAA_OK: composed
 * - the usual codes
 * - AAA_ERR_INVALID_ARG: a name is null
 */
AAA_API cerrno aaa_util_msg_cfg_src_intf_in_sg_compose(void *msg, const char *interface_name, const char *vrf,
                                                       uint32_t action, const char *group, iov_t **iov_out,
                                                       uint32_t *count_out, char *buffer, uint32_t size,
                                                       uint32_t session);

/**
 * Composes the configuration of an authentication method list (type 22).
 *
 * Elements: header, 40; packed list. The caller's number at offset 32 goes to network order. Attributes in
 * order: list name (1083), the low bytes of all four methods (1084), all four group names (1080), action
 * (1079); an unused group slot is sent as a lone terminator.
 * @param[in,out] msg       the 40-byte header record, or the session packet
 * @param[in]     mlist     the method list
 * @param[in]     action    its low byte is sent; the meaning is the caller's and the server's
 * @param[out]    iov_out   the io-vector array; not used in session mode
 * @param[out]    count_out its number of elements; not used in session mode
 * @param[out]    buffer    room for the packed list; not used in session mode
 * @param[in]     size      bytes of buffer. A packet carries type 22 if buffer is not null and size not 0,
 *                          else type 0; the list goes with it either way.
 * @param[in]     session   0 for a classic message, else a session packet
 *
 * Ownership: *Borrowed* until the message is sent, and *Caller frees* the array; the list is the routine's
 * own, or *Handed over* to the packet's consumer; see above.
 * @return
 * - AAA_OK: composed
 * - the usual codes
 * - AAA_ERR_INVALID_ARG: mlist is null
 */
AAA_API cerrno aaa_util_msg_cfg_authenlist_compose(void *msg, const aaa_method_list_t *mlist, uint32_t action,
                                                   iov_t **iov_out, uint32_t *count_out, char *buffer,
                                                   uint32_t size, uint32_t session);

/**
 * Composes the configuration of an authorization method list (type 23).
 *
 * Elements: header, 40; packed list. The caller's number at offset 32 goes to network order. Attributes in
 * order: list name (1083), the low bytes of all four methods (1084), all four group names (1080), action
 * (1079); an unused group slot is sent as a lone terminator.
 * @param[in,out] msg       the 40-byte header record, or the session packet
 * @param[in]     mlist     the method list
 * @param[in]     action    its low byte is sent; the meaning is the caller's and the server's
 * @param[out]    iov_out   the io-vector array; not used in session mode
 * @param[out]    count_out its number of elements; not used in session mode
 * @param[out]    buffer    room for the packed list; not used in session mode
 * @param[in]     size      bytes of buffer. A packet carries type 23 if buffer is not null and size not 0,
 *                          else type 0; the list goes with it either way.
 * @param[in]     session   0 for a classic message, else a session packet
 *
 * Ownership: *Borrowed* until the message is sent, and *Caller frees* the array; the list is the routine's
 * own, or *Handed over* to the packet's consumer; see above.
 * @return
 * - AAA_OK: composed
 * - the usual codes
 * - AAA_ERR_INVALID_ARG: mlist is null
 */
AAA_API cerrno aaa_util_msg_cfg_authorlist_compose(void *msg, const aaa_method_list_t *mlist, uint32_t action,
                                                   iov_t **iov_out, uint32_t *count_out, char *buffer,
                                                   uint32_t size, uint32_t session);

#ifdef __cplusplus
}
#endif

#endif /* AAA_MESSAGES_H */
