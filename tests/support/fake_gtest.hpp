// SPDX-License-Identifier: Apache-2.0
//
// The fake platform under GoogleTest: a fresh one before every test, misuse of
// the platform fails the test that runs, and so do calls that the library is
// not supposed to make and list handles that are left at the end.
#pragma once

namespace fake {

// What every program that links this does from the start.
void judge_as_tests_do();

}  // namespace fake
