// SPDX-License-Identifier: Apache-2.0
//
// The kinds of messages, element by element, as in docs/wire-format.md.

#include <algorithm>

#include "aaa/messages.h"
#include "aaa/names.h"
#include "aaa/session_packets.h"
#include "message/message_reader.hpp"

namespace aaactl {
namespace {

constexpr size_t kFullPacket = sizeof(aaa_sess_request_t);  // a request record has room for every type
constexpr size_t kMostData = sizeof(aaa_sess_type_data_t::bytes);
constexpr size_t kTypeAt = offsetof(aaa_req_hdr_t, type);
constexpr size_t kShortestRequest = offsetof(aaa_req_hdr_t, param);
constexpr size_t kBlock = 64;   // private to the sender; the library does not interpret it
constexpr uint32_t kLast = 26;  // the highest type that has session packets

// ---- Classic messages -----------------------------------------------------------

void read_list(Reader &reader) {
    reader.list();
    reader.end();
}

void read_connect(Reader &reader) {
    const Record *header = reader.record("request-connect");
    if (header == nullptr) {
        return;
    }
    const size_t length = header->number("text1_length");
    if (length > reader.left()) {
        reader.fail(offsetof(aaa_conn_msg_t, str1_len),
                    "the first text has a length of " + std::to_string(length) + ", but there are only " +
                        count_of(reader.left(), "byte"),
                    AAA_ERR_INVALID_MSG_SIZE);
        return;
    }
    reader.bytes("text1", length);
    reader.remainder("text2");
}

void read_plain(Reader &reader) {
    reader.record("request-32");
    reader.end();
}

void read_plain_text(Reader &reader) {
    reader.record("request-32");
    reader.remainder("text");
}

void read_plain_list(Reader &reader) {
    reader.record("request-32");
    reader.list();
    reader.end();
}

void read_callback(Reader &reader) {
    reader.record("request-36");
    reader.end();
}

void read_with_list(Reader &reader) {
    reader.record("request-40");
    reader.list();
    reader.end();
}

void read_with_block(Reader &reader) {
    reader.record("request-40");
    reader.bytes("block", kBlock);
    reader.list();
    reader.end();
}

void read_update(Reader &reader) {
    reader.record("request-40");
    reader.bytes("block", kBlock);
    reader.bytes("session", 4);
    reader.list();
    reader.end();
}

// The form of a request by its type; null for a type that no classic message has.
ReadFunction request_form(uint32_t type) {
    switch (type) {
        case AAA_REQ_CONNECT:
            return read_connect;
        case AAA_REQ_DISCONNECT:
        case AAA_REQ_PING:
            return read_plain;
        case AAA_REQ_CALLBACK:
            return read_callback;
        case AAA_REQ_AUTHEN:
        case AAA_REQ_AUTHOR:
        case AAA_REQ_ACCT:
        case AAA_REQ_FREE_USERDATA:
            return read_with_list;
        case AAA_REQ_AUTHEN_ASYNC:
        case AAA_REQ_AUTHOR_ASYNC:
        case AAA_REQ_ACCT_ASYNC:
            return read_with_block;
        case AAA_REQ_ACCT_UPDATE:
            return read_update;
        case AAA_REQ_TASKMAP:
        case AAA_REQ_USERGROUP:
            return read_plain_text;
        case AAA_REQ_IKEPOST:
        case AAA_REQ_COMPOSED_INCREMENT:
        case AAA_REQ_COMPOSED_DECREMENT:
            return read_plain_list;
        default:
            return type >= AAA_REQ_CFG_RADSVR && type <= AAA_REQ_CFG_AUTHORLIST ? read_with_list : nullptr;
    }
}

void read_request(Reader &reader) {
    if (reader.left() < kShortestRequest) {
        read_plain(reader);  // reports what is missing
        return;
    }
    const uint32_t type = host_word(reader.rest(), kTypeAt);
    if (const ReadFunction form = request_form(type)) {
        form(reader);
        return;
    }
    reader.record("request-32");
    reader.fail(kTypeAt, "no request has the type " + std::to_string(type), AAA_ERR_INVALID_MSG_TYPE);
}

// A request of one type only.
void require_type(Reader &reader, bool fits, const char *what) {
    if (reader.ok() && !fits) {
        reader.fail(kTypeAt, what, AAA_ERR_INVALID_MSG_TYPE);
    }
}

void read_config(Reader &reader) {
    const uint32_t type = reader.left() >= kShortestRequest ? host_word(reader.rest(), kTypeAt) : 0;
    read_request(reader);
    require_type(reader, type >= AAA_REQ_CFG_RADSVR && type <= AAA_REQ_CFG_AUTHORLIST,
                 "not a configuration message: its type is not 17 to 23");
}

void read_server_connect(Reader &reader) {
    if (const Record *header = reader.record("request-40")) {
        require_type(reader, header->number("type") == AAA_REQ_CONNECT,
                     "not a connect message: its type is not 0");
    }
    reader.bytes("block", kBlock);
    reader.end();
}

void read_server_disconnect(Reader &reader) {
    if (const Record *header = reader.record("request-server-disconnect")) {
        require_type(reader, header->number("type") == AAA_REQ_DISCONNECT,
                     "not a disconnect message: its type is not 1");
    }
    reader.bytes("data", 4);
    reader.end();
}

// ---- Replies --------------------------------------------------------------------

void read_reply(Reader &reader) {
    reader.record("reply-24");
    reader.optional_list();
    reader.end();
}

void read_reply_host(Reader &reader) {
    reader.record("reply-24-host-order");
    reader.end();
}

void read_reply_plain(Reader &reader) {
    reader.record("reply-20");
    reader.end();
}

void read_reply_callback(Reader &reader) {
    reader.record("reply-callback");
    reader.list();
    reader.end();
}

void read_reply_config(Reader &reader) {
    reader.record("reply-config");
    reader.end();
}

void read_reply_connect(Reader &reader) {
    reader.record("reply-connect");
    reader.end();
}

void read_reply_data(Reader &reader) {
    reader.record("reply-20");
    reader.remainder("data");
}

// ---- Session packets ------------------------------------------------------------

// Reads the header of a session packet; null for other bytes.
const Record *session_header(Reader &reader) {
    const Record *header = reader.record("session");
    if (header == nullptr) {
        return nullptr;
    }
    if (header->number("marker") != kSessionMarker) {
        reader.fail(offsetof(aaa_sess_hdr_t, marker), "the first word is not 16", AAA_ERR_INVALID_MSG_TYPE);
    } else if (header->number("magic") != 0x414e) {
        reader.fail(offsetof(aaa_sess_hdr_t, magic), "the magic is not 0x414e", AAA_ERR_INVALID_MSG_TYPE);
    } else if (header->number("version") != 2) {
        reader.fail(offsetof(aaa_sess_hdr_t, version), "the version is not 2", AAA_ERR_UNSUPPORTED_VERSION);
    }
    return reader.ok() ? header : nullptr;
}

bool has_type_data(uint32_t type) {
    return type == AAA_REQ_TASKMAP || type == AAA_REQ_USERGROUP;
}

void read_type_data(Reader &reader, const char *layout) {
    const size_t at = reader.at();
    const Record *record = reader.record(layout);
    if (record == nullptr) {
        return;
    }
    const size_t length = record->number("length");
    if (length > kMostData) {
        reader.fail(at + offsetof(aaa_sess_type_data_t, length),
                    "data of " + std::to_string(length) + " bytes, but at most " + std::to_string(kMostData) +
                        " are possible",
                    AAA_ERR_INVALID_MSG_SIZE);
        return;
    }
    reader.bytes("data", length);
    reader.leftover("unused", kMostData - length);
}

void read_request_payload(Reader &reader, uint32_t type) {
    if (has_type_data(type)) {
        read_type_data(reader, "session-data");
    } else if (type <= kLast) {
        reader.record(type == AAA_REQ_CONNECT           ? "session-connect"
                      : type == AAA_REQ_GET_LARGE_REPLY ? "session-large-reply"
                                                        : "session-value");
    }
}

// A sender may send the whole record, which has room for every type, or only what
// the type needs. The latter is recognised by a list that fills the rest exactly.
void read_session_request(Reader &reader) {
    const Record *header = session_header(reader);
    if (header == nullptr) {
        return;
    }
    read_request_payload(reader, static_cast<uint32_t>(header->number("type")));
    const size_t room = kFullPacket - std::min(kFullPacket, reader.at());
    if (reader.ok() && reader.left() >= room && !is_whole_list(reader.rest())) {
        reader.leftover("rest", room);
    }
    reader.optional_list();
    reader.end();
}

const char *response_layout(uint32_t type) {
    if (type == AAA_REQ_CONNECT) {
        return "session-reply-connect";
    }
    if (type == AAA_REQ_CALLBACK) {
        return "session-reply-callback";
    }
    const bool status = (type >= AAA_REQ_AUTHEN && type <= AAA_REQ_ACCT) || type == AAA_REQ_ACCT_ASYNC ||
                        type == AAA_REQ_ACCT_UPDATE;
    return status ? "session-reply-status" : "session-reply-error";
}

void read_session_response(Reader &reader) {
    const Record *header = session_header(reader);
    if (header == nullptr) {
        return;
    }
    const auto type = static_cast<uint32_t>(header->number("type"));
    if (type > kLast) {
        reader.fail(offsetof(aaa_sess_hdr_t, type), "there is no response of type " + std::to_string(type),
                    AAA_ERR_INVALID_MSG_TYPE);
    } else if (has_type_data(type)) {
        read_type_data(reader, "session-reply-data");
        reader.leftover("rest", kFullPacket - std::min(kFullPacket, reader.at()));
    } else {
        reader.record(response_layout(type));
    }
    reader.optional_list();
    reader.end();
}

constexpr Kind kKinds[] = {
    {"list", read_list, "list", true},
    {"session-request", read_session_request, "session", true},
    {"session-response", read_session_response, "session", true},
    {"request", read_request, "", true},
    {"config", read_config, "", false},
    {"server-connect", read_server_connect, "", true},
    {"server-disconnect", read_server_disconnect, "", true},
    {"reply-generic", read_reply, "reply", true},
    {"reply-callback", read_reply_callback, "reply", true},
    {"reply-config", read_reply_config, "reply", true},
    {"reply-connect", read_reply_connect, "reply", true},
    {"reply-accounting", read_reply_plain, "reply", true},
    {"reply-async-authentication", read_reply, "", false},
    {"reply-async-authorization", read_reply_host, "", false},
    {"reply-data", read_reply_data, "", false},
};

}  // namespace

std::span<const Kind> kinds() {
    return kKinds;
}

}  // namespace aaactl
