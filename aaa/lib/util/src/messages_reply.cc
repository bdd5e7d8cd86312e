// SPDX-License-Identifier: Apache-2.0
//
// The replies: a short header record written in place, and at most one payload
// element. In session mode the reply is a packet of the request's type, whose
// address travels through the io-vector's out-pointer.

#include "aaa/messages.h"

#include <climits>
#include <cstring>

#include "aaa/accessors.h"
#include "aaa/names.h"
#include "internal/messages.hpp"
#include "internal/trace.hpp"

namespace {

using namespace aaautil;
using namespace aaautil::msg;

// Reply header record, and how much of it is sent.
constexpr std::size_t kStatusAt = offsetof(aaa_reply_hdr_t, status);
constexpr std::size_t kSecondAt = offsetof(aaa_reply_hdr_t, second);
constexpr uint64_t kBareHeader = offsetof(aaa_reply_hdr_t, status);
constexpr uint64_t kStatusHeader = offsetof(aaa_reply_hdr_t, second);
constexpr uint64_t kTwoWordHeader = offsetof(aaa_reply_hdr_t, tail28);
constexpr uint64_t kConnectHeader = sizeof(aaa_reply_hdr_t);
constexpr uint32_t kProtocolVersion = 2;
constexpr uint32_t kDumpFlag = 7;

// The arguments that every reply takes.
struct Reply {
    void *record;
    iov_t **iov_out;
    uint32_t *count_out;
    aaa_sess_ctx_t *context;

    [[nodiscard]] bool has_all() const noexcept {
        return record != nullptr && iov_out != nullptr && count_out != nullptr;
    }
    [[nodiscard]] bool session_ready() const noexcept { return context != nullptr && record != nullptr; }
    [[nodiscard]] bool session_ready_with_outputs() const noexcept { return context != nullptr && has_all(); }
};

// The values of a response packet; most replies have one of them.
struct Values {
    uint32_t error = 0;
    uint32_t status = 0;
    uint32_t conid = 0;
    uint32_t nfnhdl = 0;
};

// The fill's own result is not reported: a request of an unknown type, or
// exhausted memory, gives a null packet and success.
[[nodiscard]] void *fill(const Reply &to, avlist *list, const Values &values) noexcept {
    void *packet = nullptr;
    aaa_session_fill_response(&packet, list, to.context, values.error, 0, values.status, values.conid, 0,
                              values.nfnhdl);
    return packet;
}

// Without an output the packet is released.
void deliver(const Reply &to, void *packet) noexcept {
    if (to.iov_out != nullptr) {
        *to.iov_out = static_cast<iov_t *>(packet);
    } else {
        std::free(packet);
    }
}

[[nodiscard]] cerrno reply_in_session(const Reply &to, avlist *list, const Values &values) noexcept {
    deliver(to, fill(to, list, values));
    return AAA_OK;
}

// The packet is as large as the type of the request asks for, so the data goes
// in only when that type carries any.
[[nodiscard]] cerrno reply_data_in_session(const Reply &to, const void *data, uint32_t length,
                                           uint32_t type) noexcept {
    void *packet = fill(to, nullptr, {});
    const bool has_place = to.context->type == AAA_REQ_TASKMAP || to.context->type == AAA_REQ_USERGROUP;
    if (packet != nullptr && has_place) {
        aaa_sess_fill_msg_res_type_data(at(packet, kPayloadAt), data, length, type);
    }
    deliver(to, packet);
    return AAA_OK;
}

// Header alone, or header and one further element.
[[nodiscard]] cerrno publish(const Reply &to, uint64_t header) noexcept {
    IoVector iov;
    iov.add(to.record, header);
    return iov.publish(to.iov_out, to.count_out);
}

[[nodiscard]] cerrno publish(const Reply &to, uint64_t header, const void *base, uint64_t len) noexcept {
    IoVector iov;
    iov.add(to.record, header);
    iov.add(base, len);
    return iov.publish(to.iov_out, to.count_out);
}

void convert_status(void *record) noexcept {
    to_network(record, kStatusAt);
}

void convert_both(void *record) noexcept {
    to_network(record, kStatusAt);
    to_network(record, kSecondAt);
}

// A null list is refused by the packing. Numbers are converted before the
// io-vector is allocated: without memory for it they are in network order.
[[nodiscard]] cerrno publish_list(const Reply &to, uint64_t header, void (*convert)(void *) noexcept,
                                  char *buffer, uint32_t size, avlist *list) noexcept {
    const cerrno rc = aaa_avpair_pack_msg_to_buf(list, buffer, &size);
    if (rc != AAA_OK) {
        return rc;
    }
    convert(to.record);
    return publish(to, header, buffer, size);
}

// Replies that consist of a header only.
[[nodiscard]] cerrno bare_reply(const Reply &to, uint32_t session) noexcept {
    if (session != 0) {
        return to.session_ready() ? reply_in_session(to, nullptr, {}) : AAA_ERR_INVALID_ARG;
    }
    return to.has_all() ? publish(to, kBareHeader) : AAA_ERR_INVALID_ARG;
}

// The status word as it is sent.
[[nodiscard]] cerrno status_reply(const Reply &to, uint32_t word) noexcept {
    if (!to.has_all()) {
        return AAA_ERR_INVALID_ARG;
    }
    put_u32(to.record, kStatusAt, word);
    return publish(to, kStatusHeader);
}

// Written with one byte by some and with four by others.
[[nodiscard]] uint32_t config_action(const avlist *list) noexcept {
    void *value = nullptr;
    uint32_t len = 0;
    if (list == nullptr ||
        aaa_avpair_find_type(AAA_VS_RAD_CFG_ACTION, nullptr, &value, &len, 0, list) != AAA_OK) {
        return 0;
    }
    return load_u32_bounded(value, len);
}

void dump(const char *buffer, uint32_t size) noexcept {
    if (buffer != nullptr) {
        const int len = size <= INT_MAX ? static_cast<int>(size) : INT_MAX;
        dump_buffer(kDumpFlag, "Composing reply", reinterpret_cast<const unsigned char *>(buffer), len, 0);
    }
}

}  // namespace

