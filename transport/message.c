/* SPDX-License-Identifier: Apache-2.0 */

/*
 * Reading received messages: their form, the part before the list, the list.
 * The peer's fields are not trusted: no read passes the end of the message.
 */

#include <arpa/inet.h>
#include <string.h>

#include "aaa/checked.h"
#include "aaa/messages.h"
#include "aaa/names.h"
#include "aaa/result_codes.h"
#include "aaa/session_packets.h"
#include "aaa/transport.h"

#define SESSION_MARKER  16
#define SESSION_MAGIC   0x414E
#define SESSION_VERSION 2

/* Sizes of the header elements of classic messages, bytes. */
#define SHORT_REQUEST   offsetof(aaa_req_hdr_t, param)
#define LONG_REQUEST    sizeof(aaa_req_hdr_t)
#define CALLER_BLOCK    64u
#define ACCOUNTING_ID   sizeof(uint32_t)
#define BARE_REPLY      offsetof(aaa_reply_hdr_t, status)
#define STATUS_REPLY    offsetof(aaa_reply_hdr_t, second)
#define TWO_WORDS_REPLY offsetof(aaa_reply_hdr_t, tail28)
#define CONNECT_REPLY   sizeof(aaa_reply_hdr_t)

static_assert(sizeof(((aaa_req_hdr_t *)0)->transport0) == AAA_TRANSPORT_FIELDS, "the transport's fields");
static_assert(sizeof(((aaa_reply_hdr_t *)0)->transport0) == AAA_TRANSPORT_FIELDS, "the transport's fields");

static uint32_t word_at(const aaa_transport_msg_t *msg, size_t offset) {
    uint32_t word;
    memcpy(&word, msg->u.bytes + offset, sizeof word);
    return word;
}

aaa_transport_kind_t aaa_transport_kind_of(const aaa_transport_msg_t *msg) {
    aaa_sess_hdr_t packet;
    if (msg == NULL || msg->len < AAA_TRANSPORT_FIELDS || msg->len > sizeof msg->u.bytes) {
        return AAA_TRANSPORT_GARBAGE;
    }
    if (word_at(msg, 0) == AAA_TRANSPORT_MAGIC) {
        return word_at(msg, sizeof(uint32_t)) == msg->len ? AAA_TRANSPORT_CLASSIC : AAA_TRANSPORT_GARBAGE;
    }
    if (msg->len < sizeof packet) {
        return AAA_TRANSPORT_GARBAGE;
    }
    memcpy(&packet, msg->u.bytes, sizeof packet);
    return packet.marker == SESSION_MARKER && packet.magic == SESSION_MAGIC &&
                   packet.version == SESSION_VERSION
               ? AAA_TRANSPORT_SESSION
               : AAA_TRANSPORT_GARBAGE;
}

uint32_t aaa_transport_patience_of(const aaa_transport_msg_t *msg) {
    return aaa_transport_kind_of(msg) == AAA_TRANSPORT_CLASSIC ? word_at(msg, 4 * sizeof(uint32_t)) : 0;
}

size_t aaa_transport_response_size(uint32_t type) {
    switch (type) {
#define AAA_RESPONSE_SIZE(row_type, row_size) \
    case row_type:                            \
        return row_size;
#include "aaa/lib/util/src/internal/response_sizes.def"
        default:
            return AAA_SESS_RSP_SIZE_OTHER;
    }
}

/* ---- requests ------------------------------------------------------------- */

/* Offset of the list in a classic request; 0 for a type without a list. */
static size_t request_list_at(uint32_t type) {
    switch (type) {
        case AAA_REQ_AUTHEN:
        case AAA_REQ_AUTHOR:
        case AAA_REQ_ACCT:
        case AAA_REQ_FREE_USERDATA:
        case AAA_REQ_CFG_RADSVR:
        case AAA_REQ_CFG_SVRGRP:
        case AAA_REQ_CFG_SVR_IN_SG:
        case AAA_REQ_CFG_VRF_IN_SG:
        case AAA_REQ_CFG_SRC_INTF:
        case AAA_REQ_CFG_AUTHENLIST:
        case AAA_REQ_CFG_AUTHORLIST:
            return LONG_REQUEST;
        case AAA_REQ_AUTHEN_ASYNC:
        case AAA_REQ_AUTHOR_ASYNC:
        case AAA_REQ_ACCT_ASYNC:
            return LONG_REQUEST + CALLER_BLOCK;
        case AAA_REQ_ACCT_UPDATE:
            return LONG_REQUEST + CALLER_BLOCK + ACCOUNTING_ID;
        case AAA_REQ_IKEPOST:
        case AAA_REQ_COMPOSED_INCREMENT:
        case AAA_REQ_COMPOSED_DECREMENT:
            return SHORT_REQUEST;
        default:
            return 0;
    }
}

static void read_packet_head(const aaa_transport_msg_t *msg, aaa_transport_head_t *head) {
    head->type = word_at(msg, offsetof(aaa_sess_hdr_t, type));
    head->key = word_at(msg, offsetof(aaa_sess_hdr_t, key));
}

static void read_classic_request(const aaa_transport_msg_t *msg, aaa_transport_head_t *head) {
    head->type = word_at(msg, offsetof(aaa_req_hdr_t, type));
    head->list_at = request_list_at(head->type);
}

static void read_session_request(const aaa_transport_msg_t *msg, aaa_transport_head_t *head) {
    read_packet_head(msg, head);
    head->list_at = request_list_at(head->type) != 0 ? sizeof(aaa_sess_request_t) : 0;
}

