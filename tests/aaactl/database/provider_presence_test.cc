// SPDX-License-Identifier: Apache-2.0
//
// Every command uses the provider that AAA_SYSDB_PROVIDER names, also where none is installed.

#include <filesystem>

#include "aaactl/support/database_fixture.hpp"

namespace {

using aaactl_test::in_shell;

class ProviderPresence : public aaactl_test::DatabaseTest {
  protected:
    ProviderPresence() : provider_("AAA_SYSDB_PROVIDER", dir().path("provider.so")) {
        std::filesystem::copy_file(AAACTL_PROVIDER, dir().path("provider.so"));
    }
    static aaactl_test::Run without_installed(const std::string &command) {
        return in_shell(
            "ASAN_OPTIONS=verify_asan_link_order=0:$ASAN_OPTIONS LD_PRELOAD=" AAACTL_NO_INSTALLED_PROVIDER
            " " +
            command);
    }

  private:
    ScopedEnv provider_;
};

TEST_F(ProviderPresence, TheNamedProviderServesEveryCommand) {
    for (const char *command :
         {"aaactl sg add radius corp 192.0.2.20", "aaactl sg list corp",
          "aaactl mlist set authentication login default group:corp local", "aaactl sg publish",
          "aaactl sysdb get /cfg/gl/aaa/authentication/login/default"}) {
        const auto run = without_installed(command);
        EXPECT_EQ(run.status, 0) << command << ": " << run.err;
    }
    const auto explained = without_installed("aaactl explain authentication login --json").json();
    EXPECT_EQ(explained["client"]["code"], 0) << explained;
    EXPECT_EQ(explained["client"]["methods"].dump(), "[1001,2]");
}

TEST_F(ProviderPresence, WithoutOneTheCommandsSaySo) {
    const auto none = without_installed("env -u AAA_SYSDB_PROVIDER aaactl sg add radius corp 192.0.2.20");
    EXPECT_EQ(none.status, 5) << "the library finds none: " << none.out;
    const auto absent =
        without_installed("env AAA_SYSDB_PROVIDER=/nonexistent aaactl sg add radius corp 192.0.2.20");
    EXPECT_EQ(absent.status, 5) << absent.out;
}

}  // namespace
