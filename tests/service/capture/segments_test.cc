// SPDX-License-Identifier: Apache-2.0
//
// Packets of IP around the bytes of sockets: headers, checksums, sequence numbers.

#include "capture/segments.hpp"

#include <gtest/gtest.h>

#include <optional>

namespace service {
namespace {

using Way = net::Tap::Way;

net::Tap::Path path_of(const std::string &local, const std::string &server) {
    return {*net::Address::parse(local, 40000), *net::Address::parse(server, 1812)};
}

std::uint32_t number(std::string_view bytes, std::size_t at, std::size_t size) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < size; ++i) {
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    }
    return value;
}

// RFC 1071: over bytes that hold a right sum the sum is all ones.
std::uint32_t sum_of(std::string_view bytes) {
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < bytes.size(); i += 2) {
        sum += i + 1 < bytes.size() ? number(bytes, i, 2) : number(bytes, i, 1) << 8;
    }
    while (sum > 0xffff) {
        sum = (sum & 0xffff) + (sum >> 16);
    }
    return sum;
}

std::string pseudo_header(std::string_view packet, std::uint8_t protocol, bool is_v6) {
    const std::size_t header = is_v6 ? 40 : 20;
    const auto length = static_cast<std::uint32_t>(packet.size() - header);
    std::string out(is_v6 ? packet.substr(8, 32) : packet.substr(12, 8));
    for (const std::uint32_t word : {length, std::uint32_t{protocol}}) {
        out += std::string("\0\0", 2) + static_cast<char>(word >> 8) + static_cast<char>(word & 0xff);
    }
    return out;
}

TEST(Segments, ADatagramHasAddressesPortsAndRightSums) {
    const std::string packet =
        Segments::datagram(path_of("192.0.2.9", "192.0.2.1"), Way::kSent, "request");  // of odd length
    ASSERT_EQ(packet.size(), 20u + 8 + 7);
    EXPECT_EQ(number(packet, 0, 4), 0x45000023u);
    EXPECT_EQ(number(packet, 9, 1), 17u);
    EXPECT_EQ(number(packet, 12, 4), 0xc0000209u);
    EXPECT_EQ(number(packet, 16, 4), 0xc0000201u);
    EXPECT_EQ(number(packet, 20, 2), 40000u);
    EXPECT_EQ(number(packet, 22, 2), 1812u);
    EXPECT_EQ(number(packet, 24, 2), 15u);
    EXPECT_EQ(packet.substr(28), "request");
    EXPECT_EQ(sum_of(packet.substr(0, 20)), 0xffffu);
    EXPECT_EQ(sum_of(pseudo_header(packet, 17, false) + packet.substr(20)), 0xffffu);
}

TEST(Segments, AnAnswerComesFromTheServer) {
    const std::string packet =
        Segments::datagram(path_of("192.0.2.9", "192.0.2.1"), Way::kReceived, "answer");
    EXPECT_EQ(number(packet, 12, 4), 0xc0000201u);
    EXPECT_EQ(number(packet, 20, 2), 1812u);
    EXPECT_EQ(number(packet, 22, 2), 40000u);
}

TEST(Segments, Ipv6HasItsOwnHeaderAndSum) {
    const std::string packet =
        Segments::datagram(path_of("2001:db8::9", "2001:db8::1"), Way::kSent, "request");
    ASSERT_EQ(packet.size(), 40u + 8 + 7);
    EXPECT_EQ(number(packet, 0, 4), 0x60000000u);
    EXPECT_EQ(number(packet, 4, 2), 15u);
    EXPECT_EQ(number(packet, 6, 1), 17u);
    EXPECT_EQ(sum_of(pseudo_header(packet, 17, true) + packet.substr(40)), 0xffffu);
}

// A socket that the system says nothing about must not end the capture.
TEST(Segments, AnUnknownLocalAddressIsZeros) {
    const net::Tap::Path path{net::Address(), *net::Address::parse("192.0.2.1", 1812)};
    const std::string packet = Segments::datagram(path, Way::kSent, "");
    EXPECT_EQ(number(packet, 12, 4), 0u);
    EXPECT_EQ(number(packet, 20, 2), 0u);
    EXPECT_EQ(sum_of(packet.substr(0, 20)), 0xffffu);
}

struct Tcp {
    std::uint32_t from, number, acknowledged, flags;
    std::string bytes;
    friend bool operator==(const Tcp &, const Tcp &) = default;
};

std::vector<Tcp> read(const std::vector<std::string> &packets) {
    std::vector<Tcp> all;
    for (const std::string &packet : packets) {
        EXPECT_EQ(sum_of(pseudo_header(packet, 6, false) + packet.substr(20)), 0xffffu);
        all.push_back({number(packet, 20, 2), number(packet, 24, 4), number(packet, 28, 4),
                       number(packet, 33, 1), packet.substr(40)});
    }
    return all;
}

TEST(Segments, AConnectionHasABeginningNumbersAndAnEnd) {
    Segments segments;
    const auto path = path_of("192.0.2.9", "192.0.2.1");
    EXPECT_EQ(read(segments.opened(path)),
              (std::vector<Tcp>{{40000, 0, 0, 2, ""}, {1812, 0, 1, 0x12, ""}, {40000, 1, 1, 0x10, ""}}));
    EXPECT_EQ(read(segments.bytes(path, Way::kSent, "hello")),
              (std::vector<Tcp>{{40000, 1, 1, 0x18, "hello"}}));
    EXPECT_EQ(read(segments.bytes(path, Way::kReceived, "hi")), (std::vector<Tcp>{{1812, 1, 6, 0x18, "hi"}}));
    EXPECT_EQ(read(segments.closed(path, Way::kReceived)),
              (std::vector<Tcp>{{1812, 3, 6, 0x11, ""}, {40000, 6, 4, 0x11, ""}, {1812, 4, 7, 0x10, ""}}));
    EXPECT_EQ(read(segments.bytes(path, Way::kSent, "x"))[0].number, 1u) << "another connection begins anew";
}

TEST(Segments, ConnectionsDoNotShareNumbers) {
    Segments segments;
    const auto one = path_of("192.0.2.9", "192.0.2.1");
    const auto other = path_of("192.0.2.9", "192.0.2.2");
    segments.bytes(one, Way::kSent, "12345");
    EXPECT_EQ(read(segments.bytes(other, Way::kSent, "x"))[0].number, 1u);
    EXPECT_EQ(read(segments.bytes(one, Way::kSent, "x"))[0].number, 6u);
}

TEST(Segments, BytesThatNoPacketHoldsAreCut) {
    Segments segments;
    const std::string bytes(100000, 'x');
    std::string all;
    std::uint32_t next = 1;
    for (const Tcp &part : read(segments.bytes(path_of("192.0.2.9", "192.0.2.1"), Way::kSent, bytes))) {
        EXPECT_EQ(part.number, next);
        next += static_cast<std::uint32_t>(part.bytes.size());
        EXPECT_LE(part.bytes.size() + 40, 65535u);
        all += part.bytes;
    }
    EXPECT_EQ(all, bytes);
}

}  // namespace
}  // namespace service
