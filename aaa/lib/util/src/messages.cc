// SPDX-License-Identifier: Apache-2.0
//
// The message envelope: what all compose routines share, and the messages that
// carry no attribute list. A classic message is the caller's header record plus
// payload elements in an io-vector; a session message is one packet that
// aaa_session_fill_request() fills instead.

#include "aaa/messages.h"

#include <cstdlib>
#include <cstring>

#include "aaa/names.h"
#include "internal/messages.hpp"
#include "internal/trace.hpp"

namespace aaautil::msg {

cerrno IoVector::publish(iov_t **iov_out, uint32_t *count_out) const noexcept {
    const std::size_t size = count_ * sizeof(iov_t);
    auto *block = static_cast<iov_t *>(std::malloc(size));
    if (block == nullptr) {
        return AAA_ERR_NOMEM;
    }
    std::memcpy(block, elements_, size);
    *iov_out = block;
    *count_out = count_;
    return AAA_OK;
}

Appender &Appender::bytes(uint32_t type, const void *value, uint32_t len) noexcept {
    if (code_ == AAA_OK) {
        code_ = aaa_avpair_add(type, 0, value, 0, len, list_);
    }
    return *this;
}

Appender &Appender::byte(uint32_t type, uint32_t value) noexcept {
    const auto low = static_cast<uint8_t>(value & 0xFF);
    return bytes(type, &low, sizeof low);
}

Appender &Appender::text(uint32_t type, const char *value) noexcept {
    if (value == nullptr) {
        code_ = code_ == AAA_OK ? AAA_ERR_INVALID_ARG : code_;
        return *this;
    }
    return bytes(type, value, static_cast<uint32_t>(std::strlen(value) + 1));
}

cerrno create_list(const char *name, list_ptr &list) noexcept {
    avlist *made = nullptr;
    const cerrno rc = aaa_avpair_create_list(name, &made);
    list.reset(made);
    return rc;
}

cerrno pack(const Target &to, avlist *list, IoVector &iov) noexcept {
    uint32_t packed = to.size;
    const cerrno rc = aaa_avpair_pack_msg_to_buf(list, to.buffer, &packed);
    if (rc == AAA_OK) {
        iov.add(to.buffer, packed);
    }
    return rc;
}

cerrno publish_converted(const Target &to, const IoVector &iov) noexcept {
    to_network(to.record, kParamAt);
    return iov.publish(to.iov_out, to.count_out);
}

cerrno pack_and_publish(const Target &to, avlist *list, const void *async_block) noexcept {
    IoVector iov;
    iov.add(to.record, kLongHeader);
    if (async_block != nullptr) {
        iov.add(async_block, kCallerBlock);
    }
    const cerrno rc = pack(to, list, iov);
    return rc == AAA_OK ? publish_converted(to, iov) : rc;
}

cerrno fill_packet(void *packet, avlist *list, uint32_t type, uint32_t value_b,
                   const char *failure) noexcept {
    if (aaa_session_fill_request(packet, list, type, 0, value_b) != AAA_OK) {
        aaa_debug(AAA_DBG_MESSAGE, failure);
        return AAA_ERR_INVALID_MSG_TYPE;
    }
    return AAA_OK;
}

cerrno hand_over(void *packet, list_ptr &list, uint32_t type, uint32_t value_b,
                 const char *failure) noexcept {
    const cerrno rc = fill_packet(packet, list.get(), type, value_b, failure);
    if (rc == AAA_OK) {
        [[maybe_unused]] avlist *travels = list.release();
    }
    return rc;
}

}  // namespace aaautil::msg

namespace {

using namespace aaautil::msg;

// From kParamAt: version, zero, six values, length.
constexpr std::size_t kConnectWords = (offsetof(aaa_conn_msg_t, unwritten) - kParamAt) / sizeof(uint32_t);
constexpr uint64_t kConnectRecord = sizeof(aaa_conn_msg_t);
static_assert(kParamAt == offsetof(aaa_conn_msg_t, version), "the records begin alike");
constexpr uint32_t kProtocolVersion = 2;
constexpr uint32_t kServerDisconnect = 3;
constexpr uint64_t kServerDisconnectData = 4;

[[nodiscard]] cerrno fill_plain(void *packet, uint32_t type) noexcept {
    return fill_packet(packet, nullptr, type, 0, kConfigFillFailed);
}

[[nodiscard]] bool all_set(const void *msg, const void *iov_out, const void *count_out) noexcept {
    return msg != nullptr && iov_out != nullptr && count_out != nullptr;
}

// One element: the header alone.
[[nodiscard]] cerrno publish_header(const void *msg, uint64_t len, iov_t **iov_out,
                                    uint32_t *count_out) noexcept {
    IoVector iov;
    iov.add(msg, len);
    return iov.publish(iov_out, count_out);
}

// Lengths are 32-bit: a text of 4 GB or more is cut, as its length field is.
[[nodiscard]] uint32_t text_length(const char *text) noexcept {
    return text != nullptr ? static_cast<uint32_t>(std::strlen(text)) : 0;
}

}  // namespace

