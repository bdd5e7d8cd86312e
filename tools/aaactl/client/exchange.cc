// SPDX-License-Identifier: Apache-2.0
//
// Sends what was composed, receives one message and checks it from its header to
// its list.

#include "client/exchange.hpp"

#include <arpa/inet.h>

#include <cstdlib>
#include <cstring>

#include "cli/output.hpp"
#include "platform/cerr.h"

namespace aaactl {
namespace {

constexpr size_t kBareHeader =
    offsetof(aaa_reply_hdr_t, status);  // a classic reply to accounting may be no more
constexpr size_t kStatusHeader = offsetof(aaa_reply_hdr_t, second);  // any other: the result follows

Failure malformed(const std::string &socket, size_t offset, const std::string &why) {
    return {ExitCode::bad_input,
            escaped(socket) + ": malformed reply, byte " + std::to_string(offset) + ": " + why};
}

// The message, wiped when it has been read: a reply may hold secrets too.
struct Received {
    aaa_transport_msg_t msg;

    ~Received() { explicit_bzero(msg.u.bytes, msg.len); }
};

// Where the list begins, and the result before it.
struct Head {
    size_t size;
    cerrno result;
};

Head session_head(const std::string &socket, const aaa_transport_msg_t &msg, uint32_t type) {
    aaa_sess_hdr_t header;
    std::memcpy(&header, msg.u.bytes, sizeof header);  // its length is what told it from others
    if (header.type != type) {
        throw malformed(
            socket, offsetof(aaa_sess_hdr_t, type),
            "it answers a message of type " + std::to_string(header.type) + ", not " + std::to_string(type));
    }
    const size_t size = aaa_transport_response_size(type);
    if (msg.len < size) {
        throw malformed(socket, msg.len, "it ends inside the packet's " + std::to_string(size) + " bytes");
    }
    cerrno result = AAA_OK;
    std::memcpy(&result, msg.u.bytes + offsetof(aaa_sess_response_t, u.word[1]), sizeof result);
    return {size, result};
}

Head classic_head(const std::string &socket, const aaa_transport_msg_t &msg, uint32_t type) {
    if (msg.len < kStatusHeader) {
        const bool accounting = type == AAA_REQ_ACCT || type == AAA_REQ_ACCT_UPDATE;
        if (!accounting || msg.len != kBareHeader) {
            throw malformed(socket, msg.len, "it ends inside the reply's header");
        }
        return {kBareHeader, AAA_OK};
    }
    cerrno result = AAA_OK;
    std::memcpy(&result, msg.u.bytes + offsetof(aaa_reply_hdr_t, status), sizeof result);
    return {kStatusHeader, ntohl(result)};
}

Reply read_reply(const std::string &socket, const aaa_transport_msg_t &msg, uint32_t type, bool session) {
    const aaa_transport_kind_t kind = aaa_transport_kind_of(&msg);
    if (kind == AAA_TRANSPORT_GARBAGE) {
        throw malformed(
            socket, 0,
            "neither a reply message nor a session packet of " + std::to_string(msg.len) + " bytes");
    }
    // A server without session packets answers in the classic form.
    if (kind == AAA_TRANSPORT_SESSION && !session) {
        throw malformed(socket, 0, "a session packet answers a classic request");
    }
    const Head head =
        kind == AAA_TRANSPORT_SESSION ? session_head(socket, msg, type) : classic_head(socket, msg, type);
    Reply reply{head.result, nullptr};
    if (msg.len > head.size) {
        avlist *list = nullptr;
        const cerrno rc = aaa_transport_unpack(&msg, head.size, &list);
        reply.list.reset(list);
        if (rc != AAA_OK) {
            throw Failure(
                ExitCode::bad_input,
                escaped(socket) + ": malformed reply, the list at byte " + std::to_string(head.size), rc);
        }
    }
    return reply;
}

}  // namespace

Composition::~Composition() {
    std::free(iov);
    explicit_bzero(buffer, sizeof buffer);
}

Exchange::Exchange(std::string socket, unsigned seconds, bool session)
    : socket_(std::move(socket)), seconds_(seconds), session_(session) {
    aaa_transport_t *made = nullptr;
    cerrno rc = aaa_transport_create(&made);
    transport_.reset(made);
    if (rc == AAA_OK) {
        rc = aaa_transport_connect(made, socket_.c_str(), AAA_TRANSPORT_ANY_USER, deadline());
    }
    if (rc != AAA_OK) {
        unreachable("cannot connect", rc);
    }
}

int64_t Exchange::deadline() const {
    return seconds_ == 0 ? AAA_TRANSPORT_NEVER : aaa_transport_deadline(seconds_ * 1000);
}

void Exchange::unreachable(const std::string &what, cerrno rc) const {
    const int error = aaa_transport_errno(transport_.get());
    throw Failure(ExitCode::unavailable,
                  escaped(socket_) + ": " + what +
                      (rc == AAA_ERR_TIMEOUT
                           ? " within " + std::to_string(seconds_) + " s"
                           : ": " + std::string(error != 0 ? std::strerror(error) : cerr_strerror(rc))));
}

void Exchange::send(Composition &composed) {
    const cerrno rc = session_
                          ? aaa_transport_send_packet(transport_.get(), &composed.record.packet,
                                                      sizeof composed.record.packet, deadline())
                          : aaa_transport_send(transport_.get(), composed.iov, composed.count, deadline());
    if (rc != AAA_OK) {
        unreachable("the request could not be sent", rc);
    }
}

Reply Exchange::receive(uint32_t type) {
    Received received{};
    const cerrno rc = aaa_transport_receive(transport_.get(), &received.msg, deadline());
    if (rc == AAA_ERR_NOT_CONNECTED) {
        throw Failure(ExitCode::unavailable,
                      escaped(socket_) + ": the server closed the connection without a reply");
    }
    if (rc == AAA_ERR_INVALID_MSG_SIZE) {
        throw malformed(socket_, AAA_TRANSPORT_MAX, "it is longer than that");
    }
    if (rc != AAA_OK) {
        unreachable("no reply", rc);
    }
    return read_reply(socket_, received.msg, type, session_);
}

Reply Exchange::ask(uint32_t type, const std::function<cerrno(Composition &)> &compose) {
    const auto composed = std::make_unique<Composition>();
    composed->session = session_ ? 1 : 0;
    const cerrno rc = compose(*composed);
    if (rc != AAA_OK) {
        if (session_) {  // a packet that was begun holds the list
            aaa_avpair_free_list(
                reinterpret_cast<avlist *>(static_cast<uintptr_t>(composed->record.packet.hdr.list)));
        }
        throw Failure(ExitCode::failed, "the request could not be composed", rc);
    }
    send(*composed);
    return receive(type);
}

std::string text_attribute(const avlist *list, uint32_t type) {
    uint32_t len = 0;
    aaa_util_avlist_value_copy(list, type, 0, nullptr, 0, &len);
    std::string text(len, '\0');
    if (aaa_util_avlist_value_copy(list, type, 0, text.data(), text.size(), &len) != AAA_OK) {
        return {};
    }
    return text.substr(0, text.find('\0'));
}

std::optional<uint32_t> number_attribute(const avlist *list, uint32_t type) {
    uint32_t value = 0;
    uint32_t len = 0;
    const cerrno rc = aaa_util_avlist_value_copy(list, type, 0, &value, sizeof value, &len);
    return rc == AAA_OK && len == sizeof value ? std::optional(value) : std::nullopt;
}

}  // namespace aaactl
