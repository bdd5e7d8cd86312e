// SPDX-License-Identifier: Apache-2.0
//
// The fake platform under GoogleTest: a fresh one before every test, misuse of
// the platform fails the test that runs, and so do calls that the library is
// not supposed to make and list handles that are left at the end.
#pragma once

namespace fake {

// Runs at the start of every program that links this.
void judge_as_tests_do();

}  // namespace fake
