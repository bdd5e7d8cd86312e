// SPDX-License-Identifier: Apache-2.0

#include "radius/packet_stream.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "radius/bytes.hpp"

namespace radius {
namespace {

std::string packet_of(std::size_t length, int id) {
    return radius_test::packet(2, id, std::string(16, 'a'), std::string(length - kHeadSize, 'v'));
}

// The packets that come out when the stream gets the bytes in parts of a size.
std::vector<std::string> read(const std::string &bytes, std::size_t part) {
    PacketStream stream;
    std::vector<std::string> packets;
    for (std::size_t at = 0; at < bytes.size(); at += part) {
        stream.add(std::string_view(bytes).substr(at, part));
        for (std::string_view packet = stream.next(); !packet.empty(); packet = stream.next()) {
            packets.emplace_back(packet);
        }
    }
    return packets;
}

TEST(PacketStream, FindsPacketsHoweverTheyAreSplit) {
    const std::vector<std::string> packets = {packet_of(20, 1), packet_of(4096, 2), packet_of(21, 3),
                                              packet_of(300, 4)};
    std::string all;
    for (const std::string &packet : packets) {
        all += packet;
    }
    for (std::size_t part = 1; part <= all.size(); part += part < 50 ? 1 : 97) {
        EXPECT_EQ(read(all, part), packets) << part;
    }
    EXPECT_EQ(read(all, all.size()), packets);
}

TEST(PacketStream, KeepsTheBeginningOfAPacket) {
    PacketStream stream;
    const std::string packet = packet_of(100, 1);
    stream.add(packet + packet.substr(0, 99));
    EXPECT_EQ(stream.next(), packet);
    EXPECT_EQ(stream.next(), "");
    stream.add(packet.substr(99));
    EXPECT_EQ(stream.next(), packet);
    EXPECT_EQ(stream.next(), "");
    EXPECT_FALSE(stream.is_damaged());
}

TEST(PacketStream, EndsAtALengthThatIsNone) {
    for (const int length : {0, 4, 19, 4097, 65535}) {
        PacketStream stream;
        std::string damaged = packet_of(20, 1);
        damaged[2] = static_cast<char>(length >> 8);
        damaged[3] = static_cast<char>(length);
        stream.add(packet_of(20, 7) + damaged.substr(0, 4));
        EXPECT_EQ(stream.next(), packet_of(20, 7));
        EXPECT_FALSE(stream.is_damaged());
        EXPECT_EQ(stream.next(), "");
        EXPECT_TRUE(stream.is_damaged()) << length;
        stream.add(packet_of(20, 7));
        EXPECT_EQ(stream.next(), "");
        EXPECT_TRUE(stream.is_damaged());
    }
}

}  // namespace
}  // namespace radius
