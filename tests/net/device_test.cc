// SPDX-License-Identifier: Apache-2.0

#include "net/device.hpp"

#include <gtest/gtest.h>
#include <netinet/in.h>

#include "net/descriptor.hpp"
#include "support/machine.hpp"

namespace net {
namespace {

Descriptor datagram_socket() {
    return Descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
}

TEST(Device, TiesASocket) {
    SKIP_WITHOUT_ROOT("older kernels tie sockets to devices for root only");
    const Descriptor tied = datagram_socket();
    EXPECT_EQ(tie_to_device(tied.get(), "lo"), "");
    char name[64] = "";
    socklen_t size = sizeof name;
    EXPECT_EQ(getsockopt(tied.get(), SOL_SOCKET, SO_BINDTODEVICE, name, &size), 0);
    EXPECT_STREQ(name, "lo");
}

TEST(Device, LeavesASocketWithoutOne) {
    const Descriptor free = datagram_socket();
    EXPECT_EQ(tie_to_device(free.get(), ""), "");
    char name[64] = "";
    socklen_t size = sizeof name;
    EXPECT_EQ(getsockopt(free.get(), SOL_SOCKET, SO_BINDTODEVICE, name, &size), 0);
    EXPECT_STREQ(name, "");
}

TEST(Device, NamesOneThatIsMissing) {
    SKIP_WITHOUT_ROOT("older kernels tie sockets to devices for root only");
    const Descriptor socket = datagram_socket();
    for (const char *name : {"no-such-device", "a-name-that-is-too-long-for-a-device"}) {
        EXPECT_EQ(tie_to_device(socket.get(), name),
                  "the device " + std::string(name) +
                      ": No such device; \"ip link\" lists the devices of this system");
    }
}

TEST(Device, FindsTheAddressOfAnInterface) {
    const auto address = address_of_interface("lo", AF_INET);
    ASSERT_TRUE(address);
    EXPECT_EQ(address->text(), "127.0.0.1:0");
    EXPECT_FALSE(address_of_interface("no-such-device", AF_INET));
    EXPECT_FALSE(address_of_interface("", AF_INET));
}

}  // namespace
}  // namespace net
