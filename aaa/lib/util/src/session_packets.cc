// SPDX-License-Identifier: Apache-2.0
//
// Session packets: a 72-byte header that identifies sender, type and key and
// names the attribute list by its handle, and a payload whose form follows the
// type. Everything is in host order; packets carry no size, so each fill writes
// exactly the payload of its type.

#include "aaa/session_packets.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "aaa/names.h"
#include "aaa/result_codes.h"
#include "internal/bytes.hpp"
#include "internal/messages.hpp"
#include "internal/trace.hpp"
#include "platform/node.h"

namespace {

using aaautil::load_u32;
using aaautil::msg::at;
using aaautil::msg::kPayloadAt;
using aaautil::msg::put_u32;

constexpr uint32_t kMarker = 16;
constexpr uint16_t kMagic = 0x414E;
constexpr uint32_t kVersion = 2;
constexpr std::size_t kHeaderWritten = offsetof(aaa_sess_hdr_t, unwritten60);
constexpr uint32_t kLastType = AAA_REQ_DESC_DECREMENT;  // types above it have no payload
constexpr std::size_t kConnectPayload = sizeof(aaa_sess_request_t::u.zero36);

// Type data: a length of at most kDataLimit is taken whole, a larger one is cut
// to kDataCut. The two differ; receivers rely on neither, senders see the cut.
constexpr uint32_t kDataLimit = 255;
constexpr uint32_t kDataCut = 254;
constexpr std::size_t kDataLengthAt = offsetof(aaa_sess_type_data_t, length);
constexpr std::size_t kDataBytesAt = offsetof(aaa_sess_type_data_t, bytes);

// Kept: asking a response of another type for its data is not an argument error.
constexpr cerrno kNoResponseData = 0xFFFFFFFFu;

constexpr char kInvalidMsg[] = "Failed Invalid input: msg";
constexpr char kInvalidData[] = "Failed Invalid input: data";
constexpr char kInvalidType[] = "Failed Invalid input: type";

void log(const char *text) noexcept {
    aaa_debug(AAA_DBG_LINES_SESSION, text);
}

[[nodiscard]] cerrno refuse(const char *text) noexcept {
    log(text);
    return AAA_ERR_INVALID_ARG;
}

// Bytes 60 to 63 are left as they are.
void fill_header(void *packet, const avlist *list, uint32_t type, uint32_t key) noexcept {
    aaa_debug(AAA_DBG_LINES_SESSION, "[%s] == \nType   : %d\nOption : %d\nKey    : %d\n", __func__, type, 0u,
              key);
    aaa_sess_hdr_t hdr{};
    hdr.marker = kMarker;
    hdr.key = key;
    hdr.type = type;
    hdr.pid = static_cast<uint32_t>(getpid());
    hdr.tid = static_cast<uint32_t>(qm_gettid());
    hdr.magic = kMagic;
    hdr.version = kVersion;
    hdr.list = reinterpret_cast<uintptr_t>(list);
    std::memcpy(packet, &hdr, kHeaderWritten);
    std::memcpy(at(packet, offsetof(aaa_sess_hdr_t, list)), &hdr.list, sizeof hdr.list);
}

void fill_request_payload(void *packet, uint32_t type, uint32_t value_a, uint32_t value_b) noexcept {
    unsigned char *payload = at(packet, kPayloadAt);
    switch (type) {
        case AAA_REQ_CONNECT:
            std::memset(payload, 0, kConnectPayload);
            return;
        case AAA_REQ_DISCONNECT:
            put_u32(payload, 0, 0);
            return;
        case AAA_REQ_GET_LARGE_REPLY:
            std::memset(payload, 0, sizeof(uint64_t));
            return;
        case AAA_REQ_CALLBACK:
        case AAA_REQ_PING:
        case AAA_REQ_IKEPOST:
        case AAA_REQ_TASKMAP:
        case AAA_REQ_FREE_USERDATA:
        case AAA_REQ_COMPOSED_INCREMENT:
        case AAA_REQ_COMPOSED_DECREMENT:
        case AAA_REQ_DESC_DECREMENT:
            put_u32(payload, 0, value_a);
            return;
        default:
            put_u32(payload, 0, value_b);
            return;
    }
}

// Values of a response; the type decides which of them are sent.
struct Response {
    uint32_t error, roleover, status, conid, ctype, nfnhdl;
};

[[nodiscard]] std::size_t response_size(uint32_t type) noexcept {
    switch (type) {
#define AAA_RESPONSE_SIZE(row_type, row_size) \
    case row_type:                            \
        return row_size;
#include "internal/response_sizes.def"
        default:
            return AAA_SESS_RSP_SIZE_OTHER;
    }
}

// Status and roleover are sent only with a failure.
void fill_outcome(unsigned char *payload, const Response &r, uint32_t status_on_error) noexcept {
    const bool failed = r.error != 0;
    put_u32(payload, 0, failed ? status_on_error : 0);
    put_u32(payload, 4, r.error);
    put_u32(payload, 8, failed ? r.roleover : 0);
}

// The packet is all zero up to here; words that stay 0 are not written.
void fill_response_payload(void *packet, uint32_t type, const Response &r) noexcept {
    unsigned char *payload = at(packet, kPayloadAt);
    switch (type) {
        case AAA_REQ_CONNECT:
            put_u32(payload, 0, r.conid);
            put_u32(payload, 4, kVersion);
            put_u32(payload, 12, r.error);
            return;
        case AAA_REQ_AUTHEN:
        case AAA_REQ_AUTHEN_ASYNC:
        case AAA_REQ_AUTHOR:
        case AAA_REQ_AUTHOR_ASYNC:
        case AAA_REQ_ACCT:
            fill_outcome(payload, r, r.status);
            return;
        case AAA_REQ_ACCT_ASYNC:
        case AAA_REQ_ACCT_UPDATE:
            fill_outcome(payload, r, 1);
            return;
        case AAA_REQ_CALLBACK:
            put_u32(payload, 0, r.error);
            put_u32(payload, 4, r.ctype);
            put_u32(payload, 8, r.nfnhdl);
            return;
        default:
            put_u32(payload, 0, r.error);
            return;
    }
}

// Null when memory is exhausted.
[[nodiscard]] void *make_response(const avlist *list, const aaa_sess_ctx_t &context,
                                  const Response &r) noexcept {
    const std::size_t size = response_size(context.type);
    void *packet = std::malloc(size);
    if (packet != nullptr) {
        std::memset(packet, 0, size);
        fill_header(packet, list, context.type, context.key);
        fill_response_payload(packet, context.type, r);
    }
    return packet;
}

[[nodiscard]] bool carries_data(uint32_t type) noexcept {
    return type == AAA_REQ_TASKMAP || type == AAA_REQ_USERGROUP;
}

[[nodiscard]] uint32_t cut_length(uint32_t length) noexcept {
    return length <= kDataLimit ? length : kDataCut;
}

void put_type_data(void *payload, const void *data, uint32_t length) noexcept {
    const uint32_t stored = cut_length(length);
    put_u32(payload, kDataLengthAt, stored);
    std::memcpy(at(payload, kDataBytesAt), data, stored);
}

void get_type_data(const void *payload, void *data_out, uint32_t *length_out) noexcept {
    const auto *bytes = static_cast<const unsigned char *>(payload);
    const uint32_t length = cut_length(load_u32(bytes + kDataLengthAt));
    std::memcpy(data_out, bytes + kDataBytesAt, length);
    *length_out = length;
}

}  // namespace

