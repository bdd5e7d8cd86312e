// SPDX-License-Identifier: Apache-2.0

#include "groups/server_client.hpp"

#include <gtest/gtest.h>

#include "support/temp_dir.hpp"

namespace service {
namespace {

Server server_at(const std::string &host, const std::string &key = "key") {
    Server server;
    server.entry = server.host = host;
    server.port = server.accounting_port = 1812;
    server.key = Secret(key);
    server.timeout_ms = 1000;
    server.tries = 2;
    server.transport = "udp";
    return server;
}

Snapshot with(std::vector<Server> servers) {
    Group group;
    group.servers = std::move(servers);
    Snapshot snapshot;
    snapshot.groups = {std::make_shared<const Group>(group)};
    return snapshot;
}

class ServerClientsTest : public testing::Test {
  protected:
    net::Loop loop_;
    ServerClients clients_{loop_};
};

TEST_F(ServerClientsTest, EqualServersOfAllGroupsShareAClient) {
    Snapshot snapshot = with({server_at("127.0.0.1"), server_at("127.0.0.2")});
    snapshot.groups.push_back(snapshot.groups.front());
    clients_.use(snapshot);
    EXPECT_EQ(clients_.all().size(), 2u);
    EXPECT_EQ(clients_.find(server_at("127.0.0.1")), clients_.all()[0]);
    EXPECT_EQ(clients_.all()[0]->longest_wait(), 2 * net::kSecond);
}

TEST_F(ServerClientsTest, AChangeReplacesAClientThatEndsWithItsLastUser) {
    clients_.use(with({server_at("127.0.0.1")}));
    ServerClientPtr before = clients_.find(server_at("127.0.0.1"));
    const std::weak_ptr<ServerClient> watch = before;
    clients_.use(with({server_at("127.0.0.1")}));
    EXPECT_EQ(clients_.find(server_at("127.0.0.1")), before) << "nothing has changed for it";
    clients_.use(with({server_at("127.0.0.1", "corrected")}));
    const ServerClientPtr after = clients_.find(server_at("127.0.0.1", "corrected"));
    EXPECT_NE(after, before);
    EXPECT_NE(after->health(Use::kRights), before->health(Use::kRights))
        << "no mark of the wrong key is left";
    EXPECT_FALSE(clients_.has_health(before->health(Use::kRights)));
    EXPECT_EQ(clients_.find(server_at("127.0.0.1")), before) << "for requests of the earlier configuration";
    before.reset();
    EXPECT_TRUE(watch.expired());
}

TEST_F(ServerClientsTest, AFileThatIsWrittenAgainReplacesAClient) {
    const TempDir dir;
    Server server = server_at("127.0.0.1");
    server.vendor_map = dir.write("map", "32473 1 number privilege\n");
    clients_.use(with({server}));
    const ServerClientPtr before = clients_.find(server);
    EXPECT_EQ(before->fault(), "");
    EXPECT_EQ(before->vendor_map().lines().size(), 1u);
    dir.write("map", "");
    clients_.use(with({server}));
    EXPECT_TRUE(clients_.find(server)->vendor_map().lines().empty());
    dir.write("map", "wrong\n");
    clients_.use(with({server}));
    EXPECT_NE(clients_.find(server)->fault().find("map:1:"), std::string::npos)
        << clients_.find(server)->fault();
}

TEST_F(ServerClientsTest, AServerThatCannotBeAskedSaysWhy) {
    Server server = server_at("127.0.0.1");
    server.source = "eth0";
    EXPECT_NE(clients_.find(server)->fault().find("\"eth0\", which is not an address"), std::string::npos);
    server = server_at("127.0.0.1");
    server.transport = "tls";
    server.ca_file = "/nonexistent/ca.pem";
    EXPECT_NE(clients_.find(server)->fault().find("/nonexistent/ca.pem"), std::string::npos);
    server.protocol = Protocol::kTacacs;
    EXPECT_NE(clients_.find(server)->fault().find("/nonexistent/ca.pem"), std::string::npos);
    server = server_at("127.0.0.1", "");
    EXPECT_NE(clients_.find(server)->fault(), "");
}

}  // namespace
}  // namespace service
