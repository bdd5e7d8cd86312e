// SPDX-License-Identifier: Apache-2.0
//
// Bodies of authentication packets.

#include "tacacs/authentication.hpp"

namespace tacacs {
namespace {

constexpr std::size_t kReplyHead = 6;
constexpr std::size_t kContinueHead = 5;
constexpr std::size_t kChapResponse = 16;
constexpr std::uint8_t kNoEcho = 1;
constexpr std::uint8_t kAbort = 1;

std::string too_long(std::string_view what, std::size_t length, std::size_t most) {
    return "the " + std::string(what) + " has " + std::to_string(length) +
           " bytes; TACACS+ carries at most " + std::to_string(most);
}

bool is_status(unsigned value) {
    return (value >= 1 && value <= 7) || value == 0x21;
}

}  // namespace

SecretBytes data_of_chap(std::uint8_t id, std::string_view challenge, std::string_view response) {
    SecretBytes data;
    if (response.size() == kChapResponse && !challenge.empty()) {
        data.reserve(1 + challenge.size() + response.size());
        data.append_number8(id);
        data.append(challenge);
        data.append(response);
    }
    return data;
}

std::string append_start(const Start &start, SecretBytes &packet) {
    const Subject &subject = start.subject;
    const bool is_chap = subject.type == AuthenticationType::kChap;
    std::string text = refusal_of(subject);
    if (!text.empty()) {
        return text;
    }
    if (start.data.size() > kMaxField) {
        return too_long(is_chap ? "answer to CHAP" : "password", start.data.size(), kMaxField);
    }
    if (subject.type == AuthenticationType::kNotSet) {
        return "the type of a login is ASCII, PAP or CHAP";
    }
    if (start.action == Action::kChangePassword && subject.type != AuthenticationType::kAscii) {
        return "passwords are changed only with the type ASCII";
    }
    if (is_chap && start.data.size() <= 1 + kChapResponse) {
        return "the answer to CHAP needs an identifier, a challenge and a response of 16 bytes";
    }
    packet.append_number8(static_cast<std::uint8_t>(start.action));
    packet.append_number8(subject.privilege);
    packet.append_number8(static_cast<std::uint8_t>(subject.type));
    packet.append_number8(static_cast<std::uint8_t>(subject.service));
    const std::string_view fields[] = {subject.user, subject.port, subject.remote_address, start.data};
    for (const std::string_view field : fields) {
        packet.append_number8(field.size());
    }
    for (const std::string_view field : fields) {
        packet.append(field);
    }
    return {};
}

std::string append_continue(std::string_view text, SecretBytes &packet) {
    if (text.size() > kMaxBody - kContinueHead) {
        return too_long("input", text.size(), kMaxBody - kContinueHead);
    }
    packet.append_number16(text.size());
    packet.append_number16(0);
    packet.append_number8(0);
    packet.append(text);
    return {};
}

void append_abort(std::string_view reason, SecretBytes &packet) {
    reason = reason.substr(0, kMaxField);
    packet.append_number16(0);
    packet.append_number16(reason.size());
    packet.append_number8(kAbort);
    packet.append(reason);
}

Fault AuthenticationReply::read(std::string_view body, AuthenticationReply &reply) {
    const auto byte = [&](std::size_t at) -> unsigned { return static_cast<unsigned char>(body[at]); };
    if (body.size() < kReplyHead || !is_status(byte(0)) || (byte(1) & ~unsigned{kNoEcho}) != 0) {
        return Fault::kMalformed;
    }
    const std::size_t message = byte(2) << 8 | byte(3);
    const std::size_t data = byte(4) << 8 | byte(5);
    if (body.size() != kReplyHead + message + data) {
        return Fault::kMalformed;
    }
    reply.status = static_cast<AuthenticationStatus>(byte(0));
    reply.hides_input = byte(1) == kNoEcho;
    reply.message = body.substr(kReplyHead, message);
    reply.data = body.substr(kReplyHead + message);
    return Fault::kNone;
}

}  // namespace tacacs
