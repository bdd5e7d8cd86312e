// SPDX-License-Identifier: Apache-2.0
//
// Bytes of packets in tests: from hexadecimal digits, and answers with digests.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "radius/packet.hpp"

namespace radius_test {

// Blanks are ignored.
inline std::string from_hex(std::string_view digits) {
    std::string bytes;
    unsigned value = 0;
    int half = 0;
    for (const char c : digits) {
        if (c == ' ') {
            continue;
        }
        value = value << 4 | static_cast<unsigned>(c <= '9' ? c - '0' : c - 'a' + 10);
        if (half++ % 2 == 1) {
            bytes += static_cast<char>(value);
            value = 0;
        }
    }
    return bytes;
}

inline std::string attribute(radius::Type type, std::string_view value) {
    std::string bytes{static_cast<char>(type), static_cast<char>(value.size() + 2)};
    return bytes.append(value);
}

inline std::string packet(int code, int id, std::string_view authenticator, std::string_view attributes) {
    const std::size_t length = radius::kHeadSize + attributes.size();
    std::string bytes{static_cast<char>(code), static_cast<char>(id), static_cast<char>(length >> 8),
                      static_cast<char>(length)};
    return bytes.append(authenticator).append(attributes);
}

// What a server that has the secret answers to the bytes of a request. A
// Message-Authenticator of zeros among the attributes is filled in.
inline std::string answer(int code, std::string_view request, std::string_view attributes,
                          std::string_view secret) {
    std::string bytes =
        packet(code, static_cast<unsigned char>(request[1]), request.substr(4, 16), attributes);
    radius::Digest digest;
    const std::size_t at = bytes.find(attribute(radius::Type::kMessageAuthenticator, std::string(16, '\0')));
    if (at != std::string::npos) {
        EXPECT_TRUE(radius::hmac_md5(secret, {bytes}, digest));
        bytes.replace(at + 2, 16, radius::view_of(digest));
    }
    EXPECT_TRUE(radius::md5({bytes, secret}, digest));
    bytes.replace(4, 16, radius::view_of(digest));
    return bytes;
}

inline std::string message_authenticator() {
    return attribute(radius::Type::kMessageAuthenticator, std::string(16, '\0'));
}

}  // namespace radius_test