extern "C" {

cerrno aaa_util_reply_compose(void *msg, iov_t **iov_out, uint32_t *count_out, char *buffer, uint32_t size,
                              avlist *list, uint32_t session, aaa_sess_ctx_t *context) {
    const Reply to{msg, iov_out, count_out, context};
    if (session != 0) {
        return to.session_ready_with_outputs()
                   ? reply_in_session(to, list, {.status = aaa_util_avlist_status_get(list)})
                   : AAA_ERR_INVALID_ARG;
    }
    if (!to.has_all()) {
        return AAA_ERR_INVALID_ARG;
    }
    cerrno rc = list != nullptr ? aaa_avpair_pack_msg_to_buf(list, buffer, &size) : AAA_OK;
    if (rc != AAA_OK) {
        return rc;
    }
    dump(buffer, size);
    rc = list != nullptr ? publish(to, kStatusHeader, buffer, size) : publish(to, kStatusHeader);
    // Unlike in all other replies the status is converted last: without memory it stays as it was.
    if (rc == AAA_OK) {
        convert_status(msg);
    }
    return rc;
}

cerrno aaa_util_reply_authen_compose(void *msg, iov_t **iov_out, uint32_t *count_out, char *buffer,
                                     uint32_t size, avlist *list, uint32_t session, aaa_sess_ctx_t *context) {
    const Reply to{msg, iov_out, count_out, context};
    if (session != 0) {
        return to.session_ready_with_outputs() ? reply_in_session(to, list, {}) : AAA_ERR_INVALID_ARG;
    }
    if (!to.has_all()) {
        return AAA_ERR_INVALID_ARG;
    }
    return publish_list(to, kStatusHeader, convert_status, buffer, size, list);
}

cerrno aaa_util_reply_author_compose(void *msg, iov_t **iov_out, uint32_t *count_out, char *buffer,
                                     uint32_t size, avlist *list, uint32_t session, aaa_sess_ctx_t *context) {
    const Reply to{msg, iov_out, count_out, context};
    if (session != 0) {
        return to.session_ready_with_outputs() ? reply_in_session(to, list, {.error = config_action(list)})
                                               : AAA_ERR_INVALID_ARG;
    }
    if (!to.has_all()) {
        return AAA_ERR_INVALID_ARG;
    }
    return publish_list(to, kStatusHeader, convert_status, buffer, size, list);
}

cerrno aaa_util_reply_authen_async_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t status,
                                           uint32_t session, aaa_sess_ctx_t *context) {
    const Reply to{msg, iov_out, count_out, context};
    if (session != 0) {
        return to.session_ready() ? reply_in_session(to, nullptr, {.nfnhdl = status}) : AAA_ERR_INVALID_ARG;
    }
    return status_reply(to, net_u32(status));
}

