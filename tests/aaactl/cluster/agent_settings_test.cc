// SPDX-License-Identifier: Apache-2.0
//
// The settings that cluster join writes, and the commands on a machine without an agent.

#include "cluster/agent_settings.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "aaactl/support/database_fixture.hpp"

namespace {

using aaactl::with_settings;
using aaactl_test::aaactl;
using aaactl_test::DatabaseTest;

TEST(AgentSettings, KeepsWhatIsThere) {
    const std::string before = "# ours\nendpoint http://a:1 # one\n  endpoint http://b:1\n\nuser x\n# end";
    EXPECT_EQ(before, with_settings(before, {}));
    EXPECT_EQ(before, with_settings(before, {{"endpoint", {"http://a:1", "http://b:1"}}, {"user", {"x"}}}));
    EXPECT_EQ("# ours\nendpoint http://c:1\nendpoint http://d:1\n\nuser x\n# end\n",
              with_settings(before, {{"endpoint", {"http://c:1", "http://d:1"}}}));
    EXPECT_EQ(before + "\nnode n1\n", with_settings(before, {{"node", {"n1"}}}));
}

TEST(AgentSettings, ValuesAreThoseOfTheKey) {
    EXPECT_EQ((std::vector<std::string>{"a", "b", ""}),
              aaactl::values_of("x a\n#x c\n x \tb # d\r\nxx e\nx", "x"));
}

TEST(AgentSettings, ServersInClearAreThoseOfOtherMachines) {
    const std::vector<std::string> own = {"http://127.0.0.1:2379", "http://127.1.2.3:1", "http://localhost:1",
                                          "http://[::1]:2379",     "https://10.0.0.1:1", "http://127.0.0.1"};
    EXPECT_EQ(std::vector<std::string>{}, aaactl::servers_in_clear(own));
    const std::vector<std::string> others = {
        "http://10.0.0.1:2379", "http://[2001:db8::1]:1", "http://[::1", "http://127.0.0.1.example.com:1",
        "http://localhost.a:1", "http://0.0.0.0:1",       "http://[",    "http://"};
    std::vector<std::string> in_clear = others;
    in_clear.erase(in_clear.begin() + 2);
    std::vector<std::string> all = own;
    all.insert(all.end(), others.begin(), others.end());
    EXPECT_EQ(in_clear, aaactl::servers_in_clear(all)) << "one without its bracket is refused elsewhere";
}

TEST(AgentSettings, OldFileStaysUntilTheNewOneIsPutInItsPlace) {
    const TempDir dir;
    dir.write("agent.conf", "node a\n");
    ASSERT_EQ(0, chmod(dir.path("agent.conf").c_str(), 0604));
    {
        aaactl::NewSettings settings(dir.path("agent.conf"));
        settings.write("node b\n");
        EXPECT_EQ("node a\n", dir.read("agent.conf"));
        EXPECT_EQ("node b\n", dir.read("agent.conf.new"));
    }
    EXPECT_NE(0, access(dir.path("agent.conf.new").c_str(), F_OK));
    dir.write("agent.conf.new", "of a command that was interrupted");
    aaactl::NewSettings settings(dir.path("agent.conf"));
    settings.write("node c\n");
    settings.put_in_place();
    EXPECT_EQ("node c\n", dir.read("agent.conf"));
    struct stat status {};
    ASSERT_EQ(0, stat(dir.path("agent.conf").c_str(), &status));
    EXPECT_EQ(0604u, status.st_mode & 07777);
}

class ClusterWithoutAgent : public DatabaseTest {
  protected:
    ClusterWithoutAgent() : agent_("AAA_SYSDB_AGENT", dir().path("none")) {}
    std::string settings() const { return dir().path("agent.conf"); }

  private:
    ScopedEnv agent_;
};

TEST_F(ClusterWithoutAgent, CommandsSayWhatToInstall) {
    for (const char *command : {"status", "leave"}) {
        const auto run = aaactl({"cluster", command, "--config", settings()});
        EXPECT_EQ(5, run.status);
        EXPECT_NE(std::string::npos, run.err.find("apt-get install aaa-sysdb-agent")) << run.err;
    }
}

TEST_F(ClusterWithoutAgent, JoinNeedsTheProviderForClusters) {
    const auto run = aaactl({"cluster", "join", "http://127.0.0.1:1", "--config", settings()});
    EXPECT_EQ(5, run.status);
    EXPECT_NE(std::string::npos, run.err.find("not the provider for clusters")) << run.err;
    EXPECT_NE(0, access(settings().c_str(), F_OK));
}

}  // namespace
