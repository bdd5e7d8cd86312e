// SPDX-License-Identifier: Apache-2.0
//
// Packets out of the bytes of a connection.

#include "tacacs/reader.hpp"

#include <random>

#include "tacacs/vectors.hpp"

namespace tacacs {
namespace {

std::vector<std::string> all_of(PacketReader &reader) {
    std::vector<std::string> packets;
    std::string packet;
    while (reader.next(packet) == Fault::kNone && !packet.empty()) {
        packets.push_back(packet);
    }
    return packets;
}

TEST(PacketReader, FindsPacketsHoweverTheBytesAreSplit) {
    std::vector<std::string> sent;
    std::string bytes;
    for (const char *name : {"get_user", "accounted", "pass_repl", "longest_password", "pass_tls"}) {
        sent.push_back(tacacs_test::vector(name));
        bytes += sent.back();
    }
    std::mt19937 random(20261122);
    for (int round = 0; round < 50; ++round) {
        PacketReader reader;
        std::vector<std::string> found;
        for (std::size_t at = 0; at < bytes.size();) {
            const std::size_t length = 1 + random() % (round < 25 ? 40 : 40000);
            reader.add(std::string_view(bytes).substr(at, length));
            at += length;
            for (std::string &packet : all_of(reader)) {
                found.push_back(std::move(packet));
            }
        }
        EXPECT_EQ(found, sent);
        EXPECT_EQ(reader.pending(), 0u);
    }
}

TEST(PacketReader, TakesABodyOfNoBytes) {
    PacketReader reader;
    reader.add(tacacs_test::from_hex("c001020400000001000000"));
    EXPECT_TRUE(all_of(reader).empty());
    EXPECT_EQ(reader.pending(), 11u);
    reader.add(std::string(1, '\0'));
    EXPECT_EQ(all_of(reader).size(), 1u);
}

// A server of another protocol that waits must be noticed before the deadline.
TEST(PacketReader, NoticesAnotherProtocolAtItsFirstByte) {
    PacketReader reader;
    reader.add("S");
    std::string packet;
    EXPECT_EQ(reader.next(packet), Fault::kNotTacacs);
    reader.add(tacacs_test::vector("accounted"));
    EXPECT_EQ(reader.next(packet), Fault::kNotTacacs);
    EXPECT_TRUE(packet.empty());
}

TEST(PacketReader, RefusesALengthAboveTheLimitBeforeItWaitsForTheBody) {
    PacketReader reader;
    reader.add(tacacs_test::vector("accounted") + tacacs_test::from_hex("c00102040000000100010000"));
    std::string packet;
    EXPECT_EQ(reader.next(packet), Fault::kNone);
    EXPECT_EQ(packet, tacacs_test::vector("accounted"));
    EXPECT_EQ(reader.next(packet), Fault::kTooLong);
    EXPECT_TRUE(packet.empty());
    EXPECT_EQ(reader.next(packet), Fault::kTooLong);
}

}  // namespace
}  // namespace tacacs
