/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_SESSION_PACKETS_H
#define AAA_SESSION_PACKETS_H

#include <assert.h>
#include <stddef.h>

#include "aaa/avpair.h"
#include "aaa/export.h"
#include "aaa/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @file
 * @brief Session packets: requests and replies of clients that use a session manager.
 *
 * A packet is a 72-byte header (sender, type, key, list) and a payload whose form
 * depends on the type. All numbers are in host order:
 * packets do not leave the machine. The compose routines of aaa/messages.h use
 * these functions when their session argument is not 0.
 *
 * **Room.** A packet carries no size and the functions cannot check one. A
 * request record must have 108 bytes for type 0, 80 for type 2, 335 for types
 * 11 and 16 with their data, 76 for the other types up to 26 and 72 for higher
 * ones. An aaa_sess_request_t (336 bytes) has room for all. No function writes
 * beyond the payload of the type that it is given. Alignment is not required.
 *
 * **The list.** The header holds the address of the attribute list, or 0. From
 * the successful fill on the list belongs to the consumer of the packet, which
 * frees it with aaa_avpair_free_list().
 *
 * **Threads.** The packet names the thread that filled it: fill it on the thread
 * that sends it.
 *
 * Refusals are traced under debug flag 5.
 */

/** Header of every packet. */
typedef struct aaa_sess_hdr {
    uint32_t marker;        /**< 16 */
    uint32_t key;           /**< 0 for requests, the context's key for responses */
    uint32_t type;          /**< message type */
    uint32_t option;        /**< 0 */
    uint32_t reserved16;    /**< 0 */
    uint32_t conn_id;       /**< 0, then aaa_session_mngr_set_connection_id */
    uint32_t pid;           /**< getpid() */
    uint32_t reserved28;    /**< 0 */
    uint32_t tid;           /**< qm_gettid() */
    uint16_t magic;         /**< 0x414E */
    uint8_t reserved38[14]; /**< 0 */
    uint32_t version;       /**< 2 */
    uint32_t reserved56;    /**< 0 */
    uint32_t unwritten60;   /**< left as it is in requests, 0 in responses */
    uint64_t list;          /**< address of the avlist, or 0 */
} aaa_sess_hdr_t;
static_assert(sizeof(aaa_sess_hdr_t) == 72, "layout of aaa_sess_hdr_t");
static_assert(offsetof(aaa_sess_hdr_t, marker) == 0, "layout of aaa_sess_hdr_t");
static_assert(offsetof(aaa_sess_hdr_t, key) == 4, "layout of aaa_sess_hdr_t");
static_assert(offsetof(aaa_sess_hdr_t, type) == 8, "layout of aaa_sess_hdr_t");
static_assert(offsetof(aaa_sess_hdr_t, option) == 12, "layout of aaa_sess_hdr_t");
static_assert(offsetof(aaa_sess_hdr_t, reserved16) == 16, "layout of aaa_sess_hdr_t");
static_assert(offsetof(aaa_sess_hdr_t, conn_id) == 20, "layout of aaa_sess_hdr_t");
static_assert(offsetof(aaa_sess_hdr_t, pid) == 24, "layout of aaa_sess_hdr_t");
static_assert(offsetof(aaa_sess_hdr_t, reserved28) == 28, "layout of aaa_sess_hdr_t");
static_assert(offsetof(aaa_sess_hdr_t, tid) == 32, "layout of aaa_sess_hdr_t");
static_assert(offsetof(aaa_sess_hdr_t, magic) == 36, "layout of aaa_sess_hdr_t");
static_assert(offsetof(aaa_sess_hdr_t, reserved38) == 38, "layout of aaa_sess_hdr_t");
static_assert(offsetof(aaa_sess_hdr_t, version) == 52, "layout of aaa_sess_hdr_t");
static_assert(offsetof(aaa_sess_hdr_t, reserved56) == 56, "layout of aaa_sess_hdr_t");
static_assert(offsetof(aaa_sess_hdr_t, unwritten60) == 60, "layout of aaa_sess_hdr_t");
static_assert(offsetof(aaa_sess_hdr_t, list) == 64, "layout of aaa_sess_hdr_t");

