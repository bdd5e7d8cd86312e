// SPDX-License-Identifier: Apache-2.0
//
// Bodies of authentication packets (RFC 8907, 5): START, REPLY and CONTINUE.
//
//     START     action | privilege | type | service | lengths of user, port, remote address,
//               data (1 each) | user | port | remote address | data
//     REPLY     status | flags | lengths of message, data (2 each) | message | data
//     CONTINUE  lengths of text, data (2 each) | flags | text | data
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "tacacs/arguments.hpp"
#include "tacacs/packet.hpp"

namespace tacacs {

enum class Action : std::uint8_t {
    kLogin = 1,
    kChangePassword = 2,
};

// PAP and CHAP exist only in minor version 1, ASCII only in 0.
inline std::uint8_t minor_of(AuthenticationType type) {
    return type == AuthenticationType::kAscii ? 0 : 1;
}

struct Start {
    Subject subject;  // its method is not sent
    Action action = Action::kLogin;
    std::string_view data = {};  // the password of PAP, or data_of_chap()
};

// The data of CHAP: an identifier, the challenge, and the 16 bytes of the response.
// Empty when the response has another length or the challenge none.
SecretBytes data_of_chap(std::uint8_t id, std::string_view challenge, std::string_view response);

// Append the body to begin_packet(). They return a sentence that names what does not fit;
// empty when everything does.
[[nodiscard]] std::string append_start(const Start &start, SecretBytes &packet);
[[nodiscard]] std::string append_continue(std::string_view text, SecretBytes &packet);
// Ends a login that the user has left. A reason that is too long is cut: it is only logged.
void append_abort(std::string_view reason, SecretBytes &packet);

enum class AuthenticationStatus : std::uint8_t {
    kPass = 1,
    kFail = 2,
    kGetData = 3,
    kGetUser = 4,
    kGetPassword = 5,
    kRestart = 6,
    kError = 7,
    kFollow = 0x21,
};

// A REPLY. It refers to the body that it was read from.
struct AuthenticationReply {
    AuthenticationStatus status = AuthenticationStatus::kFail;
    bool hides_input = false;  // what the user types must not be shown
    std::string_view message;  // for the user
    std::string_view data;     // for administrators

    static Fault read(std::string_view body, AuthenticationReply &reply);
};

}  // namespace tacacs
