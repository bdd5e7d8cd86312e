// SPDX-License-Identifier: Apache-2.0

#include "radius/settings.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace radius {
namespace {

ServerSettings good() {
    ServerSettings settings;
    settings.address = *net::Address::parse("192.0.2.1", 1812);
    settings.secret = Secret("secret");
    return settings;
}

std::string fault_after(const std::function<void(ServerSettings &)> &change) {
    ServerSettings settings = good();
    change(settings);
    return fault_of(settings);
}

TEST(RadiusSettings, AreGoodByDefault) {
    EXPECT_EQ(fault_of(good()), "");
}

TEST(RadiusSettings, NeedAnAddress) {
    EXPECT_EQ(fault_after([](auto &s) { s.address = {}; }), "the server has no address or no port");
    EXPECT_EQ(fault_after([](auto &s) { s.address = *net::Address::parse("192.0.2.1", 0); }),
              "the server has no address or no port");
}

TEST(RadiusSettings, NeedALocalAddressThatFits) {
    EXPECT_EQ(fault_after([](auto &s) { s.local = net::Address::parse("2001:db8::1", 0); }),
              "the local address and the server's address must both be IPv4 or both IPv6");
    EXPECT_EQ(fault_after([](auto &s) { s.local = net::Address::parse("192.0.2.2", 1812); }),
              "the local address must have no port: each socket needs one of its own");
    EXPECT_EQ(fault_after([](auto &s) { s.local = net::Address::parse("192.0.2.2", 0); }), "");
}

TEST(RadiusSettings, NeedASecret) {
    EXPECT_EQ(fault_after([](auto &s) { s.secret = Secret(); }),
              "the server has no shared secret: without one anybody could answer for it");
}

TEST(RadiusSettings, NeedANameInsteadForTls) {
    std::string error;
    const auto context = net::TlsContext::make({}, error);
    ASSERT_NE(context, nullptr) << error;
    EXPECT_EQ(fault_after([&](auto &s) {
                  s.secret = Secret();
                  s.tls = {context, "aaa.test"};
              }),
              "");
    EXPECT_EQ(fault_after([&](auto &s) {
                  s.tls = {context, ""};
              }),
              "the name in the server's certificate is not set");
}

TEST(RadiusSettings, NeedNumbersInTheirRanges) {
    const std::string times = "the times must be above 0 and at most an hour";
    EXPECT_EQ(fault_after([](auto &s) { s.timeout = 0; }), times);
    EXPECT_EQ(fault_after([](auto &s) { s.timeout = s.longest_timeout = 3600 * net::kSecond + 1; }), times);
    EXPECT_EQ(fault_after([](auto &s) { s.rest = -1; }), times);
    EXPECT_EQ(fault_after([](auto &s) { s.longest_timeout = s.timeout - 1; }),
              "the longest time-out must not be below the first");
    EXPECT_EQ(fault_after([](auto &s) { s.tries = 0; }), "the number of tries must be 1 to 100");
    EXPECT_EQ(fault_after([](auto &s) { s.tries = 101; }), "the number of tries must be 1 to 100");
    EXPECT_EQ(fault_after([](auto &s) { s.max_sockets = 0; }), "the number of sockets must be 1 to 256");
    EXPECT_EQ(fault_after([](auto &s) { s.max_sockets = 257; }), "the number of sockets must be 1 to 256");
    EXPECT_EQ(fault_after([](auto &s) { s.max_connections = 0; }),
              "the number of connections must be 1 to 256");
    EXPECT_EQ(fault_after([](auto &s) { s.watchdog = 0; }),
              "the times of connections must be above 0 and at most an hour");
    EXPECT_EQ(fault_after([](auto &s) { s.nas_identifier = std::string(254, 'n'); }),
              "the NAS identifier is longer than 253 bytes");
}

}  // namespace
}  // namespace radius