extern "C" {

cerrno aaa_util_msg_conn_compose(void *msg, uint32_t value1, uint32_t value2, uint32_t value3,
                                 uint32_t value4, uint32_t value5, uint32_t value6, const char *str1,
                                 const char *str2, iov_t **iov_out, uint32_t *count_out, uint32_t session) {
    if (session != 0) {
        return fill_plain(msg, AAA_REQ_CONNECT);
    }
    if (!all_set(msg, iov_out, count_out)) {
        return AAA_ERR_INVALID_ARG;
    }
    const uint32_t str1_len = text_length(str1);
    const uint32_t words[kConnectWords] = {kProtocolVersion, 0,      value1, value2,  value3,
                                           value4,           value5, value6, str1_len};
    put_u32(msg, kTypeAt, AAA_REQ_CONNECT);
    std::memcpy(at(msg, kParamAt), words, sizeof words);

    IoVector iov;
    iov.add(msg, kConnectRecord);
    iov.add(str1, str1_len);
    iov.add(str2, text_length(str2));
    // Unlike in all other requests the numbers are converted last: without memory they stay as written.
    const cerrno rc = iov.publish(iov_out, count_out);
    for (std::size_t i = 0; rc == AAA_OK && i < kConnectWords; ++i) {
        to_network(msg, kParamAt + i * sizeof(uint32_t));
    }
    return rc;
}

cerrno aaa_util_msg_disconn_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t session) {
    if (session != 0) {
        // Kept: a session disconnect has the type of a connect.
        return fill_plain(msg, AAA_REQ_CONNECT);
    }
    if (!all_set(msg, iov_out, count_out)) {
        return AAA_ERR_INVALID_ARG;
    }
    put_u32(msg, kTypeAt, AAA_REQ_DISCONNECT);
    return publish_header(msg, kShortHeader, iov_out, count_out);
}

cerrno aaa_util_msg_cb_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t session) {
    const bool valid = all_set(msg, iov_out, count_out);
    if (session != 0) {
        // Missing out-pointers change the type although nothing is stored through them.
        return fill_plain(msg, valid ? AAA_REQ_CALLBACK : AAA_REQ_CONNECT);
    }
    if (!valid) {
        return AAA_ERR_INVALID_ARG;
    }
    put_u32(msg, kTypeAt, AAA_REQ_CALLBACK);
    to_network(msg, kParamAt);
    return publish_header(msg, kCallbackHeader, iov_out, count_out);
}

cerrno aaa_util_msg_ping_compose(void *msg, iov_t **iov_out, uint32_t *count_out, uint32_t session) {
    const bool valid = all_set(msg, iov_out, count_out);
    if (session != 0) {
        return fill_plain(msg, valid ? AAA_REQ_PING : AAA_REQ_CONNECT);
    }
    if (!valid) {
        return AAA_ERR_INVALID_ARG;
    }
    put_u32(msg, kTypeAt, AAA_REQ_PING);
    return publish_header(msg, kShortHeader, iov_out, count_out);
}

cerrno aaa_util_svrmsg_conn_compose(void *msg, uint32_t param, iov_t **iov_out, uint32_t *count_out,
                                    void *block, uint32_t session) {
    if (session != 0) {
        return fill_plain(msg, AAA_REQ_CONNECT);
    }
    if (!all_set(msg, iov_out, count_out)) {
        return AAA_ERR_INVALID_ARG;
    }
    put_u32(msg, kTypeAt, AAA_REQ_CONNECT);
    put_u32(msg, kParamAt, aaautil::net_u32(param));
    IoVector iov;
    iov.add(msg, kLongHeader);
    iov.add(block, kCallerBlock);
    return iov.publish(iov_out, count_out);
}

cerrno aaa_util_svrmsg_disconn_compose(void *msg, iov_t **iov_out, uint32_t *count_out, void *data,
                                       uint32_t session) {
    if (session != 0) {
        return fill_plain(msg, msg != nullptr ? AAA_REQ_DISCONNECT : AAA_REQ_CONNECT);
    }
    if (!all_set(msg, iov_out, count_out)) {
        return AAA_ERR_INVALID_ARG;
    }
    put_u32(msg, kTypeAt, AAA_REQ_DISCONNECT);
    // Kept: this one word stays in host order, receivers read it so.
    put_u32(msg, kParamAt, kServerDisconnect);
    IoVector iov;
    iov.add(msg, kLongHeader);
    iov.add(data, kServerDisconnectData);
    return iov.publish(iov_out, count_out);
}

}  // extern "C"
