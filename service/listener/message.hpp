// SPDX-License-Identifier: Apache-2.0
//
// Requests out of received messages, and answers into messages, in the form that the client
// uses: io-vectors or session packets.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "aaa/messages.h"
#include "aaa/transport.h"
#include "backends/backend.hpp"
#include "base/avlist.hpp"
#include "decision/answer.hpp"

namespace service {

// Sees the bytes of answers that were sent.
class AnswerTap {
  public:
    virtual ~AnswerTap() = default;
    virtual bool is_on() const = 0;
    // `list_at` is where a packed list begins, 0 without one.
    virtual void sent(std::string_view bytes, std::size_t list_at) = 0;

    std::uint32_t classic_answers = 0;  // of the connection, this one included
};

// A received request.
struct Request {
    aaa_transport_head_t head{};
    cerrno fault = 0;  // not 0: the request cannot be read, and this is the answer
    std::shared_ptr<avlist> list;
    AnswerTap *tap = nullptr;  // of its answer; lives as long as the client is connected

    bool is_session() const { return head.kind == AAA_TRANSPORT_SESSION; }
};

// Reads any bytes.
Request read_request(const aaa_transport_msg_t &message);

// The function that a message type asks for; nullopt for other types.
std::optional<Function> function_of(std::uint32_t type);

// Fills the fields of a question that the attributes give. A code when one of them is
// malformed.
cerrno fill_question(const Request &request, Function function, Question &question);

// The token with which a client goes on with a login; empty when it has none.
std::string token_of(const Request &request);

// Answers, sent without waiting: AAA_OK, or why the client gets none. Each request gets one.
cerrno send_answer(aaa_transport_t *client, const Request &request, Function function, const Answer &answer,
                   const std::string &token);
cerrno send_error(aaa_transport_t *client, const Request &request, cerrno error);
// For connect, disconnect and ping.
cerrno send_plain(aaa_transport_t *client, const Request &request);
// For configuration messages.
cerrno send_configured(aaa_transport_t *client, const Request &request, cerrno result);

}  // namespace service
