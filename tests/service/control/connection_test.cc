// SPDX-License-Identifier: Apache-2.0
//
// Clients of the control socket that do not read. aaad_*_test have those that do.

#include "control/connection.hpp"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "groups/groups.hpp"

namespace service {
namespace {

struct Ended {
    std::size_t packets = 0;
    std::uint64_t seen = 0, dropped = 0;  // as the figures at the end tell
    std::string comment;
    bool is_whole = false;
};

template <typename T>
T load(const std::string &bytes, std::size_t at) {
    T value{};
    if (at + sizeof value <= bytes.size()) {
        std::memcpy(&value, bytes.data() + at, sizeof value);
    }
    return value;
}

// What a reader of a capture finds after the line of JSON.
Ended read_capture(const std::string &bytes) {
    constexpr std::uint32_t kStatistics = 5, kPacket = 6;
    Ended found;
    std::size_t at = bytes.find('\n') + 1;
    while (at + 12 <= bytes.size()) {
        const auto type = load<std::uint32_t>(bytes, at);
        const auto length = load<std::uint32_t>(bytes, at + 4);
        if (length < 12 || length > bytes.size() - at) {
            return found;
        }
        found.packets += type == kPacket ? 1 : 0;
        for (std::size_t option = at + 20; type == kStatistics && option + 4 < at + length - 4;) {
            const auto code = load<std::uint16_t>(bytes, option);
            const auto size = load<std::uint16_t>(bytes, option + 2);
            if (code == 1) {
                found.comment = bytes.substr(option + 4, size);
            } else if (code == 4) {
                found.seen = load<std::uint64_t>(bytes, option + 4);
            } else if (code == 5) {
                found.dropped = load<std::uint64_t>(bytes, option + 4);
            }
            option += 4 + (size + 3) / 4 * 4;
        }
        at += length;
    }
    found.is_whole = at == bytes.size();
    return found;
}

class ControlConnectionTest : public testing::Test {
  protected:
    ControlConnectionTest() {
        int pair[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, pair), 0);
        client_ = net::Descriptor(pair[0]);
        Peer peer;
        peer.pid = getpid();
        peer.uid = getuid();
        connection_ = std::make_unique<ControlConnection>(host_, net::Descriptor(pair[1]), peer);
    }
    void run_while_connected() {
        while (connection_ != nullptr) {
            loop_.run_once(loop_.now() + net::kSecond);
        }
    }
    std::string received() const {
        std::string all;
        char bytes[65536];
        for (ssize_t got; (got = recv(client_.get(), bytes, sizeof bytes, 0)) > 0;) {
            all.append(bytes, static_cast<std::size_t>(got));
        }
        return all;
    }

    net::Loop loop_;
    KnownNames names_;
    Capture capture_{loop_, names_, "test"};
    Trace trace_;
    Groups groups_{loop_, trace_};
    ControlSources sources_{
        loop_, trace_, groups_, capture_, [] { return SnapshotPtr(); }, [] { return std::size_t{0}; },
        "1",   ""};
    std::unique_ptr<ControlConnection> connection_;
    ControlConnection::Host host_{sources_, [] { return std::size_t{1}; },
                                  [this](ControlConnection *) { connection_.reset(); },
                                  20 * net::kMillisecond};
    net::Descriptor client_;
};

// The file of a reader that did not read for a minute ended within a frame, and told neither why nor how
// many frames it misses.
TEST_F(ControlConnectionTest, ACaptureThatIsNotReadEndsWithItsLossesAndTheReason) {
    const std::string request = "{\"request\":\"capture\",\"secrets\":true}\n";
    ASSERT_EQ(send(client_.get(), request.data(), request.size(), 0), static_cast<ssize_t>(request.size()));
    while (capture_.readers() == 0) {
        loop_.run_once(loop_.now() + net::kSecond);
    }
    const std::string large(60000, 'x');
    constexpr std::size_t kFrames = 400;  // three times what a reader's queue holds
    for (std::size_t i = 0; i < kFrames; ++i) {
        capture_.add({false, 1, 0, 0, 1, 1, 3, 7, "alice", {large, 0, true}});
        if (connection_ != nullptr) {
            connection_->on_news();
        }
    }
    run_while_connected();
    EXPECT_EQ(capture_.readers(), 0u);
    const Ended file = read_capture(received());
    EXPECT_TRUE(file.is_whole) << "it ends within a block";
    EXPECT_GT(file.packets, 0u);
    EXPECT_EQ(file.seen, kFrames);
    EXPECT_EQ(file.packets + file.dropped, kFrames);
    EXPECT_NE(file.comment.find("its reader took nothing"), std::string::npos) << file.comment;
}

TEST_F(ControlConnectionTest, AClientThatAsksNothingIsDropped) {
    run_while_connected();
    EXPECT_EQ(received(), "");
}

}  // namespace
}  // namespace service
