// SPDX-License-Identifier: Apache-2.0
//
// Bodies of accounting packets.

#include "tacacs/accounting.hpp"

namespace tacacs {
namespace {

constexpr std::size_t kReplyHead = 5;

bool is_status(unsigned value) {
    return value == 1 || value == 2 || value == 0x21;
}

}  // namespace

std::string append_accounting(Record record, const Subject &subject, std::span<const std::string> arguments,
                              SecretBytes &packet) {
    packet.append_number8(static_cast<std::uint8_t>(record));
    return append_subject(subject, arguments, packet);
}

Fault AccountingReply::read(std::string_view body, AccountingReply &reply) {
    const auto byte = [&](std::size_t at) -> unsigned { return static_cast<unsigned char>(body[at]); };
    if (body.size() < kReplyHead || !is_status(byte(4))) {
        return Fault::kMalformed;
    }
    const std::size_t message = byte(0) << 8 | byte(1);
    const std::size_t data = byte(2) << 8 | byte(3);
    if (body.size() != kReplyHead + message + data) {
        return Fault::kMalformed;
    }
    reply.status = static_cast<AccountingStatus>(byte(4));
    reply.message = body.substr(kReplyHead, message);
    reply.data = body.substr(kReplyHead + message);
    return Fault::kNone;
}

}  // namespace tacacs
