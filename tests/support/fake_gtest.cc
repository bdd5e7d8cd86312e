// SPDX-License-Identifier: Apache-2.0
//
// The fake platform under GoogleTest: a fresh one for every test, and misuse
// of the platform fails the test that runs.

#include <gtest/gtest.h>

#include "support/fake_platform.hpp"

namespace fake {
namespace {

bool keep = false;

class Listener : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo &) override {
        if (!keep) {
            reset();
        }
    }
    void OnTestEnd(const testing::TestInfo &) override {
        if (!keep) {
            EXPECT_EQ(sysdb::open_lists(), 0u) << "a list handle was not freed";
        }
    }
};

[[maybe_unused]] const bool listening = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new Listener);
    judge_as_tests_do();
    return true;
}();

}  // namespace

void judge_as_tests_do() {
    on_misuse([](const std::string &text) { ADD_FAILURE() << "platform contract: " << text; });
    expect_the_library(true);
}

void keep_between_tests() {
    keep = true;
}

}  // namespace fake
