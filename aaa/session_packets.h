/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_SESSION_PACKETS_H
#define AAA_SESSION_PACKETS_H

#include "aaa/export.h"
#include "aaa/types.h"
#include "aaa/avpair.h"

#ifdef __cplusplus
extern "C" {
#endif

/* session packet header, 72 bytes, host byte order */
typedef struct aaa_sess_hdr {
    uint32_t marker;       /* 16 */
    uint32_t key;          /* 0 for requests, the context's key for responses */
    uint32_t type;         /* message type */
    uint32_t option;       /* 0 */
    uint32_t reserved16;   /* 0 */
    uint32_t conn_id;      /* 0, then aaa_session_mngr_set_connection_id */
    uint32_t pid;          /* getpid() */
    uint32_t reserved28;   /* 0 */
    uint32_t tid;          /* qm_gettid() */
    uint16_t magic;        /* 0x414E */
    uint8_t  reserved38[14];
    uint32_t version;      /* 2 */
    uint32_t reserved56;   /* 0 */
    uint32_t unwritten60;  /* not written */
    uint64_t list;         /* avlist handle or 0 */
} aaa_sess_hdr_t;
/* sizeof(aaa_sess_hdr_t) == 72 */

/* type data of types 11 and 16, at packet offset 72 */
typedef struct aaa_sess_type_data {
    uint32_t unused0;
    uint32_t length;
    uint8_t  bytes[255];
    uint8_t  pad263;
} aaa_sess_type_data_t;
/* sizeof(aaa_sess_type_data_t) == 264 */

/* request packet: payload by type; the union is as large as any type needs */
typedef struct aaa_sess_request {
    aaa_sess_hdr_t hdr;
    union {
        uint8_t              zero36[36]; /* type 0 */
        uint32_t             word;       /* type 1: 0; 3-7 and 13-23: value_b; 8-12 and 24-26: value_a */
        uint64_t             quad;       /* type 2: 0 */
        aaa_sess_type_data_t type_data;  /* types 11 and 16 */
    } u;
} aaa_sess_request_t;
/* sizeof(aaa_sess_request_t) == 336 */

/* response packet: 88 bytes (types 0, 3-8, 14, 15), 336 (11, 16), 80 (all others) */
typedef struct aaa_sess_response {
    aaa_sess_hdr_t hdr;
    union {
        uint32_t             word[4]; /* offsets 72, 76, 80, 84 */
        aaa_sess_type_data_t type_data;
    } u;
} aaa_sess_response_t;
/* sizeof(aaa_sess_response_t) == 336 */
#define AAA_SESS_RSP_SIZE_STATUS 88
#define AAA_SESS_RSP_SIZE_DATA   336
#define AAA_SESS_RSP_SIZE_OTHER  80

/* session context: "its first u32 is the request's message type and it carries the key" */
typedef struct aaa_sess_ctx {
    uint32_t type;
    uint32_t key;
} aaa_sess_ctx_t;

AAA_API cerrno aaa_session_fill_request(void *packet, avlist *list, uint32_t type, uint32_t value_a, uint32_t value_b);
AAA_API cerrno aaa_session_fill_response(void **packet_out, avlist *list, aaa_sess_ctx_t *context, uint32_t error, uint32_t roleover, uint32_t status, uint32_t conid, uint32_t ctype, uint32_t nfnhdl);
AAA_API cerrno aaa_session_mngr_set_connection_id(void *packet, uint32_t id);
AAA_API cerrno aaa_sess_fill_msg_req_type_data(void *payload, const void *data, uint32_t length, uint32_t type);
AAA_API cerrno aaa_sess_fill_msg_res_type_data(void *payload, const void *data, uint32_t length, uint32_t type);
AAA_API cerrno aaa_sess_get_msg_req_type_data(const void *payload, void *data_out, uint32_t *length_out, uint32_t type);
AAA_API cerrno aaa_sess_get_msg_res_type_data(const void *payload, void *data_out, uint32_t *length_out, uint32_t type);

#ifdef __cplusplus
}
#endif

#endif /* AAA_SESSION_PACKETS_H */
