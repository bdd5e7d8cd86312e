// SPDX-License-Identifier: Apache-2.0
//
// Checking and reading answers.

#include "radius/packet.hpp"

namespace radius {
namespace {

constexpr std::string_view kZeros{"\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", kDigestSize};

unsigned byte_at(std::string_view bytes, std::size_t at) {
    return static_cast<unsigned char>(bytes[at]);
}

// The packet without padding; empty when it is none.
std::string_view whole_packet(std::string_view bytes) {
    if (bytes.size() < kHeadSize) {
        return {};
    }
    const std::size_t length = byte_at(bytes, 2) << 8 | byte_at(bytes, 3);
    return length >= kHeadSize && length <= kMaxPacket && length <= bytes.size() ? bytes.substr(0, length)
                                                                                 : std::string_view{};
}

bool answers(Code request, Code reply) {
    switch (reply) {
        case Code::kAccessAccept:
            return request == Code::kAccessRequest || request == Code::kStatusServer;
        case Code::kAccessReject:
        case Code::kAccessChallenge:
            return request == Code::kAccessRequest;
        case Code::kAccountingResponse:
            return request == Code::kAccountingRequest || request == Code::kStatusServer;
        default:
            return false;
    }
}

}  // namespace

Fault Reply::read(std::string_view bytes, const Request &request, std::string_view secret,
                  MessageAuthenticator message_authenticator, Reply &reply) {
    const std::string_view packet = whole_packet(bytes);
    if (packet.empty() || !are_whole(packet.substr(kHeadSize))) {
        return Fault::kMalformed;
    }
    const Reply read(static_cast<Code>(packet[0]), packet.substr(kHeadSize));
    if (byte_at(packet, 1) != request.id() || !answers(request.code(), read.code_)) {
        return Fault::kOtherRequest;
    }
    const std::string_view head = packet.substr(0, 4);
    Digest digest;
    if (!md5({head, request.authenticator(), read.bytes(), secret}, digest)) {
        return Fault::kNoDigest;
    }
    if (!equal_digests(view_of(digest), packet.substr(4, kDigestSize))) {
        return Fault::kForged;
    }
    const std::optional<Attribute> sent = read.find(Type::kMessageAuthenticator);
    if (!sent) {
        if (message_authenticator == MessageAuthenticator::kRequired) {
            return Fault::kUnprotected;
        }
        reply = read;
        return Fault::kNone;
    }
    if (sent->value.size() != kDigestSize) {
        return Fault::kMalformed;
    }
    const auto before = static_cast<std::size_t>(sent->value.data() - packet.data());
    if (!hmac_md5(secret,
                  {head, request.authenticator(), packet.substr(kHeadSize, before - kHeadSize), kZeros,
                   packet.substr(before + kDigestSize)},
                  digest)) {
        return Fault::kNoDigest;
    }
    if (!equal_digests(view_of(digest), sent->value)) {
        return Fault::kForged;
    }
    reply = read;
    return Fault::kNone;
}

}  // namespace radius
