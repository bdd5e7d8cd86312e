// SPDX-License-Identifier: Apache-2.0
//
// Where requests to servers leave this system: an interface's address, and the device of a VRF.

#include <gtest/gtest.h>

#include "platform/control.h"
#include "service/groups/group_fixture.hpp"
#include "support/machine.hpp"
#include "support/sysdb.hpp"
#include "tacacs/test_server.hpp"

namespace groups_test {
namespace {

class AaadDevice : public GroupTest {
  protected:
    static constexpr char kSettings[] = "group-server/radius/corp/settings/";

    radius_test::UdpServer server_{loop_};
};

TEST_F(AaadDevice, MessagesSetThemForAGroup) {
    add_radius(server_);
    lists({"corp"});
    aaad_.start();
    const Bound config("/cfg/gl/aaa/");
    const std::string settings = kSettings;
    for (const uint32_t session : {0u, 1u}) {
        Client client = aaad_.client();
        EXPECT_EQ(client.configure_vrf("branch", "mgmt", 0, session), AAA_ERR_NOT_FOUND);
        EXPECT_EQ(client.configure_vrf("corp", "mgmt", 0, session), AAA_OK);
        EXPECT_EQ(get_text(config.handle(), settings + "vrf"), "mgmt");
        EXPECT_EQ(client.configure_source("corp", "eth0", "", 0, session), AAA_OK);
        EXPECT_EQ(get_text(config.handle(), settings + "source-interface"), "eth0");
        EXPECT_EQ(client.configure_source("corp", "eth1", "oob", 0, session), AAA_OK);
        EXPECT_EQ(get_text(config.handle(), settings + "source-interface"), "eth1");
        EXPECT_EQ(get_text(config.handle(), settings + "vrf"), "oob");
        EXPECT_EQ(client.configure_source("corp", "eth1", "oob", 1, session), AAA_OK);
        EXPECT_EQ(existence(config.handle(), settings + "source-interface"), SYSDB_ERR_NOT_FOUND);
        EXPECT_EQ(get_text(config.handle(), settings + "vrf"), "oob") << "it has a message of its own";
        EXPECT_EQ(client.configure_vrf("corp", "oob", 1, session), AAA_OK);
        EXPECT_EQ(client.configure_vrf("corp", "oob", 1, session), AAA_ERR_NOT_FOUND);
        for (const char *name : {"", "a/b", "a b", "sixteen-letters!"}) {
            EXPECT_EQ(client.configure_vrf("corp", name, 0, session), AAA_ERR_INVALID_CLIENT_DATA) << name;
            EXPECT_EQ(client.configure_source("corp", name, "", 0, session), AAA_ERR_INVALID_CLIENT_DATA)
                << name;
        }
    }
}

TEST_F(AaadDevice, RequestsLeaveByThem) {
    SKIP_WITHOUT_ROOT("older kernels tie sockets to devices for root only");
    add_radius(server_);
    set_text("radius", "", "vrf", "lo");
    set_text("radius", "", "source-interface", "lo");
    tacacs_test::TestServer tacacs(loop_, tacacs_test::kMain, R"({"ann": {"password": "secret"}})");
    add_server("tacacs", "127.0.0.1," + std::to_string(tacacs.address().port()), "tac-secret");
    set_text("tacacs", "", "vrf", "lo");
    lists({"corp"});
    aaad_.start();
    {
        Login login(aaad_, ask_as("ann", "secret"));
        server_.answer(server_.next());
        EXPECT_EQ(login.wait().status, uint32_t{AAA_STAT_PASS});
    }
    aaad_.remove("group-server/radius/");
    aaad_.reload();
    EXPECT_EQ(aaad_.login(ask_as("ann", "secret")).status, uint32_t{AAA_STAT_PASS});
}

// A request that left by the usual routes would show the password to another network.
TEST_F(AaadDevice, OneThatIsMissingIsNamedAndTheServerIsNotAsked) {
    SKIP_WITHOUT_ROOT("older kernels tie sockets to devices for root only");
    add_radius(server_);
    set_text("radius", "", "vrf", "no-such-vrf");
    lists({"corp", AAA_METHOD_LOCAL});
    aaad_.start();
    EXPECT_EQ(aaad_.login().method, uint32_t{AAA_METHOD_LOCAL});
    EXPECT_TRUE(aaad_.wait_for_log("requests cannot be sent over the device no-such-vrf: No such device"));
    aaad_.remove(std::string(kSettings) + "vrf");
    set_text("radius", "", "source-interface", "no-such-if");
    aaad_.reload();
    EXPECT_EQ(aaad_.login().method, uint32_t{AAA_METHOD_LOCAL});
    EXPECT_TRUE(
        aaad_.wait_for_log("the interface no-such-if of the setting \"source-interface\" has no address"));
    EXPECT_FALSE(server_.has_one());
}

}  // namespace
}  // namespace groups_test
