// SPDX-License-Identifier: Apache-2.0
//
// Sends what was composed, receives one message and checks it from its header to
// its list.

#include "client/exchange.hpp"

#include <cstdlib>
#include <cstring>

#include "cli/output.hpp"
#include "platform/cerr.h"

namespace aaactl {
namespace {

Failure malformed(const std::string &socket, size_t offset, const std::string &why) {
    return {ExitCode::bad_input,
            escaped(socket) + ": malformed reply, byte " + std::to_string(offset) + ": " + why};
}

// The message, wiped when it has been read: a reply may hold secrets too.
struct Received {
    aaa_transport_msg_t msg;

    ~Received() { explicit_bzero(msg.u.bytes, msg.len); }
};

// Names the place and the reason of a head that the transport does not read.
[[noreturn]] void refuse_head(const std::string &socket, const aaa_transport_msg_t &msg, uint32_t type,
                              const aaa_transport_head_t &head, cerrno rc) {
    const std::string length = std::to_string(msg.len);
    switch (rc) {
        case AAA_ERR_INVALID_MSG_TYPE:
            throw malformed(socket, 0,
                            "neither a reply message nor a session packet of " + length + " bytes");
        case AAA_ERR_UNEXPECTED_REPLY:
            throw malformed(socket, offsetof(aaa_sess_hdr_t, type),
                            "it answers a message of type " + std::to_string(head.type) + ", not " +
                                std::to_string(type));
        case AAA_ERR_INVALID_MSG_SIZE:
            throw malformed(socket, msg.len,
                            head.kind == AAA_TRANSPORT_SESSION
                                ? "it ends inside the packet's " +
                                      std::to_string(aaa_transport_response_size(type)) + " bytes"
                                : "it ends inside the reply's header");
        default:
            throw Failure(ExitCode::bad_input, escaped(socket) + ": malformed reply", rc);
    }
}

Reply read_reply(const std::string &socket, const aaa_transport_msg_t &msg, uint32_t type, bool session) {
    aaa_transport_head_t head;
    cerrno rc = aaa_transport_read_reply(&msg, type, &head);
    // A server without session packets answers in the classic form.
    if (head.kind == AAA_TRANSPORT_SESSION && !session) {
        throw malformed(socket, 0, "a session packet answers a classic request");
    }
    if (rc != AAA_OK) {
        refuse_head(socket, msg, type, head, rc);
    }
    Reply reply{head.result, {}};
    if (head.list_at != 0) {
        avlist *list = nullptr;
        rc = aaa_transport_unpack(&msg, head.list_at, &list);
        reply.list = aaa::list::adopt(list);
        if (rc != AAA_OK) {
            throw Failure(
                ExitCode::bad_input,
                escaped(socket) + ": malformed reply, the list at byte " + std::to_string(head.list_at), rc);
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

std::string text_attribute(const aaa::list &list, uint32_t type) {
    return std::string(list.get<std::string_view>(type).value_or(""));
}

std::optional<uint32_t> number_attribute(const aaa::list &list, uint32_t type) {
    const aaa::result<aaa::attribute> found = list.find(type);
    return found && found->value().size() == sizeof(uint32_t) ? std::optional(*found->get<uint32_t>())
                                                              : std::nullopt;
}

}  // namespace aaactl