/** Data of types 11 (task map) and 16 (user group), at packet offset 72. */
typedef struct aaa_sess_type_data {
    uint32_t unused0;   /**< not the data's: a response has its error here */
    uint32_t length;    /**< bytes that count, at most 255 */
    uint8_t bytes[255]; /**< a text without its terminator */
    uint8_t pad263;     /**< never written */
} aaa_sess_type_data_t;
static_assert(sizeof(aaa_sess_type_data_t) == 264, "layout of aaa_sess_type_data_t");
static_assert(offsetof(aaa_sess_type_data_t, unused0) == 0, "layout of aaa_sess_type_data_t");
static_assert(offsetof(aaa_sess_type_data_t, length) == 4, "layout of aaa_sess_type_data_t");
static_assert(offsetof(aaa_sess_type_data_t, bytes) == 8, "layout of aaa_sess_type_data_t");
static_assert(offsetof(aaa_sess_type_data_t, pad263) == 263, "layout of aaa_sess_type_data_t");

/** Request packet; as large as any type needs. */
typedef struct aaa_sess_request {
    aaa_sess_hdr_t hdr;
    union {
        uint8_t zero36[36];             /**< type 0 */
        uint32_t word;                  /**< type 1: 0; 3-7 and 13-23: value_b; 8-12 and 24-26: value_a */
        uint64_t quad;                  /**< type 2: 0 */
        aaa_sess_type_data_t type_data; /**< types 11 and 16 */
    } u;
} aaa_sess_request_t;
static_assert(sizeof(aaa_sess_request_t) == 336, "layout of aaa_sess_request_t");
static_assert(offsetof(aaa_sess_request_t, hdr) == 0, "layout of aaa_sess_request_t");
static_assert(offsetof(aaa_sess_request_t, u) == 72, "layout of aaa_sess_request_t");

/** Response packet; the block is only as large as its type needs, see the sizes below. */
typedef struct aaa_sess_response {
    aaa_sess_hdr_t hdr;
    union {
        uint32_t word[4]; /**< offsets 72, 76, 80, 84 */
        aaa_sess_type_data_t type_data;
    } u;
} aaa_sess_response_t;
static_assert(sizeof(aaa_sess_response_t) == 336, "layout of aaa_sess_response_t");
static_assert(offsetof(aaa_sess_response_t, hdr) == 0, "layout of aaa_sess_response_t");
static_assert(offsetof(aaa_sess_response_t, u) == 72, "layout of aaa_sess_response_t");

#define AAA_SESS_RSP_SIZE_STATUS 88  /**< types 0, 3 to 8, 14 and 15 */
#define AAA_SESS_RSP_SIZE_DATA   336 /**< types 11 and 16 */
#define AAA_SESS_RSP_SIZE_OTHER  80  /**< every other type up to 26 */

/** The request that a response answers. */
typedef struct aaa_sess_ctx {
    uint32_t type; /**< message type of the request */
    uint32_t key;  /**< goes into the response's header */
} aaa_sess_ctx_t;
static_assert(sizeof(aaa_sess_ctx_t) == 8, "layout of aaa_sess_ctx_t");
static_assert(offsetof(aaa_sess_ctx_t, type) == 0, "layout of aaa_sess_ctx_t");
static_assert(offsetof(aaa_sess_ctx_t, key) == 4, "layout of aaa_sess_ctx_t");

/**
 * Fills a request packet: the header with key 0, then the payload of the type.
 *
 * The payload is 36 zero bytes for type 0, a zero word for type 1, a zero
 * 64-bit word for type 2, value_b for types 3 to 7 and 13 to 23, and value_a
 * for types 8 to 12 and 24 to 26. A higher type gets its header and list but no
 * payload; that is traced and still a success. Bytes 60 to 63 of the header are
 * never written.
 * @param[out] packet  the record to fill; see "Room" above
 * @param[in]  list    the attribute list to travel with the packet; may be null
 * @param[in]  type    message type
 * @param[in]  value_a see above
 * @param[in]  value_b see above
 *
 * Ownership: on success the list is *Handed over* to the packet's consumer.
 * @return
 * - AAA_OK: filled
 * - AAA_ERR_INVALID_ARG: packet is null
 */
AAA_API cerrno aaa_session_fill_request(void *packet, avlist *list, uint32_t type, uint32_t value_a,
                                        uint32_t value_b);

