// SPDX-License-Identifier: Apache-2.0
//
// A socket that shows its traffic to the loop's tap.

#include "net/wire.hpp"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace net {
namespace {

struct SeenTap : Tap {
    void datagram(const Path &, Way, std::string_view) override { seen += "datagram "; }
    void opened(const Path &path) override { seen += "opened " + path.server.text() + " "; }
    void bytes(const Path &, Way way, std::string_view bytes) override {
        seen += (way == Way::kSent ? "sent " : "received ") + std::string(bytes) + " ";
        errno = EIO;  // as calls of a tap may leave it
    }
    void closed(const Path &, Way way) override {
        seen += way == Way::kSent ? "closed here " : "closed there ";
    }
    void tls_key(std::string_view) override {}

    std::string seen;
};

class WireTest : public testing::Test {
  protected:
    void SetUp() override {
        int pair[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, pair), 0);
        wire_.use(Descriptor(pair[0]), *Address::parse("192.0.2.1", 49));
        peer_ = Descriptor(pair[1]);
    }

    Loop loop_;
    SeenTap tap_;
    Wire wire_{loop_};
    Descriptor peer_;
    char buffer_[16];
};

TEST_F(WireTest, ATapSeesWhatIsSentAndReceivedAndTheEnd) {
    loop_.set_tap(&tap_);
    wire_.connected();
    EXPECT_EQ(wire_.send("ask"), 3);
    ASSERT_EQ(read(peer_.get(), buffer_, sizeof buffer_), 3);  // else the end is a reset
    ASSERT_EQ(write(peer_.get(), "answer", 6), 6);
    EXPECT_EQ(wire_.receive(buffer_, sizeof buffer_), 6);
    peer_.reset();
    EXPECT_EQ(wire_.receive(buffer_, sizeof buffer_), 0);
    wire_.close();
    wire_.close();
    EXPECT_EQ(tap_.seen, "opened 192.0.2.1:49 sent ask received answer closed there ");
}

TEST_F(WireTest, WhatWasNotConnectedHasNoEnd) {
    loop_.set_tap(&tap_);
    wire_.close();
    EXPECT_EQ(tap_.seen, "");
}

TEST_F(WireTest, ErrorsAreThoseOfTheSocket) {
    loop_.set_tap(&tap_);
    EXPECT_EQ(wire_.receive(buffer_, sizeof buffer_), -1);
    EXPECT_EQ(errno, EAGAIN);
    errno = 0;
    EXPECT_EQ(wire_.send("ask"), 3);
    EXPECT_EQ(errno, 0) << "of the tap";
    peer_.reset();
    EXPECT_EQ(wire_.send("ask"), -1);  // without SIGPIPE
    EXPECT_EQ(errno, EPIPE);
}

TEST_F(WireTest, WithoutATapNothingIsShown) {
    wire_.connected();
    EXPECT_EQ(wire_.send("ask"), 3);
    EXPECT_EQ(tap_.seen, "");
}

}  // namespace
}  // namespace net