extern "C" {

cerrno aaa_session_fill_request(void *packet, avlist *list, uint32_t type, uint32_t value_a,
                                uint32_t value_b) {
    if (packet == nullptr) {
        return refuse(kInvalidMsg);
    }
    fill_header(packet, list, type, 0);
    if (type > kLastType) {
        log(kInvalidType);
        return AAA_OK;
    }
    fill_request_payload(packet, type, value_a, value_b);
    return AAA_OK;
}

cerrno aaa_session_fill_response(void **packet_out, avlist *list, aaa_sess_ctx_t *context, uint32_t error,
                                 uint32_t roleover, uint32_t status, uint32_t conid, uint32_t ctype,
                                 uint32_t nfnhdl) {
    if (context == nullptr) {
        return refuse("Invalid input :session context");
    }
    aaa_debug(AAA_DBG_LINES_SESSION,
              "[RSP PKT] \nerror    : %d\nroleover : %d\nstatus      : %d\nconid    : %d\nctype    : %d\n"
              "nfnhdl   : %d\n",
              error, roleover, status, conid, ctype, nfnhdl);
    const bool known = context->type <= kLastType;
    void *packet = nullptr;
    if (known) {
        packet = make_response(list, *context, {error, roleover, status, conid, ctype, nfnhdl});
    } else {
        log(kInvalidType);
    }
    if (packet_out != nullptr) {
        *packet_out = packet;
    } else {
        std::free(packet);
    }
    return known && packet == nullptr ? AAA_ERR_NOMEM : AAA_OK;
}

cerrno aaa_session_mngr_set_connection_id(void *packet, uint32_t id) {
    if (packet == nullptr) {
        return refuse("Failed Invalid input");
    }
    aaa_debug(AAA_DBG_LINES_SESSION, "[%s] == \nType   : %d\nconn id : %d\npid     : %d\n", __func__,
              load_u32(at(packet, offsetof(aaa_sess_hdr_t, type))), id,
              load_u32(at(packet, offsetof(aaa_sess_hdr_t, pid))));
    put_u32(packet, offsetof(aaa_sess_hdr_t, conn_id), id);
    return AAA_OK;
}

cerrno aaa_sess_fill_msg_req_type_data(void *payload, const void *data, uint32_t length, uint32_t type) {
    if (payload == nullptr || data == nullptr) {
        return refuse("Failed Invalid input");
    }
    // Kept: requests of other types are accepted without a report, unlike responses.
    if (carries_data(type)) {
        put_type_data(payload, data, length);
    }
    return AAA_OK;
}

cerrno aaa_sess_fill_msg_res_type_data(void *payload, const void *data, uint32_t length, uint32_t type) {
    if (payload == nullptr) {
        return refuse(kInvalidMsg);
    }
    if (data == nullptr) {
        return refuse(kInvalidData);
    }
    if (!carries_data(type)) {
        return refuse(kInvalidType);
    }
    put_type_data(payload, data, length);
    return AAA_OK;
}

cerrno aaa_sess_get_msg_req_type_data(const void *payload, void *data_out, uint32_t *length_out,
                                      uint32_t type) {
    if (payload == nullptr) {
        return refuse(kInvalidMsg);
    }
    if (data_out == nullptr) {
        return refuse(kInvalidData);
    }
    if (length_out == nullptr) {
        return refuse("Failed Invalid input: len");
    }
    if (!carries_data(type)) {
        return refuse(kInvalidType);
    }
    get_type_data(payload, data_out, length_out);
    return AAA_OK;
}

cerrno aaa_sess_get_msg_res_type_data(const void *payload, void *data_out, uint32_t *length_out,
                                      uint32_t type) {
    if (payload == nullptr) {
        return refuse(kInvalidMsg);
    }
    if (data_out == nullptr) {
        return refuse(kInvalidData);
    }
    if (length_out == nullptr) {
        return refuse("Failed Invalid input: lenp");
    }
    if (!carries_data(type)) {
        log(kInvalidType);
        return kNoResponseData;
    }
    get_type_data(payload, data_out, length_out);
    return AAA_OK;
}

}  // extern "C"