/**
 * Makes the response packet that answers a request.
 *
 * Type and key come from the context. Payload words by type, the first at
 * offset 72; the words not named are 0:
 * - 0: conid, 2, 0, error
 * - 3 to 7: status, error, roleover; status and roleover only when error is not 0
 * - 14, 15: 1 when error is not 0, error, roleover when error is not 0
 * - 8: error, ctype, nfnhdl
 * - every other type up to 26: error
 * @param[out] packet_out the packet, null when none could be made; may be null: the packet is
 *                        released again then
 * @param[in]  list       the attribute list to travel with the packet; may be null
 * @param[in]  context    the request that is answered
 * @param[in]  error      as above
 * @param[in]  roleover   as above
 * @param[in]  status     as above
 * @param[in]  conid      as above
 * @param[in]  ctype      as above
 * @param[in]  nfnhdl     as above
 *
 * Ownership: *Caller frees* the packet with free(). The list is *Handed over* to the
 * packet's consumer when a packet is given out, and stays the caller's otherwise.
 * @return
 * - AAA_OK: the packet is made, or the context's type is above 26 and there is none
 * - AAA_ERR_INVALID_ARG: context is null; packet_out is untouched
 * - AAA_ERR_NOMEM: no memory; the packet is null
 */
AAA_API cerrno aaa_session_fill_response(void **packet_out, avlist *list, aaa_sess_ctx_t *context,
                                         uint32_t error, uint32_t roleover, uint32_t status, uint32_t conid,
                                         uint32_t ctype, uint32_t nfnhdl);

/**
 * Stores the connection id, which a fill leaves at 0, in a packet.
 * @param[in,out] packet a filled packet
 * @param[in]     id     the id
 *
 * Ownership: *Borrowed* for the call.
 * @return
 * - AAA_OK: stored
 * - AAA_ERR_INVALID_ARG: packet is null
 */
AAA_API cerrno aaa_session_mngr_set_connection_id(void *packet, uint32_t id);

/**
 * Puts data into a request of type 11 or 16.
 *
 * At most 255 bytes are taken whole; anything longer is cut to 254, not 255.
 * Other types carry no data: nothing is copied, and that is a success.
 * @param[out] payload packet + 72, with room for 263 bytes
 * @param[in]  data    the bytes
 * @param[in]  length  bytes of data, for a text without its terminator
 * @param[in]  type    message type of the packet
 *
 * Ownership: *Copied in*.
 * @return
 * - AAA_OK: stored, or type is neither 11 nor 16
 * - AAA_ERR_INVALID_ARG: payload or data is null
 */
AAA_API cerrno aaa_sess_fill_msg_req_type_data(void *payload, const void *data, uint32_t length,
                                               uint32_t type);

/**
 * Puts data into a response of type 11 or 16.
 *
 * As aaa_sess_fill_msg_req_type_data(), but a type without data is refused. The
 * packet must have been made for type 11 or 16: others are too short.
 * @param[out] payload packet + 72, with room for 263 bytes
 * @param[in]  data    the bytes
 * @param[in]  length  bytes of data; over 255 is cut to 254
 * @param[in]  type    message type of the packet
 *
 * Ownership: *Copied in*.
 * @return
 * - AAA_OK: stored
 * - AAA_ERR_INVALID_ARG: payload or data is null, or type is neither 11 nor 16
 */
AAA_API cerrno aaa_sess_fill_msg_res_type_data(void *payload, const void *data, uint32_t length,
                                               uint32_t type);

/**
 * Copies the data out of a request of type 11 or 16.
 *
 * The stored length is foreign and is not trusted: at most 255 bytes are copied
 * whole, a larger length counts as 254. No terminator is added.
 * @param[in]  payload    packet + 72, all 263 bytes of it readable
 * @param[out] data_out   room for 255 bytes
 * @param[out] length_out bytes copied
 * @param[in]  type       message type of the packet
 *
 * Ownership: *Copied in* to the caller's memory.
 * @return
 * - AAA_OK: copied
 * - AAA_ERR_INVALID_ARG: a pointer is null, or type is neither 11 nor 16; outputs untouched
 */
AAA_API cerrno aaa_sess_get_msg_req_type_data(const void *payload, void *data_out, uint32_t *length_out,
                                              uint32_t type);

/**
 * Copies the data out of a response of type 11 or 16.
 *
 * As aaa_sess_get_msg_req_type_data(), but for its answer to a type without data.
 * @param[in]  payload    packet + 72, all 263 bytes of it readable
 * @param[out] data_out   room for 255 bytes
 * @param[out] length_out bytes copied
 * @param[in]  type       message type of the packet
 *
 * Ownership: *Copied in* to the caller's memory.
 * @return
 * - AAA_OK: copied
 * - AAA_ERR_INVALID_ARG: a pointer is null; outputs untouched
 * - 0xFFFFFFFF: type is neither 11 nor 16; outputs untouched
 */
AAA_API cerrno aaa_sess_get_msg_res_type_data(const void *payload, void *data_out, uint32_t *length_out,
                                              uint32_t type);

#ifdef __cplusplus
}
#endif

#endif /* AAA_SESSION_PACKETS_H */
