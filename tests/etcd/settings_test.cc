// SPDX-License-Identifier: Apache-2.0
//
// agent.conf: what is read, and what is said of mistakes.

#include "agent/settings.hpp"

#include <gtest/gtest.h>

#include "support/temp_dir.hpp"

namespace {

using namespace sysdb_etcd;

std::vector<std::string> faults_of(const std::string &text) {
    std::vector<service::Fault> faults;
    parse_settings(text, faults);
    std::vector<std::string> lines;
    for (const service::Fault &fault : faults) {
        lines.push_back(std::to_string(fault.line) + ": " + fault.text);
    }
    return lines;
}

using Lines = std::vector<std::string>;

TEST(EtcdSettings, AreRead) {
    std::vector<service::Fault> faults;
    const Settings settings = parse_settings(
        "# the cluster\n"
        "endpoint https://10.0.0.1:2379\n"
        "endpoint https://[fd00::2]:2379 # the second\n"
        "ca-file /etc/aaa/ca.pem\ncertificate-file /etc/aaa/node.pem\nkey-file /etc/aaa/node.key\n"
        "user aaa\npassword-file /etc/aaa/agent.password\nprefix /routers/aaa\nnode r1\n",
        faults);
    EXPECT_TRUE(faults.empty());
    EXPECT_EQ((Lines{"https://10.0.0.1:2379", "https://[fd00::2]:2379"}), settings.address.endpoints);
    EXPECT_EQ("/etc/aaa/ca.pem", settings.address.tls.authorities);
    EXPECT_EQ("/etc/aaa/node.pem", settings.address.tls.certificate);
    EXPECT_EQ("/etc/aaa/node.key", settings.address.tls.key);
    EXPECT_EQ("aaa", settings.address.user);
    EXPECT_EQ("/etc/aaa/agent.password", settings.password_file);
    EXPECT_EQ("/routers/aaa", settings.prefix);
    EXPECT_EQ("r1", settings.node);
}

TEST(EtcdSettings, MistakesAreNamedByLine) {
    EXPECT_EQ((Lines{"0: no endpoint; add a line for each server: endpoint https://HOST:2379"}),
              faults_of(""));
    EXPECT_EQ((Lines{"1: \"endpont\" is not a setting; did you mean \"endpoint\"?",
                     "0: no endpoint; add a line for each server: endpoint https://HOST:2379"}),
              faults_of("endpont https://a:1\n"));
    for (const char *endpoint :
         {"a:1", "ftp://a:1", "https://a", "https://a:x", "https://a:1/v3", "https://:1", "https://a:70000",
          "https://u@a:1", "https://a:1?x", "https://::1:1", "https://[::1]", "https://[::1:1",
          "https://[a]:1", "https://a:0"}) {
        EXPECT_EQ(1u, faults_of("endpoint " + std::string(endpoint) + "\n").size()) << endpoint;
    }
    EXPECT_EQ((Lines{}), faults_of("endpoint https://[2001:db8::1]:2379\n"));
    const std::string sound = "endpoint http://a:1\n";
    EXPECT_EQ((Lines{}), faults_of(sound));
    EXPECT_EQ((Lines{"2: \"http://a:1\" is named twice"}), faults_of(sound + sound));
    EXPECT_EQ((Lines{"3: \"prefix\" is already set on line 2"}), faults_of(sound + "prefix /a\nprefix /b\n"));
    EXPECT_EQ((Lines{"2: \"user\" takes one word"}), faults_of(sound + "user\n"));
    EXPECT_EQ((Lines{"2: the line holds a control character"}), faults_of(sound + "user a\x01\n"));
    EXPECT_EQ((Lines{"0: user and password-file belong together"}),
              faults_of("endpoint https://a:1\nuser a\n"));
    EXPECT_EQ((Lines{"0: certificate-file and key-file belong together"}),
              faults_of(sound + "key-file /etc/key\n"));
    EXPECT_EQ((Lines{"0: the password would be sent to http://a:1 in clear text; use https"}),
              faults_of(sound + "user a\npassword-file /p\n"));
    for (const char *prefix : {"a", "/", "/a/", "//a", "/a b", "/a*"}) {
        EXPECT_EQ(1u, faults_of(sound + "prefix " + prefix + "\n").size()) << prefix;
    }
    EXPECT_EQ(1u, faults_of(sound + "node a/b\n").size());
    EXPECT_EQ(1u, faults_of(sound + "ca-file ca.pem\n").size());
}

TEST(EtcdSettings, FilesOfSecretsAreChecked) {
    const TempDir directory;
    const std::string password = directory.write("password", "secret\n", 0640);
    const std::string text = "endpoint https://a:1\nuser aaa\npassword-file " + password + "\n";
    const std::string file = directory.write("agent.conf", text, 0644);
    std::vector<std::string> faults;
    EXPECT_EQ("secret", read_settings(file, faults).address.password);
    EXPECT_EQ((Lines{}), faults);

    chmod(password.c_str(), 0644);
    read_settings(file, faults);
    ASSERT_EQ(1u, faults.size());
    EXPECT_NE(std::string::npos, faults[0].find(password + ": every user may read")) << faults[0];

    faults.clear();
    chmod(password.c_str(), 0660);
    read_settings(file, faults);
    ASSERT_EQ(1u, faults.size());
    EXPECT_NE(std::string::npos, faults[0].find("may write it")) << faults[0];

    faults.clear();
    directory.write("password", "\n");
    read_settings(file, faults);
    ASSERT_EQ(1u, faults.size());
    EXPECT_EQ(password + ": the first line has no password", faults[0]);

    faults.clear();
    directory.write("agent.conf", "endpoint https://a:1\ncertificate-file " + password + "\nkey-file " +
                                      directory.path("missing") + "\n");
    read_settings(file, faults);
    ASSERT_EQ(1u, faults.size());
    EXPECT_NE(std::string::npos, faults[0].find("missing: No such file")) << faults[0];

    faults.clear();
    read_settings(directory.path("none.conf"), faults);
    EXPECT_EQ(1u, faults.size());
}

}  // namespace
