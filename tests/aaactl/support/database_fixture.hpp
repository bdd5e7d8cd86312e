// SPDX-License-Identifier: Apache-2.0
//
// A test with a private system database, which only the programs that it runs open.

#pragma once

#include <string>

#include "aaactl/support/program_run.hpp"
#include "support/temp_dir.hpp"

namespace aaactl_test {

class DatabaseTest : public ::testing::Test {
  protected:
    DatabaseTest()
        : cfg_("AAA_SYSDB_CFG_DIR", dir_.path("cfg")), run_("AAA_SYSDB_RUN_DIR", dir_.path("run")) {}

    const TempDir &dir() const { return dir_; }

    // Stores one value that the test needs.
    static void put(const std::string &path, const std::string &type, const std::string &value) {
        const auto run = aaactl({"sysdb", "set", path, "--type", type, "--force"}, value);
        ASSERT_EQ(run.status, 0) << path << ": " << run.err;
    }
    // Its text with secrets, without the trailing line feed; "" if there is no such item.
    static std::string value_of(const std::string &path) {
        const auto run = aaactl({"sysdb", "get", path, "--show-secrets"});
        return run.status == 0 ? run.out.substr(0, run.out.size() - 1) : "";
    }

  private:
    TempDir dir_;
    ScopedEnv cfg_;
    ScopedEnv run_;
};

}  // namespace aaactl_test
