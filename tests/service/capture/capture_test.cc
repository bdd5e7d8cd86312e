// SPDX-License-Identifier: Apache-2.0
//
// Readers of captures: what each gets, and that one that does not read costs a bounded queue.

#include "capture/capture.hpp"

#include <gtest/gtest.h>

#include <cstring>

namespace service {
namespace {

struct Block {
    std::uint32_t type;
    std::string body;
};

template <typename T>
T load(const std::string &bytes, std::size_t at) {
    T value{};
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
}

std::vector<Block> blocks_of(const std::string &bytes) {
    std::vector<Block> all;
    for (std::size_t at = 0; at < bytes.size();) {
        const auto length = load<std::uint32_t>(bytes, at + 4);
        all.push_back({load<std::uint32_t>(bytes, at), bytes.substr(at + 8, length - 12)});
        at += length;
    }
    return all;
}

std::vector<std::uint32_t> types_of(const std::string &bytes) {
    std::vector<std::uint32_t> all;
    for (const Block &block : blocks_of(bytes)) {
        all.push_back(block.type);
    }
    return all;
}

constexpr std::uint32_t kSection = 0x0a0d0d0a, kInterface = 1, kStatistics = 5, kPacket = 6, kSecrets = 10;
using Types = std::vector<std::uint32_t>;

class CaptureTest : public testing::Test {
  protected:
    static std::string take(CaptureReader &reader) {
        std::string out;
        reader.append_to(out, SIZE_MAX);
        return out;
    }
    void ask(const std::string &user, std::string_view bytes = "a message") {
        capture_.add({false, 4711, 1000, 100, 1, 1, 3, 7, user, {bytes, 0, true}});
    }

