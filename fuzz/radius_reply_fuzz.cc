// SPDX-License-Identifier: Apache-2.0
//
// Answers of RADIUS servers. The input is flags (1 byte) and bytes:
//
//   flag 1   the bytes are a whole datagram, otherwise the attributes of an answer
//            that gets right digests
//   flag 2   the answer starts with a Message-Authenticator
//   flag 4   a Message-Authenticator is required
//   4 bits   which code the answer has
//
// A datagram is never taken for an answer, because the input cannot contain the right
// digest. An answer with right digests is accepted exactly when a second reading of the
// attributes accepts them, and gives the attributes of that reading.

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "fuzz_input.hpp"
#include "radius/packet.hpp"

namespace {

constexpr char kSecret[] = "testing123";
constexpr std::uint8_t kId = 7;
constexpr std::uint8_t kCodes[] = {2, 3, 5, 11, 0, 1, 255, 12};

using Attributes = std::vector<std::pair<int, std::string>>;

std::optional<Attributes> second_reading(const std::string &bytes) {
    Attributes all;
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t length = at + 1 < bytes.size() ? static_cast<unsigned char>(bytes[at + 1]) : 0;
        if (length < 2 || at + length > bytes.size()) {
            return std::nullopt;
        }
        all.emplace_back(static_cast<unsigned char>(bytes[at]), bytes.substr(at + 2, length - 2));
        at += length;
    }
    return all;
}

std::string with_digests(std::string packet, std::string_view authenticator, bool protects) {
    radius::Digest digest{};
    packet.replace(4, 16, authenticator);
    if (protects) {
        REQUIRE(radius::hmac_md5(kSecret, {packet}, digest));
        packet.replace(radius::kHeadSize + 2, 16, radius::view_of(digest));
    }
    REQUIRE(radius::md5({packet, kSecret}, digest));
    return packet.replace(4, 16, radius::view_of(digest));
}

void read_attributes(const radius::Reply &reply, const Attributes &expected) {
    Attributes found;
    for (const radius::Attribute attribute : reply) {
        found.emplace_back(static_cast<int>(attribute.type), attribute.value);
        std::size_t inner = 0;
        const bool whole = radius::for_each_vendor_attribute(
            attribute, [&inner](const radius::VendorAttribute &vendor) { inner += vendor.value.size() + 2; });
        REQUIRE(inner + 4 <= attribute.value.size() || inner == 0);
        REQUIRE(!whole || inner + 4 == attribute.value.size());
        REQUIRE(attribute.number().has_value() == (attribute.value.size() == 4));
    }
    REQUIRE(found == expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    const uint8_t flags = input.byte();
    const std::string rest = input.rest();
    const auto required =
        (flags & 4) != 0 ? radius::MessageAuthenticator::kRequired : radius::MessageAuthenticator::kOptional;
    // Fixed: the same input always gives the same run.
    const radius::Digest authenticator{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    const radius::Request request(radius::Code::kAccessRequest, kId, authenticator);
    radius::Reply reply;
    if ((flags & 1) != 0) {
        REQUIRE(radius::Reply::read(rest, request, kSecret, required, reply) != radius::Fault::kNone);
        return 0;
    }
    const bool protects = (flags & 2) != 0;
    const std::string attributes = (protects ? "\x50\x12" + std::string(16, '\0') : "") + rest;
    const std::size_t length = radius::kHeadSize + attributes.size();
    const uint8_t code = kCodes[flags >> 4 & 7];
    std::string packet{static_cast<char>(code), static_cast<char>(kId), static_cast<char>(length >> 8),
                       static_cast<char>(length)};
    packet += std::string(16, '\0') + attributes;
    packet = with_digests(packet, radius::view_of(authenticator), protects);
    const radius::Fault fault = radius::Reply::read(packet, request, kSecret, required, reply);
    const std::optional<Attributes> expected = second_reading(attributes);
    if (!expected || length > radius::kMaxPacket) {
        REQUIRE(fault == radius::Fault::kMalformed || length > UINT16_MAX);
        return 0;
    }
    if (code != 2 && code != 3 && code != 11) {
        REQUIRE(fault == radius::Fault::kOtherRequest);
        return 0;
    }
    const bool has_one = protects || std::any_of(expected->begin(), expected->end(),
                                                 [](const auto &attribute) { return attribute.first == 80; });
    if (!has_one && required == radius::MessageAuthenticator::kRequired) {
        REQUIRE(fault == radius::Fault::kUnprotected);
    } else if (has_one && !protects) {  // not made by with_digests()
        REQUIRE(fault == radius::Fault::kForged || fault == radius::Fault::kMalformed);
    } else {
        REQUIRE(fault == radius::Fault::kNone);
        REQUIRE(static_cast<uint8_t>(reply.code()) == code);
        Attributes with_digest = *expected;
        if (protects) {
            with_digest[0].second = packet.substr(radius::kHeadSize + 2, 16);
        }
        read_attributes(reply, with_digest);
    }
    return 0;
}
