// SPDX-License-Identifier: Apache-2.0
//
// CI passed without root: the tests that need it were skipped, most of them inside
// programs whose other tests passed, so no report showed it.

#include "support/machine.hpp"

#include <gtest/gtest-spi.h>

namespace {

class Machine : public testing::Test {
  protected:
    void TearDown() override { unsetenv("AAA_TESTS_MACHINE_HAS"); }
};

void skip_without_wings() {
    SKIP_WITHOUT("wings", false, "needs to fly");
    ADD_FAILURE() << "went on";
}

// The result of the function: it must not count for this test.
std::string result_of(void (*function)()) {
    testing::TestPartResultArray results;
    {
        testing::ScopedFakeTestPartResultReporter reporter(&results);
        function();
    }
    if (results.size() != 1) {
        return std::to_string(results.size()) + " results";
    }
    const testing::TestPartResult &result = results.GetTestPartResult(0);
    return (result.skipped()          ? "skipped: "
            : result.fatally_failed() ? "failed: "
                                      : "went on: ") +
           std::string(result.message());
}

TEST_F(Machine, TestIsSkippedWhereNothingIsPromised) {
    unsetenv("AAA_TESTS_MACHINE_HAS");
    EXPECT_TRUE(result_of(skip_without_wings).starts_with("skipped: needs to fly"));
    setenv("AAA_TESTS_MACHINE_HAS", "root mounts wingspan", 1);
    EXPECT_TRUE(result_of(skip_without_wings).starts_with("skipped: needs to fly"));
}

TEST_F(Machine, TestFailsWhereThePromiseIsNotKept) {
    setenv("AAA_TESTS_MACHINE_HAS", "root wings", 1);
    EXPECT_TRUE(result_of(skip_without_wings)
                    .starts_with("failed: Failed\nneeds to fly, and AAA_TESTS_MACHINE_HAS says that this "
                                 "machine has \"wings\""))
        << result_of(skip_without_wings);
}

TEST_F(Machine, TestRunsWithWhatItNeeds) {
    setenv("AAA_TESTS_MACHINE_HAS", "wings", 1);
    bool ran = false;
    [&ran] {
        SKIP_WITHOUT("wings", true, "needs to fly");
        ran = true;
    }();
    EXPECT_TRUE(ran);
}

}  // namespace