    net::Loop loop_;
    KnownNames names_;
    Capture capture_{loop_, names_, "test"};
    const net::Tap::Path path_{*net::Address::parse("127.0.0.1", 40000),
                               *net::Address::parse("127.0.0.1", 1812)};
};

TEST_F(CaptureTest, WithoutAReaderNothingIsOn) {
    EXPECT_FALSE(capture_.is_on());
    EXPECT_EQ(loop_.tap(), nullptr);
    {
        CaptureReader reader(capture_, {});
        EXPECT_TRUE(capture_.is_on());
        EXPECT_EQ(loop_.tap(), nullptr) << "the traffic with servers was not asked for";
        CaptureReader other(capture_, {.servers = true});
        EXPECT_NE(loop_.tap(), nullptr);
    }
    EXPECT_FALSE(capture_.is_on());
    EXPECT_EQ(loop_.tap(), nullptr);
}

TEST_F(CaptureTest, AFrameHasThePrefixOfItsClient) {
    CaptureReader reader(capture_, {});
    ask("alice");
    const auto blocks = blocks_of(take(reader));
    ASSERT_EQ(blocks.size(), 3u);
    const std::string frame = blocks[2].body.substr(20, 48 + 9);
    EXPECT_EQ(frame.substr(0, 2), std::string("\1\0", 2));
    EXPECT_EQ(frame.substr(4, 4), std::string("\0\x30\0\0", 4));
    EXPECT_EQ(frame.substr(8, 4), std::string("\0\0\x12\x67", 4));
    EXPECT_EQ(frame.substr(12, 4), std::string("\0\0\3\xe8", 4));
    EXPECT_EQ(frame.substr(16, 4), std::string("\0\0\0\x64", 4));
    EXPECT_EQ(frame.substr(20, 4), std::string("\0\0\0\3", 4));
    EXPECT_EQ(frame.substr(24, 8), std::string("\0\0\0\0\0\0\0\1", 8));
    EXPECT_EQ(frame.substr(32, 8), std::string("\0\0\0\0\0\0\0\7", 8));
    EXPECT_EQ(frame.substr(40, 4), std::string("\0\0\0\1", 4));
    EXPECT_NE(frame.substr(44, 4), std::string(4, '\0'));
    EXPECT_EQ(frame.substr(48), "a message");
}

// Numbers of connections begin again when the service does: captures of before and after were mixed up
// when they were joined.
TEST_F(CaptureTest, FramesOfAnotherStartOfTheServiceHaveAnotherNumber) {
    const auto run_of = [&](const std::string &bytes) { return blocks_of(bytes)[2].body.substr(20 + 44, 4); };
    Capture other(loop_, names_, "test");
    CaptureReader reader(capture_, {}), another(other, {});
    ask("alice");
    ask("alice");
    other.add({false, 4711, 1000, 100, 1, 1, 3, 7, "alice", {"a message", 0, true}});
    const std::string bytes = take(reader);
    EXPECT_EQ(blocks_of(bytes)[3].body.substr(20 + 44, 4), run_of(bytes));
    EXPECT_NE(run_of(take(another)), run_of(bytes));
}

TEST_F(CaptureTest, ReasonsAndLossesOfAReaderThatIsGivenUpAreTold) {
    CaptureReader reader(capture_, {});
    ask("alice");
    const std::string first = take(reader);
    ask("alice");
    ask("alice");
    reader.drop_queued();
    EXPECT_EQ(reader.dropped(), 2u);
    reader.finish("why");
    const auto last = blocks_of(take(reader));
    ASSERT_EQ(last.size(), 1u);
    EXPECT_EQ(last[0].body.substr(12, 8), std::string("\1\0\3\0why\0", 8));
    EXPECT_EQ(load<std::uint64_t>(last[0].body, 20 + 12 + 12 + 4), 3u);
    EXPECT_EQ(load<std::uint64_t>(last[0].body, 20 + 12 + 12 + 12 + 4), 2u);
}

TEST_F(CaptureTest, AReaderGetsItsUserOnly) {
    CaptureReader all(capture_, {});
    CaptureReader one(capture_, {.user = "bob"});
    ask("alice");
    ask("bob");
    ask("");
    EXPECT_EQ(types_of(take(all)), (Types{kSection, kInterface, kPacket, kPacket, kPacket}));
    EXPECT_EQ(types_of(take(one)), (Types{kSection, kInterface, kPacket}));
}

TEST_F(CaptureTest, WhatDoesNotFitIsDroppedAndTold) {
    CaptureReader reader(capture_, {.secrets = true});
    const std::string large(60000, 'x');
    const std::size_t sent = Capture::kMostQueued / large.size() + 100;
    for (std::size_t i = 0; i < sent; ++i) {
        ask("alice", large);
    }
    const std::string first = take(reader);
    EXPECT_LT(first.size(), Capture::kMostQueued + 100000);
    const std::size_t kept = types_of(first).size() - 2;
    ASSERT_LT(kept, sent);
    ask("alice", "small");
    const auto after = blocks_of(take(reader));
    ASSERT_EQ(after.size(), 1u);
    // After 48 + 5 bytes, padded: the direction, then the number of dropped frames.
    EXPECT_EQ(load<std::uint16_t>(after[0].body, 20 + 56 + 8), 4u);
    EXPECT_EQ(load<std::uint64_t>(after[0].body, 20 + 56 + 12), sent - kept);
    ask("alice", "small");
    EXPECT_LT(blocks_of(take(reader))[0].body.size(), after[0].body.size()) << "it is told once";
    EXPECT_FALSE(reader.has_ended());
    reader.finish();
    ask("alice", "too late");
    const auto last = blocks_of(take(reader));
    ASSERT_EQ(last.size(), 1u);
    EXPECT_EQ(last[0].type, kStatistics);
    EXPECT_EQ(load<std::uint64_t>(last[0].body, 12 + 12 + 12 + 4), sent + 2);
    EXPECT_EQ(load<std::uint64_t>(last[0].body, 12 + 12 + 12 + 12 + 4), sent - kept);
    EXPECT_TRUE(reader.has_ended());
}

TEST_F(CaptureTest, TrafficWithServersIsForThoseWhoAsked) {
    CaptureReader messages(capture_, {});
    CaptureReader servers(capture_, {.servers = true});
    net::Tap &tap = *loop_.tap();
    tap.datagram(path_, net::Tap::Way::kSent, "request");
    tap.opened(path_);
    tap.bytes(path_, net::Tap::Way::kReceived, "bytes");
    tap.closed(path_, net::Tap::Way::kSent);
    tap.tls_key("CLIENT_RANDOM 00 11");
    EXPECT_EQ(types_of(take(messages)), (Types{kSection, kInterface}));
    Types expected{kSection, kInterface, kInterface};
    expected.insert(expected.end(), 1 + 3 + 1 + 3, kPacket);
    EXPECT_EQ(types_of(take(servers)), expected);
}

// A password where the name is asked for: it was in clear in the packets to RADIUS servers.
TEST_F(CaptureTest, NamesThatNoOneHasAreNotInPacketsOfRadius) {
    names_.use([](const std::string &name) { return name == "alice"; });
    const auto request = [](const std::string &name) {
        const auto size = static_cast<char>(name.size());
        return std::string{1, 7, 0, static_cast<char>(22 + size)} + "an authenticator" +
               std::string{1, static_cast<char>(2 + size)} + name;
    };
    CaptureReader reader(capture_, {.servers = true});
    CaptureReader with_keys(capture_, {.servers = true, .keys = true});
    CaptureReader all(capture_, {.secrets = true, .servers = true});
    net::Tap &tap = *loop_.tap();
    tap.datagram(path_, net::Tap::Way::kSent, request("rosebud"));
    tap.datagram(path_, net::Tap::Way::kReceived, request("rosebud"));
    tap.datagram(path_, net::Tap::Way::kSent, request("alice"));
    for (CaptureReader *one : {&reader, &with_keys}) {
        const auto blocks = blocks_of(take(*one));
        ASSERT_EQ(blocks.size(), 6u);
        for (const std::size_t i : {std::size_t{3}, std::size_t{4}}) {
            EXPECT_EQ(blocks[i].body.find("rosebud"), std::string::npos);
            EXPECT_NE(blocks[i].body.find(request("********")), std::string::npos);
            EXPECT_NE(blocks[i].body.find("replaced by asterisks"), std::string::npos);
        }
        EXPECT_NE(blocks[5].body.find(request("alice")), std::string::npos);
        EXPECT_EQ(blocks[5].body.find("replaced by asterisks"), std::string::npos);
    }
    const std::string clear = take(all);
    EXPECT_NE(clear.find(request("rosebud")), std::string::npos);
    EXPECT_EQ(clear.find("replaced by asterisks"), std::string::npos);
}

// Servers repeat the name in their texts, and an answer does not say whose it is.
TEST_F(CaptureTest, NamesThatNoOneHasAreNotInTextsOfServers) {
    names_.use([](const std::string &name) { return name == "alice"; });
    const auto packet = [](char code, char id, const std::string &attributes) {
        return std::string{code, id, 0, static_cast<char>(20 + attributes.size())} + "an authenticator" +
               attributes;
    };
    const auto attribute = [](char type, const std::string &text) {
        return std::string{type, static_cast<char>(2 + text.size())} + text;
    };
    CaptureReader reader(capture_, {.servers = true}), own(capture_, {.secrets = true, .servers = true});
    net::Tap &tap = *loop_.tap();
    tap.datagram(path_, net::Tap::Way::kSent, packet(1, 7, attribute(1, "rosebud")));
    tap.datagram(path_, net::Tap::Way::kSent, packet(1, 8, attribute(1, "alice")));
    tap.datagram(path_, net::Tap::Way::kReceived, packet(3, 7, attribute(18, "rosebud is unknown")));
    tap.datagram(path_, net::Tap::Way::kReceived, packet(3, 8, attribute(18, "alice has no rosebud")));
    const auto blocks = blocks_of(take(reader));
    ASSERT_EQ(blocks.size(), 7u);
    EXPECT_NE(blocks[5].body.find(packet(3, 7, attribute(18, "******** is unknown"))), std::string::npos);
    EXPECT_NE(blocks[6].body.find("alice has no rosebud"), std::string::npos) << "of another login";
    EXPECT_NE(take(own).find("rosebud is unknown"), std::string::npos);
}

TEST_F(CaptureTest, KeysAreForThoseWhoAskedAndToldOnce) {
    auto group = std::make_shared<Group>();
    Server server;
    server.host = "127.0.0.1";
    server.port = 1812;
    server.accounting_port = 1813;
    server.key = Secret("testing123");
    server.transport = "udp";
    group->servers = {server};
    auto snapshot = std::make_shared<Snapshot>();
    snapshot->groups = {group};
    capture_.use(snapshot);
    CaptureReader plain(capture_, {.servers = true});
    CaptureReader reader(capture_, {.servers = true, .keys = true});
    net::Tap &tap = *loop_.tap();
    tap.datagram(path_, net::Tap::Way::kSent, "request");
    tap.datagram(path_, net::Tap::Way::kReceived, "answer");
    tap.tls_key("CLIENT_RANDOM 00 11");
    const std::string bytes = take(reader);
    EXPECT_EQ(types_of(bytes),
              (Types{kSection, kInterface, kInterface, kSecrets, kPacket, kPacket, kSecrets}));
    EXPECT_NE(bytes.find("127.0.0.1:1812\ttesting123"), std::string::npos);
    EXPECT_NE(bytes.find("CLIENT_RANDOM 00 11\n"), std::string::npos);
    EXPECT_EQ(take(plain).find("testing123"), std::string::npos);
}

TEST_F(CaptureTest, NewFramesAreTold) {
    int calls = 0;
    capture_.on_frames([&] { ++calls; });
    CaptureReader reader(capture_, {});
    ask("alice");
    EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace service
