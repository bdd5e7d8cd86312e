// SPDX-License-Identifier: Apache-2.0
//
// Connections over TLS, certificates that are not the right ones, and tokens.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "etcd/certificates.hpp"
#include "etcd/load.hpp"
#include "platform/sysdb_changes.h"

namespace {

using namespace etcd_test;

// What the agent says of its connection, once it has tried.
std::string trouble_of(const Node &node) {
    EXPECT_TRUE(eventually([&] {
        return node.log().find("not following the cluster: ") != std::string::npos;
    })) << node.status();
    EXPECT_NE(std::string::npos, node.status().find("\"state\":\"connecting\"")) << node.status();
    const std::string log = node.log();
    return log.substr(log.find("not following the cluster: "));
}

cerrno change(const Node &node, uint32_t number) {
    cerrno rc = 0;
    Pipe result;
    on_node(node, [&] {
        setenv("AAA_SYSDB_WAIT_MS", "1500", 1);
        const Bound bound("/cfg/tls/");
        rc = set_number(bound.handle(), "item", number);
        for (int i = 0; i < 4; ++i) {
            result.put(static_cast<char>(rc >> (8 * i)));
        }
    });
    for (int i = 0; i < 4; ++i) {
        char byte = 0;
        EXPECT_EQ(1, read(result.reading_end(), &byte, 1));
        rc |= static_cast<cerrno>(static_cast<unsigned char>(byte)) << (8 * i);
    }
    return rc;
}

TEST(SysdbEtcdCertificates, OfTheServerAreChecked) {
    const Certificates certificates;
    Cluster cluster(options_with(certificates, "server"));
    cluster.start_all();
    Node right(cluster, "right", {"ca-file " + certificates.ca});
    EXPECT_EQ(0, right.import().status);
    right.start();
    ASSERT_TRUE(right.wait_until_following()) << right.log();
    EXPECT_EQ(0u, change(right, 1));

    Node wrong(cluster, "wrong", {"ca-file " + certificates.other_ca});
    EXPECT_EQ(0, wrong.adopt().status);
    wrong.start();
    EXPECT_NE(std::string::npos, trouble_of(wrong).find("certificate")) << wrong.log();
    EXPECT_EQ(SYSDB_ERR_NO_MAJORITY, change(wrong, 2));
}

TEST(SysdbEtcdCertificates, ExpiredAndForeignOnesAreRefused) {
    const Certificates certificates;
    for (const char *server : {"expired", "elsewhere"}) {
        Cluster cluster(options_with(certificates, server));
        cluster.start(0);
        ASSERT_TRUE(eventually([&] {
            return run_program({"curl", "-sk", cluster.endpoint(0)}).status != 7;
        }));
        Node node(cluster, "node", {"ca-file " + certificates.ca});
        node.start();
        const std::string trouble = trouble_of(node);
        EXPECT_TRUE(trouble.find("expired") != std::string::npos ||
                    trouble.find("subject name") != std::string::npos ||
                    trouble.find("does not match") != std::string::npos)
            << trouble;
    }
}

TEST(SysdbEtcdCertificates, OfTheNodeAreShown) {
    const Certificates certificates;
    Cluster cluster(options_with(certificates, "server", true));
    cluster.start_all();
    Node right(cluster, "right",
               {"ca-file " + certificates.ca, "certificate-file " + certificates.certificate("node"),
                "key-file " + certificates.key("node")});
    const Ended imported = right.import();
    EXPECT_EQ(0, imported.status) << imported.output;
    right.start();
    ASSERT_TRUE(right.wait_until_following()) << right.log();
    EXPECT_EQ(0u, change(right, 1));

    Node none(cluster, "none", {"ca-file " + certificates.ca});
    none.start();
    trouble_of(none);
    Node stranger(cluster, "stranger",
                  {"ca-file " + certificates.ca, "certificate-file " + certificates.certificate("stranger"),
                   "key-file " + certificates.key("stranger")});
    stranger.start();
    trouble_of(stranger);
}

TEST(SysdbEtcdTokens, AreFetchedAndRenewed) {
    const Certificates certificates;
    Cluster cluster(options_with(certificates, "server"));
    cluster.start_all();
    const auto control = [&](std::vector<std::string> words) {
        words.insert(words.begin(), {"--cacert", certificates.ca});
        const Ended ended = cluster.control(words);
        EXPECT_EQ(0, ended.status) << ended.output;
    };
    control({"role", "add", "root"});
    control({"user", "add", "root:admin"});
    control({"user", "grant-role", "root", "root"});
    control({"role", "add", "aaa"});
    control({"role", "grant-permission", "aaa", "--prefix=true", "readwrite", "/aaa/"});
    control({"user", "add", "aaa:secret"});
    control({"user", "grant-role", "aaa", "aaa"});
    control({"auth", "enable"});
    const std::vector<std::string> settings = {"ca-file " + certificates.ca, "user aaa",
                                               "password-file " + certificates.password("secret")};
    Node node(cluster, "node", settings);
    const Ended imported = node.import();
    EXPECT_EQ(0, imported.status) << imported.output;
    node.start();
    ASSERT_TRUE(node.wait_until_following()) << node.log();
    EXPECT_EQ(0u, change(node, 1));

    // A member forgets the tokens when it ends.
    cluster.kill(0);
    cluster.start(0);
    ASSERT_TRUE(node.wait_until_following()) << node.log();
    EXPECT_TRUE(eventually([&] { return change(node, 2) == 0; })) << node.log();
}

TEST(SysdbEtcdTokens, WrongPasswordIsSaid) {
    const Certificates certificates;
    Cluster cluster(options_with(certificates, "server"));
    cluster.start_all();
    const auto control = [&](std::vector<std::string> words) {
        words.insert(words.begin(), {"--cacert", certificates.ca});
        const Ended ended = cluster.control(words);
        EXPECT_EQ(0, ended.status) << ended.output;
    };
    control({"role", "add", "root"});
    control({"user", "add", "root:admin"});
    control({"user", "grant-role", "root", "root"});
    control({"auth", "enable"});
    Node wrong(
        cluster, "wrong",
        {"ca-file " + certificates.ca, "user root", "password-file " + certificates.password("not it")});
    const Ended imported = wrong.import();
    EXPECT_EQ(1, imported.status);
    EXPECT_NE(std::string::npos, imported.output.find("authentication failed")) << imported.output;
    wrong.start();
    EXPECT_NE(std::string::npos, trouble_of(wrong).find("authentication failed")) << wrong.log();
    Node without(cluster, "without", {"ca-file " + certificates.ca});
    without.start();
    trouble_of(without);
}

// The servers have an alarm when their database is as large as it may become.
TEST(SysdbEtcdQuota, IsAFullDatabase) {
    Cluster::Options options;
    options.members = 1;
    options.more = {"--quota-backend-bytes", "1048576"};
    Cluster cluster(options);
    cluster.start_all();
    Node node(cluster, "node");
    EXPECT_EQ(0, node.import().status);
    node.start();
    ASSERT_TRUE(node.wait_until_following()) << node.log();
    on_node(node, [] {
        const Bound bound("/cfg/full/");
        const std::string value(200000, 'x');
        cerrno rc = 0;
        for (int i = 0; i < 50 && rc == 0; ++i) {
            rc = set_text(bound.handle(), std::to_string(i), value);
        }
        EXPECT_EQ(SYSDB_ERR_FULL, rc) << std::hex << rc;
        EXPECT_EQ(value, get_text(bound.handle(), "0")) << "reading goes on";
    });
}

}  // namespace
