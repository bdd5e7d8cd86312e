// SPDX-License-Identifier: Apache-2.0
//
// Checking and reading answers.

#include "radius/packet.hpp"

namespace radius {
namespace {

constexpr std::size_t kAttributeHead = 2;
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

bool are_attributes(std::string_view rest) {
    while (!rest.empty()) {
        if (rest.size() < kAttributeHead) {
            return false;
        }
        const std::size_t length = byte_at(rest, 1);
        if (length < kAttributeHead || length > rest.size()) {
            return false;
        }
        rest.remove_prefix(length);
    }
    return true;
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
    if (packet.empty() || !are_attributes(packet.substr(kHeadSize))) {
        return Fault::kMalformed;
    }
    Reply read;
    read.code_ = static_cast<Code>(packet[0]);
    read.attributes_ = packet.substr(kHeadSize);
    if (byte_at(packet, 1) != request.id() || !answers(request.code(), read.code_)) {
        return Fault::kOtherRequest;
    }
    const std::string_view head = packet.substr(0, 4);
    Digest digest;
    if (!md5({head, request.authenticator(), read.attributes_, secret}, digest)) {
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

Attribute Reply::Iterator::operator*() const {
    return {static_cast<Type>(rest_[0]), rest_.substr(kAttributeHead, byte_at(rest_, 1) - kAttributeHead)};
}

Reply::Iterator &Reply::Iterator::operator++() {
    rest_.remove_prefix(byte_at(rest_, 1));
    return *this;
}

std::optional<Attribute> Reply::find(Type type) const {
    for (const Attribute attribute : *this) {
        if (attribute.type == type) {
            return attribute;
        }
    }
    return std::nullopt;
}

std::string Reply::joined(Type type) const {
    std::string all;
    for (const Attribute attribute : *this) {
        if (attribute.type == type) {
            all += attribute.value;
        }
    }
    return all;
}

std::optional<std::uint32_t> Attribute::number() const {
    if (value.size() != 4) {
        return std::nullopt;
    }
    std::uint32_t result = 0;
    for (const char byte : value) {
        result = result << 8 | static_cast<unsigned char>(byte);
    }
    return result;
}

}  // namespace radius