cerrno aaa_transport_read_request(const aaa_transport_msg_t *msg, aaa_transport_head_t *head_out) {
    if (msg == NULL || head_out == NULL) {
        return AAA_ERR_INVALID_ARG;
    }
    *head_out = (aaa_transport_head_t){.kind = aaa_transport_kind_of(msg)};
    if (head_out->kind == AAA_TRANSPORT_GARBAGE) {
        return AAA_ERR_INVALID_MSG_TYPE;
    }
    if (head_out->kind == AAA_TRANSPORT_SESSION) {
        read_session_request(msg, head_out);
    } else if (msg->len >= SHORT_REQUEST) {
        read_classic_request(msg, head_out);
    } else {
        return AAA_ERR_INVALID_MSG_SIZE;
    }
    if (head_out->list_at > msg->len) {
        head_out->list_at = 0;
        return AAA_ERR_INVALID_MSG_SIZE;
    }
    return AAA_OK;
}

/* ---- replies ---------------------------------------------------------------- */

/* Size of the header of a classic reply. The result is its status word. */
static size_t reply_header(uint32_t type) {
    switch (type) {
        case AAA_REQ_CONNECT:
            return CONNECT_REPLY;
        case AAA_REQ_CALLBACK:
        case AAA_REQ_CFG_RADSVR:
        case AAA_REQ_CFG_SVRGRP:
        case AAA_REQ_CFG_SVR_IN_SG:
        case AAA_REQ_CFG_VRF_IN_SG:
        case AAA_REQ_CFG_SRC_INTF:
        case AAA_REQ_CFG_AUTHENLIST:
        case AAA_REQ_CFG_AUTHORLIST:
            return TWO_WORDS_REPLY;
        default:
            return STATUS_REPLY;
    }
}

/* Whether a successful reply may have only the transport's fields. */
static int bare_is_success(uint32_t type) {
    return type == AAA_REQ_ACCT || type == AAA_REQ_ACCT_ASYNC || type == AAA_REQ_ACCT_UPDATE ||
           type == AAA_REQ_PING || type == AAA_REQ_IKEPOST || type == AAA_REQ_DISCONNECT;
}

static cerrno read_classic_reply(const aaa_transport_msg_t *msg, uint32_t type, aaa_transport_head_t *head) {
    head->type = type;
    if (type == AAA_REQ_TASKMAP || type == AAA_REQ_USERGROUP ||
        (bare_is_success(type) && msg->len == BARE_REPLY)) {
        return AAA_OK;
    }
    if (msg->len < STATUS_REPLY) {
        return AAA_ERR_INVALID_MSG_SIZE;
    }
    uint32_t status = word_at(msg, offsetof(aaa_reply_hdr_t, status));
    head->result = type == AAA_REQ_AUTHOR_ASYNC ? status : ntohl(status); /* the only result in host order */
    size_t header = reply_header(type); /* a reply with an error may be shorter */
    head->list_at = msg->len > header ? header : 0;
    return AAA_OK;
}

/* Offset of the error in a response packet. */
static size_t error_at(uint32_t type) {
    switch (type) {
        case AAA_REQ_CONNECT:
            return offsetof(aaa_sess_response_t, u.word[3]);
        case AAA_REQ_AUTHEN:
        case AAA_REQ_AUTHEN_ASYNC:
        case AAA_REQ_AUTHOR:
        case AAA_REQ_AUTHOR_ASYNC:
        case AAA_REQ_ACCT:
        case AAA_REQ_ACCT_ASYNC:
        case AAA_REQ_ACCT_UPDATE:
            return offsetof(aaa_sess_response_t, u.word[1]);
        default:
            return offsetof(aaa_sess_response_t, u.word[0]);
    }
}

static cerrno read_session_reply(const aaa_transport_msg_t *msg, uint32_t type, aaa_transport_head_t *head) {
    read_packet_head(msg, head);
    if (head->type != type) {
        return AAA_ERR_UNEXPECTED_REPLY;
    }
    size_t size = aaa_transport_response_size(type);
    if (msg->len < size) {
        return AAA_ERR_INVALID_MSG_SIZE;
    }
    head->result = word_at(msg, error_at(type));
    head->list_at = msg->len > size ? size : 0;
    return AAA_OK;
}

cerrno aaa_transport_read_reply(const aaa_transport_msg_t *msg, uint32_t type,
                                aaa_transport_head_t *head_out) {
    if (msg == NULL || head_out == NULL) {
        return AAA_ERR_INVALID_ARG;
    }
    *head_out = (aaa_transport_head_t){.kind = aaa_transport_kind_of(msg)};
    switch (head_out->kind) {
        case AAA_TRANSPORT_CLASSIC:
            return read_classic_reply(msg, type, head_out);
        case AAA_TRANSPORT_SESSION:
            return read_session_reply(msg, type, head_out);
        default:
            return AAA_ERR_INVALID_MSG_TYPE;
    }
}

/* ---- lists -------------------------------------------------------------------- */

cerrno aaa_transport_unpack(const aaa_transport_msg_t *msg, size_t list_at, avlist **list_out) {
    if (list_out == NULL) {
        return AAA_ERR_INVALID_ARG;
    }
    *list_out = NULL;
    if (msg == NULL) {
        return AAA_ERR_INVALID_ARG;
    }
    if (msg->len > sizeof msg->u.bytes || list_at > msg->len) {
        return AAA_ERR_INVALID_MSG_SIZE;
    }
    avlist *list = NULL;
    cerrno rc = aaa_avpair_create_list(NULL, &list);
    if (rc == AAA_OK) {
        rc = aaa_avpair_unpack_msg_checked(list, (const char *)msg->u.bytes + list_at, msg->len - list_at);
    }
    if (rc != AAA_OK) {
        aaa_avpair_free_list(list);
        return rc;
    }
    *list_out = list;
    return AAA_OK;
}
