// SPDX-License-Identifier: Apache-2.0
//
// Making requests.

#include <algorithm>
#include <cstring>

#include "radius/packet.hpp"

namespace radius {
namespace {

constexpr std::size_t kLengthAt = 2;
constexpr std::size_t kAuthenticatorAt = 4;
// The first attribute of every request.
constexpr std::size_t kMessageAuthenticatorAt = kHeadSize + kAttributeHead;
constexpr std::size_t kVendorHead = 6;  // vendor, type, length

std::string big_endian(std::uint32_t value) {
    return {static_cast<char>(value >> 24), static_cast<char>(value >> 16), static_cast<char>(value >> 8),
            static_cast<char>(value)};
}

}  // namespace

Request::Request(Code code, std::uint8_t id, const Digest &authenticator) {
    packet_.reserve(kMaxPacket);  // so that it never moves and leaves a copy of a password
    packet_.assign(kHeadSize, '\0');
    packet_[0] = static_cast<char>(code);
    packet_[1] = static_cast<char>(id);
    set_authenticator(authenticator);
    static_cast<void>(add(Type::kMessageAuthenticator, view_of(Digest{})));
}

Request::Request(Code code, std::uint8_t id) : Request(code, id, Digest{}) {
    Digest random{};
    usable_ = code == Code::kAccountingRequest || fill_random(random);
    set_authenticator(random);
}

void Request::set_authenticator(const Digest &digest) {
    std::memcpy(&packet_[kAuthenticatorAt], digest.data(), digest.size());
}

bool Request::add(Type type, std::string_view value) {
    if (value.size() > kMaxValue || packet_.size() + kAttributeHead + value.size() > kMaxPacket) {
        return false;
    }
    packet_ += static_cast<char>(type);
    packet_ += static_cast<char>(kAttributeHead + value.size());
    packet_ += value;
    return true;
}

bool Request::add_encoded(std::string_view attributes) {
    if (!Attributes::are_whole(attributes) || attributes.size() > kMaxPacket - packet_.size()) {
        return false;
    }
    packet_ += attributes;
    return true;
}

bool Request::add_number(Type type, std::uint32_t value) {
    return add(type, big_endian(value));
}

bool Request::add_vendor(std::uint32_t vendor, std::uint8_t type, std::string_view value) {
    if (value.size() > kMaxValue - kVendorHead) {
        return false;
    }
    std::string whole = big_endian(vendor);
    whole += static_cast<char>(type);
    whole += static_cast<char>(kAttributeHead + value.size());
    whole += value;
    return add(Type::kVendorSpecific, whole);
}

// Blocks of 16 bytes: c1 = p1 ^ MD5(secret + authenticator), c2 = p2 ^ MD5(secret + c1) ...
bool Request::add_password(std::string_view password, std::string_view secret) {
    if (code() != Code::kAccessRequest || password.size() > kMaxPassword) {
        return false;
    }
    const std::size_t blocks = std::max<std::size_t>((password.size() + kDigestSize - 1) / kDigestSize, 1);
    std::array<char, kMaxPassword> hidden{};
    std::memcpy(hidden.data(), password.data(), password.size());
    std::string_view previous = authenticator();
    bool done = true;
    for (std::size_t block = 0; block < blocks && done; ++block) {
        Digest mask;
        char *const bytes = &hidden[block * kDigestSize];
        done = md5({secret, previous}, mask);
        for (std::size_t i = 0; i < kDigestSize; ++i) {
            bytes[i] = static_cast<char>(bytes[i] ^ mask[i]);
        }
        previous = {bytes, kDigestSize};
    }
    done = done && add(Type::kUserPassword, {hidden.data(), blocks * kDigestSize});
    wipe(hidden.data(), hidden.size());
    return done;
}

bool Request::add_chap(std::uint8_t chap_id, std::string_view response, std::string_view challenge) {
    if (response.size() != kDigestSize || challenge.size() > kMaxValue) {
        return false;
    }
    const std::size_t needed = 2 * kAttributeHead + 1 + response.size() + challenge.size();
    if (packet_.size() + needed > kMaxPacket) {
        return false;
    }
    return add(Type::kChapPassword, std::string(1, static_cast<char>(chap_id)).append(response)) &&
           add(Type::kChapChallenge, challenge);
}

// For accounting, the Message-Authenticator is computed with an authenticator of zeros, as
// RFC 5176, 3.4, does for other requests whose authenticator is a digest, and the
// authenticator over the result (RFC 2866, 3).
std::string_view Request::finish(std::string_view secret) {
    packet_[kLengthAt] = static_cast<char>(packet_.size() >> 8);
    packet_[kLengthAt + 1] = static_cast<char>(packet_.size());
    if (code() == Code::kAccountingRequest) {
        set_authenticator({});
    }
    std::fill_n(&packet_[kMessageAuthenticatorAt], kDigestSize, '\0');
    Digest digest;
    if (!usable_ || !hmac_md5(secret, {packet_}, digest)) {
        return {};
    }
    std::memcpy(&packet_[kMessageAuthenticatorAt], digest.data(), digest.size());
    if (code() == Code::kAccountingRequest) {
        if (!md5({packet_, secret}, digest)) {
            return {};
        }
        set_authenticator(digest);
    }
    return packet_;
}

}  // namespace radius
