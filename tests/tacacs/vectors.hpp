// SPDX-License-Identifier: Apache-2.0
//
// Packets of tests/vectors/tacacs.txt, which another implementation has computed, and
// packets that a server would send.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <string_view>

#include "tacacs/packet.hpp"

namespace tacacs_test {

inline constexpr char kSecret[] = "tac-secret";
inline constexpr std::uint32_t kSession = 0x6b8b4567;

inline const tacacs::Protection &protection() {
    static const tacacs::Protection protection = tacacs::Protection::secret(kSecret);
    return protection;
}

inline const tacacs::Protection &tls() {
    static const tacacs::Protection protection = tacacs::Protection::tls();
    return protection;
}

inline std::string from_hex(const std::string &digits) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes += static_cast<char>(std::stoul(digits.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

inline const std::map<std::string, std::string> &vectors() {
    static const std::map<std::string, std::string> all = [] {
        std::map<std::string, std::string> read;
        const char *const path = std::getenv("AAA_TACACS_VECTORS");
        EXPECT_NE(path, nullptr) << "set AAA_TACACS_VECTORS to tests/vectors/tacacs.txt, or use ctest";
        std::ifstream file(path == nullptr ? "" : path);
        for (std::string line; std::getline(file, line);) {
            std::istringstream words(line);
            std::string name, session, secret, bytes;
            if (line[0] != '#' && words >> name >> session >> secret >> bytes) {
                EXPECT_EQ(session, "6b8b4567");
                EXPECT_TRUE(secret == kSecret || secret == "-");
                read[name] = from_hex(bytes);
            }
        }
        return read;
    }();
    return all;
}

inline std::string vector(const std::string &name) {
    const auto found = vectors().find(name);
    EXPECT_NE(found, vectors().end()) << "tests/vectors/tacacs.txt has no " << name;
    return found == vectors().end() ? std::string() : found->second;
}

// The bytes of a packet from a server: `head` is changed by tests of false ones. The length
// is that of the body unless the head has one.
inline std::string packet(tacacs::Head head, std::string body,
                          const tacacs::Protection &protected_by = protection()) {
    if (!protected_by.is_tls()) {
        EXPECT_TRUE(protected_by.combine(head, body.data(), body.size()));
    } else {
        head.flags |= tacacs::kFlagUnencrypted;
    }
    if (head.length == 0) {
        head.length = static_cast<std::uint32_t>(body.size());
    }
    std::string bytes{static_cast<char>(0xc0 | head.minor), static_cast<char>(head.type),
                      static_cast<char>(head.sequence), static_cast<char>(head.flags)};
    for (const std::uint32_t number : {head.session, head.length}) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            bytes += static_cast<char>(number >> shift);
        }
    }
    return bytes + body;
}

// A session that waits for the answer with the sequence number that is given.
inline tacacs::Session waiting_session(tacacs::Type type, std::uint8_t minor = 0, int answer = 2,
                                       const tacacs::Protection &protected_by = protection()) {
    tacacs::Session session(type, minor, protected_by, kSession);
    for (int sequence = 2; sequence <= answer; sequence += 2) {
        tacacs::SecretBytes request = tacacs::begin_packet(0);
        request.append("x");
        EXPECT_TRUE(session.seal(request, false));
    }
    return session;
}

// The body of a vector's packet, an answer to such a session.
inline std::string body_of(const std::string &name, tacacs::Type type, std::uint8_t minor = 0, int answer = 2,
                           const tacacs::Protection &protected_by = protection()) {
    tacacs::Session session = waiting_session(type, minor, answer, protected_by);
    std::string bytes = vector(name);
    tacacs::Head head;
    EXPECT_EQ(session.open(bytes, head), tacacs::Fault::kNone) << name;
    return bytes.substr(tacacs::kHeadSize);
}

// Calls check(bytes) with every beginning of a body, and with one byte more.
template <typename Check>
void for_each_other_length(const std::string &body, Check check) {
    for (std::size_t length = 0; length < body.size(); ++length) {
        check(body.substr(0, length));
    }
    check(body + '\0');
}

}  // namespace tacacs_test
