// SPDX-License-Identifier: Apache-2.0
//
// Bodies of authorization packets.

#include "tacacs/authorization.hpp"

#include <algorithm>

namespace tacacs {
namespace {

constexpr std::size_t kReplyHead = 6;

bool is_status(unsigned value) {
    return value == 1 || value == 2 || value == 0x10 || value == 0x11 || value == 0x21;
}

}  // namespace

std::string append_authorization(const Subject &subject, std::span<const std::string> arguments,
                                 SecretBytes &packet) {
    return append_subject(subject, arguments, packet);
}

Fault AuthorizationReply::read(std::string_view body, AuthorizationReply &reply) {
    const auto byte = [&](std::size_t at) -> unsigned { return static_cast<unsigned char>(body[at]); };
    if (body.size() < kReplyHead || !is_status(byte(0))) {
        return Fault::kMalformed;
    }
    const std::size_t count = byte(1);
    const std::size_t message = byte(2) << 8 | byte(3);
    const std::size_t data = byte(4) << 8 | byte(5);
    if (body.size() < kReplyHead + count + message + data) {
        return Fault::kMalformed;
    }
    std::string_view rest = body.substr(kReplyHead + count + message + data);
    AuthorizationReply read;
    if (!read_arguments(body.substr(kReplyHead), count, rest, read.arguments) || !rest.empty() ||
        !std::all_of(read.arguments.begin(), read.arguments.end(),
                     [](std::string_view argument) { return split(argument).has_value(); })) {
        return Fault::kMalformed;
    }
    read.status = static_cast<AuthorizationStatus>(byte(0));
    read.message = body.substr(kReplyHead + count, message);
    read.data = body.substr(kReplyHead + count + message, data);
    reply = std::move(read);
    return Fault::kNone;
}

}  // namespace tacacs
