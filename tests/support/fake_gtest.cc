// SPDX-License-Identifier: Apache-2.0
//
// Connects the fake platform to GoogleTest.

#include "support/fake_gtest.hpp"

#include <gtest/gtest.h>

#include "testkit/fake_platform.hpp"

namespace fake {
namespace {

class Listener : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo &) override { reset(); }
    void OnTestEnd(const testing::TestInfo &) override {
        EXPECT_EQ(sysdb::open_lists(), 0u) << "a list handle was not freed";
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

}  // namespace fake
