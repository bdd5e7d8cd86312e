// SPDX-License-Identifier: Apache-2.0
//
// Every command uses the provider that AAA_SYSDB_PROVIDER names, also where none is installed.

#include <algorithm>
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

// Symptom: the database was said to be absent, and nothing named the file, nor the variable.
class WrongProvider : public aaactl_test::DatabaseTest {
  protected:
    WrongProvider() : log_("AAA_LOG", "") {}

    // Of every kind of command: one line, which says what is wrong and what to do.
    static void expect_told(const std::string &file, const std::string &why) {
        const ScopedEnv provider("AAA_SYSDB_PROVIDER", file);
        for (const char *command :
             {"lint", "explain authentication login", "sg publish", "sg list", "sg add radius corp 192.0.2.1",
              "sg del radius corp", "mlist show", "sysdb get /cfg/x", "sysdb set /cfg/x --type u32 1"}) {
            const auto run = in_shell(std::string("aaactl ") + command);
            EXPECT_EQ(run.status, 5) << command;
            EXPECT_EQ(run.out, "") << command;
            EXPECT_TRUE(run.err.starts_with("aaactl: there is no system database: AAA_SYSDB_PROVIDER names " +
                                            file + ": " + why))
                << command << ": " << run.err;
            EXPECT_TRUE(
                run.err.ends_with("; correct the variable, or unset it to use the installed "
                                  "provider\n"))
                << command << ": " << run.err;
            EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << command << ": " << run.err;
        }
    }

  private:
    ScopedEnv log_;
};

TEST_F(WrongProvider, AFileThatIsMissingIsNamedWithTheVariable) {
    expect_told(dir().path("none.so"), "No such file or directory");
}

TEST_F(WrongProvider, SoIsAFileThatIsNoProvider) {
    expect_told(dir().write("text.so", "not an object\n"),
                "provider cannot be loaded: " + dir().path("text.so") + ": ");
    expect_told(AAACTL_NO_INSTALLED_PROVIDER, AAACTL_NO_INSTALLED_PROVIDER " is not a sysdb provider");
}

}  // namespace