cerrno aaa_util_reply_author_async_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t status,
                                           uint32_t session, aaa_sess_ctx_t *context) {
    const Reply to{msg, iov_out, count_out, context};
    if (session != 0) {
        return to.session_ready() ? reply_in_session(to, nullptr, {.nfnhdl = status}) : AAA_ERR_INVALID_ARG;
    }
    // Kept: the status stays in host order here, and receivers read it so.
    return status_reply(to, status);
}

cerrno aaa_util_reply_acct_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t session,
                                   aaa_sess_ctx_t *context) {
    return bare_reply({msg, iov_out, count_out, context}, session);
}

cerrno aaa_util_reply_ping_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t session,
                                   aaa_sess_ctx_t *context) {
    return bare_reply({msg, iov_out, count_out, context}, session);
}

cerrno aaa_util_reply_ikepost_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t session,
                                      aaa_sess_ctx_t *context) {
    return bare_reply({msg, iov_out, count_out, context}, session);
}

cerrno aaa_util_reply_disconn_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t session,
                                      aaa_sess_ctx_t *context) {
    return bare_reply({msg, iov_out, count_out, context}, session);
}

cerrno aaa_util_reply_cb_compose(void *msg, iov_t **iov_out, uint32_t *count_out, char *buffer, uint32_t size,
                                 avlist *list, uint32_t session, aaa_sess_ctx_t *context) {
    const Reply to{msg, iov_out, count_out, context};
    if (session != 0) {
        return to.session_ready() ? reply_in_session(to, list, {.nfnhdl = load_u32(at(msg, kSecondAt))})
                                  : AAA_ERR_INVALID_ARG;
    }
    if (!to.has_all()) {
        return AAA_ERR_INVALID_ARG;
    }
    return publish_list(to, kTwoWordHeader, convert_both, buffer, size, list);
}

cerrno aaa_util_reply_cfg_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t status,
                                  uint32_t session, aaa_sess_ctx_t *context) {
    const Reply to{msg, iov_out, count_out, context};
    if (session != 0) {
        return to.session_ready_with_outputs() ? reply_in_session(to, nullptr, {.error = status})
                                               : AAA_ERR_INVALID_ARG;
    }
    if (!to.has_all()) {
        return AAA_ERR_INVALID_ARG;
    }
    put_u32(msg, kSecondAt, status);
    convert_both(msg);
    return publish(to, kTwoWordHeader);
}

cerrno aaa_util_reply_curr_auth_usr_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t status,
                                            uint32_t session, aaa_sess_ctx_t *context) {
    const Reply to{msg, iov_out, count_out, context};
    if (session != 0) {
        return to.session_ready_with_outputs() ? reply_in_session(to, nullptr, {.error = status})
                                               : AAA_ERR_INVALID_ARG;
    }
    return status_reply(to, net_u32(status));
}

cerrno aaa_util_reply_conn_compose(void *msg, uint32_t status, iov_t **iov_out, uint32_t *count_out,
                                   uint32_t session, aaa_sess_ctx_t *context) {
    const Reply to{msg, iov_out, count_out, context};
    if (session != 0) {
        return to.session_ready() ? reply_in_session(to, nullptr, {.conid = status}) : AAA_ERR_INVALID_ARG;
    }
    if (!to.has_all()) {
        return AAA_ERR_INVALID_ARG;
    }
    put_u32(msg, kStatusAt, status);
    put_u32(msg, kSecondAt, kProtocolVersion);
    convert_both(msg);
    return publish(to, kConnectHeader);
}

cerrno aaa_util_reply_taskmap_compose(void *msg, void *data, uint32_t length, iov_t **iov_out,
                                      uint32_t *count_out, uint32_t session, aaa_sess_ctx_t *context) {
    const Reply to{msg, iov_out, count_out, context};
    if (session != 0) {
        return to.session_ready() ? reply_data_in_session(to, data, length, AAA_REQ_TASKMAP)
                                  : AAA_ERR_INVALID_ARG;
    }
    return to.has_all() ? publish(to, kBareHeader, data, length) : AAA_ERR_INVALID_ARG;
}

cerrno aaa_util_reply_usergroup_compose(void *msg, char *text, iov_t **iov_out, uint32_t *count_out,
                                        uint32_t session, aaa_sess_ctx_t *context) {
    const Reply to{msg, iov_out, count_out, context};
    if (!to.has_all() || text == nullptr || (session != 0 && context == nullptr)) {
        return AAA_ERR_INVALID_ARG;
    }
    // The terminator is not part of a reply, unlike in the request.
    const auto length = static_cast<uint32_t>(std::strlen(text));
    return session != 0 ? reply_data_in_session(to, text, length, AAA_REQ_USERGROUP)
                        : publish(to, kBareHeader, text, length);
}

}  // extern "C"
