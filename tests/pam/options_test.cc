// SPDX-License-Identifier: Apache-2.0

#include "pam/host.hpp"

using namespace pam_test;

namespace {

class Options : public PamTest {
  protected:
    // The lines that reading the options leaves in the log.
    std::vector<std::string> log_of(const std::string &more) {
        take_log();
        Login login(dir_, options(more));
        EXPECT_EQ(login.account(), PAM_SUCCESS) << more;
        return take_log();
    }
};

TEST_F(Options, OfOtherModulesAreKnownWhereThereIsAnEquivalent) {
    for (const char *option :
         {"debug", "use_first_pass", "try_first_pass", "use_authtok", "skip_passwd", "force_prompt", "ruser",
          "use_ruser", "privilege_level", "nodelay", "timeout=5", "max_challenge=3",
          "prompt=Word:", "list=remote", "service=ppp", "service=shell", "login=pap", "login=login"}) {
        for (const std::string &line : log_of(option)) {
            EXPECT_EQ(line.find("ignored"), std::string::npos) << line;
        }
    }
}

TEST_F(Options, WithoutEquivalentSayWhatIsThereInstead) {
    for (const std::string name : {"conf", "server", "secret", "source_ip", "client_id", "retry", "protocol",
                                   "acct_all", "accounting_bug", "prompt_attribute", "localifdown"}) {
        const auto log = log_of(name + "=hidden-value");
        ASSERT_EQ(log.size(), 1u) << name;
        EXPECT_NE(log[0].find("option " + name + " has no equivalent and is ignored: "), std::string::npos)
            << log[0];
        EXPECT_EQ(log[0].find("hidden-value"), std::string::npos) << log[0];  // it may be a secret
    }
}

TEST_F(Options, ThatAreUnknownAreLoggedAndIgnored) {
    for (const std::string option :
         {"socke", "socket", "debugg", "debug=1", "=", "\x1b]0;x\x07", "timeou=3"}) {
        const auto log = log_of(option);
        ASSERT_EQ(log.size(), 1u) << option;
        EXPECT_NE(log[0].find("is unknown and is ignored"), std::string::npos) << log[0];
        EXPECT_EQ(log[0].find('\x1b'), std::string::npos);
    }
}

TEST_F(Options, WithImpossibleValuesAreLoggedAndIgnored) {
    for (const std::string option :
         {"timeout=", "timeout=0", "timeout=-1", "timeout=3601", "timeout=5s", "timeout=99999999999999999999",
          "max_challenge=0", "max_challenge=65", "service=", "service=exe", "login=chap",
          "login=", "prompt=", "list=", "socket=", "socket=run/aaad.sock"}) {
        const auto log = log_of(option);
        ASSERT_EQ(log.size(), 1u) << option;
        EXPECT_NE(log[0].find("the value is not possible"), std::string::npos) << log[0];
    }
    // What was there before such an option holds.
    EXPECT_EQ(service_.requests().back().list, "default");
}

TEST_F(Options, AreUsed) {
    Login login(dir_, options("list=remote service=ppp login=pap [prompt=The word: ]"));
    EXPECT_EQ(login.authenticate({"x"}), PAM_SUCCESS);
    EXPECT_EQ(login.account(), PAM_SUCCESS);
    const auto requests = service_.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].list, "remote");
    EXPECT_EQ(requests[0].option, static_cast<uint32_t>(AAA_AO_IB_PAP_V1));
    EXPECT_EQ(requests[0].message_type, static_cast<uint32_t>(AAA_MT_IB_PAP_V1));
    EXPECT_EQ(requests[1].service, static_cast<uint32_t>(AAA_SVC_PPP));
    EXPECT_EQ(login.heard().at(0).text, "The word: ");
}

TEST_F(Options, DebugTellsResultsAndNothingElse) {
    Login login(dir_, options("debug"));
    EXPECT_EQ(login.authenticate({"s3cr3t-word"}), PAM_SUCCESS);
    EXPECT_TRUE(logged("result: Success"));
    EXPECT_FALSE(logged("s3cr3t-word"));
    take_log();
    EXPECT_EQ(Login(dir_, options()).authenticate({"x"}), PAM_SUCCESS);
    EXPECT_EQ(take_log().size(), 0u);
}

}  // namespace
