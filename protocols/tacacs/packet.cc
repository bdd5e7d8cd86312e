// SPDX-License-Identifier: Apache-2.0
//
// Heads and sessions.

#include "tacacs/packet.hpp"

#include <openssl/rand.h>

namespace tacacs {
namespace {

constexpr unsigned kMajor = 0xc0;
constexpr unsigned kMinorMask = 0x0f;

std::uint32_t number32(std::string_view bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    }
    return value;
}

void put_number32(char *at, std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        *at++ = static_cast<char>(value >> shift);
    }
}

void write_head(const Head &head, char *at) {
    at[0] = static_cast<char>(kMajor | head.minor);
    at[1] = static_cast<char>(head.type);
    at[2] = static_cast<char>(head.sequence);
    at[3] = static_cast<char>(head.flags);
    put_number32(at + 4, head.session);
    put_number32(at + 8, head.length);
}

}  // namespace

const char *text_of(Fault fault) {
    switch (fault) {
        case Fault::kNone:
            return "it is right";
        case Fault::kNotTacacs:
            return "it is not TACACS+";
        case Fault::kTooLong:
            return "it is longer than 65535 bytes";
        case Fault::kMalformed:
            return "its contents are inconsistent";
        case Fault::kOtherType:
            return "it answers a request of another type";
        case Fault::kOtherSession:
            return "it belongs to a session that does not wait for it";
        case Fault::kSequence:
            return "its sequence number is not the next one";
        case Fault::kVersion:
            return "its minor version is not the request's";
        case Fault::kUnencrypted:
            return "it is not obfuscated";
        case Fault::kObfuscated:
            return "it is obfuscated although TLS is used";
        case Fault::kNoDigest:
            return "the system's cryptography refuses MD5";
    }
    return "it is faulty";
}

Fault read_head(std::string_view bytes, Head &head) {
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(bytes[at]); };
    if (bytes.size() < kHeadSize || (byte(0) & ~kMinorMask) != kMajor || byte(1) < 1 || byte(1) > 3) {
        return Fault::kNotTacacs;
    }
    head.minor = byte(0) & kMinorMask;
    head.type = static_cast<Type>(byte(1));
    head.sequence = byte(2);
    head.flags = byte(3);
    head.session = number32(bytes, 4);
    head.length = number32(bytes, 8);
    return head.length > kMaxBody ? Fault::kTooLong : Fault::kNone;
}

SecretBytes begin_packet(std::size_t expected_body) {
    SecretBytes packet;
    packet.reserve(kHeadSize + expected_body);
    packet.append(std::string_view("\0\0\0\0\0\0\0\0\0\0\0\0", kHeadSize));
    return packet;
}

Session::Session(Type type, std::uint8_t minor, const Protection &protection, std::uint32_t id)
    : protection_(protection), head_{.minor = minor, .type = type, .session = id} {}

Session::Session(Type type, std::uint8_t minor, const Protection &protection)
    : Session(type, minor, protection, 0) {
    unsigned char id[4];
    usable_ = RAND_bytes(id, sizeof id) == 1;
    head_.session = number32({reinterpret_cast<const char *>(id), sizeof id}, 0);
}

bool Session::seal(SecretBytes &packet, bool asks_for_single_connection) {
    if (!usable_ || packet.size() < kHeadSize || packet.size() - kHeadSize > kMaxBody) {
        return false;
    }
    Head head = head_;
    if (sealed_) {
        if (!can_go_on()) {
            return false;
        }
        head.sequence = static_cast<std::uint8_t>(head_.sequence + 2);
    }
    head.flags = static_cast<std::uint8_t>((protection_.is_tls() ? kFlagUnencrypted : 0) |
                                           (asks_for_single_connection ? kFlagSingleConnection : 0));
    head.length = static_cast<std::uint32_t>(packet.size() - kHeadSize);
    if (!protection_.is_tls() && !protection_.combine(head, packet.data() + kHeadSize, head.length)) {
        return false;
    }
    write_head(head, packet.data());
    head_ = head;
    sealed_ = true;
    return true;
}

Fault Session::open(std::string &packet, Head &head) {
    const Fault fault = read_head(packet, head);
    if (fault != Fault::kNone) {
        return fault;
    }
    if (packet.size() != kHeadSize + head.length) {
        return Fault::kMalformed;
    }
    if (!sealed_ || head.session != head_.session) {
        return Fault::kOtherSession;
    }
    if (head.type != head_.type) {
        return Fault::kOtherType;
    }
    if (head.sequence != head_.sequence + 1) {
        return Fault::kSequence;
    }
    const bool is_unencrypted = (head.flags & kFlagUnencrypted) != 0;
    if (is_unencrypted != protection_.is_tls()) {
        return is_unencrypted ? Fault::kUnencrypted : Fault::kObfuscated;
    }
    if (!protection_.is_tls() && !protection_.combine(head, packet.data() + kHeadSize, head.length)) {
        return Fault::kNoDigest;
    }
    return Fault::kNone;
}

}  // namespace tacacs
